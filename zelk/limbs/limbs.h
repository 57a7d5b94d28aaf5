// IEEE-754 arithmetic on patterns in limbs, for every format that has more than words and fewer
// than numbers: at a cost that does not depend on the exponents.
//
// A pattern of format f is an integer of size(f) limbs, least first, right-aligned, with zeros
// above its sign. Whatever throws does so before a result is written.
#ifndef ZELK_LIMBS_LIMBS_H_
#define ZELK_LIMBS_LIMBS_H_

#include "zelk/limbs/integers.h"
#include "zelk/limbs/rounding.h"
#include "zelk/numbers/parts.h"
#include "zelk/rules/rounding.h"
#include "zelk/rules/special.h"
#include "zelk/words/magnitude.h"

namespace zelk::limbs {

/// Limbs of a pattern.
constexpr long size(rules::Widths f) {
  return static_cast<long>((f.exp_width + f.mant_width) / 64) + 1;
}

/// Whether exponents fit a word, and all that an operation builds is well within `max_bits`.
inline bool serves(rules::Widths f) {
  return f.exp_width - 2 <= 60 && f.mant_width - 1 < max_bits / 4 - 64;
}

// x := x op y, rounded once; y may be x. R is Direction, and of NaN operands the left one, else the
// right one is passed on as it is; or R is Rounding with exceptions, and every NaN gives the
// canonical one, as what is invalid does in either.

/// The operations on binary256, which need not look for the size of a format.
namespace binary256 {

inline constexpr rules::Widths widths{19, 236};

template <class R>
void add(Limb* x, const Limb* y, R r);
template <class R>
void subtract(Limb* x, const Limb* y, R r);
template <class R>
void multiply(Limb* x, const Limb* y, R r);
template <class R>
void divide(Limb* x, const Limb* y, R r);

}  // namespace binary256

/// The operations on every format.
namespace any_size {

template <class R>
void add(Limb* x, const Limb* y, rules::Widths f, R r);
template <class R>
void subtract(Limb* x, const Limb* y, rules::Widths f, R r);
template <class R>
void multiply(Limb* x, const Limb* y, rules::Widths f, R r);
template <class R>
void divide(Limb* x, const Limb* y, rules::Widths f, R r);

}  // namespace any_size

/// x := x + y.
/// \throws std::bad_alloc
template <class R>
inline void add(Limb* x, const Limb* y, rules::Widths f, R r) {
  f == binary256::widths ? binary256::add(x, y, r) : any_size::add(x, y, f, r);
}
/// x := x - y.
/// \throws std::bad_alloc
template <class R>
inline void subtract(Limb* x, const Limb* y, rules::Widths f, R r) {
  f == binary256::widths ? binary256::subtract(x, y, r) : any_size::subtract(x, y, f, r);
}
/// x := x * y.
/// \throws std::bad_alloc
template <class R>
inline void multiply(Limb* x, const Limb* y, rules::Widths f, R r) {
  f == binary256::widths ? binary256::multiply(x, y, r) : any_size::multiply(x, y, f, r);
}
/// x := x / y.
/// \throws std::bad_alloc
template <class R>
inline void divide(Limb* x, const Limb* y, rules::Widths f, R r) {
  f == binary256::widths ? binary256::divide(x, y, r) : any_size::divide(x, y, f, r);
}

/// x := x * y + z.
/// \throws std::bad_alloc
void fused(Limb* x, const Limb* y, const Limb* z, rules::Widths f, Rounding r);
/// x := the square root of x.
/// \throws std::bad_alloc
void root(Limb* x, rules::Widths f, Rounding r);
/// x := what x / y leaves, the quotient rounded to nearest-even.
/// \throws std::bad_alloc
void remainder(Limb* x, const Limb* y, rules::Widths f, Rounding r);
/// x := what x / y leaves, the quotient cut off.
/// \throws std::bad_alloc
void modulo(Limb* x, const Limb* y, rules::Widths f, Rounding r);
/// x := the integer that x is rounded to; inexact when it is not x.
void round_to_integral(Limb* x, rules::Widths f, Rounding r);

/// The order of two patterns: -1, 0 or 1 as x < y, x = y or x > y; 2 for NaNs.
int compare(const Limb* x, const Limb* y, rules::Widths f);
/// Whether x < y.
bool less(const Limb* x, const Limb* y, rules::Widths f);

/// The class and sign of a pattern.
rules::Operand operand_of(const Limb* x, rules::Widths f);

/// out := x rounded to another format. NaNs become the canonical one, infinities and zeros keep
/// their sign. out has size(to) limbs, and may be x if the sizes agree.
/// \throws std::bad_alloc
void convert(const Limb* x, rules::Widths from, Limb* out, rules::Widths to, Rounding r);

/// Whether a format has a value that is this integer, which is not 0, or for its length could have.
inline bool holds(const detail::Magnitude& n, rules::Widths f) {
  const auto length = static_cast<unsigned long>(n.bit_length());
  return length - 1 <= f.mant_width && length >> 1 >> (f.exp_width - 2) == 0;
}

/// out := the integer +-n, which is not 0, rounded.
/// \throws std::bad_alloc
void from_integer(bool negative, const detail::Magnitude& n, Limb* out, rules::Widths f,
                  Rounding r);

/// out := q * 2^k rounded, q other than 0, |k| below 2^60.
/// \throws std::bad_alloc
void from_ratio(const detail::Parts& q, std::int64_t k, Limb* out, rules::Widths f, Rounding r);

/// The magnitude of q, which is not 0, its lowest digit sticky.
/// \throws std::bad_alloc
words::Magnitude quotient(const detail::Parts& q);

/// The exact value of a finite pattern.
/// \throws IEEEFloat::error "reached limit on float precision", std::bad_alloc
QNumber to_number(const Limb* x, rules::Widths f);

/// For w > 0 the value rounded to an integer, its magnitude reduced modulo 2^w; infinities and NaNs
/// count as finite values of their exponent. For w = 0 the value cut off, 0 for those. Magnitudes
/// below the least normal give 0 in either.
/// \throws IEEEFloat::error "reached limit on float precision", std::bad_alloc
QNumber to_integer(const Limb* x, rules::Widths f, Direction d, unsigned long w);

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_LIMBS_H_
