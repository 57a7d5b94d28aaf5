// Software floating point for packed binary32 and binary64 words.
#ifndef ZELK_SWFLT_SWFLT_H_
#define ZELK_SWFLT_SWFLT_H_

#include <compare>
#include <cstdint>
#include <type_traits>

#include "zelk/base/export.h"

/// Software floating point for packed binary32 and binary64 words.
///
/// Every routine is correctly rounded, takes and returns bit patterns, never throws and never
/// allocates. Exceptional conditions are recorded in one flag byte that the whole program shares
/// without synchronisation.
///
/// A rounding mode is an int code: 0 to nearest, ties to even; 1 toward minus infinity; 2 toward
/// plus infinity; 3 toward zero. Any other code means 0.
namespace zelk::swflt {

/// Flag: a signalling NaN operand, an unordered comparison, or an operation without a useful value
/// (inf - inf, 0 * inf, 0 / 0, inf / inf).
inline constexpr unsigned char flag_invalid = 1;
/// Flag: a finite nonzero value was divided by zero.
inline constexpr unsigned char flag_divide_by_zero = 2;
/// Flag: the rounded result exceeded the largest finite value. Comes with flag_inexact.
inline constexpr unsigned char flag_overflow = 4;
/// Flag: the result is inexact, and tiny after rounding: rounded to the format's precision with an
/// unbounded exponent it lies below the smallest normal value.
inline constexpr unsigned char flag_underflow = 8;
/// Flag: the result differs from the exact value.
inline constexpr unsigned char flag_inexact = 16;

/// The flags raised so far. Routines only add to it; clearing is up to the caller.
extern ZELK_EXPORT unsigned char float_exception_flags;

/// The patterns and tests of both widths, written once for any shape.
namespace detail {

__extension__ using uint128 = unsigned __int128;
__extension__ using int128 = __int128;

// The widths of the exponent and trailing-significand fields, and the unsigned type whose low bits
// hold a pattern.
template <class T>
concept Shape = requires(T s) {
  s.exp_width;
  s.mant_width;
  typename T::Word;
};

template <Shape S>
using Word = typename S::Word;

// The signed integer as wide as W.
template <class W>
using Signed = std::conditional_t<sizeof(W) == 8, std::int64_t, int128>;

template <int ExpWidth, int MantWidth>
struct FixedShape {
  static constexpr int exp_width = ExpWidth;
  static constexpr int mant_width = MantWidth;
  using Word = std::conditional_t<ExpWidth + MantWidth <= 63, std::uint64_t, uint128>;
};
// Widths known at run time, together at most 63.
struct RuntimeShape {
  std::int64_t exp_width;
  std::int64_t mant_width;
  using Word = std::uint64_t;
};
// Whether two significands side by side, and guard bits, fit a word: then shifts, products and
// quotients need neither a second word nor a sticky bit.
inline constexpr std::int64_t short_width = 29;
// Widths of which that holds.
struct ShortShape : RuntimeShape {};
inline constexpr FixedShape<8, 23> binary32;
inline constexpr FixedShape<11, 52> binary64;
inline constexpr FixedShape<15, 112> binary128;

enum Direction : unsigned { nearest, toward_zero, upward, downward };

// Whether the arithmetic serves a format: exponents, and sums of two, fit 63 bits, and a
// significand leaves five bits of the word to a carry and the digits that rounding looks at.
constexpr bool serves(std::uint64_t exp_width, std::uint64_t mant_width) {
  return mant_width - 1 <= 57 && exp_width - 2 <= 61 - mant_width;
}

// The powers of two: where the width is known at run time a load is cheaper than a shift.
struct PowersOfTwo {
  std::uint64_t value[64]{};
  constexpr PowersOfTwo() {
    for (int k = 0; k < 64; ++k) value[k] = std::uint64_t{1} << k;
  }
};
inline constexpr PowersOfTwo powers_of_two;

template <class W>
constexpr W pow2(std::int64_t k) {
  if constexpr (sizeof(W) > 8) return W{1} << k;
  return powers_of_two.value[k];
}

template <Shape S>
constexpr Word<S> sign_bit(S s) {
  return pow2<Word<S>>(s.exp_width + s.mant_width);
}

// The significand's leading bit, which normal patterns leave out; also the smallest normal.
template <Shape S>
constexpr Word<S> hidden_bit(S s) {
  return pow2<Word<S>>(s.mant_width);
}

template <Shape S>
constexpr Word<S> infinity(S s) {
  return sign_bit(s) - hidden_bit(s);
}

// The one NaN that routines return. Its quiet bit is clear: as an operand it signals.
template <Shape S>
constexpr Word<S> canonical_nan(S s) {
  return sign_bit(s) | infinity(s) | 1;
}

template <Shape S>
constexpr Word<S> magnitude(S s, Word<S> a) {
  return a & (sign_bit(s) - 1);
}

template <Shape S>
constexpr bool is_nan(S s, Word<S> a) {
  return magnitude(s, a) > infinity(s);
}

template <Shape S>
constexpr bool is_inf(S s, Word<S> a) {
  return magnitude(s, a) == infinity(s);
}

template <Shape S>
constexpr bool is_zero(S s, Word<S> a) {
  return magnitude(s, a) == 0;
}

template <Shape S>
constexpr bool is_subnormal(S s, Word<S> a) {
  return magnitude(s, a) - 1 < hidden_bit(s) - 1;
}

// All ones if the sign bit is set, else 0.
template <Shape S>
constexpr Word<S> sign_mask(S s, Word<S> a) {
  const auto sign = static_cast<std::uint64_t>((a & sign_bit(s)) >> (8 * sizeof(Word<S>) - 64));
  // cppcheck-suppress shiftTooManyBitsSigned  // C++20 defines it
  return static_cast<Word<S>>(Signed<Word<S>>{static_cast<std::int64_t>(0 - sign) >> 63});
}

// Orders all patterns but NaNs as their values; the two zeros share a key.
template <Shape S>
constexpr Signed<Word<S>> order_key(S s, Word<S> a) {
  const Word<S> mask = sign_mask(s, a);
  return static_cast<Signed<Word<S>>>((magnitude(s, a) ^ mask) - mask);
}

// a < b, quietly: false when either is a NaN.
template <Shape S>
constexpr bool less(S s, Word<S> a, Word<S> b) {
  return !is_nan(s, a) && !is_nan(s, b) && order_key(s, a) < order_key(s, b);
}

// a == b, quietly: false when either is a NaN.
template <Shape S>
constexpr bool equal(S s, Word<S> a, Word<S> b) {
  return !is_nan(s, a) && !is_nan(s, b) && order_key(s, a) == order_key(s, b);
}

// Writes only what changes: a store that the next operation has to load costs more than the test.
inline void raise(unsigned char flags) {
  if ((flags & ~float_exception_flags) != 0) {
    float_exception_flags = static_cast<unsigned char>(float_exception_flags | flags);
  }
}

// Unordered, and raises invalid, when an operand is a NaN.
inline std::partial_ordering compare(Shape auto s, std::uint64_t a, std::uint64_t b) {
  if (!is_nan(s, a) && !is_nan(s, b)) return order_key(s, a) <=> order_key(s, b);
  raise(flag_invalid);
  return std::partial_ordering::unordered;
}

// Arithmetic to nearest-even that leaves no flag.
ZELK_EXPORT std::uint32_t add_nearest(std::uint32_t a, std::uint32_t b) noexcept;
ZELK_EXPORT std::uint64_t add_nearest(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint32_t sub_nearest(std::uint32_t a, std::uint32_t b) noexcept;
ZELK_EXPORT std::uint64_t sub_nearest(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint32_t mul_nearest(std::uint32_t a, std::uint32_t b) noexcept;
ZELK_EXPORT std::uint64_t mul_nearest(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint32_t div_nearest(std::uint32_t a, std::uint32_t b) noexcept;
ZELK_EXPORT std::uint64_t div_nearest(std::uint64_t a, std::uint64_t b) noexcept;

}  // namespace detail

// Arithmetic. Every NaN result is make_nan() of its width; a signalling NaN operand raises invalid,
// a quiet one nothing.

/// a + b rounded by `mode` (0 nearest-even, 1 down, 2 up, 3 toward zero). An exact zero sum of
/// operands with different signs is -0 under mode 1 and +0 otherwise.
/// Flags: invalid (also inf - inf), overflow, inexact.
ZELK_EXPORT std::uint32_t float32_add(std::uint32_t a, std::uint32_t b, int mode) noexcept;
/// Binary64 form of float32_add: same modes, same flags.
ZELK_EXPORT std::uint64_t float64_add(std::uint64_t a, std::uint64_t b, int mode) noexcept;

/// a - b rounded by `mode` (0 nearest-even, 1 down, 2 up, 3 toward zero): a + (-b) in all respects.
/// Flags: invalid (also inf - inf), overflow, inexact.
ZELK_EXPORT std::uint32_t float32_sub(std::uint32_t a, std::uint32_t b, int mode) noexcept;
/// Binary64 form of float32_sub: same modes, same flags.
ZELK_EXPORT std::uint64_t float64_sub(std::uint64_t a, std::uint64_t b, int mode) noexcept;

/// a * b rounded by `mode` (0 nearest-even, 1 down, 2 up, 3 toward zero).
/// Flags: invalid (also 0 * inf), overflow, underflow, inexact.
ZELK_EXPORT std::uint32_t float32_mul(std::uint32_t a, std::uint32_t b, int mode) noexcept;
/// Binary64 form of float32_mul: same modes, same flags.
ZELK_EXPORT std::uint64_t float64_mul(std::uint64_t a, std::uint64_t b, int mode) noexcept;

/// a / b rounded by `mode` (0 nearest-even, 1 down, 2 up, 3 toward zero).
/// Flags: invalid (also 0 / 0 and inf / inf), divide-by-zero, overflow, underflow, inexact.
ZELK_EXPORT std::uint32_t float32_div(std::uint32_t a, std::uint32_t b, int mode) noexcept;
/// Binary64 form of float32_div: same modes, same flags.
ZELK_EXPORT std::uint64_t float64_div(std::uint64_t a, std::uint64_t b, int mode) noexcept;

/// The binary64 word `a` rounded to binary32 by `mode` (0 nearest-even, 1 down, 2 up, 3 toward
/// zero). Flags: invalid, overflow, underflow, inexact.
ZELK_EXPORT std::uint32_t float64_to_float32(std::uint64_t a, int mode) noexcept;
/// The binary32 word `a` widened to binary64, exactly. Flags: invalid.
ZELK_EXPORT std::uint64_t float32_to_float64(std::uint32_t a) noexcept;

// Comparisons. The two zeros are equal; with a NaN operand the answer is false.

/// a < b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float32_lt(std::uint32_t a, std::uint32_t b) {
  return std::is_lt(detail::compare(detail::binary32, a, b));
}
/// a < b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float64_lt(std::uint64_t a, std::uint64_t b) {
  return std::is_lt(detail::compare(detail::binary64, a, b));
}

/// a <= b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float32_le(std::uint32_t a, std::uint32_t b) {
  return std::is_lteq(detail::compare(detail::binary32, a, b));
}
/// a <= b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float64_le(std::uint64_t a, std::uint64_t b) {
  return std::is_lteq(detail::compare(detail::binary64, a, b));
}

/// a == b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float32_eq_signaling(std::uint32_t a, std::uint32_t b) {
  return std::is_eq(detail::compare(detail::binary32, a, b));
}
/// a == b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float64_eq_signaling(std::uint64_t a, std::uint64_t b) {
  return std::is_eq(detail::compare(detail::binary64, a, b));
}

// Pattern routines. They take any pattern, NaNs included, and raise no flag.

/// Whether the sign bit is set.
constexpr bool float32_sign(std::uint32_t a) { return a >> 31 != 0; }
/// Whether the sign bit is set.
constexpr bool float64_sign(std::uint64_t a) { return a >> 63 != 0; }

/// `a` with its sign bit set when `s` is not 0, clear when it is.
constexpr std::uint32_t float32_set_sign(std::uint32_t a, char s) {
  return (a & ~(std::uint32_t{1} << 31)) | std::uint32_t{s != 0} << 31;
}
/// `a` with its sign bit set when `s` is not 0, clear when it is.
constexpr std::uint64_t float64_set_sign(std::uint64_t a, char s) {
  return (a & ~(std::uint64_t{1} << 63)) | std::uint64_t{s != 0} << 63;
}

/// `a` with its sign bit flipped.
constexpr std::uint32_t float32_negate(std::uint32_t a) { return a ^ std::uint32_t{1} << 31; }
/// `a` with its sign bit flipped.
constexpr std::uint64_t float64_negate(std::uint64_t a) { return a ^ std::uint64_t{1} << 63; }

/// Whether `a` is an infinity of either sign.
constexpr bool float32_is_inf(std::uint32_t a) { return detail::is_inf(detail::binary32, a); }
/// Whether `a` is an infinity of either sign.
constexpr bool float64_is_inf(std::uint64_t a) { return detail::is_inf(detail::binary64, a); }

/// Whether `a` is a NaN, quiet or signalling.
constexpr bool float32_is_nan(std::uint32_t a) { return detail::is_nan(detail::binary32, a); }
/// Whether `a` is a NaN, quiet or signalling.
constexpr bool float64_is_nan(std::uint64_t a) { return detail::is_nan(detail::binary64, a); }

/// Whether `a` is a zero of either sign.
constexpr bool float32_is_zero(std::uint32_t a) { return detail::is_zero(detail::binary32, a); }
/// Whether `a` is a zero of either sign.
constexpr bool float64_is_zero(std::uint64_t a) { return detail::is_zero(detail::binary64, a); }

/// Whether `a` is nonzero and smaller in magnitude than the smallest normal.
constexpr bool float32_is_subnormal(std::uint32_t a) {
  return detail::is_subnormal(detail::binary32, a);
}
/// Whether `a` is nonzero and smaller in magnitude than the smallest normal.
constexpr bool float64_is_subnormal(std::uint64_t a) {
  return detail::is_subnormal(detail::binary64, a);
}

/// The pattern of plus infinity.
constexpr std::uint32_t float32_make_inf() { return 0x7F800000; }
/// The pattern of plus infinity.
constexpr std::uint64_t float64_make_inf() { return 0x7FF0000000000000; }

/// The canonical NaN, the only one that arithmetic returns. As an operand it is signalling.
constexpr std::uint32_t float32_make_nan() { return 0xFF800001; }
/// The canonical NaN, the only one that arithmetic returns. As an operand it is signalling.
constexpr std::uint64_t float64_make_nan() { return 0xFFF0000000000001; }

}  // namespace zelk::swflt

#endif  // ZELK_SWFLT_SWFLT_H_
