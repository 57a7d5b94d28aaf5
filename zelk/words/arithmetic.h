// Rounded arithmetic on patterns in words: one text for every format that fits one or two.
//
// The shape of a format is a constant (binary32, binary64, binary128) or known at run time. Each
// operation takes its operands apart, leaves the special ones to the table, computes every other
// result as a significand whose lowest bit is sticky, and rounds and packs it.
#ifndef ZELK_WORDS_ARITHMETIC_H_
#define ZELK_WORDS_ARITHMETIC_H_

#include <algorithm>
#include <cstdint>

#include "zelk/words/rounding.h"
#include "zelk/words/two_words.h"

namespace zelk::words {

// ---- Sums ----

// Two magnitudes, the larger one first, and its sign.
template <class W>
struct Ordered {
  W large;
  W small;
  W sign;
};
// Which one is larger is as good as random to a branch predictor: this takes no branch. Compilers
// do not keep to conditional moves, so they are spelt out.
template <Shape S>
[[gnu::always_inline]] inline Ordered<Word<S>> order(S s, Word<S> a, Word<S> b) {
  const Word<S> x = magnitude(s, a);
  const Word<S> y = magnitude(s, b);
#ifdef __x86_64__
  if constexpr (sizeof(Word<S>) == 8) {
    Word<S> large = x;
    Word<S> small = y;
    asm("cmpq %[y], %[x]\n\tcmovbq %[y], %[large]\n\tcmovbq %[x], %[small]\n\tcmovbq %[b], %[a]"
        : [large] "+&r"(large), [small] "+&r"(small), [a] "+&r"(a)
        : [x] "r"(x), [y] "r"(y), [b] "r"(b)
        : "cc");
    return {large, small, sign_of(s, a)};
  }
#endif
  const auto less = static_cast<Word<S>>(Signed<Word<S>>{opaque(-std::int64_t{x < y})});
  const Word<S> change = (x ^ y) & less;
  return {x ^ change, y ^ change, sign_of(s, a ^ ((a ^ b) & less))};
}
// How far the significands of a sum are above the places of integers. In short formats the shift
// that brings all of one below a quarter of an ulp of the other, where it only matters that it is
// not 0, loses no digit then. Others have the hidden bits one below `lead`, where a carry has room.
template <Shape S>
constexpr std::int64_t sum_shift(S s) {
  return is_short(s) ? short_width + 3 : lead<Word<S>> - 1 - s.mant_width;
}

// A significand of a sum, negated if `minus` is all ones, over 2^n, n not negative. Where a digit
// is lost, n is so large that the leading bit of the sum moves down by one place at most.
template <class W>
struct Aligned {
  W sig;     // in two's complement, rounded down
  W sticky;  // whether a digit was lost
};
template <Shape S>
constexpr Aligned<std::uint64_t> align(S s, std::uint64_t sig, std::int64_t n,
                                       std::uint64_t minus) {
  const auto value = static_cast<std::int64_t>((sig ^ minus) - minus);
  if (is_short(s)) {
    return {static_cast<std::uint64_t>(value >> std::min<std::int64_t>(n, opaque(short_width + 3))),
            0};
  }
  n = std::min(n, opaque<std::int64_t>(63));
  const std::int64_t kept = value >> n;
  return {static_cast<std::uint64_t>(kept), std::uint64_t{kept << n != value}};
}
template <Shape S>
constexpr Aligned<uint128> align(S /*shape*/, uint128 sig, std::int64_t n, uint128 minus) {
  return {(shift_right_jam(sig, n) ^ minus) - minus, 0};
}

// a + b where an operand is a NaN or an infinity; `b` is its pattern before a subtraction turned
// it into `addend`.
template <Shape S>
[[gnu::cold, gnu::noinline]] Word<S> add_special(S s, Word<S> a, Word<S> b, Word<S> addend) {
  const Direction any = rules::nearest;  // no sum of zeros
  return special(s, rules::sum(operand_of(s, a), operand_of(s, addend), any), a, b);
}

// The sum of two magnitudes, or their difference if `minus` is all ones: of any that are finite.
template <Shape S>
[[gnu::always_inline]] inline Word<S> add_magnitudes(S s, Word<S> large, Word<S> small,
                                                     Word<S> sign, Word<S> minus, Direction mode) {
  const std::int64_t exp = exponent_below(s, large);
  const std::int64_t small_exp = exponent_below(s, small);
  const auto large_sig = significand(s, large, exp, sum_shift(s));
  const auto small_sig = significand(s, small, small_exp, sum_shift(s));
  const auto aligned = align(s, small_sig, exp - small_exp, minus);
  const Word<S> sum = large_sig + aligned.sig;
  if (sum == 0) [[unlikely]]
    return minus == 0 ? sign : rules::zero_sum_is_negative(mode) ? sign_bit(s) : 0;

  const auto x = normalize(sum);
  const std::int64_t sum_exp = exp + x.top - (s.mant_width + sum_shift(s));
  return round_and_pack(s, {sign, sum_exp, x.sig | aligned.sticky}, mode);
}

template <bool subtract, Shape S>
[[gnu::always_inline]] inline Word<S> add_any(S s, Word<S> a, Word<S> b, Direction mode) {
  const Word<S> addend = subtract ? b ^ sign_bit(s) : b;
  const auto [large, small, sign] = order(s, a, addend);
  if (large >= infinity(s)) [[unlikely]]
    return add_special(s, a, b, addend);
  return add_magnitudes(s, large, small, sign, sign_mask(s, a ^ addend), mode);
}

// What the short way of two words declines.
template <bool subtract, Shape S>
[[gnu::cold, gnu::noinline]] Word<S> add_declined(S s, Word<S> a, Word<S> b, Direction mode) {
  return add_any<subtract>(s, a, b, mode);
}

template <bool subtract, Shape S>
[[gnu::always_inline]] inline Word<S> add_sub(S s, Word<S> a, Word<S> b, Direction mode) {
  if constexpr (sizeof(Word<S>) > 8) {
    Word<S> sum;
    return add_patterns(s, a, subtract ? b ^ sign_bit(s) : b, mode, sum)
               ? sum
               : add_declined<subtract>(s, a, b, mode);
  } else {
    return add_any<subtract>(s, a, b, mode);
  }
}

template <Shape S>
[[gnu::always_inline]] inline Word<S> add(S s, Word<S> a, Word<S> b, Direction mode) {
  return add_sub<false>(s, a, b, mode);
}

template <Shape S>
[[gnu::always_inline]] inline Word<S> sub(S s, Word<S> a, Word<S> b, Direction mode) {
  return add_sub<true>(s, a, b, mode);
}

// ---- Products and quotients ----

// Moves the leading bit up to `lead` from there or one place below.
template <class W>
[[gnu::always_inline]] inline Unpacked<W> normalize_by_one(Unpacked<W> x) {
  const W n = (x.sig >> lead<W>)^1;
  return {x.sign, x.exp - static_cast<std::int64_t>(n), x.sig << n};
}

// The product of two operands' significands, cut to a word; the leading bit is at `lead` or one
// below.
template <Shape S>
constexpr Word<S> product(S s, Word<S> x, Word<S> y) {
  if (is_short(s)) return x * y << ((lead<Word<S>> - 1 - 2 * s.mant_width) & 63);
  const std::int64_t n = lead<Word<S>> - s.mant_width;
  return high_product(shift_left(x, n), shift_left(y, n));
}

template <Shape S>
[[gnu::always_inline]] inline Word<S> mul_finite(S s, Unpacked<Word<S>> x, Unpacked<Word<S>> y,
                                                 Direction mode) {
  const std::int64_t exp = x.exp - bias(s) + y.exp + 2;
  const Word<S> sig = product(s, x.sig, y.sig);
  return round_and_pack(s, normalize_by_one(Unpacked<Word<S>>{x.sign ^ y.sign, exp, sig}), mode);
}

// a * b where an operand is not normal.
template <Shape S>
[[gnu::cold, gnu::noinline]] Word<S> mul_special(S s, Word<S> a, Word<S> b, Direction mode) {
  const rules::Result r = rules::product(operand_of(s, a), operand_of(s, b));
  if (r.outcome != rules::Outcome::computed) return special(s, r, a, b);
  return mul_finite(s, unpack_operand(s, a), unpack_operand(s, b), mode);
}

template <Shape S>
[[gnu::always_inline]] inline Word<S> mul(S s, Word<S> a, Word<S> b, Direction mode) {
  const auto x = unpack_normal(s, a);
  const auto y = unpack_normal(s, b);
  if (!is_normal_exponent(s, x.exp) || !is_normal_exponent(s, y.exp)) [[unlikely]]
    return mul_special(s, a, b, mode);
  if constexpr (sizeof(Word<S>) > 8) {
    return round_and_pack(s, x.sign ^ y.sign, multiply(s, x.sig, y.sig, x.exp + y.exp + 2), mode);
  } else {
    return mul_finite(s, x, y, mode);
  }
}

// The quotient of two operands' significands; the leading bit is at `lead` or one below.
template <Shape S>
constexpr Word<S> quotient(S s, Word<S> x, Word<S> y) {
  if (is_short(s)) {
    const std::int64_t digits = s.mant_width + 3;
    const Word<S> dividend = x << digits;
    return (dividend / y | Word<S>{dividend % y != 0}) << (lead<Word<S>> - digits);
  }
  const std::int64_t n = lead<Word<S>> - s.mant_width;
  return high_quotient(shift_left(x, n), shift_left(y, n));
}

template <Shape S>
[[gnu::always_inline]] inline Word<S> div_finite(S s, Unpacked<Word<S>> x, Unpacked<Word<S>> y,
                                                 Direction mode) {
  const std::int64_t exp = x.exp - y.exp + bias(s) - 1;
  const Word<S> sig = quotient(s, x.sig, y.sig);
  return round_and_pack(s, normalize_by_one(Unpacked<Word<S>>{x.sign ^ y.sign, exp, sig}), mode);
}

// a / b where an operand is not normal.
template <Shape S>
[[gnu::cold, gnu::noinline]] Word<S> div_special(S s, Word<S> a, Word<S> b, Direction mode) {
  const rules::Result r = rules::quotient(operand_of(s, a), operand_of(s, b));
  if (r.outcome != rules::Outcome::computed) return special(s, r, a, b);
  return div_finite(s, unpack_operand(s, a), unpack_operand(s, b), mode);
}

template <Shape S>
[[gnu::always_inline]] inline Word<S> div(S s, Word<S> a, Word<S> b, Direction mode) {
  const auto x = unpack_normal(s, a);
  const auto y = unpack_normal(s, b);
  if (!is_normal_exponent(s, x.exp) || !is_normal_exponent(s, y.exp)) [[unlikely]]
    return div_special(s, a, b, mode);
  if constexpr (sizeof(Word<S>) > 8) {
    return round_and_pack(s, x.sign ^ y.sign, divide(s, x.sig, y.sig, x.exp - y.exp), mode);
  } else {
    return div_finite(s, x, y, mode);
  }
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_ARITHMETIC_H_
