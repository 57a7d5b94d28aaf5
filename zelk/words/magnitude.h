// Patterns in one or two words as numbers, whatever their widths: what is asked of a value without
// arithmetic in its format.
#ifndef ZELK_WORDS_MAGNITUDE_H_
#define ZELK_WORDS_MAGNITUDE_H_

#include <bit>
#include <compare>
#include <cstdint>

#include "zelk/rules/rounding.h"
#include "zelk/words/bits.h"
#include "zelk/words/integers.h"
#include "zelk/words/shape.h"

namespace zelk::words {

/// Whether a format has its patterns in words, and exponents that fit one.
constexpr bool has_magnitudes(rules::Widths f) {
  return f.exp_width >= 2 && f.exp_width <= 62 && f.mant_width >= 1 &&
         f.mant_width <= 127 - f.exp_width;
}

/// A magnitude other than 0: sig / 2^127 * 2^exponent, the leading bit of sig in the highest place.
struct Magnitude {
  std::int64_t exponent;
  uint128 sig;

  // NOLINTNEXTLINE(modernize-use-nullptr): of what the compiler writes
  auto operator<=>(const Magnitude&) const = default;

  /// The exponent of the lowest digit.
  std::int64_t lowest() const {
    const std::uint64_t low = low_word(sig);
    const int zeros = low != 0 ? std::countr_zero(low) : 64 + std::countr_zero(high_word(sig));
    return exponent - 127 + zeros;
  }
};

/// The magnitude of a finite pattern other than 0.
inline Magnitude magnitude_of(rules::Widths f, const std::uint64_t* x) {
  const auto m = static_cast<int>(f.mant_width);
  const auto total = static_cast<int>(f.exp_width) + m;
  const uint128 pattern = double_word(total > 63 ? x[1] : 0, x[0]) & ((uint128{1} << total) - 1);
  const auto field = static_cast<std::int64_t>(pattern >> m);
  const uint128 sig = (pattern & ((uint128{1} << m) - 1)) | uint128{field != 0} << m;
  const std::int64_t bias = (std::int64_t{1} << (f.exp_width - 1)) - 1;
  const int zeros =
      high_word(sig) != 0 ? std::countl_zero(high_word(sig)) : 64 + std::countl_zero(low_word(sig));
  return {field + std::int64_t{field == 0} - bias - m + 127 - zeros, sig << zeros};
}

/// A magnitude rounded to an integer; without a value where that is 2^63 or more.
struct RoundedInteger {
  std::uint64_t value;
  bool changed;
};
inline bool round_to_integer(const Magnitude& x, rules::Direction d, bool negative,
                             RoundedInteger& out) {
  if (x.exponent > 62) {
    return false;
  }
  // The digits above the point, and what is below it: a half, and less.
  uint128 whole = 0;
  uint128 below = 0;
  if (x.exponent >= 0) {
    whole = x.sig >> (127 - x.exponent);
    below = x.sig << 1 << x.exponent;
  } else {
    below = x.exponent == -1 ? x.sig : 1;
  }
  const bool half = (below >> 127) != 0;
  const bool rest = (below << 1) != 0;
  whole +=
      static_cast<unsigned>(rules::increments(d, negative, (low_word(whole) & 1) != 0, half, rest));
  out = {low_word(whole), half || rest};
  return whole >> 63 == 0;
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_MAGNITUDE_H_
