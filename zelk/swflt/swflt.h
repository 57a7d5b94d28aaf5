// Software floating point for packed binary32 and binary64 words.
#ifndef ZELK_SWFLT_SWFLT_H_
#define ZELK_SWFLT_SWFLT_H_

#include <compare>
#include <cstdint>
#include <type_traits>

#include "zelk/base/export.h"
#include "zelk/words/shape.h"

/// Software floating point for packed binary32 and binary64 words.
///
/// Every routine is correctly rounded, takes and returns bit patterns, never throws and never
/// allocates. Exceptional conditions are recorded in a flag byte, of which every thread has its
/// own.
///
/// A rounding mode is an int code, one of `mode_nearest_even`, `mode_toward_negative`,
/// `mode_toward_positive` and `mode_toward_zero`. Any other code means the first. The codes are
/// not the numbers of `IEEEFloat::rounding_mode`: a mode of an enumeration does not compile.
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

inline constexpr int mode_nearest_even = 0;     ///< mode: to the nearest value, of two the even one
inline constexpr int mode_toward_negative = 1;  ///< mode: to the next value below
inline constexpr int mode_toward_positive = 2;  ///< mode: to the next value above
inline constexpr int mode_toward_zero = 3;      ///< mode: to the next value of smaller magnitude

/// The flags raised so far in this thread. Routines only add to it; clearing is up to the caller.
extern ZELK_EXPORT constinit thread_local unsigned char float_exception_flags;

namespace detail {

template <class T>
concept Enumeration = std::is_enum_v<T>;

// Writes only what changes: a store that the next operation has to load costs more than the test.
inline void raise(unsigned char flags) {
  if ((flags & ~float_exception_flags) != 0) {
    float_exception_flags = static_cast<unsigned char>(float_exception_flags | flags);
  }
}

// Unordered, and raises invalid, when an operand is a NaN.
inline std::partial_ordering compare(words::Shape auto s, std::uint64_t a, std::uint64_t b) {
  if (!is_nan(s, a) && !is_nan(s, b)) return order_key(s, a) <=> order_key(s, b);
  raise(flag_invalid);
  return std::partial_ordering::unordered;
}

// Arithmetic to nearest-even that leaves no flag. Patterns of 32 bits come and go in words of 64,
// so that nothing is cut off or filled up on the way.
ZELK_EXPORT std::uint64_t nearest_add32(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint64_t nearest_sub32(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint64_t nearest_mul32(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint64_t nearest_div32(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint64_t nearest_add64(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint64_t nearest_sub64(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint64_t nearest_mul64(std::uint64_t a, std::uint64_t b) noexcept;
ZELK_EXPORT std::uint64_t nearest_div64(std::uint64_t a, std::uint64_t b) noexcept;

}  // namespace detail

// Arithmetic. Every NaN result is make_nan() of its width; a signalling NaN operand raises invalid,
// a quiet one nothing.

/// a + b rounded by `mode`. An exact zero sum of operands with different signs is -0 toward
/// negative and +0 otherwise.
/// Flags: invalid (also inf - inf), overflow, inexact.
ZELK_EXPORT std::uint32_t float32_add(std::uint32_t a, std::uint32_t b, int mode) noexcept;
/// Binary64 form of float32_add: same modes, same flags.
ZELK_EXPORT std::uint64_t float64_add(std::uint64_t a, std::uint64_t b, int mode) noexcept;

/// a - b rounded by `mode`: a + (-b) in all respects.
/// Flags: invalid (also inf - inf), overflow, inexact.
ZELK_EXPORT std::uint32_t float32_sub(std::uint32_t a, std::uint32_t b, int mode) noexcept;
/// Binary64 form of float32_sub: same modes, same flags.
ZELK_EXPORT std::uint64_t float64_sub(std::uint64_t a, std::uint64_t b, int mode) noexcept;

/// a * b rounded by `mode`.
/// Flags: invalid (also 0 * inf), overflow, underflow, inexact.
ZELK_EXPORT std::uint32_t float32_mul(std::uint32_t a, std::uint32_t b, int mode) noexcept;
/// Binary64 form of float32_mul: same modes, same flags.
ZELK_EXPORT std::uint64_t float64_mul(std::uint64_t a, std::uint64_t b, int mode) noexcept;

/// a / b rounded by `mode`.
/// Flags: invalid (also 0 / 0 and inf / inf), divide-by-zero, overflow, underflow, inexact.
ZELK_EXPORT std::uint32_t float32_div(std::uint32_t a, std::uint32_t b, int mode) noexcept;
/// Binary64 form of float32_div: same modes, same flags.
ZELK_EXPORT std::uint64_t float64_div(std::uint64_t a, std::uint64_t b, int mode) noexcept;

/// The binary64 word `a` rounded to binary32 by `mode`.
/// Flags: invalid, overflow, underflow, inexact.
ZELK_EXPORT std::uint32_t float64_to_float32(std::uint64_t a, int mode) noexcept;
/// The binary32 word `a` widened to binary64, exactly. Flags: invalid.
ZELK_EXPORT std::uint64_t float32_to_float64(std::uint32_t a) noexcept;

/// \{
/// The codes of modes are of type int; numbers of another enumeration would be taken for others.
template <detail::Enumeration Mode>
std::uint32_t float32_add(std::uint32_t a, std::uint32_t b, Mode mode) = delete;
template <detail::Enumeration Mode>
std::uint64_t float64_add(std::uint64_t a, std::uint64_t b, Mode mode) = delete;
template <detail::Enumeration Mode>
std::uint32_t float32_sub(std::uint32_t a, std::uint32_t b, Mode mode) = delete;
template <detail::Enumeration Mode>
std::uint64_t float64_sub(std::uint64_t a, std::uint64_t b, Mode mode) = delete;
template <detail::Enumeration Mode>
std::uint32_t float32_mul(std::uint32_t a, std::uint32_t b, Mode mode) = delete;
template <detail::Enumeration Mode>
std::uint64_t float64_mul(std::uint64_t a, std::uint64_t b, Mode mode) = delete;
template <detail::Enumeration Mode>
std::uint32_t float32_div(std::uint32_t a, std::uint32_t b, Mode mode) = delete;
template <detail::Enumeration Mode>
std::uint64_t float64_div(std::uint64_t a, std::uint64_t b, Mode mode) = delete;
template <detail::Enumeration Mode>
std::uint32_t float64_to_float32(std::uint64_t a, Mode mode) = delete;
/// \}

// Comparisons. The two zeros are equal; with a NaN operand the answer is false.

/// a < b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float32_lt(std::uint32_t a, std::uint32_t b) {
  return std::is_lt(detail::compare(words::binary32, a, b));
}
/// a < b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float64_lt(std::uint64_t a, std::uint64_t b) {
  return std::is_lt(detail::compare(words::binary64, a, b));
}

/// a <= b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float32_le(std::uint32_t a, std::uint32_t b) {
  return std::is_lteq(detail::compare(words::binary32, a, b));
}
/// a <= b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float64_le(std::uint64_t a, std::uint64_t b) {
  return std::is_lteq(detail::compare(words::binary64, a, b));
}

/// a == b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float32_eq_signaling(std::uint32_t a, std::uint32_t b) {
  return std::is_eq(detail::compare(words::binary32, a, b));
}
/// a == b. Flags: invalid when an operand is a NaN, quiet or signalling.
inline bool float64_eq_signaling(std::uint64_t a, std::uint64_t b) {
  return std::is_eq(detail::compare(words::binary64, a, b));
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
constexpr bool float32_is_inf(std::uint32_t a) { return words::is_inf(words::binary32, a); }
/// Whether `a` is an infinity of either sign.
constexpr bool float64_is_inf(std::uint64_t a) { return words::is_inf(words::binary64, a); }

/// Whether `a` is a NaN, quiet or signalling.
constexpr bool float32_is_nan(std::uint32_t a) { return words::is_nan(words::binary32, a); }
/// Whether `a` is a NaN, quiet or signalling.
constexpr bool float64_is_nan(std::uint64_t a) { return words::is_nan(words::binary64, a); }

/// Whether `a` is a zero of either sign.
constexpr bool float32_is_zero(std::uint32_t a) { return words::is_zero(words::binary32, a); }
/// Whether `a` is a zero of either sign.
constexpr bool float64_is_zero(std::uint64_t a) { return words::is_zero(words::binary64, a); }

/// Whether `a` is nonzero and smaller in magnitude than the smallest normal.
constexpr bool float32_is_subnormal(std::uint32_t a) {
  return words::is_subnormal(words::binary32, a);
}
/// Whether `a` is nonzero and smaller in magnitude than the smallest normal.
constexpr bool float64_is_subnormal(std::uint64_t a) {
  return words::is_subnormal(words::binary64, a);
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
