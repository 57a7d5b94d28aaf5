// The four rounded operations: the table of special operands, the exact result as
// (-1)^sign * significand * 2^(exponent - m), and the rounding engine.

#include <algorithm>

#include "zelk/base/float_errors.h"
#include "zelk/exact/exact.h"
#include "zelk/exact/numbers.h"
#include "zelk/exact/patterns.h"
#include "zelk/exact/rounding.h"

namespace zelk::exact {

namespace {

using rules::Operand;

// out := what the table has; false where there is something to compute.
bool settle(Numbers& n, Widths f, rules::Result r) {
  Patterns& p = n.patterns(f);
  switch (r.outcome) {
    case rules::Outcome::computed:
      return false;
    case rules::Outcome::left:
      p.out = p.left;
      break;
    case rules::Outcome::right:
      p.out = p.right;
      break;
    case rules::Outcome::zero:
      pack_zero(f, r.negative, p.out);
      break;
    case rules::Outcome::infinity:
    case rules::Outcome::pole:
      pack_inf(f, r.negative, p.out);
      break;
    case rules::Outcome::invalid:
      pack_nan(f, p.out);
      break;
  }
  return true;
}

// Sums align exactly up to this many bits past m; beyond, the smaller operand only matters as a
// sticky bit.
constexpr unsigned long exact_distance = 65536;

// Brings the operand of the larger exponent, `high`, to the exponent of the other, which is
// `distance` lower.
void align(Widths f, const QNumber& distance, QNumber& high, QNumber& low_exp, QNumber& low) {
  if (!distance.fits_long()) {
    detail::throw_precision_limit();
  }
  const auto d = static_cast<unsigned long>(distance.to_long());
  if (d <= exact_distance + f.mant_width) {
    detail::require_bits(f.mant_width + 2 + d);
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

void decompose_both(Numbers& n, Widths f) {
  n.tmp1 = bias(f);
  decompose(f, n.tmp1, n.exp1, n.mant1);
  decompose(f, n.tmp1, n.exp2, n.mant2);
}

void add_operands(Numbers& n, Widths f, unsigned mode, Operand a, Operand b) {
  const auto direction = static_cast<rules::Direction>(mode);
  if (settle(n, f, rules::sum(a, b, direction))) {
    return;
  }
  require_room(f, f.mant_width + 4);
  decompose_both(n, f);
  QNumber* common = &n.exp1;
  if (n.exp1 < n.exp2) {
    n.exp2 -= n.exp1;
    align(f, n.exp2, n.mant2, n.exp1, n.mant1);
  } else if (n.exp2 < n.exp1) {
    n.exp1 -= n.exp2;
    align(f, n.exp1, n.mant1, n.exp2, n.mant2);
    common = &n.exp2;
  }
  if (a.negative) {
    n.mant1.self_neg();
  }
  if (b.negative) {
    n.mant2.self_neg();
  }
  n.mant1 += n.mant2;
  // The engine takes the sign from the sum. Both operands are whole multiples of the smallest
  // subnormal, so that only an exact cancellation gives a zero.
  const bool sign = n.mant1.is_zero() && rules::zero_sum_is_negative(direction);
  round_and_pack_float(n, f, {mode}, sign, *common, n.mant1, n.patterns(f).out);
}

void multiply_operands(Numbers& n, Widths f, unsigned mode, Operand a, Operand b) {
  if (settle(n, f, rules::product(a, b))) {
    return;
  }
  require_room(f, 2 * f.mant_width + 2);
  decompose_both(n, f);
  n.exp1 += n.exp2;
  n.exp1 -= f.mant_width;
  n.mant1 *= n.mant2;
  round_and_pack_float(n, f, {mode}, a.negative != b.negative, n.exp1, n.mant1, n.patterns(f).out);
}

// Moves the leading one of a subnormal's significand up to bit m.
void normalize_subnormal(Widths f, QNumber& exp, QNumber& mant) {
  const unsigned long zeros = BVNumber::count_leading_zeros(mant, f.mant_width + 1);
  exp -= zeros;
  BVNumber::bit_left_shift(mant, zeros, &mant);
}

void divide_operands(Numbers& n, Widths f, unsigned mode, Operand a, Operand b) {
  if (settle(n, f, rules::quotient(a, b))) {
    return;
  }
  // With both leading ones at bit m and the dividend shifted up by k bits, the quotient has k or
  // k + 1 bits; m + 2 of them reach below the round bit, and the remainder is the sticky bit.
  const unsigned long m = f.mant_width;
  const unsigned long k = std::max(2 * m, m + 2);
  require_room(f, m + 2 + k);
  decompose_both(n, f);
  normalize_subnormal(f, n.exp1, n.mant1);
  normalize_subnormal(f, n.exp2, n.mant2);
  n.exp1 -= n.exp2;
  n.exp1 -= k - m;
  BVNumber::bit_left_shift(n.mant1, k, &n.mant1);
  n.mant1.divmod(n.mant2, n.tmp1, n.exp2);
  n.mant1 = n.tmp1;
  if (!n.exp2.is_zero()) {
    n.exp1 -= 1;
    BVNumber::bit_left_shift(n.mant1, 1, &n.mant1);
    BVNumber::set_bit(n.mant1, 0, true);
  }
  round_and_pack_float(n, f, {mode}, a.negative != b.negative, n.exp1, n.mant1, n.patterns(f).out);
}

// Reads both operands, has the result computed, and writes it over x.
void apply(Word* x, const Word* y, Widths f, unsigned mode, bool subtract,
           void (*operation)(Numbers&, Widths, unsigned, Operand, Operand)) {
  Scratch n;
  Patterns& p = n->patterns(f);
  const Operand a = read_operand(x, f, p.left, n->exp1, n->mant1);
  Operand b = read_operand(y, f, p.right, n->exp2, n->mant2);
  b.negative = b.negative != subtract;
  operation(*n, f, mode, a, b);
  store(p.out, x, f);
}

}  // namespace

void add(Word* x, const Word* y, Widths f, unsigned mode) {
  apply(x, y, f, mode, false, add_operands);
}
void subtract(Word* x, const Word* y, Widths f, unsigned mode) {
  apply(x, y, f, mode, true, add_operands);
}
void multiply(Word* x, const Word* y, Widths f, unsigned mode) {
  apply(x, y, f, mode, false, multiply_operands);
}
void divide(Word* x, const Word* y, Widths f, unsigned mode) {
  apply(x, y, f, mode, false, divide_operands);
}

}  // namespace zelk::exact
