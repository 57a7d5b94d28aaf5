// Rounded arithmetic on patterns in words: one text for every format that fits one or two.
//
// The shape of a format is a constant (binary32, binary64, binary128) or known at run time. Each
// operation is there twice. The usual way takes normal operands apart, computes a significand whose
// lowest bit is sticky, and rounds and packs it, if its exponent is inside the range; it calls
// nothing and declines all else. The general way leaves special operands to the table and takes all
// others.
#ifndef ZELK_WORDS_ARITHMETIC_H_
#define ZELK_WORDS_ARITHMETIC_H_

#include <algorithm>
#include <cstdint>

#include "zelk/base/machine.h"
#include "zelk/words/narrow.h"
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
#ifdef ZELK_X86_64
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

// The sum of two magnitudes, or their difference if `minus` is all ones; false for infinities and
// NaNs, and where nothing is left.
template <Shape S>
[[gnu::always_inline]] inline bool add_magnitudes(S s, Word<S> large, Word<S> small, Word<S> sign,
                                                  Word<S> minus, Unpacked<Word<S>>& out) {
  const std::int64_t exp = exponent_below(s, large);
  if (exp >= exp_max(s) - 1) [[unlikely]]
    return false;
  const std::int64_t small_exp = exponent_below(s, small);
  const auto large_sig = significand(s, large, exp, sum_shift(s));
  const auto small_sig = significand(s, small, small_exp, sum_shift(s));
  const auto aligned = align(s, small_sig, exp - small_exp, minus);
  const Word<S> sum = large_sig + aligned.sig;
  if (sum == 0) [[unlikely]]
    return false;
  const auto x = normalize(sum);
  out = {sign, exp + x.top - (s.mant_width + sum_shift(s)), x.sig | aligned.sticky};
  return true;
}

// a + b; of a difference, b with its sign changed.
template <Shape S>
[[gnu::always_inline]] inline bool add_usual(S s, Word<S> a, Word<S> b, Direction mode,
                                             Word<S>& out) {
  if constexpr (sizeof(Word<S>) > 8) {
    return add_patterns(s, a, b, mode, out);
  } else {
    const auto [large, small, sign] = order(s, a, b);
    Unpacked<Word<S>> x;
    if (!add_magnitudes(s, large, small, sign, sign_mask(s, a ^ b), x) || !is_inside(s, x.exp))
        [[unlikely]]
      return false;
    out = round_and_pack_inside(s, x, mode);
    return true;
  }
}

template <bool subtract, Shape S>
[[gnu::noinline]] Word<S> add_general(S s, Word<S> a, Word<S> b, Direction mode) {
  const Word<S> addend = subtract ? b ^ sign_bit(s) : b;
  const rules::Result r = rules::sum(operand_of(s, a), operand_of(s, addend), mode);
  if (r.outcome != rules::Outcome::computed) return special(s, r, a, b);
  const auto [large, small, sign] = order(s, a, addend);
  Unpacked<Word<S>> x;
  return add_magnitudes(s, large, small, sign, sign_mask(s, a ^ addend), x)
             ? round_and_pack(s, x, mode)
         : rules::zero_sum_is_negative(mode) ? sign_bit(s)
                                             : 0;
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

// The product or quotient of operands taken apart, with their hidden bits in place.
template <bool divide, Shape S>
[[gnu::always_inline]] inline auto scale(S s, const Unpacked<Word<S>>& x,
                                         const Unpacked<Word<S>>& y) {
  const Word<S> sign = x.sign ^ y.sign;
  if constexpr (sizeof(Word<S>) > 8) {
    return divide ? words::divide(s, sign, x.sig, y.sig, x.exp - y.exp)
                  : multiply(s, sign, x.sig, y.sig, x.exp + y.exp + 2);
  } else if constexpr (divide) {
    return normalize_by_one(
        Unpacked<Word<S>>{sign, x.exp - y.exp + bias(s) - 1, quotient(s, x.sig, y.sig)});
  } else {
    return normalize_by_one(
        Unpacked<Word<S>>{sign, x.exp - bias(s) + y.exp + 2, product(s, x.sig, y.sig)});
  }
}

template <bool divide, Shape S>
[[gnu::always_inline]] inline bool scale_usual(S s, Word<S> a, Word<S> b, Direction mode,
                                               Word<S>& out) {
  if constexpr (std::is_same_v<S, NarrowShape>) return scale_narrow<divide>(s, a, b, mode, out);
  const auto x = unpack_normal(s, a);
  auto y = unpack_normal(s, b);
  if (!is_normal_exponent(s, x.exp) || !is_normal_exponent(s, y.exp)) [[unlikely]]
    return false;
  if constexpr (!divide && sizeof(Word<S>) > 8) y.sig = b;  // all that `multiply` asks for
  const auto r = scale<divide>(s, x, y);
  if (!is_inside(s, r.exp)) [[unlikely]]
    return false;
  out = round_and_pack_inside(s, r, mode);
  return true;
}

template <bool divide, Shape S>
[[gnu::noinline]] Word<S> scale_general(S s, Word<S> a, Word<S> b, Direction mode) {
  const rules::Operand left = operand_of(s, a);
  const rules::Operand right = operand_of(s, b);
  const rules::Result r = divide ? rules::quotient(left, right) : rules::product(left, right);
  if (r.outcome != rules::Outcome::computed) return special(s, r, a, b);
  return round_and_pack(s, scale<divide>(s, unpack_operand(s, a), unpack_operand(s, b)), mode);
}

// ---- The operations as records of both ways ----

template <bool subtract>
struct Sum {
  template <Shape S>
  [[gnu::always_inline]] static bool usual(S s, Word<S> a, Word<S> b, Direction mode,
                                           Word<S>& out) {
    return add_usual(s, a, subtract ? b ^ sign_bit(s) : b, mode, out);
  }
  template <Shape S>
  [[gnu::always_inline]] static Word<S> general(S s, Word<S> a, Word<S> b, Direction mode) {
    return add_general<subtract>(s, a, b, mode);
  }
};
using Addition = Sum<false>;
using Subtraction = Sum<true>;

template <bool divide>
struct Scaling {
  template <Shape S>
  [[gnu::always_inline]] static bool usual(S s, Word<S> a, Word<S> b, Direction mode,
                                           Word<S>& out) {
    return scale_usual<divide>(s, a, b, mode, out);
  }
  template <Shape S>
  [[gnu::always_inline]] static Word<S> general(S s, Word<S> a, Word<S> b, Direction mode) {
    return scale_general<divide>(s, a, b, mode);
  }
};
using Multiplication = Scaling<false>;
using Division = Scaling<true>;

template <class Op, Shape S>
[[gnu::always_inline]] inline Word<S> apply(S s, Word<S> a, Word<S> b, Direction mode) {
  Word<S> r;
  return Op::usual(s, a, b, mode, r) ? r : Op::general(s, a, b, mode);
}

template <Shape S>
[[gnu::always_inline]] inline Word<S> add(S s, Word<S> a, Word<S> b, Direction mode) {
  return apply<Addition>(s, a, b, mode);
}
template <Shape S>
[[gnu::always_inline]] inline Word<S> sub(S s, Word<S> a, Word<S> b, Direction mode) {
  return apply<Subtraction>(s, a, b, mode);
}
template <Shape S>
[[gnu::always_inline]] inline Word<S> mul(S s, Word<S> a, Word<S> b, Direction mode) {
  return apply<Multiplication>(s, a, b, mode);
}
template <Shape S>
[[gnu::always_inline]] inline Word<S> div(S s, Word<S> a, Word<S> b, Direction mode) {
  return apply<Division>(s, a, b, mode);
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_ARITHMETIC_H_
