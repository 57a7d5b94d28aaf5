// The special operands of each operation: what IEEE 754, clauses 6 and 7, has for NaNs, infinities
// and zeros, once for all roads.
//
// A road classifies its operands, asks, and builds what it is told, or computes.
#ifndef ZELK_RULES_SPECIAL_H_
#define ZELK_RULES_SPECIAL_H_

#include "zelk/rules/rounding.h"

namespace zelk::rules {

/// What an operand is; `finite` ones are not zero.
enum class Class : unsigned char { zero, finite, infinite, nan };

/// An operand as the tables see it.
struct Operand {
  Class what;
  bool negative;

  constexpr bool is(Class c) const { return what == c; }
};

/// What an operation gives.
enum class Outcome : unsigned char {
  computed,  ///< what is left to be computed: no table knows it
  left,      ///< the left operand, a NaN
  right,     ///< the right operand, a NaN
  invalid,   ///< the canonical NaN, and invalid
  zero,      ///< the zero of the sign given
  infinity,  ///< the infinity of the sign given
  pole,      ///< the same, and division by zero
};

/// An outcome, and the sign of a zero or an infinity.
struct Result {
  Outcome outcome;
  bool negative = false;
};

/// The sign of an exact sum of zero whose terms differ in sign.
constexpr bool zero_sum_is_negative(Direction d) { return d == downward; }

/// The first NaN, if there is one.
constexpr Result nan_or(Operand a, Operand b, Result otherwise) {
  return a.is(Class::nan)   ? Result{Outcome::left}
         : b.is(Class::nan) ? Result{Outcome::right}
                            : otherwise;
}

/// a + b; of a difference, b with its sign changed.
constexpr Result sum(Operand a, Operand b, Direction d) {
  Result r{Outcome::computed};
  if (a.is(Class::infinite) && b.is(Class::infinite) && a.negative != b.negative) {
    r = {Outcome::invalid};
  } else if (a.is(Class::infinite) || b.is(Class::infinite)) {
    r = {Outcome::infinity, a.is(Class::infinite) ? a.negative : b.negative};
  } else if (a.is(Class::zero) && b.is(Class::zero)) {
    r = {Outcome::zero, a.negative == b.negative ? a.negative : zero_sum_is_negative(d)};
  }
  return nan_or(a, b, r);
}

/// a * b.
constexpr Result product(Operand a, Operand b) {
  const bool negative = a.negative != b.negative;
  const bool zero = a.is(Class::zero) || b.is(Class::zero);
  const bool infinite = a.is(Class::infinite) || b.is(Class::infinite);
  const Result r = zero && infinite ? Result{Outcome::invalid}
                   : zero           ? Result{Outcome::zero, negative}
                   : infinite       ? Result{Outcome::infinity, negative}
                                    : Result{Outcome::computed};
  return nan_or(a, b, r);
}

/// a / b.
constexpr Result quotient(Operand a, Operand b) {
  const bool negative = a.negative != b.negative;
  Result r{Outcome::computed};
  if (a.what == b.what && !a.is(Class::finite)) {
    r = {Outcome::invalid};
  } else if (a.is(Class::infinite)) {
    r = {Outcome::infinity, negative};
  } else if (b.is(Class::zero)) {
    r = {Outcome::pole, negative};
  } else if (a.is(Class::zero) || b.is(Class::infinite)) {
    r = {Outcome::zero, negative};
  }
  return nan_or(a, b, r);
}

/// a * b + c. What is finite is left to be computed, but for a sum of zeros: a product that is zero
/// leaves c.
constexpr Result fused(Operand a, Operand b, Operand c, Direction d) {
  if (a.is(Class::nan) || b.is(Class::nan) || c.is(Class::nan)) {
    return {a.is(Class::nan) || b.is(Class::nan) ? Outcome::left : Outcome::right};
  }
  const Result p = product(a, b);
  switch (p.outcome) {
    case Outcome::zero:
      return c.is(Class::finite) ? Result{Outcome::computed} : sum({Class::zero, p.negative}, c, d);
    case Outcome::infinity:
      return sum({Class::infinite, p.negative}, c, d);
    case Outcome::computed:
      return c.is(Class::infinite) ? Result{Outcome::infinity, c.negative} : p;
    default:
      return p;
  }
}

/// The square root of a.
constexpr Result root(Operand a) {
  if (a.is(Class::nan)) {
    return {Outcome::left};
  }
  if (a.is(Class::zero)) {
    return {Outcome::zero, a.negative};
  }
  return a.negative              ? Result{Outcome::invalid}
         : a.is(Class::infinite) ? Result{Outcome::infinity, false}
                                 : Result{Outcome::computed};
}

/// What a / b leaves. An infinite b leaves a, which is left to be computed.
constexpr Result remainder(Operand a, Operand b) {
  Result r{Outcome::computed};
  if (a.is(Class::infinite) || b.is(Class::zero)) {
    r = {Outcome::invalid};
  } else if (a.is(Class::zero)) {
    r = {Outcome::zero, a.negative};
  }
  return nan_or(a, b, r);
}

/// A number that is rounded again, scaled or made integral.
constexpr Result same(Operand a) {
  return a.is(Class::nan)        ? Result{Outcome::left}
         : a.is(Class::infinite) ? Result{Outcome::infinity, a.negative}
         : a.is(Class::zero)     ? Result{Outcome::zero, a.negative}
                                 : Result{Outcome::computed};
}

}  // namespace zelk::rules

#endif  // ZELK_RULES_SPECIAL_H_
