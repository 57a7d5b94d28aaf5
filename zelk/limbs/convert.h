// Integers times powers of two as patterns in limbs.
#ifndef ZELK_LIMBS_CONVERT_H_
#define ZELK_LIMBS_CONVERT_H_

#include "zelk/limbs/patterns.h"

namespace zelk::limbs {

/// out := the pattern nearest in the direction to +-w * 2^k, w of `size` limbs, the highest not 0.
void pack_scaled(Shape s, Rounding r, Limb sign, std::int64_t k, const Limb* w, long size,
                 Limb* out);

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_CONVERT_H_
