// Stochastic rounding: the draws, and numbers rounded by one.
#ifndef ZELK_ARRAYS_STOCHASTIC_H_
#define ZELK_ARRAYS_STOCHASTIC_H_

#include <array>

#include "zelk/arrays/shape.h"
#include "zelk/words/shape.h"

namespace zelk::arrays::detail {

/// Philox4x32-10 of Salmon, Moraes, Dror and Shaw, "Parallel Random Numbers: As Easy as 1, 2, 3"
/// (2011): the multipliers of its two products and what is added to the two words of its key.
struct Philox {
  static constexpr std::uint32_t multiplier[] = {0xD2511F53, 0xCD9E8D57};
  static constexpr std::uint32_t weyl[] = {0x9E3779B9, 0xBB67AE85};
  static constexpr int rounds = 10;

  /// Four random words.
  static std::array<std::uint32_t, 4> words(std::array<std::uint32_t, 4> counter,
                                            std::array<std::uint32_t, 2> key);
  /// Draw n: 64 random bits.
  static std::uint64_t draw(std::uint64_t seed, std::uint64_t n);
};

/// A finite number: significand * 2^exponent. The lowest bit of a significand that is not exact
/// is 1.
struct Wide {
  bool negative = false;
  words::uint128 significand = 0;
  int exponent = 0;
};

/// A double other than a NaN or an infinity.
Wide wide(double x);

/// x rounded by a draw into f; raises the environment's flags. The significand keeps 64 exact
/// digits below the last place of f, or is exact itself.
double round_stochastic(Environment& env, Wide x, Shape f, std::uint64_t draw);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_STOCHASTIC_H_
