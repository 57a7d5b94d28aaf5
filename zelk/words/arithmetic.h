// Rounded arithmetic on patterns in words: one text for every format that fits one or two.
//
// The shape of a format is a constant (binary32, binary64, binary128) or known at run time. Each
// operation takes its operands apart, leaves the special ones to the table, computes every other
// result as a significand whose lowest bit is sticky, and rounds and packs it.
#ifndef ZELK_WORDS_ARITHMETIC_H_
#define ZELK_WORDS_ARITHMETIC_H_

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "zelk/rules/flags.h"
#include "zelk/rules/rounding.h"
#include "zelk/rules/special.h"
#include "zelk/words/integers.h"
#include "zelk/words/shape.h"

namespace zelk::words {

using rules::Direction;

// A shape whose operations raise flags in a byte of the caller's. The others know no flags.
template <Shape S>
struct Flagged : S {
  unsigned char* flags;
};

template <class S>
inline constexpr bool has_flags = false;
template <class S>
inline constexpr bool has_flags<Flagged<S>> = true;

// Writes only what changes: a store that the next operation has to load costs more than the test.
template <Shape S>
void raise([[maybe_unused]] S s, bool condition, int flags) {
  if constexpr (has_flags<S>) {
    if (condition && (flags & ~*s.flags) != 0) {
      *s.flags = static_cast<unsigned char>(*s.flags | flags);
    }
  }
}

// Whether a NaN operand's pattern is the result. The other shapes give the canonical NaN.
template <class S>
inline constexpr bool passes_nan_on = false;
template <>
inline constexpr bool passes_nan_on<RuntimeShape> = true;
template <>
inline constexpr bool passes_nan_on<ShortShape> = true;
template <>
inline constexpr bool passes_nan_on<RaisedShape> = true;
template <>
inline constexpr bool passes_nan_on<FixedShape<15, 112>> = true;

// The value +-sig * 2^(exp + 1 - bias - lead), where sig has its leading bit at `lead`; a nonzero
// `sign` is the pattern's sign bit. `exp` is the exponent field less the one that the leading bit
// adds to it in a pattern.
template <class W>
struct Unpacked {
  W sign;
  std::int64_t exp;
  W sig;
};

template <Shape S>
constexpr std::int64_t exp_max(S s) {
  return static_cast<std::int64_t>(pow2<std::uint64_t>(s.exp_width)) - 1;
}
template <Shape S>
constexpr std::int64_t bias(S s) {
  return exp_max(s) >> 1;
}

template <Shape S>
constexpr bool is_signaling(S s, Word<S> a) {
  return is_nan(s, a) && (a & hidden_bit(s) >> 1) == 0;
}

// ---- Special operands ----

template <Shape S>
constexpr rules::Operand operand_of(S s, Word<S> a) {
  const rules::Class what = is_nan(s, a)    ? rules::Class::nan
                            : is_inf(s, a)  ? rules::Class::infinite
                            : is_zero(s, a) ? rules::Class::zero
                                            : rules::Class::finite;
  return {what, sign_of(s, a) != 0};
}

// What the table has for the operands a and b.
template <Shape S>
Word<S> special(S s, rules::Result r, Word<S> a, Word<S> b) {
  const Word<S> sign = r.negative ? sign_bit(s) : 0;
  switch (r.outcome) {
    case rules::Outcome::left:
    case rules::Outcome::right:
      if constexpr (passes_nan_on<S>) return r.outcome == rules::Outcome::left ? a : b;
      raise(s, is_signaling(s, a) || is_signaling(s, b), rules::invalid);
      return canonical_nan(s);
    case rules::Outcome::zero:
      return sign;
    case rules::Outcome::pole:
      raise(s, true, rules::divide_by_zero);
      [[fallthrough]];
    case rules::Outcome::infinity:
      return sign | infinity(s);
    default:
      raise(s, true, rules::invalid);
      return canonical_nan(s);
  }
}

// ---- Taking apart ----

template <Shape S>
constexpr bool is_short(S s) {
  return std::is_same_v<S, ShortShape> || (sizeof(Word<S>) == 8 && s.mant_width <= short_width);
}

template <Shape S>
constexpr std::int64_t exponent_field(S s, Word<S> a) {
  return static_cast<std::int64_t>(magnitude(s, a) >> s.mant_width);
}

// The exponent field of a magnitude less the one that its hidden bit adds to it; 0 for subnormals.
template <Shape S>
constexpr std::int64_t exponent_below(S s, Word<S> magnitude) {
  const auto field = static_cast<std::uint64_t>(magnitude >> s.mant_width);
  return static_cast<std::int64_t>(field - 1 + (field < 1));
}

// The significand of a magnitude with this exponent below, its hidden bit at mant_width.
template <Shape S>
constexpr Word<S> integer_significand(S s, Word<S> magnitude, std::int64_t exp) {
  return plus_scaled(magnitude, -exp, s.mant_width);
}

// The same n places further up.
template <Shape S>
constexpr Word<S> significand(S s, Word<S> magnitude, std::int64_t exp, std::int64_t n) {
  return plus_scaled(shift_left(magnitude, n), -exp, s.mant_width + n);
}

// Takes a finite nonzero pattern apart.
template <Shape S>
[[gnu::always_inline]] constexpr Unpacked<Word<S>> unpack(S s, Word<S> a) {
  const std::int64_t exp = exponent_below(s, magnitude(s, a));
  const std::int64_t n = lead<Word<S>> - s.mant_width;
  const auto x = normalize(significand(s, magnitude(s, a), exp, n));
  return {sign_of(s, a), exp + x.top - lead<Word<S>>, x.sig};
}

// A factor, dividend or divisor: the same with the leading bit at mant_width.
template <Shape S>
[[gnu::always_inline]] constexpr Unpacked<Word<S>> unpack_operand(S s, Word<S> a) {
  const auto x = unpack(s, a);
  return {x.sign, x.exp, x.sig >> (lead<Word<S>> - s.mant_width)};
}

// The same for a normal one.
template <Shape S>
[[gnu::always_inline]] constexpr Unpacked<Word<S>> unpack_normal(S s, Word<S> a) {
  const std::int64_t exp = exponent_field(s, a) - 1;
  return {sign_of(s, a), exp, (a & (hidden_bit(s) - 1)) | hidden_bit(s)};
}

// Whether a pattern from which unpack_normal took this exponent is normal.
template <Shape S>
constexpr bool is_normal_exponent(S s, std::int64_t exp) {
  return static_cast<std::uint64_t>(exp) < static_cast<std::uint64_t>(exp_max(s)) - 1;
}

// ---- Rounding and packing ----

// The bits of a significand that its format keeps.
template <Shape S>
constexpr std::int64_t kept_width(S s) {
  if constexpr (std::is_same_v<S, RaisedShape>) return s.kept_width;
  return s.mant_width;
}

// Half a unit in the last place of a significand.
template <Shape S>
constexpr Word<S> half_ulp(S s) {
  return pow2<Word<S>>(lead<Word<S>> - 1 - kept_width(s));
}

// Whether a significand has digits below the format's last place.
template <Shape S>
constexpr bool is_inexact(S s, Word<S> sig) {
  return (sig & (2 * half_ulp(s) - 1)) != 0;
}

// A significand rounded to the format, its leading bit at mant_width or, by a carry, above. The
// rule as one addition, whose carry into the last place is the increment.
template <Shape S>
[[gnu::always_inline]] constexpr Word<S> rounded(S s, Word<S> sig, Word<S> sign, Direction mode) {
  const std::int64_t n = lead<Word<S>> - s.mant_width;
  if constexpr (std::is_same_v<S, RaisedShape>) {
    const Word<S> unit = 2 * half_ulp(s);
    const Word<S> below = mode == rules::nearest ? half_ulp(s) - 1 + ((sig & unit) != 0)
                          : rules::rounds_outward(mode, sign != 0) ? unit - 1
                                                                   : 0;
    return shift_right((sig + below) & (0 - unit), n);
  }
  if (mode == rules::nearest) [[likely]]
    return shift_right(sig + (half_ulp(s) - 1) + (shift_right(sig, n) & 1), n);
  return shift_right(sig + (rules::rounds_outward(mode, sign != 0) ? 2 * half_ulp(s) - 1 : 0), n);
}

// Rounds and packs, for an exponent of 0 or more. The significand brings its leading bit along,
// which adds one to the exponent field, and so does a carry out of it; a subnormal's has no such
// bit and leaves the field 0.
template <Shape S>
[[gnu::always_inline]] inline Word<S> round_and_pack_inside(S s, Unpacked<Word<S>> x,
                                                            Direction mode) {
  raise(s, is_inexact(s, x.sig), rules::inexact);
  return x.sign | plus_scaled(rounded(s, x.sig, x.sign, mode), x.exp, s.mant_width);
}

// Rounds and packs a normalized number near or beyond an end of the exponent range. The exponent
// that rounding would give it there, without an end, decides on overflow and on tininess; a mode
// that points toward zero overflows to the largest finite value.
template <Shape S>
[[gnu::cold, gnu::noinline]] Word<S> round_and_pack_at_border(S s, Word<S> sign, std::int64_t exp,
                                                              Word<S> sig, Direction mode) {
  const Word<S> field = rounded(s, sig, sign, mode) >> s.mant_width;  // 1, or 2 by a carry
  const std::int64_t rounded_exp = exp + static_cast<std::int64_t>(field);
  if (rounded_exp >= exp_max(s)) {
    raise(s, true, rules::overflow | rules::inexact);
    return sign | (infinity(s) - (rules::rounds_outward(mode, sign != 0) ? 0 : ulp(s)));
  }
  if (exp < 0) {
    sig = shift_right_jam(sig, -exp);
    exp = 0;
    raise(s, rounded_exp <= 0 && is_inexact(s, sig), rules::underflow);
  }
  return round_and_pack_inside(s, {sign, exp, sig}, mode);
}

// Rounds to the format, and raises overflow, underflow and inexact.
template <Shape S>
[[gnu::always_inline]] inline Word<S> round_and_pack(S s, Unpacked<Word<S>> x, Direction mode) {
  const bool inside =
      static_cast<std::uint64_t>(x.exp) < static_cast<std::uint64_t>(exp_max(s) - 2);
  return inside ? round_and_pack_inside(s, x, mode)
                : round_and_pack_at_border(s, x.sign, x.exp, x.sig, mode);
}

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
#ifdef __x86_64__
// The sign of a double word is its highest bit: a high word doubled is without it.
template <Shape S>
requires(sizeof(Word<S>) > 8)
    [[gnu::always_inline]] inline Ordered<uint128> order(S s, uint128 a, uint128 b) {
  const std::uint64_t a_low = low_word(a);
  const std::uint64_t b_low = low_word(b);
  const std::uint64_t a_high = high_word(a);
  const std::uint64_t b_high = high_word(b);
  std::uint64_t large_low = a_low;
  std::uint64_t large_high = a_high;
  std::uint64_t small_low = b_low;
  std::uint64_t small_high = b_high;
  std::uint64_t difference = a_high << 1;
  asm("cmpq %[b_low], %[a_low]\n\tsbbq %[b_twice], %[difference]\n\t"
      "cmovbq %[b_low], %[large_low]\n\tcmovbq %[b_high], %[large_high]\n\t"
      "cmovbq %[a_low], %[small_low]\n\tcmovbq %[a_high], %[small_high]"
      : [large_low] "+&r"(large_low), [large_high] "+&r"(large_high), [small_low] "+&r"(small_low),
        [small_high] "+&r"(small_high), [difference] "+&r"(difference)
      : [a_low] "r"(a_low), [b_low] "r"(b_low), [a_high] "r"(a_high), [b_high] "r"(b_high),
        [b_twice] "r"(b_high << 1)
      : "cc");
  const uint128 large = double_word(large_high, large_low);
  const uint128 small = double_word(small_high, small_low);
  return {magnitude(s, large), magnitude(s, small), sign_of(s, large)};
}
#endif

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

template <bool subtract, Shape S>
[[gnu::always_inline]] inline Word<S> add_sub(S s, Word<S> a, Word<S> b, Direction mode) {
  const Word<S> addend = subtract ? b ^ sign_bit(s) : b;
  const auto [large, small, sign] = order(s, a, addend);
  const std::int64_t exp = exponent_below(s, large);
  if (exp >= exp_max(s) - 1) [[unlikely]]
    return add_special(s, a, b, addend);
  const std::int64_t small_exp = exponent_below(s, small);
  const auto large_sig = significand(s, large, exp, sum_shift(s));
  const auto small_sig = significand(s, small, small_exp, sum_shift(s));
  const Word<S> minus = sign_mask(s, a ^ addend);
  const auto aligned = align(s, small_sig, exp - small_exp, minus);
  const Word<S> sum = large_sig + aligned.sig;
  if (sum == 0) [[unlikely]]
    return minus == 0 ? sign : rules::zero_sum_is_negative(mode) ? sign_bit(s) : 0;

  const auto x = normalize(sum);
  const std::int64_t sum_exp = exp + x.top - (s.mant_width + sum_shift(s));
  return round_and_pack(s, {sign, sum_exp, x.sig | aligned.sticky}, mode);
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
  return mul_finite(s, x, y, mode);
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
  return div_finite(s, x, y, mode);
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_ARITHMETIC_H_
