#include "zelk/exact/rounding.h"

#include "zelk/base/float_errors.h"
#include "zelk/exact/codec.h"
#include "zelk/numbers/bvnumber.h"

namespace zelk::exact {

namespace {

// out := the infinity of this sign or the largest finite value, as the direction has it; an unknown
// mode has the infinity.
void pack_overflow(Widths f, Rounding r, bool sign, QNumber& out) {
  pack_inf(f, false, out);
  if (r.is_known() && !rules::rounds_outward(r.direction(), sign)) {
    out -= 1;
  }
  BVNumber::set_bit(out, sign_place(f), sign);
  r.raise(rules::overflow | rules::inexact);
}

// mant := mant / 2^shift, rounded; whether digits were lost.
bool round_significand(Rounding r, bool sign, QNumber& mant, long shift) {
  if (shift <= 0) {
    BVNumber::bit_left_shift(mant, static_cast<unsigned long>(-shift), &mant);
    return false;
  }
  const Remainder lost = shift_right(mant, static_cast<unsigned long>(shift));
  const bool inexact = lost.half || lost.rest;
  if (inexact && !r.is_known()) {
    detail::throw_bad_mode(r.mode);
  }
  if (rules::increments(r.direction(), sign, BVNumber::test_bit(mant, 0), lost.half, lost.rest)) {
    mant += 1;
  }
  return inexact;
}

// Whether a number below the smallest normal one is tiny: before rounding it is; after it if m + 1
// digits do not round up to the next power of two.
bool is_tiny(Rounding r, unsigned long m, bool sign, const QNumber& biased, QNumber mant,
             long shift) {
  if (r.exceptions->tiny_before || biased.sign() < 0) {
    return true;
  }
  round_significand(r, sign, mant, shift);
  return BVNumber::bit_length(mant) == m + 1;
}

}  // namespace

Remainder shift_right(QNumber& mant, unsigned long s) {
  const Remainder lost{BVNumber::test_bit(mant, s - 1), BVNumber::lowest_one(mant) < s - 1};
  BVNumber::bit_right_shift(mant, s, &mant);
  return lost;
}

void round_and_pack_float(Numbers& n, Widths f, Rounding r, bool sign, QNumber& exp, QNumber& mant,
                          QNumber& out) {
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
  bool tiny = false;
  if (biased.sign() <= 0) {  // subnormal: the shift that makes the exponent 1 - bias
    tiny = r.exceptions != nullptr && is_tiny(r, m, sign, biased, mant, shift);
    if (tiny && r.exceptions->flush) {
      pack_zero(f, sign, out);
      r.raise(rules::underflow | rules::inexact);
      return;
    }
    n.tmp3 = 1;
    n.tmp3 -= bias;
    n.tmp3 -= exp;
    if (n.tmp3.fits_long()) {
      shift = n.tmp3.to_long();
    } else if (r.exceptions != nullptr) {  // far below half the smallest subnormal
      mant = 1;
      shift = 2;
    } else {
      detail::throw_precision_limit();
    }
  }
  const bool inexact = round_significand(r, sign, mant, shift);
  if (BVNumber::test_bit(mant, m + 1)) {  // carried out of m + 1 ones
    BVNumber::bit_right_shift(mant, 1, &mant);
    biased += 1;
    overflow = biased >= max_exponent;
  }
  if (overflow) {
    pack_overflow(f, r, sign, out);
    return;
  }
  if (BVNumber::test_bit(mant, m)) {
    BVNumber::set_bit(mant, m, false);
    if (biased.sign() > 0) {
      exp = biased;
    } else {
      exp = 1;
    }
  } else {
    exp = 0;
  }
  pack_float(f, sign, exp, mant, out);
  if (inexact) {
    r.raise(rules::inexact | (tiny ? unsigned{rules::underflow} : 0));
  }
}

}  // namespace zelk::exact
