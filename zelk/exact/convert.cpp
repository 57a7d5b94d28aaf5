// Patterns converted between formats, from exact rationals, and to exact rationals and integers.

#include <utility>

#include "zelk/base/float_errors.h"
#include "zelk/exact/exact.h"
#include "zelk/exact/numbers.h"
#include "zelk/exact/patterns.h"
#include "zelk/exact/rounding.h"

namespace zelk::exact {

void convert(const Word* x, Widths from, Word* out, Widths to, unsigned mode) {
  Scratch n;
  QNumber& bits = n->patterns(from).left;
  QNumber& out_bits = n->patterns(to).out;
  const rules::Operand a = read_operand(x, from, bits, n->exp1, n->mant1);
  if (a.is(rules::Class::nan)) {
    pack_nan(to, out_bits);
  } else if (a.is(rules::Class::infinite)) {
    pack_inf(to, a.negative, out_bits);
  } else {
    require_room(from, sign_place(to) + 1);
    decompose(from, bias(from), n->exp1, n->mant1);
    n->exp1 -= from.mant_width;
    n->exp1 += to.mant_width;
    round_and_pack_float(*n, to, {mode}, a.negative, n->exp1, n->mant1, out_bits);
  }
  store(out_bits, out, to);
}

namespace {

// mant1 := a significand of |q| * 2^exp1 that rounds to format f as that does: at least m + 3 bits
// of the quotient and a sticky bit. exp1 follows.
void rational_significand(Numbers& n, Widths f, const QNumber& q) {
  n.mant1 = q.get_num();
  if (n.mant1.sign() < 0) {
    n.mant1.self_neg();
  }
  if (q.is_integer()) {
    return;
  }
  require_room(f, sign_place(f) + 4);
  n.mant2 = q.get_den();
  const unsigned long wanted = f.mant_width + 3 + BVNumber::bit_length(n.mant2);
  const unsigned long length = BVNumber::bit_length(n.mant1);
  const unsigned long shift = wanted > length ? wanted - length : 0;
  detail::require_bits(length + shift);
  BVNumber::bit_left_shift(n.mant1, shift, &n.mant1);
  n.mant1.divmod(n.mant2, n.mant1, n.tmp1);
  BVNumber::bit_left_shift(n.mant1, 1, &n.mant1);
  BVNumber::set_bit(n.mant1, 0, !n.tmp1.is_zero());
  n.exp1 -= shift + 1;
}

}  // namespace

void from_integer(const QNumber& n, Word* out, Widths f, unsigned mode) {
  Scratch s;
  QNumber& bits = s->patterns(f).out;
  s->exp1 = f.mant_width;  // takes the significand at face value
  s->mant1 = n;
  round_and_pack_float(*s, f, {mode}, false, s->exp1, s->mant1, bits);
  store(bits, out, f);
}

void from_scaled(const QNumber& q, const QNumber& k, Word* out, Widths f, unsigned mode) {
  Scratch n;
  QNumber& bits = n->patterns(f).out;
  n->exp1 = k;
  n->exp1 += f.mant_width;
  // What lies below half the smallest subnormal rounds as a quarter of it does.
  const QNumber length(BVNumber::bit_length(q.get_num()));
  const QNumber tiny = -bias(f) - f.mant_width;
  if (!q.is_zero() && length + 1 - BVNumber::bit_length(q.get_den()) + k < tiny) {
    n->exp1 = tiny + f.mant_width - 1;
    n->mant1 = 1;
  } else {
    rational_significand(*n, f, q);
  }
  round_and_pack_float(*n, f, {mode}, q.sign() < 0, n->exp1, n->mant1, bits);
  store(bits, out, f);
}

QNumber to_number(const Word* x, Widths f, bool large) {
  Scratch n;
  QNumber& bits = n->patterns(f).left;
  const rules::Operand a = read_operand(x, f, bits, n->exp1, n->mant1);
  if (a.is(rules::Class::zero)) {
    return 0;
  }
  if (a.is(rules::Class::nan)) {
    detail::throw_error("can't convert NaN to a Number");
  }
  if (a.is(rules::Class::infinite)) {
    detail::throw_error("can't convert infinity to a Number");
  }
  require_room(f, f.mant_width + 1);
  decompose(f, bias(f), n->exp1, n->mant1);
  n->exp1 -= f.mant_width;
  if (!n->exp1.fits_long()) {
    detail::throw_precision_limit();
  }
  const long k = n->exp1.to_long();
  if (large && k < -static_cast<long>(f.mant_width)) {
    return 0;
  }
  detail::require_room_for_value(k, f.mant_width);
  const auto shift = static_cast<unsigned long>(detail::magnitude(k));
  QNumber value;
  BVNumber::pow2(shift, &value);
  if (k < 0) {
    value = value.inv();
  }
  value *= n->mant1.fits_long() ? QNumber(n->mant1.to_long()) : n->mant1;
  if (a.negative) {
    value.self_neg();
  }
  return value;
}

QNumber to_integer(const Word* x, Widths f, unsigned mode, unsigned long w) {
  Scratch n;
  bool sign = false;
  require_room(f, sign_place(f) + 1);
  QNumber& bits = n->patterns(f).left;
  load(x, f, bits);
  unpack_components(f, bits, sign, n->exp1, n->mant1);
  if (n->exp1.is_zero()) {
    return 0;
  }
  BVNumber::set_bit(n->mant1, f.mant_width, true);
  n->tmp1 = bias(f);  // becomes m - exponent, the shift to the right
  n->tmp1 += f.mant_width;
  n->tmp1 -= n->exp1;
  if (!n->tmp1.fits_long()) {
    return 0;
  }
  const long shift = n->tmp1.to_long();
  if (shift < 0) {
    const auto left = static_cast<unsigned long>(-shift);
    if (left >= w) {
      return 0;
    }
    BVNumber::trim(n->mant1, w - left);  // what the shift would push out of w bits
    if (n->mant1.is_zero()) {
      return 0;
    }
    detail::require_bits(BVNumber::bit_length(n->mant1) + left);
    BVNumber::bit_left_shift(n->mant1, left, &n->mant1);
  } else if (shift > 0) {
    const Remainder lost = shift_right(n->mant1, static_cast<unsigned long>(shift));
    if (rules::increments(static_cast<rules::Direction>(mode), sign,
                          BVNumber::test_bit(n->mant1, 0), lost.half, lost.rest)) {
      n->mant1 += 1;
    }
  }
  BVNumber::trim(n->mant1, w);
  if (sign) {
    n->mant1.self_neg();
  }
  return n->mant1.fits_long() ? QNumber(n->mant1.to_long()) : n->mant1;
}

}  // namespace zelk::exact
