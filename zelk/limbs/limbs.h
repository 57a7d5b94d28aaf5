// IEEE-754 arithmetic on patterns in limbs, for every format that has more than words and fewer
// than numbers: at a cost that does not depend on the exponents.
//
// A pattern of format f is an integer of size(f) limbs, least first, right-aligned, with zeros
// above its sign. Whatever throws does so before a result is written.
#ifndef ZELK_LIMBS_LIMBS_H_
#define ZELK_LIMBS_LIMBS_H_

#include "zelk/limbs/integers.h"
#include "zelk/numbers/qnumber.h"
#include "zelk/rules/rounding.h"
#include "zelk/rules/special.h"

namespace zelk::limbs {

/// Limbs of a pattern.
constexpr long size(rules::Widths f) {
  return static_cast<long>((f.exp_width + f.mant_width) / 64) + 1;
}

/// Whether exponents fit a word, and all that an operation builds is well within `max_bits`.
inline bool serves(rules::Widths f) {
  return f.exp_width - 2 <= 60 && f.mant_width - 1 < max_bits / 4 - 64;
}

// x := x op y, rounded once; y may be x. Of NaN operands the left one, else the right one is passed
// on as it is; what is invalid gives the canonical NaN.

/// The operations on binary256, which need not look for the size of a format.
namespace binary256 {

inline constexpr rules::Widths widths{19, 236};

/// x := x + y.
void add(Limb* x, const Limb* y, rules::Direction d);
/// x := x - y.
void subtract(Limb* x, const Limb* y, rules::Direction d);
/// x := x * y.
void multiply(Limb* x, const Limb* y, rules::Direction d);
/// x := x / y.
void divide(Limb* x, const Limb* y, rules::Direction d);

}  // namespace binary256

/// The operations on every format.
namespace any_size {

/// x := x + y.
void add(Limb* x, const Limb* y, rules::Widths f, rules::Direction d);
/// x := x - y.
void subtract(Limb* x, const Limb* y, rules::Widths f, rules::Direction d);
/// x := x * y.
void multiply(Limb* x, const Limb* y, rules::Widths f, rules::Direction d);
/// x := x / y.
void divide(Limb* x, const Limb* y, rules::Widths f, rules::Direction d);

}  // namespace any_size

/// x := x + y.
/// \throws std::bad_alloc
inline void add(Limb* x, const Limb* y, rules::Widths f, rules::Direction d) {
  f == binary256::widths ? binary256::add(x, y, d) : any_size::add(x, y, f, d);
}
/// x := x - y.
/// \throws std::bad_alloc
inline void subtract(Limb* x, const Limb* y, rules::Widths f, rules::Direction d) {
  f == binary256::widths ? binary256::subtract(x, y, d) : any_size::subtract(x, y, f, d);
}
/// x := x * y.
/// \throws std::bad_alloc
inline void multiply(Limb* x, const Limb* y, rules::Widths f, rules::Direction d) {
  f == binary256::widths ? binary256::multiply(x, y, d) : any_size::multiply(x, y, f, d);
}
/// x := x / y.
/// \throws std::bad_alloc
inline void divide(Limb* x, const Limb* y, rules::Widths f, rules::Direction d) {
  f == binary256::widths ? binary256::divide(x, y, d) : any_size::divide(x, y, f, d);
}

/// The order of two patterns: -1, 0 or 1 as x < y, x = y or x > y; 2 for NaNs.
int compare(const Limb* x, const Limb* y, rules::Widths f);
/// Whether x < y.
bool less(const Limb* x, const Limb* y, rules::Widths f);

/// The class and sign of a pattern.
rules::Operand operand_of(const Limb* x, rules::Widths f);

/// out := x rounded to another format. NaNs become the canonical one, infinities and zeros keep
/// their sign. out has size(to) limbs, and may be x if the sizes agree.
/// \throws std::bad_alloc
void convert(const Limb* x, rules::Widths from, Limb* out, rules::Widths to, rules::Direction d);

/// out := the integer n rounded; 0 gives +0.
/// \throws std::bad_alloc
void from_integer(const QNumber& n, Limb* out, rules::Widths f, rules::Direction d);

/// The exact value of a finite pattern.
/// \throws IEEEFloat::error "reached limit on float precision", std::bad_alloc
QNumber to_number(const Limb* x, rules::Widths f);

/// For w > 0 the value rounded to an integer, its magnitude reduced modulo 2^w; infinities and NaNs
/// count as finite values of their exponent. For w = 0 the value cut off, 0 for those. Magnitudes
/// below the least normal give 0 in either.
/// \throws IEEEFloat::error "reached limit on float precision", std::bad_alloc
QNumber to_integer(const Limb* x, rules::Widths f, rules::Direction d, unsigned long w);

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_LIMBS_H_
