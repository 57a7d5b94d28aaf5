// Sums in fixed point: what makes long sums of short terms fast.
#ifndef ZELK_EXACT_ACCUMULATOR_H_
#define ZELK_EXACT_ACCUMULATOR_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zelk/exact/terms.h"
#include "zelk/words/shape.h"

namespace zelk::exact {

/// A sum of multiples of 2^low below 2^(low + 64 limbs). Positive and negative terms are added up
/// apart, so that no borrow runs through all digits where a sum changes its sign.
class Accumulator {
 public:
  Accumulator(std::int64_t low, std::size_t limbs)
      : lowest(low), size(limbs), digits(2 * (limbs + 3)) {}

  /// Takes in +-significand * 2^exponent.
  void add(bool negative, words::uint128 significand, std::int64_t exponent) {
    const auto place = static_cast<std::uint64_t>(exponent - lowest);
    std::uint64_t* digit = digits.data() + place / 64 + (negative ? size + 3 : 0);
    const unsigned k = place % 64;
    const words::uint128 low = words::uint128{static_cast<std::uint64_t>(significand)} << k;
    const words::uint128 high = words::uint128{static_cast<std::uint64_t>(significand >> 64)} << k;
    words::uint128 sum = low + digit[0];
    digit[0] = static_cast<std::uint64_t>(sum);
    sum = high + (sum >> 64) + digit[1];  // fits: the sum of three words and a product's part
    digit[1] = static_cast<std::uint64_t>(sum);
    sum = (sum >> 64) + digit[2];
    digit[2] = static_cast<std::uint64_t>(sum);
    for (std::size_t i = 3; sum >> 64 != 0; ++i) {
      sum = words::uint128{1} + digit[i];
      digit[i] = static_cast<std::uint64_t>(sum);
    }
  }

  /// The sum.
  Term total() const;

 private:
  std::int64_t lowest;
  std::size_t size;
  std::vector<std::uint64_t> digits;  // of the positive terms, then of the negative ones
};

/// The same for a sum that fits 127 bits: in registers.
class ShortAccumulator {
 public:
  explicit ShortAccumulator(std::int64_t low) : lowest(low) {}

  void add(bool negative, words::uint128 significand, std::int64_t exponent) {
    const words::uint128 term = significand << (exponent - lowest);
    sum += negative ? 0 - term : term;
  }
  Term total() const;

 private:
  std::int64_t lowest;
  words::uint128 sum = 0;  // in two's complement
};

}  // namespace zelk::exact

#endif  // ZELK_EXACT_ACCUMULATOR_H_
