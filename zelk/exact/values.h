// The first and the last steps of operations on operands of any formats: taking apart, special
// results, rounding.
#ifndef ZELK_EXACT_VALUES_H_
#define ZELK_EXACT_VALUES_H_

#include "zelk/exact/operations.h"
#include "zelk/exact/terms.h"
#include "zelk/rules/special.h"

namespace zelk::exact {

/// An operand taken apart; the term is that of a finite value.
struct Value {
  rules::Operand operand;
  Term term;
};

Value read(const Source& x);

/// The digits that rounding to a target looks at.
inline unsigned long precision(const Target& t) { return t.widths.mant_width + 3; }

/// t := the term, rounded; a zero keeps its sign.
void round(Term x, const Target& t);

/// t := what a table has; false where there is something to compute.
bool settle(rules::Result r, const Target& t);

/// A sum that is 0 gets the sign that sums of zero have.
Term with_zero_sign(Term x, const Target& t);

}  // namespace zelk::exact

#endif  // ZELK_EXACT_VALUES_H_
