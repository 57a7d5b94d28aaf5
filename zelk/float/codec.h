// Bit patterns of generic values: split into fields, classified by their bits, put together.
//
// A pattern of format (e, m) is, from bit 0, m bits of trailing significand T, e bits of biased
// exponent E and the sign S. Called by the algorithms of this folder and by ieee_float.cpp.
#ifndef ZELK_FLOAT_CODEC_H_
#define ZELK_FLOAT_CODEC_H_

#include "zelk/float/errors.h"
#include "zelk/float/ieee_float.h"
#include "zelk/float/scratch.h"
#include "zelk/numbers/bvnumber.h"

namespace zelk {
namespace {

/// The fields as they stand: no bias removed, no hidden bit added.
inline void unpack_components(IEEEFloat::format f, const QNumber& bits, bool& sign, QNumber& exp,
                              QNumber& mant) {
  sign = BVNumber::test_bit(bits, sign_bit(f));
  BVNumber::bit_right_shift(bits, f.mant_width, &exp);
  BVNumber::trim(exp, f.exp_width);
  mant = bits;
  BVNumber::trim(mant, f.mant_width);
}

// Classes by scans of the bits: the lowest one tells whether T is 0, the lowest zero from m up
// whether E is all ones.

inline bool is_inf_pattern(IEEEFloat::format f, const QNumber& bits) {
  return BVNumber::lowest_one(bits) == f.mant_width &&
         BVNumber::lowest_zero(bits, f.mant_width) >= sign_bit(f);
}

inline bool is_nan_pattern(IEEEFloat::format f, const QNumber& bits) {
  return BVNumber::lowest_one(bits) < f.mant_width &&
         BVNumber::lowest_zero(bits, f.mant_width) >= sign_bit(f);
}

inline bool is_zero_pattern(IEEEFloat::format f, const QNumber& bits) {
  return BVNumber::lowest_one(bits) >= sign_bit(f);
}

inline bool is_subnormal_pattern(IEEEFloat::format f, const QNumber& bits) {
  return BVNumber::lowest_one(bits) < f.mant_width &&
         BVNumber::lowest_one(bits, f.mant_width) >= sign_bit(f);
}

/// At most one of the three is set; a normal or subnormal pattern sets none.
inline void get_flags(IEEEFloat::format f, const QNumber& bits, bool& is_inf, bool& is_nan,
                      bool& is_zero) {
  is_inf = is_inf_pattern(f, bits);
  is_nan = is_nan_pattern(f, bits);
  is_zero = is_zero_pattern(f, bits);
}

/// out := the pattern of sign, biased exponent exp < 2^e and trailing significand mant < 2^m, two
/// other numbers.
inline void pack_float(IEEEFloat::format f, bool sign, const QNumber& exp, const QNumber& mant,
                       QNumber& out) {
  const unsigned long sign_index = sign_bit(f);
  BVNumber::bit_left_shift(exp, f.mant_width, &out);
  out += mant;
  if (sign) {
    BVNumber::set_bit(out, sign_index, true);
  }
}

/// out := the canonical NaN: S = 1, E all ones, T = 1.
inline void pack_nan(IEEEFloat::format f, QNumber& out) {
  pack_float(f, true, f.max_exponent(), 1, out);
}

inline void pack_inf(IEEEFloat::format f, bool sign, QNumber& out) {
  pack_float(f, sign, f.max_exponent(), 0, out);
}

inline void pack_zero(IEEEFloat::format f, bool sign, QNumber& out) {
  out = 0;
  BVNumber::set_bit(out, sign_bit(f), sign);
}

/// Commits a finished pattern to a value's number: in words when it fits, whatever the form that
/// scratch left it in. A throw leaves out as it was.
inline void store(QNumber& out, const QNumber& pattern) {
  if (pattern.fits_long()) {
    out = pattern.to_long();
  } else {
    out = pattern;
  }
}

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_CODEC_H_
