// Exact sums of products of doubles.
#ifndef ZELK_ARRAYS_EXACT_SUM_H_
#define ZELK_ARRAYS_EXACT_SUM_H_

#include <array>

#include "zelk/arrays/stochastic.h"

namespace zelk::arrays::detail {

/// A sum in fixed point, long enough for all products of doubles: digits of 32 bits, each with room
/// for carries that are still to be made. After Kulisch, "Computer Arithmetic and Validity" (2008).
class ExactSum {
 public:
  /// Adds x * y.
  void add(double x, double y);
  /// Adds what is a sum of products already, not all of which are 0.
  void add_sum(double x) {
    any_other = true;
    if (x != 0) {
      add(x, 1);
    }
  }
  /// The sum rounded into f once, by a draw if there is one: as `dot` of environments has it. The
  /// sum is then used up.
  double rounded(Environment& env, Format f, const std::optional<std::uint64_t>& draw);

 private:
  // The lowest digit of a product of subnormals is 2^-2148, the highest of 2^64 products 2^2112.
  static constexpr int low_bit = 2176;
  static constexpr int size = (low_bit + 2112) / 32 + 4;
  // A word of 64 bits holds 2^31 digits of 32; so few cost nothing and happen in short sums, too.
  static constexpr int adds_between_carries = 1 << 10;

  void add_word(std::uint64_t x, int place, bool negative);
  void carry();
  Wide value();

  std::array<std::int64_t, size> digit{};
  int lowest = size, highest = 0;  // the digits that are not 0 are in [lowest, highest)
  int adds = 0;
  bool any_nan = false, any_invalid = false;
  bool any_infinity[2] = {}, any_zero[2] = {}, any_other = false;
};

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_EXACT_SUM_H_
