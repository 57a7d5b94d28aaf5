// The rounding engine: an exact sign, exponent and significand becomes the nearest pattern.
//
// The one place where results of the reference road are rounded.
#ifndef ZELK_EXACT_ROUNDING_H_
#define ZELK_EXACT_ROUNDING_H_

#include "zelk/exact/numbers.h"
#include "zelk/rules/flags.h"
#include "zelk/rules/rounding.h"

namespace zelk::exact {

/// The bits of an integer below a position, as `rules::increments` wants them.
struct Remainder {
  bool half;
  bool rest;
};

/// mant := floor(mant / 2^s), s > 0; returns what was shifted out.
Remainder shift_right(QNumber& mant, unsigned long s);

/// How a result is rounded: in a mode as values store it, or in any direction with flags.
struct Rounding {
  unsigned mode;
  rules::Exceptions* exceptions = nullptr;

  bool is_known() const { return exceptions != nullptr || rules::is_direction(mode); }
  rules::Direction direction() const { return static_cast<rules::Direction>(mode); }
  void raise(unsigned flags) const {
    if (exceptions != nullptr) {
      exceptions->raise(flags);
    }
  }
};

/// out := the pattern nearest, in the direction, to (-1)^sign * mant * 2^(exp - m).
///
/// exp and mant are integers of any size; a negative mant flips the sign. The significand counts as
/// exact: a caller whose value is not keeps at least m + 2 of its bits and appends a one. The mode
/// is looked at only when bits are lost, so that any mode serves an exact result. exp and mant are
/// overwritten, and so are tmp2 and tmp3, which must not be arguments; out changes last, and
/// neither it nor the flags when anything is thrown.
///
/// \throws IEEEFloat::error "bad rounding mode: <mode>" when the result is inexact and a stored
/// mode
///   is not 0 to 3; without flags "reached limit on float precision" when the shift to a subnormal
///   result does not fit a signed 64-bit word.
void round_and_pack_float(Numbers& n, rules::Widths f, Rounding r, bool sign, QNumber& exp,
                          QNumber& mant, QNumber& out);

}  // namespace zelk::exact

#endif  // ZELK_EXACT_ROUNDING_H_
