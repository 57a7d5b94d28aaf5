// Sums and products in two words, in fewer steps than the way of one word takes there: what is
// below a significand stays apart, in a third word, and nothing is moved that need not be.
#ifndef ZELK_WORDS_TWO_WORDS_H_
#define ZELK_WORDS_TWO_WORDS_H_

#include <cstdint>

#include "zelk/base/machine.h"
#include "zelk/words/rounding.h"

namespace zelk::words {

// A significand with its leading bit where patterns have the hidden bit, and the 64 digits below,
// the lowest of them set also for any digit beneath: the value +-sig * 2^(exp + 1 - bias -
// mant_width). A nonzero `sign` is the pattern's sign bit.
struct Window {
  uint128 sign;
  std::int64_t exp;
  uint128 sig;
  std::uint64_t below;
};

// Whether rounding increments what has these digits below: they are compared with a half.
[[gnu::always_inline]] inline bool rounds_up(Direction mode, bool negative, bool odd,
                                             std::uint64_t below) {
  constexpr std::uint64_t half = std::uint64_t{1} << 63;
  if (mode == rules::nearest) [[likely]]
    return (below | std::uint64_t{odd}) > half;
  return mode == rules::nearest_away ? below >= half
         : mode == rules::to_odd     ? below != 0 && !odd
                                     : below != 0 && rules::rounds_outward(mode, negative);
}

// A pattern that has digits below, rounded; a carry out of the significand goes to the exponent.
template <Shape S>
[[gnu::always_inline]] inline uint128 round_pattern(S s, uint128 pattern, std::uint64_t below,
                                                    Direction mode) {
  const bool negative = (high_word(pattern) & high_word(sign_bit(s))) != 0;
  raise(s, below != 0 || (low_word(pattern) & (low_word(ulp(s)) - 1)) != 0, rules::inexact);
  if (ulp(s) == 1) {
    const bool odd = (low_word(pattern) & 1) != 0;
    return pattern + std::uint64_t{rounds_up(mode, negative, odd, below)};
  }
  // All that is cut off is in the low word.
  const std::uint64_t unit = low_word(ulp(s));
  const std::uint64_t low = low_word(pattern);
  if (mode == rules::nearest) [[likely]] {
    pattern += (unit / 2 - 1) + std::uint64_t{(low & unit) != 0 || below != 0};
  } else if (mode == rules::nearest_away) {
    pattern += unit / 2;
  } else {
    pattern =
        (pattern | std::uint64_t{below != 0}) + to_carry(mode, negative, (low & unit) != 0, unit);
  }
  return double_word(high_word(pattern), low_word(pattern) & (0 - unit));
}

// Rounds and packs, for an exponent inside the range; the hidden bit adds one to the field.
template <Shape S>
[[gnu::always_inline]] inline uint128 round_and_pack_inside(S s, const Window& x, Direction mode) {
  return round_pattern(s, x.sign | plus_scaled(x.sig, x.exp, s.mant_width), x.below, mode);
}

// The same for any exponent.
template <Shape S>
[[gnu::always_inline]] inline uint128 round_and_pack(S s, const Window& x, Direction mode) {
  const std::int64_t n = lead<uint128> - s.mant_width;
  const uint128 sig = shift_left(x.sig, n) | x.below >> 1 >> (63 - n);
  return round_and_pack(s, Unpacked<uint128>{x.sign, x.exp, sig | std::uint64_t{x.below << n != 0}},
                        mode);
}

// A significand divided by 2^n, and the digits below as in a window.
struct Shifted {
  uint128 sig;
  std::uint64_t below;
};
[[gnu::always_inline]] inline Shifted shift_down(uint128 sig, std::uint64_t n) {
  std::uint64_t high = high_word(sig);
  std::uint64_t low = low_word(sig);
  const std::uint64_t back = ~n & 63;  // 63 - n
  if (n > 63) [[unlikely]] {
    if (n > 127) return {0, std::uint64_t{sig != 0}};
    const std::uint64_t lost{low << 1 << back != 0};
    return {high >> (n & 63), (low >> (n & 63) | high << 1 << back) | lost};
  }
  return {double_word(high >> n, low >> n | high << 1 << back), low << 1 << back};
}

// Two patterns, the one of larger magnitude first. Which one that is is as good as random to a
// branch predictor: this takes no branch. Compilers do not keep to conditional moves, so they are
// spelt out. What a high word has above its magnitude is shifted out by `above`.
struct OrderedPatterns {
  uint128 large;
  uint128 small;
};
[[gnu::always_inline]] inline OrderedPatterns order_patterns(uint128 a, uint128 b,
                                                             std::uint64_t a_key,
                                                             std::uint64_t b_key) {
#ifdef ZELK_X86_64
  const std::uint64_t a_low = low_word(a);
  const std::uint64_t b_low = low_word(b);
  const std::uint64_t a_high = high_word(a);
  const std::uint64_t b_high = high_word(b);
  std::uint64_t large_low = a_low;
  std::uint64_t large_high = a_high;
  std::uint64_t small_low = b_low;
  std::uint64_t small_high = b_high;
  std::uint64_t difference = a_key;
  asm("cmpq %[b_low], %[a_low]\n\tsbbq %[b_key], %[difference]\n\t"
      "cmovbq %[b_low], %[large_low]\n\tcmovbq %[b_high], %[large_high]\n\t"
      "cmovbq %[a_low], %[small_low]\n\tcmovbq %[a_high], %[small_high]"
      : [large_low] "+&r"(large_low), [large_high] "+&r"(large_high), [small_low] "+&r"(small_low),
        [small_high] "+&r"(small_high), [difference] "+&r"(difference)
      : [a_low] "r"(a_low), [b_low] "r"(b_low), [a_high] "r"(a_high), [b_high] "r"(b_high),
        [b_key] "r"(b_key)
      : "cc");
  return {double_word(large_high, large_low), double_word(small_high, small_low)};
#else
  const auto less =
      mask_if<uint128>(double_word(a_key, low_word(a)) < double_word(b_key, low_word(b)));
  const uint128 change = (a ^ b) & less;
  return {a ^ change, b ^ change};
#endif
}

// out := a + b, rounded. False for infinities, NaNs, where both are tiny, where little is left, and
// at the ends of the range.
template <Shape S>
[[gnu::always_inline]] inline bool add_patterns(S s, uint128 a, uint128 b, Direction mode,
                                                uint128& out) {
  const std::uint64_t sign_bit = high_word(words::sign_bit(s));
  const std::int64_t above = 128 - s.exp_width - s.mant_width;  // bits from the sign up
  const auto [large, small] = order_patterns(a, b, high_word(a) << above, high_word(b) << above);
  const std::uint64_t minus =
      0 - ((high_word(a) ^ high_word(b)) << (above - 1) >> 63);  // all ones or none
  const std::int64_t place = s.mant_width - 63;
  const std::uint64_t field = high_word(large) << above >> (64 - s.exp_width);
  const std::uint64_t small_field = high_word(small) << above >> (64 - s.exp_width);
  if (field - 2 >= static_cast<std::uint64_t>(exp_max(s)) - 2) [[unlikely]]
    return false;
  const std::uint64_t small_exp = small_field - 1 + (small_field < 1);
  const uint128 small_sig = plus_scaled(double_word(high_word(small) & ~sign_bit, low_word(small)),
                                        -static_cast<std::int64_t>(small_exp), s.mant_width);
  const Shifted part = shift_down(small_sig, field - 1 - small_exp);
  // The exponent is the upper digits of the number that a pattern is. While the sum leaves it as it
  // is, there is nothing to do but to round.
  Carry carry = minus & 1;
  const std::uint64_t below = add_word(part.below ^ minus, 0, carry);
  const std::uint64_t low_sum = add_word(low_word(part.sig) ^ minus, low_word(large), carry);
  const std::uint64_t high_sum = add_word(high_word(part.sig) ^ minus, high_word(large), carry);
  const uint128 sum = double_word(high_sum, low_sum);
  if ((high_word(sum) ^ high_word(large)) >> (place - 1) == 0) [[likely]] {
    out = round_pattern(s, sum, below, mode);
    raise(s, is_inf(s, out), rules::overflow);  // which is inexact
    return true;
  }
  const std::uint64_t sign = high_word(large) & sign_bit;
  const std::uint64_t high =
      plus_scaled(high_word(sum) - sign, 1 - static_cast<std::int64_t>(field), place - 1);
  const std::uint64_t low = low_word(sum);
  if (high == 0) [[unlikely]]
    return false;
  // The leading bit moves to one place above where it belongs, which only a carry reaches by
  // itself, and back by one.
  const std::int64_t up = place - highest_bit(high);
  const std::int64_t down = 63 - up;
  const std::uint64_t top = high << up | low >> 1 >> down;
  const std::uint64_t bottom = low << up | below >> 1 >> down;
  const std::uint64_t lost = below << up;
  const std::int64_t exp = static_cast<std::int64_t>(field) - up;
  if (static_cast<std::uint64_t>(exp) >= static_cast<std::uint64_t>(exp_max(s) - 2)) [[unlikely]]
    return false;
  const Window moved{double_word(sign, 0), exp, double_word(top >> 1, bottom >> 1 | top << 63),
                     bottom << 63 | lost >> 1 | (lost & 1)};
  out = round_and_pack_inside(s, moved, mode);
  return true;
}

// The product of two significands with the hidden bit in place, exp being the sum of their fields.
// What y has above its hidden bit, and that bit itself, play no part.
template <Shape S>
[[gnu::always_inline]] inline Window multiply(S s, uint128 sign, uint128 x, uint128 y,
                                              std::int64_t exp) {
  const std::uint64_t z_high = high_word(y) << (127 - s.mant_width) |
                               low_word(y) >> 1 >> (s.mant_width - 64) | std::uint64_t{1} << 63;
  const uint128 z = double_word(z_high, low_word(y) << (127 - s.mant_width));
  const uint128 low = uint128{low_word(x)} * low_word(z);
  const uint128 cross = uint128{high_word(x)} * low_word(z) + high_word(low);
  const uint128 middle = uint128{low_word(x)} * high_word(z) + low_word(cross);
  const uint128 sig = uint128{high_word(x)} * high_word(z) + high_word(cross) + high_word(middle);
  const std::uint64_t below = low_word(middle) | std::uint64_t{low_word(low) != 0};
  // The leading bit is in its place or one below, as good as at random.
  const std::uint64_t n = (high_word(sig) >> (s.mant_width - 64)) ^ 1;
  const std::uint64_t top = high_word(sig) << n | (low_word(sig) >> 63 & n);
  return {sign, exp - bias(s) - static_cast<std::int64_t>(n),
          double_word(top, low_word(sig) << n | (below >> 63 & n)), below << n};
}

// The quotient of such significands, exp being the difference of their fields. The dividend is
// halved, so that its digits are below the divisor's.
template <Shape S>
[[gnu::always_inline]] inline Window divide(S s, uint128 sign, uint128 x, uint128 y,
                                            std::int64_t exp) {
  const std::int64_t n = 127 - s.mant_width;
  const uint128 divisor = shift_left(y, n);
  uint128 rest = shift_left(x, n - 1);
  const std::uint64_t high = next_digit(rest, 0, divisor);
  const std::uint64_t low = next_digit(rest, 0, divisor);
  const auto carry = static_cast<std::int64_t>(high >> 63);  // x is not below y
  const std::int64_t down = n - 1 + carry;
  const std::int64_t up = 64 - down;
  return {sign, exp + bias(s) - 2 + carry, double_word(high >> down, low >> down | high << up),
          low << up | std::uint64_t{rest != 0}};
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_TWO_WORDS_H_
