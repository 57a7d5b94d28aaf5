#include "zelk/exact/rounding.h"

#include "zelk/base/float_errors.h"
#include "zelk/exact/codec.h"
#include "zelk/numbers/bvnumber.h"

namespace zelk::exact {

namespace {

// out := the infinity of this sign or the largest finite value, as the direction has it; an unknown
// mode has the infinity.
void pack_overflow(Widths f, unsigned mode, bool sign, QNumber& out) {
  pack_inf(f, false, out);
  if (rules::is_direction(mode) &&
      !rules::rounds_outward(static_cast<rules::Direction>(mode), sign)) {
    out -= 1;
  }
  BVNumber::set_bit(out, sign_place(f), sign);
}

}  // namespace

Remainder shift_right(QNumber& mant, unsigned long s) {
  const Remainder lost{BVNumber::test_bit(mant, s - 1), BVNumber::lowest_one(mant) < s - 1};
  BVNumber::bit_right_shift(mant, s, &mant);
  return lost;
}

void round_and_pack_float(Numbers& n, Widths f, unsigned mode, bool sign, QNumber& exp,
                          QNumber& mant, QNumber& out) {
  const unsigned long m = f.mant_width;
  require_room(f, sign_place(f) + 1);
  if (mant.sign() < 0) {
    mant.self_neg();
    sign = !sign;
  }
  if (mant.is_zero()) {
    pack_zero(f, sign, out);
    return;
  }

  // The shift that leaves m + 1 bits, and the biased exponent that goes with it.
  long shift = static_cast<long>(BVNumber::bit_length(mant)) - static_cast<long>(m + 1);
  const QNumber bias = exact::bias(f);
  const QNumber max_exponent = exact::max_exponent(f);
  QNumber& biased = n.tmp2;
  biased = exp;
  biased += shift;
  biased += bias;
  bool overflow = biased >= max_exponent;
  if (biased.sign() <= 0) {  // subnormal: the shift that makes the exponent 1 - bias
    n.tmp3 = 1;
    n.tmp3 -= bias;
    n.tmp3 -= exp;
    if (!n.tmp3.fits_long()) {
      detail::throw_precision_limit();
    }
    shift = n.tmp3.to_long();
  }
  exp += shift;

  if (shift < 0) {
    BVNumber::bit_left_shift(mant, static_cast<unsigned long>(-shift), &mant);
  } else if (shift > 0) {
    const Remainder lost = shift_right(mant, static_cast<unsigned long>(shift));
    if ((lost.half || lost.rest) && !rules::is_direction(mode)) {
      detail::throw_bad_mode(mode);
    }
    if (rules::increments(static_cast<rules::Direction>(mode), sign, BVNumber::test_bit(mant, 0),
                          lost.half, lost.rest)) {
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
    pack_overflow(f, mode, sign, out);
    return;
  }
  if (BVNumber::test_bit(mant, m)) {
    BVNumber::set_bit(mant, m, false);
    exp += bias;
  } else {
    exp = 0;
  }
  pack_float(f, sign, exp, mant, out);
}

}  // namespace zelk::exact
