// The five exceptions of IEEE 754, clause 7: their bits in a flag byte, and what an operation has
// to know to signal them.
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

/// How an operation treats tiny results, and the flags that it raises.
struct Exceptions {
  bool tiny_before;     ///< tininess is judged before rounding, else after it
  bool flush;           ///< tiny results that are not zero become the zero of their sign
  unsigned char flags;  ///< only ever set

  constexpr void raise(unsigned raised) { flags = static_cast<unsigned char>(flags | raised); }
};

}  // namespace zelk::rules

#endif  // ZELK_RULES_FLAGS_H_
