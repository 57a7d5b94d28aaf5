// Sums, products and quotients of patterns in two words whose significands fit one: most of the
// work is that of one word.
#ifndef ZELK_WORDS_NARROW_H_
#define ZELK_WORDS_NARROW_H_

#include <bit>
#include <cstdint>

#include "zelk/words/two_words.h"

namespace zelk::words {

[[gnu::always_inline]] inline std::uint64_t narrow_field(NarrowShape s, uint128 a) {
  return (high_word(a) << (64 - s.mant_width) | low_word(a) >> s.mant_width) &
         static_cast<std::uint64_t>(exp_max(s));
}

// A normal pattern taken apart: the exponent field less one, and the significand with its leading
// bit in the highest place.
struct NarrowNumber {
  std::int64_t exp;
  std::uint64_t sig;
};
[[gnu::always_inline]] inline NarrowNumber unpack_narrow(NarrowShape s, uint128 a) {
  const std::uint64_t low = low_word(a);
  const std::uint64_t field = narrow_field(s, a);
  return {static_cast<std::int64_t>(field) - 1,
          low << (63 - s.mant_width) | std::uint64_t{1} << 63};
}

// A significand sig:below, its leading bit in the highest place and its lowest bit sticky, rounded
// and packed for an exponent inside the range; the hidden bit adds one to the field.
[[gnu::always_inline]] inline uint128 pack_narrow(NarrowShape s, std::uint64_t sign,
                                                  std::int64_t exp, std::uint64_t sig,
                                                  std::uint64_t below, Direction mode) {
  const std::int64_t n = 63 - s.mant_width;
  const std::uint64_t integer = sig >> n;
  const std::uint64_t digits =
      sig << 1 << s.mant_width | below >> n | std::uint64_t{below << 1 != 0};
  const std::uint64_t increment{rounds_up(mode, sign != 0, integer % 2 != 0, digits)};
  const auto field = static_cast<std::uint64_t>(exp);
  return double_word(field >> (64 - s.mant_width) | sign, field << s.mant_width) + integer +
         increment;
}

// out := the product or quotient, rounded. False but for normal operands and results.
template <bool divide>
[[gnu::always_inline]] inline bool scale_narrow(NarrowShape s, uint128 a, uint128 b, Direction mode,
                                                uint128& out) {
  const auto x = unpack_narrow(s, a);
  const auto y = unpack_narrow(s, b);
  if (!is_normal_exponent(s, x.exp) || !is_normal_exponent(s, y.exp)) [[unlikely]]
    return false;
  std::uint64_t sig = 0;
  std::uint64_t below = 0;
  std::int64_t exp = 0;
  if constexpr (divide) {
    const std::uint64_t carry{x.sig >= y.sig};
    const auto [q, rest] = divide_word(double_word(x.sig >> carry, (x.sig & carry) << 63), y.sig);
    sig = q;
    // A quotient is never halfway between two significands.
    below = std::uint64_t{rest >= y.sig - rest} << 63 | std::uint64_t{rest != 0};
    exp = x.exp - y.exp + bias(s) - 2 + static_cast<std::int64_t>(carry);
  } else {
    const uint128 product = uint128{x.sig} * y.sig;
    const std::uint64_t n = high_word(product) >> 63 ^ 1;
    sig = high_word(product) << n | (low_word(product) >> 63 & n);
    below = low_word(product) << n;
    exp = x.exp - bias(s) + y.exp + 2 - static_cast<std::int64_t>(n);
  }
  if (!is_inside(s, exp)) [[unlikely]]
    return false;
  const std::uint64_t sign = high_word(a ^ b) & high_word(sign_bit(s));
  out = pack_narrow(s, sign, exp, sig, below, mode);
  return true;
}

// out := a + b, rounded. False but for normal operands and results.
[[gnu::always_inline]] inline bool add_patterns(NarrowShape s, uint128 a, uint128 b, Direction mode,
                                                uint128& out) {
  const std::uint64_t sign_bit = high_word(words::sign_bit(s));
  const auto [large, small] =
      order_patterns(a, b, high_word(a) & (sign_bit - 1), high_word(b) & (sign_bit - 1));
  const auto x = unpack_narrow(s, large);
  const auto y = unpack_narrow(s, small);
  if (!is_normal_exponent(s, x.exp) || y.exp < 0) [[unlikely]]
    return false;
  const Shifted part = shift_down(y.sig, static_cast<std::uint64_t>(x.exp - y.exp));
  const std::uint64_t minus = 0 - std::uint64_t{(high_word(a ^ b) & sign_bit) != 0};
  Carry carry = minus & 1;
  const std::uint64_t below = add_word(part.below ^ minus, 0, carry);
  const std::uint64_t sum = add_word(low_word(part.sig) ^ minus, x.sig, carry);
  // Halved, so that a carry has room. A difference leaves one that is none.
  const std::uint64_t half = sum >> 1 | (carry & ~minus) << 63;
  if (half == 0) [[unlikely]]
    return false;
  const std::uint64_t rest = sum << 63 | below >> 1 | (below & 1);
  const std::int64_t zeros = std::countl_zero(half);
  const std::int64_t exp = x.exp + 1 - zeros;
  if (!is_inside(s, exp)) [[unlikely]]
    return false;
  out = pack_narrow(s, high_word(large) & sign_bit, exp, half << zeros | rest >> 1 >> (63 - zeros),
                    rest << zeros, mode);
  return true;
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_NARROW_H_
