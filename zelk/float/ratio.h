// Numbers times powers of two rounded to values, on the short roads.
#ifndef ZELK_FLOAT_RATIO_H_
#define ZELK_FLOAT_RATIO_H_

#include "zelk/float/evaluation.h"
#include "zelk/limbs/limbs.h"
#include "zelk/numbers/parts.h"
#include "zelk/words/convert.h"

namespace zelk::detail {

/// Whether an exponent is so small that sums of a few of them are words.
inline bool is_near(const QNumber& n) {
  constexpr long far = 1L << 60;
  return n.fits_long() && n.to_long() > -far && n.to_long() < far;
}

/// out := q * 2^k rounded, out being +0. On words it is made in the shape that in_shape has of one
/// of theirs, with the direction of r, on limbs with r. False, and nothing done, where that is left
/// to numbers.
template <class InShape>
bool round_ratio(IEEEFloat& out, const QNumber& q, const QNumber& k, limbs::Rounding r,
                 InShape in_shape) {
  const Road road = has_short_roads ? ValueAccess::kind(out).road() : Road::numbers;
  if (road == Road::numbers || !is_near(k)) {
    return false;
  }
  if (q.is_zero()) {
    return true;
  }
  if (road == Road::limbs) {
    limbs::from_ratio(Parts(q), k.to_long(), ValueAccess::words(out), widths(out.get_format()), r);
    return true;
  }
  WordParts parts{};
  const words::Magnitude x =
      Parts::in_words(q, parts) ? words::quotient(parts.num, parts.den) : limbs::quotient(Parts(q));
  return make_in_words(out, [&](auto s) {
    return words::from_magnitude(in_shape(s), parts.negative, x, k.to_long(), r.direction);
  });
}

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_RATIO_H_
