// Rounded arithmetic on patterns in words: one text for every format that fits.
//
// The shape of a format is a constant (binary32, binary64, binary128 in a double word) or known at
// run time. Each operation settles NaN, infinite and zero operands, computes every other result as
// a significand whose lowest bit is sticky, and rounds and packs it. Included by swflt.cpp, for its
// routines, and by the float code.
#ifndef ZELK_SWFLT_WORDS_H_
#define ZELK_SWFLT_WORDS_H_

#include <algorithm>
#include <bit>
#include <cstdint>

#include "zelk/swflt/swflt.h"

namespace zelk::swflt::detail {

// A shape whose operations raise the flags. The others neither read nor write them.
template <Shape S>
struct Flagged : S {};

template <class S>
inline constexpr bool raises_flags = false;
template <class S>
inline constexpr bool raises_flags<Flagged<S>> = true;

// Whether a NaN operand's pattern is the result. The other shapes return the canonical NaN.
template <class S>
inline constexpr bool passes_nan_on = false;
template <>
inline constexpr bool passes_nan_on<RuntimeShape> = true;
template <>
inline constexpr bool passes_nan_on<ShortShape> = true;
template <>
inline constexpr bool passes_nan_on<FixedShape<15, 112>> = true;

template <Shape S>
void raise(S /*shape*/, bool condition, unsigned char flags) {
  if constexpr (raises_flags<S>) {
    raise(condition ? flags : 0);
  }
}

// Where a significand has its leading bit when it is rounded, whatever the format: one place above
// takes the carry. The bits below the format's last place decide on rounding; bit 0 is sticky: it
// also stands for every nonzero digit dropped beneath it.
template <class W>
inline constexpr int lead = 8 * sizeof(W) - 2;

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
constexpr Word<S> sign_of(S s, Word<S> a) {
  return a & sign_bit(s);
}

// Masks come from 64-bit integers: of wider ones compilers make branches.
template <class W>
constexpr W mask_if(bool condition) {
  return static_cast<W>(Signed<W>{-static_cast<std::int64_t>(condition)});
}

template <Shape S>
constexpr bool is_signaling(S s, Word<S> a) {
  return is_nan(s, a) && (a & hidden_bit(s) >> 1) == 0;
}

// The result of an operation with a NaN operand.
template <Shape S>
Word<S> nan_from(S s, Word<S> a, Word<S> b) {
  if constexpr (passes_nan_on<S>) return is_nan(s, a) ? a : b;
  raise(s, is_signaling(s, a) || is_signaling(s, b), flag_invalid);
  return canonical_nan(s);
}

// The result of an operation without a useful value.
template <Shape S>
Word<S> invalid(S s) {
  raise(s, true, flag_invalid);
  return canonical_nan(s);
}

// The place of the highest one of a nonzero word.
constexpr std::int64_t highest_bit(std::uint64_t a) {
  return 63U ^ static_cast<unsigned>(__builtin_clzl(a));
}

template <Shape S>
constexpr bool is_short(S s) {
  return std::is_same_v<S, ShortShape> || s.mant_width <= short_width;
}

// a * 2^n and a / 2^n for 0 <= n < 64. In double words these are written out: the processor's
// shifts of two words are slow.
constexpr std::uint64_t shift_left(std::uint64_t a, std::int64_t n) { return a << n; }
constexpr std::uint64_t shift_right(std::uint64_t a, std::int64_t n) { return a >> n; }
constexpr uint128 shift_left(uint128 a, std::int64_t n) {
  const auto low = static_cast<std::uint64_t>(a);
  const auto high = static_cast<std::uint64_t>(a >> 64);
  return uint128{high << n | low >> 1 >> (63 - n)} << 64 | low << n;
}
constexpr uint128 shift_right(uint128 a, std::int64_t n) {
  const auto low = static_cast<std::uint64_t>(a);
  const auto high = static_cast<std::uint64_t>(a >> 64);
  return uint128{high >> n} << 64 | (low >> n | high << 1 << (63 - n));
}

// a + n * 2^k. In double words k is 64 at least, and only the high word changes.
constexpr std::uint64_t plus_scaled(std::uint64_t a, std::int64_t n, std::int64_t k) {
  return a + (static_cast<std::uint64_t>(n) << k);
}
constexpr uint128 plus_scaled(uint128 a, std::int64_t n, std::int64_t k) {
  const auto high = static_cast<std::uint64_t>(a >> 64);
  return uint128{plus_scaled(high, n, k - 64)} << 64 | static_cast<std::uint64_t>(a);
}

// sig / 2^n with the lost digits jammed into the sticky bit; n is not negative, and the highest bit
// of sig is clear.
constexpr std::uint64_t shift_right_jam(std::uint64_t sig, std::int64_t n) {
  n = std::min<std::int64_t>(n, 63);
  const std::uint64_t kept = sig >> n;
  return kept | std::uint64_t{kept << n != sig};
}
constexpr uint128 shift_right_jam(uint128 sig, std::int64_t n) {
  n = std::min<std::int64_t>(n, 127);
  const std::int64_t k = n & 63;
  const uint128 kept = shift_right(sig, k);
  const std::uint64_t lost = static_cast<std::uint64_t>(sig) << 1 << (63 - k);
  // Whether a whole word goes as well is as good as random to a branch predictor.
  const auto far = mask_if<std::uint64_t>(n >= 64);
  const auto low = static_cast<std::uint64_t>(kept);
  const auto high = static_cast<std::uint64_t>(kept >> 64);
  return uint128{high & ~far} << 64 | ((high & far) | (low & ~far)) |
         std::uint64_t{(lost | (low & far)) != 0};
}

// A nonzero significand with its leading bit moved up to `lead`, and where that bit was.
template <class W>
struct Normalized {
  W sig;
  std::int64_t top;
};
constexpr Normalized<std::uint64_t> normalize(std::uint64_t sig) {
  const std::int64_t top = highest_bit(sig);
  return {sig << (lead<std::uint64_t> - top), top};
}
constexpr Normalized<uint128> normalize(uint128 sig) {
  if (sig >> 64 == 0) [[unlikely]] {
    const std::int64_t top = highest_bit(static_cast<std::uint64_t>(sig));
    return {sig << (lead<uint128> - top), top};
  }
  const auto low = static_cast<std::uint64_t>(sig);
  const auto high = static_cast<std::uint64_t>(sig >> 64);
  const auto top = static_cast<unsigned>(highest_bit(high));
  const unsigned n = 62 - top;  // as shift_left, which would need 63 - n
  return {uint128{high << n | low >> 1 >> (top + 1)} << 64 | low << n, 64 + std::int64_t{top}};
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

// Whether rounding in direction `mode` can move a magnitude up.
template <class W>
constexpr bool rounds_outward(W sign, Direction mode) {
  return mode == nearest || mode == (sign != 0 ? downward : upward);
}

// Half a unit in the last place of a significand.
template <Shape S>
constexpr Word<S> half_ulp(S s) {
  return pow2<Word<S>>(lead<Word<S>> - 1 - s.mant_width);
}

// Whether a significand has digits below the format's last place.
template <Shape S>
constexpr bool is_inexact(S s, Word<S> sig) {
  return (sig & (2 * half_ulp(s) - 1)) != 0;
}

// A significand rounded to the format, its leading bit at mant_width or, by a carry, above.
template <Shape S>
[[gnu::always_inline]] constexpr Word<S> rounded(S s, Word<S> sig, Word<S> sign, Direction mode) {
  const std::int64_t n = lead<Word<S>> - s.mant_width;
  if (mode == nearest) [[likely]]
    return shift_right(sig + (half_ulp(s) - 1) + (shift_right(sig, n) & 1), n);
  return shift_right(sig + (rounds_outward(sign, mode) ? 2 * half_ulp(s) - 1 : 0), n);
}

// Rounds and packs, for an exponent of 0 or more. The significand brings its leading bit along,
// which adds one to the exponent field, and so does a carry out of it; a subnormal's has no such
// bit and leaves the field 0.
template <Shape S>
[[gnu::always_inline]] inline Word<S> round_and_pack_inside(S s, Unpacked<Word<S>> x,
                                                            Direction mode) {
  raise(s, is_inexact(s, x.sig), flag_inexact);
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
    raise(s, true, flag_overflow | flag_inexact);
    return sign | (infinity(s) - !rounds_outward(sign, mode));
  }
  if (exp < 0) {
    sig = shift_right_jam(sig, -exp);
    exp = 0;
    raise(s, rounded_exp <= 0 && is_inexact(s, sig), flag_underflow);
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

// A value of which the compiler knows nothing. Where it knows one of two values that are chosen
// between, it makes a branch.
template <class T>
constexpr T opaque(T n) {
  if (!std::is_constant_evaluated()) asm("" : "+r"(n));
  return n;
}

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
  static_assert(S::exp_width + S::mant_width == 127);
  const auto a_low = static_cast<std::uint64_t>(a);
  const auto b_low = static_cast<std::uint64_t>(b);
  const auto a_high = static_cast<std::uint64_t>(a >> 64);
  const auto b_high = static_cast<std::uint64_t>(b >> 64);
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
  const uint128 large = uint128{large_high} << 64 | large_low;
  const uint128 small = uint128{small_high} << 64 | small_low;
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
  if (is_nan(s, a) || is_nan(s, b)) return nan_from(s, a, b);
  if (is_inf(s, a) && is_inf(s, b) && a != addend) return invalid(s);
  return is_inf(s, a) ? a : addend;
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
    return minus == 0 ? sign : mode == downward ? sign_bit(s) : 0;

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

// Moves the leading bit up to `lead` from there or one place below.
template <class W>
[[gnu::always_inline]] inline Unpacked<W> normalize_by_one(Unpacked<W> x) {
  const W n = (x.sig >> lead<W>)^1;
  return {x.sign, x.exp - static_cast<std::int64_t>(n), x.sig << n};
}

// x * y / 2^63, or 2^127 for double words, sticky, for factors below 2^63, or 2^127.
constexpr std::uint64_t high_product(std::uint64_t x, std::uint64_t y) {
  const uint128 p = uint128{x} * y;
  const auto high = static_cast<std::uint64_t>(p >> 64);
  return high + high + (static_cast<std::uint64_t>(p) != 0);
}

constexpr uint128 high_product(uint128 x, uint128 y) {
  const auto x0 = static_cast<std::uint64_t>(x);
  const auto x1 = static_cast<std::uint64_t>(x >> 64);
  const auto y0 = static_cast<std::uint64_t>(y);
  const auto y1 = static_cast<std::uint64_t>(y >> 64);
  const uint128 low = uint128{x0} * y0;
  const uint128 cross = uint128{x1} * y0 + (low >> 64);  // fits: the factors are below 2^64
  const uint128 middle = uint128{x0} * y1 + static_cast<std::uint64_t>(cross);
  const uint128 high = uint128{x1} * y1 + (cross >> 64) + (middle >> 64);
  return high << 1 | uint128{static_cast<std::uint64_t>(low | middle) != 0};
}

// The product of two operands' significands, cut to a word; the leading bit is at `lead` or one
// below.
template <Shape S>
constexpr Word<S> product(S s, Word<S> x, Word<S> y) {
  if (is_short(s)) return x * y << (lead<Word<S>> - 1 - 2 * s.mant_width);
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
  if (is_nan(s, a) || is_nan(s, b)) return nan_from(s, a, b);
  const Word<S> sign = sign_of(s, a ^ b);
  const bool zero = is_zero(s, a) || is_zero(s, b);
  if (is_inf(s, a) || is_inf(s, b)) return zero ? invalid(s) : sign | infinity(s);
  if (zero) return sign;
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

// x / y of a double word and the remainder, for a quotient of one word. The processor's own
// division is several times as fast as that of double words, which has to find out that one is
// enough.
struct Quotient {
  std::uint64_t q;
  std::uint64_t rest;
};
inline Quotient divide_word(uint128 x, std::uint64_t y) {
  auto q = static_cast<std::uint64_t>(x);
#ifdef __x86_64__
  auto rest = static_cast<std::uint64_t>(x >> 64);
  asm("divq %2" : "+a"(q), "+d"(rest) : "r"(y) : "cc");
  return {q, rest};
#else
  q = static_cast<std::uint64_t>(x / y);
  return {q, static_cast<std::uint64_t>(x) - q * y};
#endif
}

// x / y * 2^62, or 2^126 for double words, sticky, for leading bits at `lead` and clear ones from
// bit 1 down.
inline std::uint64_t high_quotient(std::uint64_t x, std::uint64_t y) {
  const Quotient d = divide_word(uint128{x} << 62, y);
  return d.q | std::uint64_t{d.rest != 0};
}

// x * 2^64 + low over y, x becoming the remainder, for x below y and the highest bit of y set (D.
// E. Knuth, The Art of Computer Programming, volume 2, 4.3.1, algorithm D).
inline std::uint64_t next_digit(uint128& x, std::uint64_t low, uint128 y) {
  const auto y0 = static_cast<std::uint64_t>(y);
  const auto y1 = static_cast<std::uint64_t>(y >> 64);
  if (x >> 64 >= y1) [[unlikely]] {  // the quotient of the high words is 2^64 or more
    std::uint64_t q = ~std::uint64_t{0};
    uint128 high = x - uint128{q} * y1;
    uint128 p = uint128{q} * y0;
    while (high >> 64 == 0 && p > (high << 64 | low)) {
      --q;
      high += y1;
      p -= y0;
    }
    x = (high << 64 | low) - p;
    return q;
  }
  // Too large by two at most; whether by one is as good as random to a branch predictor.
  auto [q, rest] = divide_word(x, y1);
  const uint128 product = uint128{q} * y0;
  x = uint128{rest} << 64 | low;
  const auto over = mask_if<uint128>(x < product);
  x = x - product + (y & over);
  q += static_cast<std::uint64_t>(over);
  if (over != 0 && x >= y) [[unlikely]] {
    x += y;
    --q;
  }
  return q;
}

inline uint128 high_quotient(uint128 x, uint128 y) {
  uint128 rest = x >> 1;
  const std::uint64_t high = next_digit(rest, 0, y << 1);
  const std::uint64_t low = next_digit(rest, 0, y << 1);
  return uint128{high} << 64 | low | uint128{rest != 0};
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
  if (is_nan(s, a) || is_nan(s, b)) return nan_from(s, a, b);
  if ((is_inf(s, a) && is_inf(s, b)) || (is_zero(s, a) && is_zero(s, b))) return invalid(s);
  const Word<S> sign = sign_of(s, a ^ b);
  if (is_zero(s, a) || is_inf(s, b)) return sign;
  raise(s, is_zero(s, b) && !is_inf(s, a), flag_divide_by_zero);
  if (is_zero(s, b) || is_inf(s, a)) return sign | infinity(s);
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

// The conversion of a pattern that is not normal; every NaN becomes the canonical one.
template <Shape From, Shape To>
[[gnu::cold, gnu::noinline]] Word<To> convert_special(From from, To to, Word<From> a, Word<To> sign,
                                                      Direction mode) {
  if (is_zero(from, a)) return sign;
  if (is_inf(from, a)) return sign | infinity(to);
  if (is_nan(from, a)) {
    raise(to, is_signaling(from, a), flag_invalid);
    return canonical_nan(to);
  }
  const auto x = unpack(from, a);
  return round_and_pack(to, {sign, x.exp - bias(from) + bias(to), x.sig}, mode);
}

// Whether one shape has all values of another.
template <Shape From, Shape To>
constexpr bool widens(From from, To to) {
  return from.exp_width <= to.exp_width && from.mant_width <= to.mant_width;
}

// The pattern `a` of one shape rounded to another in words of the same kind.
template <Shape From, Shape To>
[[gnu::always_inline]] inline Word<To> convert(From from, To to, Word<From> a, Direction mode) {
  const Word<To> sign = sign_bit(to) & mask_if<Word<To>>(sign_of(from, a) != 0);
  const auto normal = unpack_normal(from, a);
  if (!is_normal_exponent(from, normal.exp)) [[unlikely]]
    return convert_special(from, to, a, sign, mode);
  const std::int64_t bias_change = bias(to) - bias(from);
  if (widens(from, to)) {
    // Nothing to round: more zeros behind the significand, and another bias.
    return sign | plus_scaled(magnitude(from, a) << (to.mant_width - from.mant_width), bias_change,
                              to.mant_width);
  }
  const auto sig = normal.sig << (lead<Word<From>> - from.mant_width);
  return round_and_pack(to, {sign, normal.exp + bias_change, sig}, mode);
}

// The integer n, above -2^63, rounded.
template <Shape S>
constexpr Word<S> from_integer(S s, std::int64_t n, Direction mode) {
  if (n == 0) return 0;
  const auto magnitude = static_cast<std::uint64_t>(n < 0 ? -n : n);
  const auto x = normalize(magnitude);
  return round_and_pack(s, {n < 0 ? sign_bit(s) : 0, bias(s) + x.top - 1, x.sig}, mode);
}

}  // namespace zelk::swflt::detail

#endif  // ZELK_SWFLT_WORDS_H_
