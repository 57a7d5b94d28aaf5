// Sums and products in two words, in fewer steps than the way of one word takes there: what is
// below a significand stays apart, in a third word, and nothing is moved that need not be.
#ifndef ZELK_WORDS_TWO_WORDS_H_
#define ZELK_WORDS_TWO_WORDS_H_

#include <cstdint>

#include "zelk/words/rounding.h"

namespace zelk::words {

// A significand with its leading bit where patterns have the hidden bit, and the 64 digits below,
// the lowest of them set also for any digit beneath: +-sig * 2^(exp - bias - mant_width).
struct Window {
  uint128 sig;
  std::uint64_t below;
  std::int64_t exp;
};

// Whether rounding increments what has these digits below: they are compared with a half.
[[gnu::always_inline]] inline bool rounds_up(Direction mode, bool negative, bool odd,
                                             std::uint64_t below) {
  constexpr std::uint64_t half = std::uint64_t{1} << 63;
  return mode == rules::nearest ? (below | std::uint64_t{odd}) > half
                                : below != 0 && rules::rounds_outward(mode, negative);
}

// A pattern that has digits below, rounded; a carry out of the significand goes to the exponent.
template <Shape S>
[[gnu::always_inline]] inline uint128 round_pattern(S s, uint128 pattern, std::uint64_t below,
                                                    Direction mode) {
  const bool negative = (high_word(pattern) >> 63) != 0;
  if (ulp(s) == 1) {
    const bool odd = (low_word(pattern) & 1) != 0;
    return pattern + std::uint64_t{rounds_up(mode, negative, odd, below)};
  }
  const uint128 unit = ulp(s);
  if (mode == rules::nearest) [[likely]] {
    pattern += (unit / 2 - 1) + std::uint64_t{(pattern & unit) != 0 || below != 0};
  } else if (rules::rounds_outward(mode, negative)) {
    pattern = (pattern | std::uint64_t{below != 0}) + (unit - 1);
  }
  return pattern & (0 - unit);
}

// Rounds and packs; the exponent may be any.
template <Shape S>
[[gnu::always_inline]] inline uint128 round_and_pack(S s, uint128 sign, Window x, Direction mode) {
  const std::int64_t below_exp = x.exp - 1;  // the hidden bit adds one to the field
  if (static_cast<std::uint64_t>(below_exp) >= static_cast<std::uint64_t>(exp_max(s) - 2))
      [[unlikely]] {
    const std::int64_t n = lead<uint128> - s.mant_width;
    const uint128 sig = shift_left(x.sig, n) | x.below >> 1 >> (63 - n);
    return round_and_pack_at_border(s, sign, below_exp, sig | std::uint64_t{x.below << n != 0},
                                    mode);
  }
  return round_pattern(s, sign | plus_scaled(x.sig, below_exp, s.mant_width), x.below, mode);
}

// A significand divided by 2^n.
[[gnu::always_inline]] inline Window shift_down(uint128 sig, std::uint64_t n) {
  std::uint64_t high = high_word(sig);
  std::uint64_t low = low_word(sig);
  const std::uint64_t back = ~n & 63;  // 63 - n
  if (n > 127) [[unlikely]]
    return {0, std::uint64_t{sig != 0}, 0};
  if (n > 63) [[unlikely]] {
    const std::uint64_t lost{low << 1 << back != 0};
    return {high >> (n & 63), (low >> (n & 63) | high << 1 << back) | lost, 0};
  }
  return {double_word(high >> n, low >> n | high << 1 << back), low << 1 << back, 0};
}

// The sum of two finite magnitudes, or their difference if `minus` is all ones, rounded; false, and
// nothing done, if little is left or there was little. `sign` is the larger one's.
template <Shape S>
[[gnu::always_inline]] inline bool add_magnitudes(S s, uint128 large, uint128 small, uint128 sign,
                                                  std::uint64_t minus, Direction mode,
                                                  uint128& out) {
  const std::int64_t exp = exponent_below(s, large);
  const std::int64_t small_exp = exponent_below(s, small);
  if (exp == 0) [[unlikely]]
    return false;
  const Window part = shift_down(integer_significand(s, small, small_exp),
                                 static_cast<std::uint64_t>(exp - small_exp));
  const std::uint64_t below = (part.below ^ minus) - minus;
  // The exponent is the upper digits of the number that a pattern is. While the sum leaves it as it
  // is, there is nothing to do but to round. A complement is carried into where nothing is below.
  const uint128 pattern = large | sign;
  const uint128 sum = pattern +
                      double_word(high_word(part.sig) ^ minus, low_word(part.sig) ^ minus) +
                      (minus & std::uint64_t{part.below == 0});
  if ((high_word(sum) ^ high_word(pattern)) >> (s.mant_width - 64) == 0) [[likely]] {
    out = round_pattern(s, sum, below, mode);
    return true;
  }
  const uint128 rest = plus_scaled(sum ^ sign, -exp, s.mant_width);
  const std::uint64_t high = high_word(rest);
  const std::uint64_t low = low_word(rest);
  if (high == 0) [[unlikely]]
    return false;
  // The leading bit moves to one place above where it belongs, which only a carry reaches by
  // itself, and back by one.
  const std::int64_t up = s.mant_width - 63 - highest_bit(high);
  const std::int64_t down = 63 - up;
  const std::uint64_t top = high << up | low >> 1 >> down;
  const std::uint64_t bottom = low << up | below >> 1 >> down;
  const std::uint64_t lost = below << up;
  const Window x{double_word(top >> 1, bottom >> 1 | top << 63),
                 bottom << 63 | lost >> 1 | (lost & 1), exp + 2 - up};
  out = round_and_pack(s, sign, x, mode);
  return true;
}

// The product of two significands with the hidden bit in place, exp being the sum of their fields.
template <Shape S>
[[gnu::always_inline]] inline Window multiply(S s, uint128 x, uint128 y, std::int64_t exp) {
  const uint128 z = shift_left(y, 127 - s.mant_width);
  const uint128 low = uint128{low_word(x)} * low_word(z);
  const uint128 cross = uint128{high_word(x)} * low_word(z) + high_word(low);
  const uint128 middle = uint128{low_word(x)} * high_word(z) + low_word(cross);
  const uint128 sig = uint128{high_word(x)} * high_word(z) + high_word(cross) + high_word(middle);
  const std::uint64_t below = low_word(middle) | std::uint64_t{low_word(low) != 0};
  // The leading bit is in its place or one below, as good as at random.
  const std::uint64_t n = (high_word(sig) >> (s.mant_width - 64)) ^ 1;
  const std::uint64_t top = high_word(sig) << n | (low_word(sig) >> 63 & n);
  return {double_word(top, low_word(sig) << n | (below >> 63 & n)), below << n,
          exp - bias(s) + 1 - static_cast<std::int64_t>(n)};
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_TWO_WORDS_H_
