// Patterns in words converted between formats and from integers and ratios, rounded once.
#ifndef ZELK_WORDS_CONVERT_H_
#define ZELK_WORDS_CONVERT_H_

#include <algorithm>
#include <bit>
#include <cstdint>

#include "zelk/words/arithmetic.h"
#include "zelk/words/magnitude.h"

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

// The integer +-n rounded; 0 gives +0.
template <Shape S>
constexpr Word<S> from_integer(S s, bool negative, std::uint64_t n, Direction mode) {
  if (n == 0) return 0;
  const std::int64_t top = highest_bit(n);
  // The leading bit goes to `lead`, one below the highest.
  const std::uint64_t high = n << (63 - top);
  Word<S> sig;
  if constexpr (sizeof(Word<S>) > sizeof n) {
    sig = double_word(high >> 1, high << 63);
  } else {
    sig = high >> 1 | (high & 1);
  }
  const Word<S> sign = negative ? sign_bit(s) : 0;
  return round_and_pack(s, Unpacked<Word<S>>{sign, bias(s) + top - 1, sig}, mode);
}

// n / d for n and d other than 0, its lowest digit sticky. Two digits of the quotient, halved so
// that it is below one, are 127 bits at least.
inline Magnitude quotient(std::uint64_t n, std::uint64_t d) {
  const int n_zeros = std::countl_zero(n);
  const int d_zeros = std::countl_zero(d);
  const std::uint64_t divisor = d << d_zeros;
  const Quotient high = divide_word(double_word(n << n_zeros, 0) >> 1, divisor);
  const Quotient low = divide_word(double_word(high.rest, 0), divisor);
  const auto zeros = static_cast<int>(~high.q >> 63);
  return {d_zeros - n_zeros - zeros,
          shift_left(double_word(high.q, low.q), zeros) | uint128{low.rest != 0}};
}

// +-x * 2^k rounded, |k| below 2^61; the lowest digit of x is sticky.
template <Shape S>
Word<S> from_magnitude(S s, bool negative, const Magnitude& x, std::int64_t k, Direction mode) {
  const Word<S> sign = negative ? sign_bit(s) : 0;
  return round_and_pack(s,
                        Unpacked<Word<S>>{sign, x.exponent + k + bias(s) - 1,
                                          resized<Word<S>>(x.sig >> 1 | (x.sig & 1))},
                        mode);
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_CONVERT_H_
