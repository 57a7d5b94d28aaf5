// Short products and quotients: the upper half of what the full operation yields, for about half
// its time, with an error of a few units in the last limb.
//
// Integers are n limbs, least first. Whoever rounds the result takes the full operation where the
// error leaves the rounding open.
#ifndef ZELK_LIMBS_SHORT_H_
#define ZELK_LIMBS_SHORT_H_

#include <gmp.h>

namespace zelk::limbs {

using Limb = mp_limb_t;

/// The limbs of room that the functions below need.
constexpr long product_room(long n) { return 2 * n + 8; }
constexpr long quotient_room(long n) { return 3 * n + 4; }

/// What the true results stay below, in units of the lowest limb above what is delivered.
constexpr Limb product_error(long n) { return 2 * static_cast<Limb>(n); }
constexpr Limb quotient_error = 2;

/// out := the n + 1 upper limbs of x * y, of n >= 2 limbs each:
/// out <= x * y / 2^(64 (n - 1)) < out + product_error(n).
///
/// Neither out nor room overlaps x or y, which may be the same.
void multiply_high(Limb* out, const Limb* x, const Limb* y, long n, Limb* room);

/// out := x / y in n + 2 limbs, the highest of them 0 or 1, for x and y of n >= 2 limbs each with
/// their highest bits set: out <= x / y * 2^(64 (n + 1)) < out + quotient_error.
///
/// Neither out nor room overlaps x or y.
void divide_high(Limb* out, const Limb* x, const Limb* y, long n, Limb* room);

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_SHORT_H_
