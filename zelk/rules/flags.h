// The five exceptions of IEEE 754, clause 7, as bits of a flag byte.
#ifndef ZELK_RULES_FLAGS_H_
#define ZELK_RULES_FLAGS_H_

namespace zelk::rules {

enum Flag : unsigned char {
  invalid = 1,
  divide_by_zero = 2,
  overflow = 4,
  underflow = 8,
  inexact = 16,
};

}  // namespace zelk::rules

#endif  // ZELK_RULES_FLAGS_H_
