// Patterns in one word, to exact numbers and integers.
#ifndef ZELK_WORDS_NUMBERS_H_
#define ZELK_WORDS_NUMBERS_H_

#include <cstdint>

#include "zelk/numbers/qnumber.h"
#include "zelk/rules/rounding.h"
#include "zelk/words/shape.h"

namespace zelk::words {

/// The exact value of a finite pattern.
/// \throws IEEEFloat::error "reached limit on float precision".
QNumber to_number(RuntimeShape s, std::uint64_t word);

/// to_integer(w) of any pattern. False, and out unchanged, when the result is no word.
bool to_integer(RuntimeShape s, rules::Direction mode, std::uint64_t word, unsigned long w,
                long& out);

}  // namespace zelk::words

#endif  // ZELK_WORDS_NUMBERS_H_
