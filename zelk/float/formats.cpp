#include "zelk/float/formats.h"

namespace zelk {

IEEEFloat FormatLimits::smallest_normal() const {
  return IEEEFloat::from_bits(fmt.max_mantissa() + 1, fmt);
}

IEEEFloat FormatLimits::one() const {
  return IEEEFloat::from_number(1, fmt, IEEEFloat::ROUND_NEAREST_EVEN);
}

IEEEFloat FormatLimits::epsilon() const {
  IEEEFloat next = one();
  next.next_representable(true);
  return next -= one();
}

}  // namespace zelk
