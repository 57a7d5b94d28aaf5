// Values to and from MPFR. For programs that link it: the library itself does not.
#ifndef ZELK_FLOAT_MPFR_H_
#define ZELK_FLOAT_MPFR_H_

#include <mpfr.h>

#include "zelk/float/ieee_float.h"

namespace zelk {

/// x in format f, rounded once in direction rm; signs of zeros and infinities stay, and a NaN
/// becomes the canonical one. \throws IEEEFloat::error "bad rounding mode: <rm>" when rm is not 0
/// to 3 and the result is
///   inexact; "reached limit on float precision".
inline IEEEFloat from_mpfr(mpfr_srcptr x, IEEEFloat::format f, IEEEFloat::rounding_mode rm) {
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

/// out := x, exactly: out takes the precision m + 1, or MPFR's least where that is more.
/// \throws IEEEFloat::error "value is beyond MPFR's range" when the exponent range that is set for
///   MPFR does not hold it, or the precision.
inline void to_mpfr(mpfr_ptr out, const IEEEFloat& x) {
  const unsigned long m = x.get_format().mant_width;
  if (m >= static_cast<unsigned long>(MPFR_PREC_MAX)) {
    throw IEEEFloat::error("value is beyond MPFR's range");
  }
  mpfr_set_prec(out, static_cast<mpfr_prec_t>(m + 1 < MPFR_PREC_MIN ? MPFR_PREC_MIN : m + 1));
  const int sign = x.get_sign() ? -1 : 1;
  if (x.is_nan()) {
    mpfr_set_nan(out);
  } else if (x.is_inf()) {
    mpfr_set_inf(out, sign);
  } else if (x.is_zero()) {
    mpfr_set_zero(out, sign);
  } else {
    const mpq_class q = x.to_number().to_mpq();
    mpfr_clear_flags();
    if (mpfr_set_q(out, q.get_mpq_t(), MPFR_RNDN) != 0 || mpfr_overflow_p() != 0 ||
        mpfr_underflow_p() != 0) {
      throw IEEEFloat::error("value is beyond MPFR's range");
    }
  }
}

}  // namespace zelk

#endif  // ZELK_FLOAT_MPFR_H_
