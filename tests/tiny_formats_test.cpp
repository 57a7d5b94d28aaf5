// Every pattern and pair of patterns of tiny formats, in every mode, against brute force: rounding
// is a search in the list of all magnitudes, where infinity and the first NaN stand at the values
// that they would have as finite numbers; sign and class of a result are those of doubles.
#include <cfenv>
#include <cmath>
#include <vector>

#include "tests/support.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

struct BruteForce : Layout {
  std::vector<mpq_class> magnitudes;

  explicit BruteForce(Format format) : Layout(format) {
    for (mpz_class p = 0; p <= inf + 1; ++p) magnitudes.push_back(value(p));
  }

  double decode(const mpz_class& p) const {
    const mpz_class m = p % sign;
    const double d = m > inf ? NAN : m == inf ? HUGE_VAL : magnitudes[m.get_ui()].get_d();
    return p < sign ? d : -d;
  }

  mpz_class operate(int op, const mpz_class& a, const mpz_class& b, unsigned rm) const {
    const volatile double x = decode(a);
    const volatile double y = decode(b);
    constexpr int directions[] = {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD, FE_DOWNWARD};
    std::fesetround(directions[rm]);  // for the sign of a zero: only quotients can be inexact
    const volatile double d = op == 0 ? x + y : op == 1 ? x - y : op == 2 ? x * y : x / y;
    std::fesetround(FE_TONEAREST);
    const bool quotient = op == 3 && std::isfinite(y) && std::isfinite(d);
    return round(d, quotient ? x : d, quotient ? y : 1, rm);
  }

  mpz_class convert(const BruteForce& from, const mpz_class& p, unsigned rm) const {
    return round(from.decode(p), from.decode(p), 1, rm);
  }

  // The pattern for x / y, where d has its sign and is a NaN, infinite or finite like it.
  mpz_class round(double d, double x, double y, unsigned rm) const {
    mpz_class p = inf;
    if (std::isfinite(d)) {
      const mpq_class q = abs(mpq_class(x) / mpq_class(y));
      const auto above = std::upper_bound(magnitudes.begin(), magnitudes.end() - 1, q);
      const int half = cmp(2 * q, *above + *(above - 1));
      const bool away = rm == (std::signbit(d) ? 3 : 2);
      p = above - magnitudes.begin() - 1;
      const bool grow = rm == 0 ? half > 0 || (half == 0 && p % 2 == 1) : away && q != *(above - 1);
      p = std::min<mpz_class>(p + static_cast<int>(grow), rm == 0 || away ? inf : inf - 1);
    }
    return std::isnan(d) ? nan : std::signbit(d) ? mpz_class(p + sign) : p;
  }
};

const Format formats[] = {{2, 1}, {3, 1}, {2, 3}, {3, 2}, {3, 4}};

TEST(TinyFormats, EveryValuePairAndConversion) {
  const std::vector<BruteForce> oracles(std::begin(formats), std::end(formats));
  for (const BruteForce& t : oracles) {
    for (const auto rm : modes) {
      std::vector<IEEEFloat> values;
      for (mpz_class p = 0; p < 2 * t.sign; ++p) {
        values.push_back(generic(t.f, rm, p));
        ASSERT_EQ(bits(values.back()), p);
      }
      for (const IEEEFloat& x : values) {
        check_value(t, x);
        for (const IEEEFloat& y : values) check_pair(t, x, y);
        for (const BruteForce& u : oracles) check_conversion(t, u, x);
        ASSERT_FALSE(HasFailure());
      }
    }
  }
}

TEST(TinyFormats, EverySmallRatio) {
  for (const Format f : {Format{2, 1}, {3, 2}, {4, 3}}) {
    const BruteForce t(f);
    for (int i = 0; i < 81 * 40 * 4 * 4; ++i) {
      const int n = i / 640 - 40, d = i / 16 % 40 + 1, k = i / 4 % 4 * 3 - 5;
      const auto rm = modes[i % 4];
      const double x = std::ldexp(n, k);
      const mpz_class want = t.round(x, x, d, rm);
      const QNumber q = QNumber(n) / d;
      ASSERT_BITS(IEEEFloat::from_scaled(q, k, f, rm), want) << q << " 2^" << k;
      ASSERT_BITS(IEEEFloat::from_ratio(q * QNumber::scaled(1, k), f, rm), want) << q;
    }
  }
}
