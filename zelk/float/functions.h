// Functions of values that round nothing and raise nothing: classes, signs, neighbours, order.
#ifndef ZELK_FLOAT_FUNCTIONS_H_
#define ZELK_FLOAT_FUNCTIONS_H_

#include <compare>

#include "zelk/float/ieee_float.h"

namespace zelk {

/// The ten classes of IEEE 754, clause 5.7.2.
enum class FloatClass : unsigned char {
  signaling_nan,       ///< never: NaNs are quiet
  quiet_nan,           ///< any NaN
  negative_infinity,   ///< -inf
  negative_normal,     ///< below zero, and at least the smallest normal value in magnitude
  negative_subnormal,  ///< between the smallest normal value below zero and -0
  negative_zero,       ///< -0
  positive_zero,       ///< +0
  positive_subnormal,  ///< between +0 and the smallest normal value
  positive_normal,     ///< at least the smallest normal value
  positive_infinity,   ///< inf
};

/// The class of x.
ZELK_EXPORT FloatClass classify(const IEEEFloat& x);

/// \{
/// Whether x is finite and neither zero nor subnormal; a number; an integer.
ZELK_EXPORT bool is_normal(const IEEEFloat& x);
ZELK_EXPORT bool is_finite(const IEEEFloat& x);
ZELK_EXPORT bool is_integral(const IEEEFloat& x);
/// \}

/// \{
/// The value with another sign: none, that of `sign`. Mode and representation are kept; a NaN
/// gives the canonical one, whose sign is 1.
ZELK_EXPORT IEEEFloat abs(IEEEFloat x);
ZELK_EXPORT IEEEFloat copy_sign(IEEEFloat x, const IEEEFloat& sign);
/// \}

/// \{
/// The least value above x, the greatest below it; an infinity in the same direction stays. Mode
/// and representation are kept; a NaN gives the canonical one.
ZELK_EXPORT IEEEFloat next_up(IEEEFloat x);
ZELK_EXPORT IEEEFloat next_down(IEEEFloat x);
/// \}

/// floor(log2(|x|)), of subnormals too: logB of the standard.
/// \throws IEEEFloat::error "zero has no exponent", "infinity has no exponent", "NaN has no
///   exponent"; "reached limit on float precision".
ZELK_EXPORT QNumber exponent_of(const IEEEFloat& x);

/// The order of patterns of one format as signs and magnitudes: the canonical NaN, whose sign is 1,
/// is below -infinity, and -0 below +0.
/// \throws IEEEFloat::error "operands of different formats".
ZELK_EXPORT std::strong_ordering total_order(const IEEEFloat& x, const IEEEFloat& y);

}  // namespace zelk

#endif  // ZELK_FLOAT_FUNCTIONS_H_
