// Short products and quotients: the upper half of what the full operation yields, in less time,
// with an error of a few units in the last limb.
//
// Integers are n limbs, least first. Whoever rounds the result takes the full operation where the
// error leaves the rounding open.
#ifndef ZELK_LIMBS_SHORT_H_
#define ZELK_LIMBS_SHORT_H_

#include "zelk/limbs/integers.h"

namespace zelk::limbs {

/// The limbs of room that the functions need.
constexpr long product_room(long n) { return 2 * n; }
constexpr long quotient_room(long n) { return 3 * n + 1; }

/// Bounds of what is lost, in units of the lowest limb delivered.
constexpr Limb product_error(long n) { return 2 * static_cast<Limb>(n); }
inline constexpr Limb quotient_error = 2;

/// out := the n + 1 upper limbs of x * y, of n >= 2 limbs each:
/// out <= x * y / 2^(64 (n - 1)) < out + product_error(n).
///
/// Each limb of out is the sum of a column of products x[i] * y[j], i + j the same, and of what is
/// carried into it. Lost are the columns below n - 2 and what the lowest ones leave of a unit:
/// fewer than n products each below a unit, and as many again where the columns are cut in parts.
/// Neither out nor room overlaps x or y. The same pointer for both is a square:
/// faster from 16 limbs on, and the full one copied below.
void multiply_high(Limb* out, const Limb* x, const Limb* y, long n, Limb* room);

/// out := x / y in n + 2 limbs, the highest of them 0 or 1, for x and y of n >= 2 limbs each with
/// their highest bits set: out <= x / y * 2^(64 (n + 1)) < out + quotient_error.
///
/// A digit comes from what the digits before it leave of x in all columns up to one beyond its own.
/// The columns not yet seen are too small to matter: a digit that they make wrong is noticed later,
/// and then the quotient is computed fully. Neither out nor room overlaps x or y.
void divide_high(Limb* out, const Limb* x, const Limb* y, long n, Limb* room);

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_SHORT_H_
