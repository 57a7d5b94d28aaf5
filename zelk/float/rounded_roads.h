// The table of roads of environments: which function computes a rounded operation, with flags, on
// patterns of a kind.
#ifndef ZELK_FLOAT_ROUNDED_ROADS_H_
#define ZELK_FLOAT_ROUNDED_ROADS_H_

#include "zelk/float/kind.h"
#include "zelk/rules/flags.h"
#include "zelk/rules/rounding.h"

namespace zelk::detail {

/// x := x op y, patterns of one format (e, m); of an operation on one operand y means nothing.
using RoundedOperation = void (*)(Pattern& x, const Pattern& y, unsigned long exp_width,
                                  unsigned long mant_width, rules::Direction d,
                                  rules::Exceptions& exceptions);
/// x := x * y + z.
using FusedOperation = void (*)(Pattern& x, const Pattern& y, const Pattern& z,
                                unsigned long exp_width, unsigned long mant_width,
                                rules::Direction d, rules::Exceptions& exceptions);

/// An operation on all roads; null where it is computed on numbers, by `exact`.
template <class F>
struct RoundedOperations {
  F on[road_count];

  F operator[](Road r) const { return has_short_roads ? on[static_cast<unsigned>(r)] : nullptr; }
};

extern const RoundedOperations<RoundedOperation> rounded_sum;
extern const RoundedOperations<RoundedOperation> rounded_difference;
extern const RoundedOperations<RoundedOperation> rounded_product;
extern const RoundedOperations<RoundedOperation> rounded_quotient;
extern const RoundedOperations<RoundedOperation> rounded_root;
extern const RoundedOperations<RoundedOperation> rounded_remainder;  ///< quotient to nearest-even
extern const RoundedOperations<RoundedOperation> rounded_modulo;     ///< quotient cut off
extern const RoundedOperations<RoundedOperation> rounded_integral;  ///< to an integer, with inexact
extern const RoundedOperations<FusedOperation> rounded_fused;

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_ROUNDED_ROADS_H_
