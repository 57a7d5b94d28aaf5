// The rounding engine: an exact sign, exponent and significand becomes the nearest pattern.
//
// The one place where generic results are rounded. Called by the arithmetic and the conversions.
#ifndef ZELK_FLOAT_ROUNDING_H_
#define ZELK_FLOAT_ROUNDING_H_

#include "zelk/float/codec.h"

namespace zelk {
namespace {

/// Whether rounding in direction rm increments the magnitude of a significand whose kept part is
/// odd or even, the highest bit below it being `round` and `sticky` telling whether any lower bit
/// is set. Any other rm counts as toward zero.
inline bool increments(IEEEFloat::rounding_mode rm, bool sign, bool odd, bool round, bool sticky) {
  switch (rm) {
    case IEEEFloat::ROUND_NEAREST_EVEN:
      return round && (sticky || odd);
    case IEEEFloat::ROUND_TOWARD_POSITIVE:
      return !sign && (round || sticky);
    case IEEEFloat::ROUND_TOWARD_NEGATIVE:
      return sign && (round || sticky);
    default:
      return false;
  }
}

/// The bits of an integer below position s, as `increments` wants them.
struct Remainder {
  bool round;
  bool sticky;
};

/// mant := floor(mant / 2^s), s > 0; returns what was shifted out.
inline Remainder shift_right(QNumber& mant, unsigned long s) {
  const Remainder rest{BVNumber::test_bit(mant, s - 1), BVNumber::lowest_one(mant) < s - 1};
  BVNumber::bit_right_shift(mant, s, &mant);
  return rest;
}

/// out := the infinity of this sign or the largest finite value, as the direction has it.
inline void pack_overflow(IEEEFloat::format f, IEEEFloat::rounding_mode rm, bool sign,
                          QNumber& out) {
  pack_inf(f, false, out);
  if (rm == IEEEFloat::ROUND_TOWARD_ZERO || (rm == IEEEFloat::ROUND_TOWARD_NEGATIVE && !sign) ||
      (rm == IEEEFloat::ROUND_TOWARD_POSITIVE && sign)) {
    out -= 1;
  }
  BVNumber::set_bit(out, sign_bit(f), sign);
}

/// out := the pattern nearest, in direction rm, to (-1)^sign * mant * 2^(exp - m).
///
/// exp and mant are integers of any size; a negative mant flips the sign. The significand counts
/// as exact: a caller whose value is not keeps at least m + 2 of its bits and appends a one.
/// rm is looked at only when bits are lost, so that any mode serves an exact result. exp and
/// mant are overwritten (after a finite result they hold the packed fields), so are tmp2 and
/// tmp3, which must not be arguments; out changes last, and not when anything is thrown.
///
/// \throws IEEEFloat::error "bad rounding mode: <rm>" when the result is inexact and rm is not 0
///   to 3; "reached limit on float precision" when the shift to a subnormal result does not fit
///   a signed 64-bit word.
inline void round_and_pack_float(TempNumProvider& tp, IEEEFloat::format fmt,
                                 IEEEFloat::rounding_mode rm, bool sign, QNumber& exp,
                                 QNumber& mant, QNumber& out) {
  const unsigned long m = fmt.mant_width;
  require_room(fmt, sign_bit(fmt) + 1);
  if (mant.sign() < 0) {
    mant.self_neg();
    sign = !sign;
  }
  if (mant.is_zero()) {
    exp = 0;
    pack_zero(fmt, sign, tp.tmp3);
    store(out, tp.tmp3);
    return;
  }

  // The shift that leaves m + 1 bits, and the biased exponent that goes with it.
  long shift = static_cast<long>(BVNumber::bit_length(mant)) - static_cast<long>(m + 1);
  const QNumber bias = fmt.bias();
  const QNumber max_exponent = fmt.max_exponent();
  QNumber& biased = tp.tmp2;
  biased = exp;
  biased += shift;
  biased += bias;
  bool overflow = biased >= max_exponent;
  if (biased.sign() <= 0) {  // subnormal: the shift that makes the exponent 1 - bias
    tp.tmp3 = 1;
    tp.tmp3 -= bias;
    tp.tmp3 -= exp;
    if (!tp.tmp3.fits_long()) {
      throw_precision_limit();
    }
    shift = tp.tmp3.to_long();
  }
  exp += shift;

  if (shift < 0) {
    BVNumber::bit_left_shift(mant, static_cast<unsigned long>(-shift), &mant);
  } else if (shift > 0) {
    const Remainder rest = shift_right(mant, static_cast<unsigned long>(shift));
    if ((rest.round || rest.sticky) && rm > IEEEFloat::ROUND_TOWARD_NEGATIVE) {
      throw_with("bad rounding mode: ", std::to_string(rm));
    }
    if (increments(rm, sign, BVNumber::test_bit(mant, 0), rest.round, rest.sticky)) {
      mant += 1;
      if (BVNumber::test_bit(mant, m + 1)) {  // carried out of m + 1 ones
        biased += 1;
        overflow = biased >= max_exponent;
        exp += 1;
        BVNumber::bit_right_shift(mant, 1, &mant);
      }
    }
  }

  if (overflow) {
    pack_overflow(fmt, rm, sign, tp.tmp3);
  } else {
    if (BVNumber::test_bit(mant, m)) {
      BVNumber::set_bit(mant, m, false);
      exp += bias;
    } else {
      exp = 0;
    }
    pack_float(fmt, sign, exp, mant, tp.tmp3);
  }
  store(out, tp.tmp3);
}

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_ROUNDING_H_
