// Patterns in words, to and from the numbers that the reference road computes in.
#ifndef ZELK_EXACT_PATTERNS_H_
#define ZELK_EXACT_PATTERNS_H_

#include <span>

#include "zelk/exact/codec.h"
#include "zelk/exact/exact.h"
#include "zelk/rules/special.h"
#include "zelk/words/bits.h"

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

/// Reads a pattern: its number into `bits`, E and T into exp and mant; its class and sign.
inline rules::Operand read_operand(const Word* x, Widths f, QNumber& bits, QNumber& exp,
                                   QNumber& mant) {
  load(x, f, bits);
  bool negative = false;
  unpack_components(f, bits, negative, exp, mant);
  return words::operand_of(x, f);
}

}  // namespace zelk::exact

#endif  // ZELK_EXACT_PATTERNS_H_
