// The operations of the standard on numbers: operands of any formats, the exact result rounded once
// into another one, with flags.
//
// The reference of every environment. Operands are patterns as they are; a NaN is quiet. Whatever
// is thrown, target and flags stay as they are.
#ifndef ZELK_EXACT_OPERATIONS_H_
#define ZELK_EXACT_OPERATIONS_H_

#include <cstdint>
#include <span>

#include "zelk/numbers/qnumber.h"
#include "zelk/rules/flags.h"
#include "zelk/rules/rounding.h"

namespace zelk::exact {

/// A pattern that is read, in words, the lowest first.
struct Source {
  const std::uint64_t* words;
  rules::Widths widths;
};

/// Where a result goes, how it is rounded, and what it raises. It may be where an operand is.
struct Target {
  std::uint64_t* words;
  rules::Widths widths;
  rules::Direction direction;
  rules::Exceptions* exceptions;
};

/// \{
/// The rounded operations: x + y, x - y, x * y, x / y, the square root, x * y + z, and x in another
/// format.
/// \throws IEEEFloat::error, or Exception where a number passes `max_bits`.
void plus(const Source& x, const Source& y, const Target& t);
void minus(const Source& x, const Source& y, const Target& t);
void times(const Source& x, const Source& y, const Target& t);
void over(const Source& x, const Source& y, const Target& t);
void root(const Source& x, const Target& t);
void fused(const Source& x, const Source& y, const Source& z, const Target& t);
void convert(const Source& x, const Target& t);
/// x * 2^n, n an integer.
void scale(const Source& x, const QNumber& n, const Target& t);
/// What x / y leaves, the quotient being an integer: of the two nearest the even one.
void remainder(const Source& x, const Source& y, const Target& t);
/// The same for the quotient cut off.
void modulo(const Source& x, const Source& y, const Target& t);
/// The integer that x is rounded to; inexact when it is not x.
void round_to_integral(const Source& x, const Target& t);
/// \}

/// q * 2^k, k an integer; 0 gives +0.
void from_scaled(const QNumber& q, const QNumber& k, const Target& t);

/// \{
/// The sum of all terms, or of the products of all pairs of two spans as long as each other.
void sum(std::span<const Source> x, const Target& t);
void dot(std::span<const Source> x, std::span<const Source> y, const Target& t);
/// \}

/// What converting to an integer gives.
struct Integer {
  QNumber value;
  bool changed;  ///< rounding changed it
  bool fits;     ///< in `width` bits; else there is no value
};
/// A finite x rounded to an integer of w bits: unsigned, or in two's complement; w = 0: to any.
Integer to_integer(const Source& x, rules::Direction d, bool is_signed, unsigned long w);

/// Whether a finite x is an integer.
bool is_integral(const Source& x);

/// floor(log2(|x|)) of a finite x other than 0.
QNumber exponent_of(const Source& x);

/// -1, 0 or 1 as x < y, x = y or x > y, of any formats; 2 when either is a NaN.
int compare(const Source& x, const Source& y);

}  // namespace zelk::exact

#endif  // ZELK_EXACT_OPERATIONS_H_
