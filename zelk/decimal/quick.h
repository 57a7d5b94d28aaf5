// The shortest digits of values whose significands are in one word or two, by powers of five that
// are cut off.
//
// As in R. Giulietti, The Schubfach way to render doubles (2020), and U. Adams, Ryu revisited
// (OOPSLA 2019): a value and the midpoints around it are divided by 10^p, the largest power of ten
// that is not above their distance. Between the midpoints are then one multiple of it at least and
// one of 10^(p + 1) at most, which has fewer digits if it is there. Here nothing has to be known of
// a format: the error of a quotient is at most a few units of its last place, and what is closer
// than that to a multiple, or to the middle of two, is left to exact integers.
#ifndef ZELK_DECIMAL_QUICK_H_
#define ZELK_DECIMAL_QUICK_H_

#include <cstdint>

#include "zelk/words/integers.h"

namespace zelk::decimal {

using words::uint128;

/// Room for a text, and for what is written before and after it on the way.
using QuickRoom = char[104];

/// A text in such a room.
struct QuickText {
  char* begin = nullptr;
  char* end = nullptr;
};

/// The shortest text of a pattern of e bits of exponent, 2 to 62, and m > 0 of significand; none
/// for 0, infinities and NaNs, for exponents beyond the powers that there are, and where the bound
/// of the error does not decide.
QuickText shortest_text(std::uint64_t pattern, int e, int m, QuickRoom& room);
QuickText shortest_text(uint128 pattern, int e, int m, QuickRoom& room);
/// The same of binary16, binary32 and binary64.
QuickText shortest_text16(std::uint64_t pattern, QuickRoom& room);
QuickText shortest_text32(std::uint64_t pattern, QuickRoom& room);
QuickText shortest_text64(std::uint64_t pattern, QuickRoom& room);

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_QUICK_H_
