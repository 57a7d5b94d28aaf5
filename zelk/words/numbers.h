// Patterns in one word, to exact numbers and integers.
#ifndef ZELK_WORDS_NUMBERS_H_
#define ZELK_WORDS_NUMBERS_H_

#include <algorithm>
#include <bit>
#include <cstdint>

#include "zelk/numbers/qnumber.h"
#include "zelk/numbers/room.h"
#include "zelk/rules/rounding.h"
#include "zelk/words/rounding.h"
#include "zelk/words/shape.h"

namespace zelk::words {

/// The exact value of a finite pattern.
/// \throws IEEEFloat::error "reached limit on float precision".
inline QNumber to_number(RuntimeShape s, std::uint64_t word) {
  const std::uint64_t magnitude = words::magnitude(s, word);
  const std::int64_t exp = exponent_below(s, magnitude);
  const auto m = static_cast<long>(integer_significand(s, magnitude, exp));
  if (m == 0) {
    return 0;
  }
  const long k = exp + 1 - bias(s) - s.mant_width;
  detail::require_room_for_value(k, static_cast<unsigned long>(s.mant_width));
  return QNumber::scaled(sign_of(s, word) != 0 ? -m : m, k);
}

/// to_integer(w) of any pattern. False, and out unchanged, when the result is no word.
inline bool to_integer(RuntimeShape s, rules::Direction mode, std::uint64_t word, unsigned long w,
                       long& out) {
  const std::uint64_t magnitude = words::magnitude(s, word);
  const bool sign = sign_of(s, word) != 0;
  if (magnitude < hidden_bit(s) || (w == 0 && magnitude >= infinity(s))) {
    out = 0;
    return true;
  }
  const std::int64_t exp = exponent_below(s, magnitude);
  std::uint64_t m = integer_significand(s, magnitude, exp);
  const std::int64_t right = bias(s) + s.mant_width - 1 - exp;
  if (right > 0) {
    const std::int64_t n = std::min<std::int64_t>(right, 63);
    const auto half = pow2<std::uint64_t>(n - 1);
    const std::uint64_t rest = m & (2 * half - 1);
    m >>= n;
    m += static_cast<std::uint64_t>(
        w > 0 &&
        rules::increments(mode, sign, m % 2 != 0, (rest & half) != 0, (rest & (half - 1)) != 0));
  } else if (const auto left = static_cast<unsigned long>(-right); w > 0 && left >= w) {
    m = 0;
  } else {
    if (w > 0 && w - left < 63) {
      m &= pow2<std::uint64_t>(static_cast<std::int64_t>(w - left)) - 1;
    }
    if (m != 0 && left >= static_cast<unsigned long>(std::countl_zero(m))) {
      return false;
    }
    m = m == 0 ? 0 : m << left;
  }
  if (w > 0 && w < 63) {
    m &= pow2<std::uint64_t>(static_cast<std::int64_t>(w)) - 1;
  }
  out = sign ? -static_cast<long>(m) : static_cast<long>(m);
  return true;
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_NUMBERS_H_
