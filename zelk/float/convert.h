// Patterns converted between formats, to exact rationals and to integers.
//
// Called by `set_format`, `to_number` and `to_integer` in ieee_float.cpp.
#ifndef ZELK_FLOAT_CONVERT_H_
#define ZELK_FLOAT_CONVERT_H_

#include <algorithm>

#include "zelk/float/arithmetic.h"
#include "zelk/swflt/words.h"

namespace zelk {
namespace {

/// out := the pattern `bits` of format `from`, rounded into format `to`. out may be tmp1.
inline void convert_pattern(TempNumProvider& tp, IEEEFloat::format from, IEEEFloat::format to,
                            IEEEFloat::rounding_mode rm, const QNumber& bits, QNumber& out) {
  const Operand a = read_operand(from, bits, tp.exp1, tp.mant1);
  if (a.is_nan) {
    pack_nan(to, out);
  } else if (a.is_inf) {
    pack_inf(to, a.sign, out);
  } else {
    require_room(from, sign_bit(to) + 1);
    decompose(from, from.bias(), tp.exp1, tp.mant1);
    tp.exp1 -= from.mant_width;
    tp.exp1 += to.mant_width;
    round_and_pack_float(tp, to, rm, a.sign, tp.exp1, tp.mant1, out);
  }
}

/// mant1 := a significand of |q| * 2^exp1 that rounds to format f as that does: at least m + 3 bits
/// of the quotient and a sticky bit. exp1 follows.
inline void rational_significand(TempNumProvider& tp, IEEEFloat::format f, const QNumber& q) {
  tp.mant1 = q.get_num();
  if (tp.mant1.sign() < 0) {
    tp.mant1.self_neg();
  }
  if (q.is_integer()) {
    return;
  }
  require_room(f, sign_bit(f) + 4);
  tp.mant2 = q.get_den();
  const unsigned long wanted = f.mant_width + 3 + BVNumber::bit_length(tp.mant2);
  const unsigned long length = BVNumber::bit_length(tp.mant1);
  const unsigned long shift = wanted > length ? wanted - length : 0;
  require_bits(length + shift);
  BVNumber::bit_left_shift(tp.mant1, shift, &tp.mant1);
  tp.mant1.divmod(tp.mant2, tp.mant1, tp.tmp1);
  BVNumber::bit_left_shift(tp.mant1, 1, &tp.mant1);
  BVNumber::set_bit(tp.mant1, 0, !tp.tmp1.is_zero());
  tp.exp1 -= shift + 1;
}

/// Throws unless a significand times 2^k is within the limit, and so is all that leads there.
inline void require_room_for_value(long k, unsigned long mant_width) {
  const auto shift = static_cast<unsigned long>(detail::magnitude(k));
  require_bits(2 + (k < 0 ? std::max(shift, mant_width) : shift + mant_width));
}

/// The exact value of a finite pattern; 0 for a magnitude below one when only large ones are asked
/// for.
/// \throws IEEEFloat::error for NaNs and infinities; "reached limit on float precision".
inline QNumber exact_value(TempNumProvider& tp, IEEEFloat::format f, const QNumber& bits,
                           bool large = false) {
  const Operand a = read_operand(f, bits, tp.exp1, tp.mant1);
  if (a.is_zero) {
    return 0;
  }
  if (a.is_nan) {
    throw IEEEFloat::error("can't convert NaN to a Number");
  }
  if (a.is_inf) {
    throw IEEEFloat::error("can't convert infinity to a Number");
  }
  require_room(f, f.mant_width + 1);
  decompose(f, f.bias(), tp.exp1, tp.mant1);
  tp.exp1 -= f.mant_width;
  if (!tp.exp1.fits_long()) {
    throw_precision_limit();
  }
  const long k = tp.exp1.to_long();
  if (large && k < -static_cast<long>(f.mant_width)) {
    return 0;
  }
  require_room_for_value(k, f.mant_width);
  const auto shift = static_cast<unsigned long>(detail::magnitude(k));
  QNumber significand;
  store(significand, tp.mant1);
  QNumber value;
  BVNumber::pow2(shift, &value);
  if (k < 0) {
    value = value.inv();
  }
  value *= significand;
  if (a.sign) {
    value.self_neg();
  }
  return value;
}

/// The value rounded to an integer, its magnitude reduced modulo 2^w, w > 0. The bit pattern
/// alone decides: infinities and NaNs convert like finite values of their exponent.
inline QNumber rounded_integer(TempNumProvider& tp, IEEEFloat::format f,
                               IEEEFloat::rounding_mode rm, const QNumber& bits, unsigned long w) {
  bool sign = false;
  require_room(f, sign_bit(f) + 1);
  unpack_components(f, bits, sign, tp.exp1, tp.mant1);
  if (tp.exp1.is_zero()) {
    return 0;
  }
  BVNumber::set_bit(tp.mant1, f.mant_width, true);
  tp.tmp1 = f.bias();  // becomes m - exponent, the shift to the right
  tp.tmp1 += f.mant_width;
  tp.tmp1 -= tp.exp1;
  if (!tp.tmp1.fits_long()) {
    return 0;
  }
  const long shift = tp.tmp1.to_long();
  if (shift < 0) {
    const auto left = static_cast<unsigned long>(-shift);
    if (left >= w) {
      return 0;
    }
    BVNumber::trim(tp.mant1, w - left);  // what the shift would push out of w bits
    if (tp.mant1.is_zero()) {
      return 0;
    }
    require_bits(BVNumber::bit_length(tp.mant1) + left);
    BVNumber::bit_left_shift(tp.mant1, left, &tp.mant1);
  } else if (shift > 0) {
    const Remainder rest = shift_right(tp.mant1, static_cast<unsigned long>(shift));
    if (increments(rm, sign, BVNumber::test_bit(tp.mant1, 0), rest.round, rest.sticky)) {
      tp.mant1 += 1;
    }
  }
  BVNumber::trim(tp.mant1, w);
  if (sign) {
    tp.mant1.self_neg();
  }
  QNumber value;
  store(value, tp.mant1);
  return value;
}

/// The exact value of a finite pattern in a word.
inline QNumber exact_value(swflt::detail::RuntimeShape s, std::uint64_t word) {
  const std::uint64_t magnitude = swflt::detail::magnitude(s, word);
  const std::int64_t exp = swflt::detail::exponent_below(s, magnitude);
  const auto m = static_cast<long>(swflt::detail::integer_significand(s, magnitude, exp));
  if (m == 0) {
    return 0;
  }
  const long k = exp + 1 - swflt::detail::bias(s) - s.mant_width;
  require_room_for_value(k, static_cast<unsigned long>(s.mant_width));
  return QNumber::scaled(swflt::detail::sign_of(s, word) != 0 ? -m : m, k);
}

/// to_integer(w) of a pattern in a word. False, and out unchanged, when the result is no word.
inline bool word_integer(swflt::detail::RuntimeShape s, IEEEFloat::rounding_mode rm,
                         std::uint64_t word, unsigned long w, long& out) {
  const std::uint64_t magnitude = swflt::detail::magnitude(s, word);
  const bool sign = swflt::detail::sign_of(s, word) != 0;
  if (magnitude < swflt::detail::hidden_bit(s) ||
      (w == 0 && magnitude >= swflt::detail::infinity(s))) {
    out = 0;
    return true;
  }
  const std::int64_t exp = swflt::detail::exponent_below(s, magnitude);
  std::uint64_t m = swflt::detail::integer_significand(s, magnitude, exp);
  const std::int64_t right = swflt::detail::bias(s) + s.mant_width - 1 - exp;
  if (right > 0) {
    const std::int64_t n = std::min<std::int64_t>(right, 63);
    const auto half = swflt::detail::pow2<std::uint64_t>(n - 1);
    const std::uint64_t rest = m & (2 * half - 1);
    m >>= n;
    m += static_cast<std::uint64_t>(
        w > 0 && increments(rm, sign, m % 2 != 0, (rest & half) != 0, (rest & (half - 1)) != 0));
  } else if (const auto left = static_cast<unsigned long>(-right); w > 0 && left >= w) {
    m = 0;
  } else {
    if (w > 0 && w - left < 63) {
      m &= swflt::detail::pow2<std::uint64_t>(static_cast<std::int64_t>(w - left)) - 1;
    }
    if (m != 0 && left >= static_cast<unsigned long>(std::countl_zero(m))) {
      return false;
    }
    m = m == 0 ? 0 : m << left;
  }
  if (w > 0 && w < 63) {
    m &= swflt::detail::pow2<std::uint64_t>(static_cast<std::int64_t>(w)) - 1;
  }
  out = sign ? -static_cast<long>(m) : static_cast<long>(m);
  return true;
}

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_CONVERT_H_
