// Patterns in words rounded to integers.
#ifndef ZELK_WORDS_INTEGRAL_H_
#define ZELK_WORDS_INTEGRAL_H_

#include <cstdint>

#include "zelk/words/rounding.h"

namespace zelk::words {

/// The integer that a is rounded to as a record of both ways.
struct Integral {
  // Numbers from one on. In a pattern the places of integers go on into the exponent field, whose
  // lowest bit is, of numbers below two, as the hidden bit is: the bias is odd.
  template <Shape S>
  [[gnu::always_inline]] static bool usual(S s, Word<S> a, Direction mode, Word<S>& out) {
    const std::int64_t exp = exponent_field(s, a) - bias(s);
    if (exp < 0 || exp > bias(s)) [[unlikely]]
      return false;
    out = a;
    if (exp >= kept_width(s)) return true;
    const Word<S> unit = Word<S>{1} << (s.mant_width - exp);
    const Word<S> lost = a & (unit - 1);
    out = (a + to_carry(mode, sign_of(s, a) != 0, (a & unit) != 0, unit)) & (0 - unit);
    raise(s, lost != 0, is_inf(s, out) ? rules::overflow | rules::inexact : rules::inexact);
    return true;
  }

  template <Shape S>
  static Word<S> general(S s, Word<S> a, Direction mode) {
    const rules::Result r = rules::same(operand_of(s, a));
    if (r.outcome != rules::Outcome::computed) return special(s, r, a, a);
    // Below one: 0 or 1 is left.
    const auto x = unpack(s, a);
    const bool half = x.exp + 2 == bias(s);  // from a half on
    const bool rest = !half || (x.sig & (x.sig - 1)) != 0;
    raise(s, true, rules::inexact);
    const Word<S> one = plus_scaled(Word<S>{0}, bias(s), s.mant_width);
    return x.sign | (rules::increments(mode, x.sign != 0, false, half, rest) ? one : 0);
  }
};

}  // namespace zelk::words

#endif  // ZELK_WORDS_INTEGRAL_H_
