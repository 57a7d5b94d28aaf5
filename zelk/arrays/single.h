// Elements one by one, by the environment's operations: the reference of every quick road, and the
// road of what those decline.
#ifndef ZELK_ARRAYS_SINGLE_H_
#define ZELK_ARRAYS_SINGLE_H_

#include "zelk/arrays/shape.h"
#include "zelk/arrays/stochastic.h"

namespace zelk::arrays::detail {

/// x rounded into f, a NaN if it is one.
double round_one(Environment& env, double x, Format f);
/// The same by draw n.
double round_one(Environment& env, double x, Format f, const Stochastic& draws, std::uint64_t n);
/// An operation on operands that are flushed if need be; those that it has not play no part.
double compute_one(Environment& env, Operation op, const double (&x)[3], Format f);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_SINGLE_H_
