// Values of the compiler's floating-point types and of GMP's, to and from zelk's, and keys.
#ifndef ZELK_FLOAT_NATIVE_H_
#define ZELK_FLOAT_NATIVE_H_

#include <algorithm>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "zelk/base/float_errors.h"
#include "zelk/float/formats.h"
#include "zelk/float/pattern_access.h"

namespace zelk {

/// Whether T is a type of the compiler's in one of IEEE 754's encodings: `float`, `double`,
/// `float128` and `float16` where there are such, and so `long double` where it is binary128.
template <typename T>
inline constexpr bool is_native_float = std::same_as<T, float> || std::same_as<T, double>;
#if defined(__SIZEOF_FLOAT128__) || __LDBL_MANT_DIG__ == 113
#define ZELK_HAS_FLOAT128
/// The compiler's binary128.
#ifdef __SIZEOF_FLOAT128__
__extension__ using float128 = __float128;
#else
using float128 = long double;
#endif
/// It has the encoding of (15, 112).
template <>
inline constexpr bool is_native_float<float128> = true;
#endif
// GCC 12 has the macro on aarch64, too, where its C++ has no such type.
#if defined(__FLT16_MANT_DIG__) && (defined(__SSE2__) || defined(__clang__) || __GNUC__ > 12)
#define ZELK_HAS_FLOAT16
/// The compiler's binary16.
__extension__ using float16 = _Float16;
/// It has the encoding of (5, 10).
template <>
inline constexpr bool is_native_float<float16> = true;
#endif

/// A type for which `is_native_float` holds.
template <typename T>
concept native_float = is_native_float<T>;

/// The format of such a type.
template <native_float T>
inline constexpr IEEEFloat::format native_format = sizeof(T) == 2   ? formats::half
                                                   : sizeof(T) == 4 ? formats::single
                                                   : sizeof(T) == 8 ? formats::double_
                                                                    : formats::quad;
/// The unsigned integer of its width.
template <native_float T>
using native_word = std::conditional_t<
    sizeof(T) == 2, std::uint16_t,
    std::conditional_t<sizeof(T) == 4, std::uint32_t,
                       std::conditional_t<sizeof(T) == 8, std::uint64_t, words::uint128>>>;

/// The same value, rounding in mode rm; every NaN becomes the canonical one.
/// \throws IEEEFloat::error "bad rounding mode: <rm>" when rm is not 0 to 3.
template <native_float T>
IEEEFloat from_native(T x, IEEEFloat::rounding_mode rm = IEEEFloat::ROUND_NEAREST_EVEN) {
  if (rm > IEEEFloat::ROUND_TOWARD_NEGATIVE) {
    detail::throw_bad_mode(rm);
  }
  const auto word = std::bit_cast<native_word<T>>(x);
  // By the word: `x != x` is false under -ffast-math.
  constexpr IEEEFloat::format f = native_format<T>;
  constexpr auto inf =
      static_cast<native_word<T>>(((native_word<T>{1} << f.exp_width) - 1) << f.mant_width);
  constexpr auto sign =
      static_cast<native_word<T>>(native_word<T>{1} << (f.exp_width + f.mant_width));
  if ((word & ~sign) > inf) {
    IEEEFloat nan(f, rm);
    nan.self_nan();
    return nan;
  }
  return detail::PatternAccess::make(f, rm, static_cast<std::uint64_t>(word),
                                     static_cast<std::uint64_t>(words::uint128{word} >> 64));
}

/// The value of a type's format as that type, pattern for pattern.
/// \throws IEEEFloat::error "format is not the type's"; `set_format` rounds to it.
template <native_float T>
T to_native(const IEEEFloat& x) {
  if (x.get_format() != native_format<T>) {
    throw IEEEFloat::error("format is not the type's");
  }
  const auto pattern = detail::PatternAccess::words(x);
  const words::uint128 word =
      words::uint128{pattern.size() > 1 ? pattern[1] : 0} << 64 | pattern[0];
  return std::bit_cast<T>(static_cast<native_word<T>>(word));
}

/// An integer of GMP's, in the form that `QNumber(n, 1)` gives it.
inline QNumber from_mpz(const mpz_class& n) { return {n, 1}; }

/// An integer as one of GMP's; of a fraction the part that truncation leaves.
inline mpz_class to_mpz(const QNumber& q) {
  const mpq_class value = q.to_mpq();
  return value.get_num() / value.get_den();
}

/// Equality of format and pattern, for keys: a NaN equals itself, -0 differs from +0, and the mode
/// and the representation play no part. Beside `==`, which is IEEE 754's and refuses operands of
/// different formats.
struct SamePattern {
  /// Whether a and b have the same format and pattern.
  bool operator()(const IEEEFloat& a, const IEEEFloat& b) const {
    const auto x = detail::PatternAccess::words(a);
    const auto y = detail::PatternAccess::words(b);
    return a.get_format() == b.get_format() && std::equal(x.begin(), x.end(), y.begin(), y.end());
  }
};

/// A hash that goes with it: std::unordered_set<IEEEFloat, PatternHash, SamePattern>.
struct ZELK_EXPORT PatternHash {
  /// The same for all values of one format and pattern, whatever their representation.
  std::size_t operator()(const IEEEFloat& x) const;
};

}  // namespace zelk

#endif  // ZELK_FLOAT_NATIVE_H_
