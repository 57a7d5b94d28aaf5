// Patterns as exact integers: split into fields, classified by their bits, put together.
//
// A pattern of format (e, m) is, from bit 0, m bits of trailing significand T, e bits of biased
// exponent E and the sign S.
#ifndef ZELK_EXACT_CODEC_H_
#define ZELK_EXACT_CODEC_H_

#include "zelk/numbers/bvnumber.h"
#include "zelk/numbers/qnumber.h"
#include "zelk/numbers/room.h"
#include "zelk/rules/rounding.h"

namespace zelk::exact {

using rules::Widths;

/// The index of the sign bit.
/// \throws IEEEFloat::error "reached limit on float precision", see `detail::sign_place`.
inline unsigned long sign_place(Widths f) { return detail::sign_place(f.exp_width, f.mant_width); }

/// 2^k - 1.
/// \throws IEEEFloat::error "reached limit on float precision".
QNumber ones(unsigned long k);

/// The bias of exponents: 2^(e-1) - 1; 0 for e = 0.
inline QNumber bias(Widths f) { return f.exp_width == 0 ? 0 : ones(f.exp_width - 1); }
/// The exponent field of infinities and NaNs.
inline QNumber max_exponent(Widths f) { return ones(f.exp_width); }

/// The fields as they stand: no bias removed, no hidden bit added.
void unpack_components(Widths f, const QNumber& bits, bool& sign, QNumber& exp, QNumber& mant);

/// out := the pattern of sign, biased exponent exp < 2^e and trailing significand mant < 2^m, two
/// other numbers.
void pack_float(Widths f, bool sign, const QNumber& exp, const QNumber& mant, QNumber& out);

/// out := the infinity of this sign.
inline void pack_inf(Widths f, bool sign, QNumber& out) {
  pack_float(f, sign, max_exponent(f), 0, out);
}

/// out := the canonical NaN: S = 1, E all ones, bit 0 set.
void pack_nan(Widths f, QNumber& out);

/// out := the zero of this sign.
void pack_zero(Widths f, bool sign, QNumber& out);

/// Throws unless exponents of f, which reach e + 4 bits in sums and differences, and numbers of
/// `significand_bits` bits are within the limit.
inline void require_room(Widths f, unsigned long significand_bits) {
  detail::require_bits(f.exp_width + 4);
  detail::require_bits(significand_bits);
}

/// From the fields (E, T) of a finite value to the exponent k and integer significand M with
/// |value| = M * 2^(k - m).
void decompose(Widths f, const QNumber& bias, QNumber& exp, QNumber& mant);

}  // namespace zelk::exact

#endif  // ZELK_EXACT_CODEC_H_
