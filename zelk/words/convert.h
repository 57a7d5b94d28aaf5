// Patterns in words converted between formats and from integers and ratios, rounded once.
#ifndef ZELK_WORDS_CONVERT_H_
#define ZELK_WORDS_CONVERT_H_

#include <algorithm>
#include <bit>
#include <cstdint>

#include "zelk/words/arithmetic.h"

namespace zelk::words {

// Whether one shape has all values of another, and its patterns room for the significand.
template <Shape From, Shape To>
constexpr bool widens(From from, To to) {
  return from.exp_width <= to.exp_width && kept_width(from) <= kept_width(to) &&
         from.mant_width <= to.mant_width && sizeof(Word<From>) <= sizeof(Word<To>);
}

template <Shape From, Shape To>
constexpr Word<To> converted_sign(From from, To to, Word<From> a) {
  return sign_bit(to) & mask_if<Word<To>>(sign_of(from, a) != 0);
}

// out := the pattern `a` of one shape rounded to another; false where `a` is not normal, and where
// the result is not or may be beyond the range.
template <Shape From, Shape To>
[[gnu::always_inline]] inline bool convert_usual(From from, To to, Word<From> a, Direction mode,
                                                 Word<To>& out) {
  const Word<To> sign = converted_sign(from, to, a);
  const auto normal = unpack_normal(from, a);
  if (!is_normal_exponent(from, normal.exp)) [[unlikely]]
    return false;
  const std::int64_t bias_change = bias(to) - bias(from);
  if (widens(from, to)) {
    // Nothing to round: more zeros behind the significand, and another bias.
    const std::int64_t zeros = std::max<std::int64_t>(to.mant_width - from.mant_width, 0);
    out = sign | plus_scaled(static_cast<Word<To>>(magnitude(from, a)) << zeros, bias_change,
                             to.mant_width);
    return true;
  }
  if (!is_inside(to, normal.exp + bias_change)) [[unlikely]]
    return false;
  const auto sig = shift_left(normal.sig, lead<Word<From>> - from.mant_width);
  using Number = Unpacked<Word<To>>;
  out = round_and_pack_inside(to, Number{sign, normal.exp + bias_change, resized<Word<To>>(sig)},
                              mode);
  return true;
}

// Any pattern; every NaN becomes the canonical one.
template <Shape From, Shape To>
[[gnu::cold, gnu::noinline]] Word<To> convert_general(From from, To to, Word<From> a,
                                                      Direction mode) {
  const Word<To> sign = converted_sign(from, to, a);
  if (is_zero(from, a)) return sign;
  if (is_inf(from, a)) return sign | infinity(to);
  if (is_nan(from, a)) {
    if constexpr (!HasEnvironment<To>) raise(to, is_signaling(from, a), rules::invalid);
    return canonical_nan(to);
  }
  const auto x = unpack(from, a);
  using Number = Unpacked<Word<To>>;
  return round_and_pack(to, Number{sign, x.exp - bias(from) + bias(to), resized<Word<To>>(x.sig)},
                        mode);
}

// The pattern `a` of one shape rounded to another.
template <Shape From, Shape To>
[[gnu::always_inline]] inline Word<To> convert(From from, To to, Word<From> a, Direction mode) {
  Word<To> r;
  return convert_usual(from, to, a, mode, r) ? r : convert_general(from, to, a, mode);
}

// The integer n, above -2^63, rounded.
template <Shape S>
constexpr Word<S> from_integer(S s, std::int64_t n, Direction mode) {
  if (n == 0) return 0;
  const auto x = normalize(static_cast<std::uint64_t>(n < 0 ? -n : n));
  const Word<S> sign = n < 0 ? sign_bit(s) : 0;
  using Number = Unpacked<Word<S>>;
  return round_and_pack(s, Number{sign, bias(s) + x.top - 1, resized<Word<S>>(x.sig)}, mode);
}

// +-n / d * 2^k, n and d not 0 and below 2^63, |k| below 2^61, rounded. Two digits of the quotient,
// halved so that it is below one, are 127 bits at least; the remainder is sticky.
template <Shape S>
Word<S> from_ratio(S s, bool negative, std::uint64_t n, std::uint64_t d, std::int64_t k,
                   Direction mode) {
  const int n_zeros = std::countl_zero(n);
  const int d_zeros = std::countl_zero(d);
  const std::uint64_t divisor = d << d_zeros;
  const Quotient high = divide_word(uint128{n << n_zeros} << 63, divisor);
  const Quotient low = divide_word(double_word(high.rest, 0), divisor);
  const uint128 quotient = double_word(high.q, low.q) | uint128{low.rest != 0};
  const int carry = static_cast<int>(high.q >> 63);
  const uint128 sig = shift_right(quotient, carry) | (quotient & 1);
  const Word<S> sign = negative ? sign_bit(s) : 0;
  const std::int64_t exp = k + d_zeros - n_zeros + carry + bias(s) - 2;
  return round_and_pack(s, Unpacked<Word<S>>{sign, exp, resized<Word<S>>(sig)}, mode);
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_CONVERT_H_
