// Rounded arithmetic on patterns whose significands have n >= 5 limbs.
//
// The operations on fewer limbs are in few.h.
#ifndef ZELK_LIMBS_MANY_H_
#define ZELK_LIMBS_MANY_H_

#include "zelk/limbs/patterns.h"

namespace zelk::limbs {

/// x := x + y, or x - y if flip is 1, rounded once.
void add_sub(Shape s, long n, Rounding r, Limb* x, const Limb* y, Limb flip);
/// x := x * y, rounded once.
void multiply(Shape s, long n, Rounding r, Limb* x, const Limb* y);
/// x := x / y, rounded once.
void divide(Shape s, long n, Rounding r, Limb* x, const Limb* y);

/// out := the pattern nearest in the direction to w * 2^(exp - bias - m), plus less than one unit
/// of w if `sticky`; w has `size` limbs and is not 0.
void normalize_and_pack(Shape s, long n, Rounding r, Limb sign, std::int64_t exp, const Limb* w,
                        long size, bool sticky, Limb* out);

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_MANY_H_
