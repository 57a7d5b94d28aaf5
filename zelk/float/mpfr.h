// Values to and from MPFR. For programs that link it: the library itself does not.
#ifndef ZELK_FLOAT_MPFR_H_
#define ZELK_FLOAT_MPFR_H_

#include <mpfr.h>

#include <algorithm>

#include "zelk/base/float_errors.h"
#include "zelk/float/ieee_float.h"

namespace zelk {

/// x in format f, rounded once in direction rm; signs of zeros and infinities stay, and a NaN
/// becomes the canonical one.
/// \throws IEEEFloat::error what `IEEEFloat::from_scaled` throws.
inline IEEEFloat from_mpfr(mpfr_srcptr x, IEEEFloat::format f, IEEEFloat::rounding_mode rm) {
  detail::require_arithmetic(f.exp_width, f.mant_width, rm);
  IEEEFloat value(f, rm);
  const bool negative = mpfr_signbit(x) != 0;
  if (mpfr_nan_p(x) != 0) {
    value.self_nan();
  } else if (mpfr_inf_p(x) != 0) {
    value.self_inf(negative);
  } else if (mpfr_zero_p(x) != 0) {
    value.self_zero(negative);
  } else {
    mpz_class significand;
    const mpfr_exp_t exponent = mpfr_get_z_2exp(significand.get_mpz_t(), x);
    value = IEEEFloat::from_scaled(QNumber(significand, 1), exponent, f, rm);
  }
  return value;
}

/// x as a value of MPFR's, exactly. MPFR's flags stay as they are, and so does out when something
/// is thrown.
/// \param out takes the value, and the precision m + 1, or MPFR's least where that is more
/// \param x any value
/// \throws IEEEFloat::error "value is beyond MPFR's range" when its precisions or the exponent
///   range that is set do not hold it; "reached limit on float precision".
inline void to_mpfr(mpfr_ptr out, const IEEEFloat& x) {
  const IEEEFloat::format f = x.get_format();
  const unsigned long m = f.mant_width;
  if (m >= std::min<unsigned long>(max_bits, MPFR_PREC_MAX)) {
    throw IEEEFloat::error("value is beyond MPFR's range");
  }
  const bool number = !x.is_nan() && !x.is_inf() && !x.is_zero();
  mpz_class significand;
  QNumber exponent;  // the field, then that of the significand as an integer
  if (number) {
    QNumber bits = x.get_bits();
    BVNumber::bit_right_shift(bits, m, &exponent);
    BVNumber::trim(exponent, f.exp_width);
    BVNumber::trim(bits, m);
    if (exponent.is_zero()) {
      exponent += 1;
    } else {
      BVNumber::set_bit(bits, m, true);
    }
    exponent -= f.bias() + m;
    significand = bits.to_mpq().get_num();
  }
  const mpfr_flags_t flags = mpfr_flags_save();
  mpfr_t value;
  mpfr_init2(value, static_cast<mpfr_prec_t>(m + 1 < MPFR_PREC_MIN ? MPFR_PREC_MIN : m + 1));
  bool held = true;
  if (x.is_inf()) {
    mpfr_set_inf(value, 1);
  } else if (x.is_zero()) {
    mpfr_set_zero(value, 1);
  } else if (number) {
    held = exponent.fits_long() &&
           mpfr_set_z_2exp(value, significand.get_mpz_t(), exponent.to_long(), MPFR_RNDN) == 0;
  }
  mpfr_setsign(value, value, x.get_sign() ? 1 : 0, MPFR_RNDN);
  mpfr_flags_restore(flags, MPFR_FLAGS_ALL);
  if (!held) {
    mpfr_clear(value);
    throw IEEEFloat::error("value is beyond MPFR's range");
  }
  mpfr_swap(out, value);
  mpfr_clear(value);
}

}  // namespace zelk

#endif  // ZELK_FLOAT_MPFR_H_
