// Exact results and how IEEE 754 rounds them into a format, on rationals.
#ifndef ZELK_TESTS_EXACT_ORACLE_H_
#define ZELK_TESTS_EXACT_ORACLE_H_

#include <climits>

#include "tests/support.h"

namespace zelk_test {

using zelk::Environment;
using zelk::Rounding;
using zelk::Tininess;

inline std::string name(const Environment& env) {
  return "{Rounding(" + std::to_string(static_cast<unsigned>(env.rounding)) + "), Tininess(" +
         std::to_string(static_cast<unsigned>(env.tininess)) + "), " +
         std::to_string(env.flush_results) + ", " + std::to_string(env.flush_operands) + "} ";
}

inline constexpr unsigned invalid = 1, pole = 2, overflow = 4, underflow = 8, inexact = 16;

/// q * 2^k, floored or not.
inline mpq_class scaled(mpq_class q, long k) {
  mpz_class& part = k < 0 ? q.get_den() : q.get_num();
  part <<= static_cast<unsigned long>(std::abs(k));
  q.canonicalize();
  return q;
}

/// An operand, or a result before it is rounded: a NaN, an infinity, or q * 2^k, of which a root
/// may be meant, and which may lack less than the last digit of q (sticky).
struct Exact {
  enum Kind { nan, infinite, finite } kind = nan;
  bool negative = false;
  mpq_class q = 0;  // never negative
  long k = 0;
  bool root = false, sticky = false;
  unsigned flags = 0;

  bool is_zero() const { return kind == finite && q == 0; }
  mpq_class value() const { return scaled(negative ? mpq_class(-q) : q, k); }

  /// floor(magnitude * 2^n), and whether that leaves anything.
  mpz_class digits(long n, bool& rest) const {
    const long by = (root ? 2 * n : n) + k;
    mpz_class num = q.get_num(), den = q.get_den(), left;
    if (by < -9999 && exponent() < -n) return rest = true, 0;  // at no cost
    (by < 0 ? den : num) <<= static_cast<unsigned long>(std::abs(by));
    mpz_fdiv_qr(num.get_mpz_t(), left.get_mpz_t(), num.get_mpz_t(), den.get_mpz_t());
    rest = sticky || left != 0;
    if (root) {
      mpz_sqrtrem(num.get_mpz_t(), left.get_mpz_t(), num.get_mpz_t());
      rest = rest || left != 0;
    }
    return num;
  }
  /// floor(log2(magnitude)) of one other than 0.
  long exponent() const {
    const auto length = [](const mpz_class& n) {
      return static_cast<long>(mpz_sizeinbase(n.get_mpz_t(), 2));
    };
    const long e = length(q.get_num()) - length(q.get_den());
    const long log2 = e + k - static_cast<int>(scaled(q, -e) < 1);
    return root ? (log2 - (log2 & 1)) / 2 : log2;
  }
};

inline Exact number(const mpq_class& q, bool negative_zero = false) {
  return {Exact::finite, q < 0 || (q == 0 && negative_zero), abs(q)};
}
inline Exact power_of_two(long k) { return {Exact::finite, false, 1, k}; }
inline Exact invalid_result() { return {.flags = invalid}; }
inline Exact infinity(bool negative) { return {Exact::infinite, negative}; }

/// A pattern and the flags that come with it.
struct Answer {
  mpz_class bits;
  unsigned flags;
};

/// The neighbours of a magnitude in an ascending list: the place of the one that is not above it,
/// and its order to the middle between the two.
struct Neighbours {
  mpz_class below = 0;
  bool exact = true;
  int middle = 0;

  /// Clause 4.3: the place of the one that a direction takes. Odd places have odd last digits.
  mpz_class chosen(Rounding d, bool negative) const {
    const bool odd = below % 2 != 0;
    const bool up[] = {
        middle > 0 || (middle == 0 && odd), false, !negative, negative, middle >= 0, !odd};
    return below + static_cast<int>(!exact && up[static_cast<unsigned>(d)]);
  }
};

/// Among the multiples of 2^unit.
inline Neighbours neighbours(const Exact& x, long unit) {
  bool rest = false;
  const mpz_class halves = x.digits(1 - unit, rest);
  const bool half = halves % 2 != 0;
  return {halves / 2, !half && !rest, half ? static_cast<int>(rest) : -1};
}

/// Clauses 7.4 to 7.6, for a number other than 0. Places among the values of a format are patterns,
/// that of infinity and beyond included; `finer` has one exponent more below the normal ones, where
/// the least of these has the place 2 * hidden, and is null for what is not below that.
inline Answer rounded(const Layout& t, bool negative, const Neighbours& values,
                      const Neighbours* finer, const Environment& env) {
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

/// A result and its place among the values of a format.
struct Placed {
  Exact x;
  bool below = false;  // the normal values
  Neighbours values = {}, finer = {};

  Answer round(const Layout& t, const Environment& env) const {
    const mpz_class s = x.negative ? t.sign : mpz_class(0);
    if (x.kind == Exact::nan) return {t.nan, x.flags};
    if (x.kind == Exact::infinite) return {t.inf + s, x.flags};
    if (x.is_zero()) return {s, x.flags};
    Answer answer = rounded(t, x.negative, values, below ? &finer : nullptr, env);
    answer.flags |= x.flags;
    return answer;
  }
};

/// A format whose exponents may have no limits worth the name, e > 62; values are then near 1.
struct Target : Layout {
  long m = static_cast<long>(f.mant_width);
  mpz_class least = 2 - (mpz_class(1) << (f.exp_width - 1));  // the exponent of normal values
  long emin = least > LONG_MIN / 2 ? least.get_si() : LONG_MIN / 2;

  using Layout::Layout;

  Exact decode(const mpz_class& p, bool flush = false) const {
    const bool negative = p >= sign;
    const mpz_class magnitude = p % sign, biased = magnitude / hidden;
    if (magnitude >= inf) return magnitude > inf ? Exact{} : infinity(negative);
    if (biased == 0 && (flush || magnitude == 0)) return number(0, negative);
    const mpz_class e = (biased == 0 ? mpz_class(1) : biased) - 1 + least;
    return {Exact::finite, negative, magnitude % hidden + (biased == 0 ? mpz_class(0) : hidden),
            e.get_si() - m};
  }

  Placed place(const Exact& x) const {
    Placed p{x};
    if (x.kind != Exact::finite || x.q == 0) return p;
    const long e = std::max(x.exponent(), emin);
    p.below = x.exponent() < emin;
    p.values = neighbours(x, e - m);
    p.values.below += (e - least) * hidden;
    if (p.below) p.finer = neighbours(x, emin - 1 - m);
    return p;
  }
  Answer round(const Exact& x, const Environment& env) const { return place(x).round(*this, env); }
};

}  // namespace zelk_test

#endif  // ZELK_TESTS_EXACT_ORACLE_H_
