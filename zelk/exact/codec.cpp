#include "zelk/exact/codec.h"

namespace zelk::exact {

QNumber ones(unsigned long k) {
  detail::require_bits(k < max_bits ? k + 1 : BVNumber::npos);
  QNumber q;
  BVNumber::pow2(k, &q);
  q -= 1;
  return q;
}

void unpack_components(Widths f, const QNumber& bits, bool& sign, QNumber& exp, QNumber& mant) {
  sign = BVNumber::test_bit(bits, sign_place(f));
  BVNumber::bit_right_shift(bits, f.mant_width, &exp);
  BVNumber::trim(exp, f.exp_width);
  mant = bits;
  BVNumber::trim(mant, f.mant_width);
}

void pack_float(Widths f, bool sign, const QNumber& exp, const QNumber& mant, QNumber& out) {
  const unsigned long place = sign_place(f);
  BVNumber::bit_left_shift(exp, f.mant_width, &out);
  out += mant;
  if (sign) {
    BVNumber::set_bit(out, place, true);
  }
}

void pack_nan(Widths f, QNumber& out) {
  pack_inf(f, true, out);
  BVNumber::set_bit(out, 0, true);
}

void pack_zero(Widths f, bool sign, QNumber& out) {
  out = 0;
  BVNumber::set_bit(out, sign_place(f), sign);
}

void decompose(Widths f, const QNumber& bias, QNumber& exp, QNumber& mant) {
  if (exp.is_zero()) {
    exp = 1;
  } else {
    BVNumber::set_bit(mant, f.mant_width, true);
  }
  exp -= bias;
}

}  // namespace zelk::exact
