// Well-known formats by name, and what follows from the widths of any format.
#ifndef ZELK_FLOAT_FORMATS_H_
#define ZELK_FLOAT_FORMATS_H_

#include "zelk/base/float_errors.h"
#include "zelk/float/ieee_float.h"

namespace zelk {

/// Formats by the names that hardware and standards give them. All have the encoding of IEEE 754.
namespace formats {

inline constexpr IEEEFloat::format half{5, 10};     ///< binary16
inline constexpr IEEEFloat::format bfloat16{8, 7};  ///< the upper half of binary32
inline constexpr IEEEFloat::format tf32{8, 10};     ///< 19 bits: binary32's range, half's precision
inline constexpr IEEEFloat::format single{8, 23};   ///< binary32
inline constexpr IEEEFloat::format double_{11, 52};   ///< binary64; `double` is a keyword
inline constexpr IEEEFloat::format quad{15, 112};     ///< binary128
inline constexpr IEEEFloat::format octuple{19, 236};  ///< binary256
/// Four bits of exponent in the encoding of IEEE 754: infinities and many NaNs, the largest finite
/// value being 240. The machine-learning format of that name has no infinities and reaches 448.
inline constexpr IEEEFloat::format fp8_e4m3{4, 3};
inline constexpr IEEEFloat::format fp8_e5m2{5, 2};  ///< as the machine-learning format

}  // namespace formats

/// The derived limits of a format, as `std::numeric_limits` has them for a type. Values round to
/// nearest-even and are in the best representation.
class ZELK_EXPORT FormatLimits {
 public:
  /// The limits of f.
  /// \throws IEEEFloat::error "format without arithmetic: (<e>, <m>)" for e < 2, m < 1 and widths
  ///   from 2^63 on: as a constant, it does not compile.
  explicit constexpr FormatLimits(IEEEFloat::format f) : fmt(f) {
    detail::require_arithmetic(f.exp_width, f.mant_width);
  }

  /// Bits of a significand, the hidden one included: m + 1.
  constexpr unsigned long precision() const { return fmt.mant_width + 1; }

  /// The most decimal digits that every decimal number of so many digits, within the normal range,
  /// keeps on the way to the nearest value and back: floor(m log10(2)).
  constexpr unsigned long digits10() const { return decimal_digits(fmt.mant_width); }

  /// The least decimal digits that tell all values apart: ceil(1 + (m + 1) log10(2)).
  constexpr unsigned long max_digits10() const { return 2 + decimal_digits(precision()); }

  /// The least E of a normal value 1.t * 2^E: 1 - bias.
  /// \throws IEEEFloat::error "reached limit on float precision", here and below, for formats too
  ///   wide to have values.
  QNumber min_exponent() const { return 1 - fmt.bias(); }
  /// The largest: bias.
  QNumber max_exponent() const { return fmt.bias(); }

  /// 2^(1 - bias - m).
  IEEEFloat smallest_subnormal() const { return IEEEFloat::from_bits(1, fmt); }
  /// 2^(1 - bias).
  IEEEFloat smallest_normal() const;
  /// (2 - 2^-m) * 2^bias.
  IEEEFloat largest() const { return IEEEFloat::max_value(fmt); }
  /// The distance of one from the next larger value: 2^-m.
  IEEEFloat epsilon() const;
  /// 1.
  IEEEFloat one() const;

 private:
  // floor(n log10(2)), exact below 2^64: log10(2) * 2^128 = high * 2^64 + low, cut off.
  static constexpr unsigned long decimal_digits(unsigned long n) {
    constexpr unsigned long high = 0x4D104D427DE7FBCC;
    constexpr unsigned long low = 0x47C4ACD605BE48BC;
    using wide = words::uint128;
    // cppcheck-suppress shiftTooManyBits  // it takes the words for 64 bits wide
    return static_cast<unsigned long>((wide{n} * high + (wide{n} * low >> 64)) >> 64);
  }

  IEEEFloat::format fmt;
};

}  // namespace zelk

#endif  // ZELK_FLOAT_FORMATS_H_
