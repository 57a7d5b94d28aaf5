// Patterns in words, to and from the numbers that the reference road computes in.
#ifndef ZELK_EXACT_PATTERNS_H_
#define ZELK_EXACT_PATTERNS_H_

#include <span>

#include "zelk/exact/codec.h"
#include "zelk/exact/exact.h"

namespace zelk::exact {

/// out := the pattern.
inline void load(const Word* x, Widths f, QNumber& out) {
  if (const unsigned long size = sign_place(f) / 64 + 1; size > 1) {
    BVNumber::from_words({x, size}, &out);
  } else {
    out = x[0];
  }
}

/// Writes the pattern of 1 + e + m bits. Of formats without an exponent it may be negative: the
/// bits count.
inline void store(QNumber& pattern, Word* x, Widths f) {
  if (pattern.sign() < 0) {
    BVNumber::trim(pattern, sign_place(f) + 1);
  }
  if (const unsigned long size = sign_place(f) / 64 + 1; size > 1) {
    BVNumber::to_words(pattern, {x, size});
  } else {
    x[0] = BVNumber::low_word(pattern);
  }
}

/// An operand: its sign and class; E and T go to exp and mant.
inline rules::Operand read_operand(Widths f, const QNumber& bits, QNumber& exp, QNumber& mant) {
  rules::Operand a = operand_of(f, bits);
  unpack_components(f, bits, a.negative, exp, mant);
  return a;
}

}  // namespace zelk::exact

#endif  // ZELK_EXACT_PATTERNS_H_
