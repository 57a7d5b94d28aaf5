// Exact rationals against GMP's, the form that each result takes, errors, static objects.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "tests/support.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static mpz_class pow2(unsigned k) { return mpz_class(1) << k; }
static bool fits(const mpz_class& z) { return abs(z) < pow2(63); }
static bool fits(const mpq_class& v) { return fits(v.get_num()) && fits(v.get_den()); }

// Value, canonical form and every accessor; small only where the words can hold it.
static void expect_value(const QNumber& q, const mpq_class& want, const std::string& what) {
  const bool integer = want.get_den() == 1;
  EXPECT_TRUE((std::ostringstream() << q).str() == want.get_str() &&
              q.get_num().to_mpq() == want.get_num() && q.get_den().to_mpq() == want.get_den() &&
              mpq_equal(q.to_mpq().get_mpq_t(), want.get_mpq_t()) && q.sign() == sgn(want) &&
              q.is_integer() == integer && q.fits_long() == (integer && fits(want)) &&
              (!q.fits_long() || q.to_long() == want.get_num()) && (!q.is_small() || fits(want)))
      << what << " = " << q << ", wanted " << want;
}

TEST(QNumber, ArithmeticOnBoundaryValuesMatchesGmp) {
  static QNumber other;  // the result of a division that is not looked at
  constexpr std::pair<const char*, void (*)(QNumber&, QNumber&)> operations[] = {
      {" + ", [](QNumber& x, QNumber& y) { x += y; }},
      {" - ", [](QNumber& x, QNumber& y) { x -= y; }},
      {" * ", [](QNumber& x, QNumber& y) { x *= y; }},
      {" := ", [](QNumber& x, QNumber& y) { x = y; }},
      {" := move ", [](QNumber& x, QNumber& y) { x = std::move(y); }},
      {" := -", [](QNumber& x, QNumber& y) { x = -y; }},
      {" := 1 / ", [](QNumber& x, QNumber& y) { x = y.inv(); }},
      {" div ", [](QNumber& x, QNumber& y) { x.divmod(y, x, other = x); }},
      {" mod ", [](QNumber& x, QNumber& y) { x.divmod(y, other = y, x); }}};
  // Boundaries of the forms and random quotients of them, in the big form and in the small one.
  std::mt19937_64 random(zelk_test::seed());
  std::vector<std::pair<mpq_class, QNumber>> all;
  for (const unsigned k : {0U, 1U, 10U, 31U, 62U, 63U, 64U, 90U}) {
    for (int i = 0; i < 12; ++i) {
      const mpz_class n = (pow2(k) + i % 3 - 1) * (i % 2 * 2 - 1);
      mpq_class v(n, i < 6 ? mpz_class(1) : pow2(random() % 64) + random() % 3);
      v.canonicalize();
      all.emplace_back(v, QNumber(pow2(100), 1));
      all.back().second = QNumber(v);
      if (!fits(v)) continue;
      all.emplace_back(v, QNumber(v.get_num().get_si()) / v.get_den().get_si());
      ASSERT_TRUE(all.back().second.is_small()) << v;
    }
  }
  for (const auto& [p, x] : all) {
    for (const auto& [q, y] : all) {
      const bool small = x.is_small() && y.is_small();
      mpz_class n;
      if (q != 0) mpz_fdiv_q(n.get_mpz_t(), p.get_num_mpz_t(), q.get_num_mpz_t());
      const mpq_class inverse = q == 0 ? q : mpq_class(1 / q), rest = p.get_num() - n * q.get_num();
      const mpq_class wanted[] = {p + q, p - q, p * q, q, q, -q, inverse, n, rest};
      for (int k = 0; k < (q == 0 ? 6 : 9); ++k) {
        const mpq_class& want = wanted[k];
        const std::string what = p.get_str() + operations[k].first + q.get_str() +
                                 (small ? " in small form" : " not both in small form");
        QNumber r = x, operand = y;
        operations[k].second(r, operand);
        expect_value(r, want, what);
        expect_value(operand, k == 4 ? 0 : q, "the operand after " + what);
        const bool reset = k == 2 && q == 0 && y.is_small() && !x.is_integer();
        const bool ruled = k >= 3 || reset || (x.is_integer() && y.is_integer());
        EXPECT_EQ(r.is_small(), reset || (small && (ruled ? fits(want) : r.is_small()))) << what;
        if (p == q) {
          r = x;
          operations[k].second(r, r);
          expect_value(r, want, what + ", itself");
        }
      }
      EXPECT_TRUE((x < y) == (p < q) && (x <= y) == (p <= q) && (x == y) == (p == q)) << p << q;
    }
  }
}

TEST(QNumber, ConstructionIsExactAndTakesTheFormOfItsSource) {
  static_assert(!std::is_constructible_v<QNumber, bool> &&
                !std::is_constructible_v<QNumber, char> &&
                !std::is_constructible_v<QNumber, double>);
  const auto check = [](const QNumber& q, const mpq_class& want, bool small) {
    expect_value(q, want, "construction");
    EXPECT_EQ(q.is_small(), small) << q;
  };
  const auto check_all = [&](auto... n) {
    (check(n, mpq_class(std::to_string(n)), fits(mpz_class(std::to_string(n)))), ...);
  };
  constexpr long least = std::numeric_limits<long>::min(), word = 1L << 31;
  check_all(static_cast<signed char>(-128), static_cast<unsigned short>(65535), -1, ~0U, ~0UL,
            ~0ULL, least, least + 1, ~least, static_cast<long long>(least));
  for (const long n : {0L, 6L, 990L, word - 1, word, -word, word << 9}) {
    for (const long d : {1L, 4L, -7L, 935L, word - 1, word, -word, -word << 10}) {
      mpq_class want(n, d);
      want.canonicalize();
      check({n, d}, want, static_cast<int>(n) == n && static_cast<int>(d) == d);
    }
    for (long k = -130; k <= 130; ++k) {
      mpq_class want(n);
      want = k < 0 ? mpq_class(want >> static_cast<unsigned long>(-k))
                   : mpq_class(want << static_cast<unsigned long>(k));
      check(QNumber::scaled(n, k), want, fits(want));
    }
  }
  EXPECT_TRUE(zelk::gcd_cache[990][935] == 55 && zelk::gcd_cache[935][990] == 55);
  QNumber q = 7, r = 8;
  const std::string text = "Exception: division by zero";
  EXPECT_EQ(message([] { return QNumber(mpq_class(1, 0)); }), text);
  EXPECT_EQ(message([] { return QNumber().inv(); }), text);
  EXPECT_TRUE(message([&] { return q.divmod(0, q, r), 0; }) == text && q == 7 && r == 8);
}

// Static objects of a user's file compute before main and after it, in whatever order.
static const std::shared_ptr<IEEEFloat> used_outside_main(
    new IEEEFloat(IEEEFloat::from_number(QNumber(1L << 62) * (1L << 62), {15, 112}, modes[0])),
    [](IEEEFloat* x) {
      *x *= *x;
      if (x->to_number().to_mpq() != pow2(248)) std::abort();
      delete x;
    });

TEST(QNumber, ServesStaticObjects) {
  EXPECT_EQ(used_outside_main->to_number().to_mpq(), pow2(124));
}

TEST(Exception, TextGrowsAndIsCopied) {
  zelk::Exception e("a"), copy(e), assigned("x");
  e.msg_stream << 7;
  copy.msg_stream << "c";
  assigned = e;
  assigned.msg_stream << "d";
  EXPECT_EQ(e.get_msg() + copy.get_msg(), "a7ac");
  e.msg_stream << "b";
  EXPECT_EQ(e.get_msg() + static_cast<std::exception&>(assigned).what(), "a7ba7d");
  EXPECT_STREQ(IEEEFloat::error(IEEEFloat::error("copied")).what(), "copied");
}
