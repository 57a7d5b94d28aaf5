// The four rounded operations on patterns of generic values.
//
// Each settles NaN, infinite and zero operands by a table, computes every other result exactly
// as (-1)^sign * significand * 2^(exponent - m), and hands it to the rounding engine. Called by
// the compound operators of ieee_float.cpp.
#ifndef ZELK_FLOAT_ARITHMETIC_H_
#define ZELK_FLOAT_ARITHMETIC_H_

#include <algorithm>

#include "zelk/float/rounding.h"

namespace zelk {
namespace {

/// The sign and class of an operand.
struct Operand {
  bool sign, is_inf, is_nan, is_zero;
};

/// Reads a pattern: sign and class into the result, E and T into exp and mant.
inline Operand read_operand(IEEEFloat::format f, const QNumber& bits, QNumber& exp, QNumber& mant) {
  Operand r{};
  unpack_components(f, bits, r.sign, exp, mant);
  get_flags(f, bits, r.is_inf, r.is_nan, r.is_zero);
  return r;
}

/// From the fields (E, T) of a finite value to the exponent k and integer significand M with
/// |value| = M * 2^(k - m).
inline void decompose(IEEEFloat::format f, const QNumber& bias, QNumber& exp, QNumber& mant) {
  if (exp.is_zero()) {
    exp = 1;
  } else {
    BVNumber::set_bit(mant, f.mant_width, true);
  }
  exp -= bias;
}

/// The special cases that all four operations share: a NaN operand's pattern is passed on, the
/// left one's first. False when neither is a NaN.
inline bool pass_nan(const Operand& a, const Operand& b, QNumber& left, const QNumber& right) {
  if (b.is_nan && !a.is_nan) {
    store(left, right);
  }
  return a.is_nan || b.is_nan;
}

/// Sums align exactly up to this many bits past m; beyond, the smaller operand only matters as a
/// sticky bit.
constexpr unsigned long exact_distance = 65536;

/// Brings the operand of the larger exponent, `high`, to the exponent of the other, which is
/// `distance` lower.
inline void align(IEEEFloat::format f, const QNumber& distance, QNumber& high, QNumber& low_exp,
                  QNumber& low) {
  if (!distance.fits_long()) {
    throw_precision_limit();
  }
  const auto d = static_cast<unsigned long>(distance.to_long());
  if (d <= exact_distance + f.mant_width) {
    require_bits(f.mant_width + 2 + d);
    BVNumber::bit_left_shift(high, d, &high);
    return;
  }
  // high is normal, and low is below an eighth of its ulp, also when high is a power of two and
  // loses a bit to the difference: one unit three places down stands for whatever low is.
  BVNumber::bit_left_shift(high, 3, &high);
  low_exp += d - 3;
  if (!low.is_zero()) {
    low = 1;
  }
}

/// left := left + right, or left - right when `subtract`, rounded once.
inline void add_sub_float(bool subtract, TempNumProvider& tp, IEEEFloat::format f,
                          IEEEFloat::rounding_mode rm, QNumber& left, const QNumber& right) {
  const Operand a = read_operand(f, left, tp.exp1, tp.mant1);
  Operand b = read_operand(f, right, tp.exp2, tp.mant2);
  if (pass_nan(a, b, left, right)) {
    return;
  }
  b.sign = b.sign != subtract;
  const bool zero_sign = rm == IEEEFloat::ROUND_TOWARD_NEGATIVE;  // of x - x
  if (a.is_inf) {
    if (b.is_inf && a.sign != b.sign) {
      pack_nan(f, tp.tmp1);
      store(left, tp.tmp1);
    }
    return;
  }
  if (b.is_inf) {
    pack_inf(f, b.sign, tp.tmp1);
    store(left, tp.tmp1);
    return;
  }
  if (a.is_zero && b.is_zero) {
    if (a.sign != b.sign) {
      BVNumber::set_bit(left, sign_bit(f), zero_sign);
    }
    return;
  }

  require_room(f, f.mant_width + 4);
  tp.tmp1 = f.bias();
  decompose(f, tp.tmp1, tp.exp1, tp.mant1);
  decompose(f, tp.tmp1, tp.exp2, tp.mant2);
  QNumber* common = &tp.exp1;
  if (tp.exp1 < tp.exp2) {
    tp.exp2 -= tp.exp1;
    align(f, tp.exp2, tp.mant2, tp.exp1, tp.mant1);
  } else if (tp.exp2 < tp.exp1) {
    tp.exp1 -= tp.exp2;
    align(f, tp.exp1, tp.mant1, tp.exp2, tp.mant2);
    common = &tp.exp2;
  }
  if (a.sign) {
    tp.mant1.self_neg();
  }
  if (b.sign) {
    tp.mant2.self_neg();
  }
  tp.mant1 += tp.mant2;
  // The engine takes the sign from the sum. Both operands are whole multiples of the smallest
  // subnormal, so that only an exact cancellation gives a zero.
  const bool sign = tp.mant1.is_zero() && zero_sign;
  round_and_pack_float(tp, f, rm, sign, *common, tp.mant1, left);
}

inline void add_float(TempNumProvider& tp, IEEEFloat::format f, IEEEFloat::rounding_mode rm,
                      QNumber& left, const QNumber& right) {
  add_sub_float(false, tp, f, rm, left, right);
}

inline void subtract_float(TempNumProvider& tp, IEEEFloat::format f, IEEEFloat::rounding_mode rm,
                           QNumber& left, const QNumber& right) {
  add_sub_float(true, tp, f, rm, left, right);
}

/// left := left * right, rounded once.
inline void multiply_float(TempNumProvider& tp, IEEEFloat::format f, IEEEFloat::rounding_mode rm,
                           QNumber& left, const QNumber& right) {
  const Operand a = read_operand(f, left, tp.exp1, tp.mant1);
  const Operand b = read_operand(f, right, tp.exp2, tp.mant2);
  const bool sign = a.sign != b.sign;
  if (pass_nan(a, b, left, right)) {
    return;
  }
  if (a.is_inf || b.is_inf) {
    if (a.is_zero || b.is_zero) {
      pack_nan(f, tp.tmp1);
    } else {
      pack_inf(f, sign, tp.tmp1);
    }
    store(left, tp.tmp1);
    return;
  }

  require_room(f, 2 * f.mant_width + 2);
  tp.tmp1 = f.bias();
  decompose(f, tp.tmp1, tp.exp1, tp.mant1);
  decompose(f, tp.tmp1, tp.exp2, tp.mant2);
  tp.exp1 += tp.exp2;
  tp.exp1 -= f.mant_width;
  tp.mant1 *= tp.mant2;
  round_and_pack_float(tp, f, rm, sign, tp.exp1, tp.mant1, left);
}

/// Moves the leading one of a subnormal's significand up to bit m.
inline void normalize_subnormal(IEEEFloat::format f, QNumber& exp, QNumber& mant) {
  const unsigned long n = BVNumber::count_leading_zeros(mant, f.mant_width + 1);
  exp -= n;
  BVNumber::bit_left_shift(mant, n, &mant);
}

/// left := left / right, rounded once.
inline void divide_float(TempNumProvider& tp, IEEEFloat::format f, IEEEFloat::rounding_mode rm,
                         QNumber& left, const QNumber& right) {
  const unsigned long m = f.mant_width;
  const Operand a = read_operand(f, left, tp.exp1, tp.mant1);
  const Operand b = read_operand(f, right, tp.exp2, tp.mant2);
  const bool sign = a.sign != b.sign;
  if (pass_nan(a, b, left, right)) {
    return;
  }
  if (a.is_inf || b.is_inf || a.is_zero || b.is_zero) {
    if ((a.is_zero && b.is_zero) || (a.is_inf && b.is_inf)) {
      pack_nan(f, tp.tmp1);
    } else if (a.is_inf || b.is_zero) {
      pack_inf(f, sign, tp.tmp1);
    } else {
      pack_zero(f, sign, tp.tmp1);
    }
    store(left, tp.tmp1);
    return;
  }

  // With both leading ones at bit m and the dividend shifted up by n bits, the quotient has n or
  // n + 1 bits; m + 2 of them reach below the round bit, and the remainder is the sticky bit.
  const unsigned long n = std::max(2 * m, m + 2);
  require_room(f, m + 2 + n);
  tp.tmp1 = f.bias();
  decompose(f, tp.tmp1, tp.exp1, tp.mant1);
  decompose(f, tp.tmp1, tp.exp2, tp.mant2);
  normalize_subnormal(f, tp.exp1, tp.mant1);
  normalize_subnormal(f, tp.exp2, tp.mant2);
  tp.exp1 -= tp.exp2;
  tp.exp1 -= n - m;
  BVNumber::bit_left_shift(tp.mant1, n, &tp.mant1);
  tp.mant1.divmod(tp.mant2, tp.tmp1, tp.exp2);
  tp.mant1 = tp.tmp1;
  if (!tp.exp2.is_zero()) {
    tp.exp1 -= 1;
    BVNumber::bit_left_shift(tp.mant1, 1, &tp.mant1);
    BVNumber::set_bit(tp.mant1, 0, true);
  }
  round_and_pack_float(tp, f, rm, sign, tp.exp1, tp.mant1, left);
}

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_ARITHMETIC_H_
