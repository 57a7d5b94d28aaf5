// Rounding as IEEE 754 words it, of a number that lies between two others.
#ifndef ZELK_PROVE_ROUNDING_H_
#define ZELK_PROVE_ROUNDING_H_

#include "tests/environment_oracle.h"

namespace prove {

/// The neighbours of a magnitude in an ascending list: the place of the one that is not above it,
/// and its order to the middle between the two.
struct Neighbours {
  mpz_class below = 0;
  bool exact = true;
  int middle = 0;

  /// Clause 4.3: the place of the one that a direction takes. Odd places have odd last digits.
  mpz_class chosen(zelk::Rounding d, bool negative) const {
    const bool odd = below % 2 != 0;
    const bool up[] = {
        middle > 0 || (middle == 0 && odd), false, !negative, negative, middle >= 0, !odd};
    return below + static_cast<int>(!exact && up[static_cast<unsigned>(d)]);
  }
};

/// Clauses 7.4 to 7.6, for a number other than 0. Places among the values of a format are patterns,
/// that of infinity and beyond included; `finer` has one exponent more below the normal ones, where
/// the least of these has the place 2 * hidden, and is null for what is not below that.
inline zelk_test::Answer rounded(const auto& t, bool negative, const Neighbours& values,
                                 const Neighbours* finer, const zelk::Environment& env) {
  using namespace zelk_test;  // NOLINT(google-build-using-namespace)
  const Rounding d = env.rounding;
  const mpz_class s = negative ? t.sign : mpz_class(0), p = values.chosen(d, negative);
  const bool tiny = finer != nullptr && (env.tininess == Tininess::before_rounding ||
                                         finer->chosen(d, negative) < 2 * t.hidden);
  if (tiny && env.flush_results) return {s, underflow | inexact};
  if (p >= t.inf) {
    const Rounding outward = negative ? Rounding::toward_negative : Rounding::toward_positive;
    const bool infinite =
        d == Rounding::nearest_even || d == Rounding::nearest_away || d == outward;
    return {t.inf - static_cast<int>(!infinite) + s, overflow | inexact};
  }
  return {p + s, values.exact ? 0 : tiny ? underflow | inexact : inexact};
}

}  // namespace prove

#endif  // ZELK_PROVE_ROUNDING_H_
