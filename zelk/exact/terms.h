// Exact numbers as significand and exponent: what operations on operands of any formats compute
// with.
#ifndef ZELK_EXACT_TERMS_H_
#define ZELK_EXACT_TERMS_H_

#include "zelk/numbers/bvnumber.h"
#include "zelk/numbers/qnumber.h"

namespace zelk::exact {

/// +-significand * 2^exponent, both integers, the significand not negative.
///
/// The functions below that take a precision p give a number that rounds as the exact result does,
/// to every format whose last place is at or above the p-th digit of the significand, or beyond it:
/// with a last digit of 1 that stands for all that is below.
struct Term {
  bool negative = false;
  QNumber significand;
  QNumber exponent;

  /// The exponent of the power of two above the value, other than 0.
  QNumber top() const { return exponent + BVNumber::bit_length(significand); }
};

/// a + b, exactly, of exponents that are not far apart.
Term add(const Term& a, const Term& b);
/// The same with p digits at least. The cost does not depend on the distance of exponents.
Term add(const Term& a, const Term& b, unsigned long p);
/// a * b, exactly.
Term multiply(const Term& a, const Term& b);
/// a / b, with p digits at least.
Term divide(const Term& a, const Term& b, unsigned long p);
/// The square root of a positive a, with p digits at least.
Term sqrt(const Term& a, unsigned long p);
/// What a / b leaves, exactly, for a quotient cut off or rounded to nearest-even; with a's sign
/// when it is 0.
Term remainder(const Term& a, const Term& b, bool nearest);

/// -1, 0 or 1 as |a| < |b|, |a| = |b| or |a| > |b|, neither being 0.
int compare_magnitudes(const Term& a, const Term& b);

}  // namespace zelk::exact

#endif  // ZELK_EXACT_TERMS_H_
