// How a result in limbs is rounded, and who is told.
#ifndef ZELK_LIMBS_ROUNDING_H_
#define ZELK_LIMBS_ROUNDING_H_

#include "zelk/limbs/integers.h"
#include "zelk/rules/flags.h"
#include "zelk/rules/rounding.h"

namespace zelk::limbs {

using rules::Direction;

/// A direction, and the exceptions that a result raises; null where nobody asks for them. Inlined
/// code that is given a direction alone has no part of what raises them.
struct Rounding {
  Direction direction;
  rules::Exceptions* exceptions;

  // NOLINTNEXTLINE(google-explicit-constructor)
  constexpr Rounding(Direction d, rules::Exceptions* e = nullptr) : direction(d), exceptions(e) {}

  /// Whether it matters that a result is exact.
  [[gnu::always_inline]] constexpr bool is_watched() const { return exceptions != nullptr; }
  [[gnu::always_inline]] constexpr void raise(unsigned flags) const {
    if (is_watched()) {
      exceptions->raise(flags);
    }
  }
  /// For a result whose exponent is not near the ends of the range: inexact if anything is lost.
  [[gnu::always_inline]] constexpr void raise_lost(Limb guard) const {
    raise(unsigned{guard != 0} * rules::inexact);
  }
};

/// Whether rounding increments a magnitude that has `guard` below: what the rule says, as limbs
/// have it.
[[gnu::always_inline]] inline bool rounds_up(Rounding r, Limb sign, bool odd, Limb guard) {
  if (r.direction == rules::nearest) {
    return (guard | Limb{odd}) > half_limb;
  }
  return guard != 0 && rules::increments(r.direction, sign != 0, odd, guard >= half_limb, true);
}

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_ROUNDING_H_
