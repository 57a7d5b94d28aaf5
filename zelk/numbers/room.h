// The tests of sizes that keep float code within `max_bits`, before number code or GMP would have
// to refuse.
#ifndef ZELK_NUMBERS_ROOM_H_
#define ZELK_NUMBERS_ROOM_H_

#include <algorithm>

#include "zelk/base/float_errors.h"
#include "zelk/numbers/qnumber.h"

namespace zelk::detail {

/// Throws for a number of more than `max_bits` bits.
inline void require_bits(unsigned long bits) {
  if (bits > max_bits) {
    throw_precision_limit();
  }
}

/// Whether patterns of these widths are below the limit: 1 + e + m is.
inline bool has_patterns(unsigned long exp_width, unsigned long mant_width) {
  return exp_width < max_bits - 1 && mant_width < max_bits - 1 - exp_width;
}

/// The index e + m of the sign bit. Every operation that needs the width of a pattern starts here,
/// so that past this call 1 + e + m is below `max_bits`: sums of widths cannot wrap, and the sum of
/// a pattern and one is within the limit.
inline unsigned long sign_place(unsigned long exp_width, unsigned long mant_width) {
  if (!has_patterns(exp_width, mant_width)) {
    throw_precision_limit();
  }
  return exp_width + mant_width;
}

/// Throws unless a significand times 2^k is within the limit, and so is all that leads there.
inline void require_room_for_value(long k, unsigned long mant_width) {
  const auto shift = static_cast<unsigned long>(magnitude(k));
  if (shift + mant_width > 254) {  // no limit is below 256
    require_bits(2 + (k < 0 ? std::max(shift, mant_width) : shift + mant_width));
  }
}

}  // namespace zelk::detail

#endif  // ZELK_NUMBERS_ROOM_H_
