// The reference road: every operation on exact integers, for every format, mode and size.
//
// Patterns come and go in words, the least first, (e + m) / 64 + 1 of them. Modes are numbers as
// values store them: one that is none of the four is reported when something has to be rounded.
// Whatever is thrown, the target keeps its pattern.
#ifndef ZELK_EXACT_EXACT_H_
#define ZELK_EXACT_EXACT_H_

#include <cstdint>

#include "zelk/numbers/qnumber.h"
#include "zelk/rules/rounding.h"

namespace zelk::exact {

using Word = std::uint64_t;
using rules::Widths;

/// \{
/// x := x op y, rounded once; y may be x. A NaN operand's pattern is passed on.
void add(Word* x, const Word* y, Widths f, unsigned mode);
void subtract(Word* x, const Word* y, Widths f, unsigned mode);
void multiply(Word* x, const Word* y, Widths f, unsigned mode);
void divide(Word* x, const Word* y, Widths f, unsigned mode);
/// \}

/// out := x, rounded into format `to`; every NaN becomes the canonical one. out may be x.
void convert(const Word* x, Widths from, Word* out, Widths to, unsigned mode);

/// out := the integer n, rounded once.
void from_integer(const QNumber& n, Word* out, Widths f, unsigned mode);

/// out := q * 2^k, rounded once; k is an integer.
void from_scaled(const QNumber& q, const QNumber& k, Word* out, Widths f, unsigned mode);

/// The exact value of a finite pattern. For `large` a value below 2^-m may give 0.
/// \throws IEEEFloat::error for NaNs and infinities; "reached limit on float precision".
QNumber to_number(const Word* x, Widths f, bool large = false);

/// The value rounded to an integer, its magnitude reduced modulo 2^w, w > 0. The bit pattern alone
/// decides: infinities and NaNs convert like finite values of their exponent.
QNumber to_integer(const Word* x, Widths f, unsigned mode, unsigned long w);

}  // namespace zelk::exact

#endif  // ZELK_EXACT_EXACT_H_
