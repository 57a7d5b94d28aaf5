// Exact rationals against GMP's, the form that each result takes, the limits, the exceptions.
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <type_traits>
#include <vector>

#include "tests/support.h"
#include "zelk/zelk.h"

namespace {

using zelk::QNumber;

mpz_class pow2(unsigned k) { return mpz_class(1) << k; }

QNumber from(const mpq_class& q) { return QNumber(q.get_num(), q.get_den()); }

// The same value in the big form.
QNumber big(const QNumber& q) {
  QNumber r(pow2(100), 1);
  r = q;
  return r;
}

bool fits(const mpz_class& z) { return abs(z) < pow2(63); }

std::string text(const QNumber& q) {
  std::ostringstream os;
  os << q;
  return os.str();
}

// Value, canonical form and every accessor; small only where the words can hold it.
void expect_value(const QNumber& q, const mpq_class& want, const std::string& what) {
  const mpq_class got = q.to_mpq();
  EXPECT_TRUE(got.get_num() == want.get_num() && got.get_den() == want.get_den())
      << what << " = " << got << ", wanted " << want;
  EXPECT_EQ(text(q), want.get_str()) << what;
  EXPECT_EQ(q.sign(), sgn(want)) << what;
  EXPECT_EQ(q.is_integer(), want.get_den() == 1) << what;
  EXPECT_EQ(q.fits_long(), want.get_den() == 1 && fits(want.get_num())) << what;
  EXPECT_TRUE(!q.is_small() || (fits(want.get_num()) && fits(want.get_den()))) << what;
}

// Boundary values of the two forms, small wherever they can be, and some random ones.
std::vector<QNumber> operands() {
  std::vector<mpz_class> integers;
  for (const unsigned k : {0U, 1U, 10U, 31U, 62U, 63U, 64U, 90U}) {
    for (int d = -1; d <= 1; ++d) {
      integers.emplace_back(pow2(k) + d);
    }
  }
  std::mt19937_64 random(zelk_test::seed());
  std::vector<QNumber> all{0};
  for (const auto& n : integers) {
    all.push_back(from(n));
    all.push_back(from(-n));
    for (int i = 0; i < 3; ++i) {
      const mpz_class d = integers[random() % integers.size()] + 1;
      mpq_class q(random() % 2 == 0 ? n : mpz_class(-n), d);
      q.canonicalize();
      all.push_back(from(q));
    }
  }
  // What fits words is made small by small arithmetic; construction from GMP makes it big.
  for (QNumber& q : all) {
    const mpq_class v = q.to_mpq();
    if (fits(v.get_num()) && fits(v.get_den())) {
      q.reset();
      q = QNumber(v.get_num().get_si()) * QNumber(v.get_den().get_si()).inv();
    }
  }
  return all;
}

TEST(QNumber, ArithmeticOnBoundaryValuesMatchesGmp) {
  const auto all = operands();
  for (const QNumber& a : all) {
    for (const QNumber& b : all) {
      for (int forms = 0; forms < 4; ++forms) {
        const QNumber x = (forms & 1) != 0 ? big(a) : a;
        const QNumber y = (forms & 2) != 0 ? big(b) : b;
        const mpq_class p = a.to_mpq();
        const mpq_class q = b.to_mpq();
        const std::string pair = text(a) + " and " + text(b) + ", forms " + std::to_string(forms);
        const auto check = [&](const QNumber& r, const mpq_class& want, const char* op) {
          expect_value(r, want, op + (" of " + pair));
          EXPECT_TRUE(!r.is_small() || (x.is_small() && y.is_small()) ||
                      (*op == '*' && sgn(want) == 0 && y.is_small() && !x.is_integer()))
              << op << " of " << pair << " is small";
          if (x.is_small() && y.is_small() && x.is_integer() && y.is_integer()) {
            EXPECT_EQ(r.is_small(), fits(want.get_num())) << op << " of " << pair;
          }
        };
        check(x + y, p + q, "+");
        check(x - y, p - q, "-");
        check(x * y, p * q, "*");
        EXPECT_EQ(x < y, p < q) << pair;
        EXPECT_EQ(x >= y, p >= q) << pair;
        EXPECT_EQ(x == y, p == q) << pair;
        EXPECT_EQ(x != y, p != q) << pair;
        if (sgn(q) != 0) {
          const QNumber i = y.inv();
          expect_value(i, 1 / q, "inverse of " + text(b));
          EXPECT_EQ(i.is_small(), y.is_small());
          if (x.is_integer() && y.is_integer()) {
            QNumber quotient;
            QNumber rest = y;  // a target that is an operand's value in its form
            x.divmod(y, quotient, rest);
            mpz_class n;
            mpz_class r;
            mpz_fdiv_qr(n.get_mpz_t(), r.get_mpz_t(), p.get_num_mpz_t(), q.get_num_mpz_t());
            expect_value(quotient, n, "quotient of " + pair);
            expect_value(rest, r, "remainder of " + pair);
            EXPECT_EQ(quotient.is_small(), x.is_small() && y.is_small()) << pair;
          }
        }
        QNumber t = x;
        t = y;
        EXPECT_EQ(t.is_small(), x.is_small() && y.is_small());
        QNumber source = y;
        QNumber moved = x;
        moved = std::move(source);
        EXPECT_EQ(moved.is_small(), t.is_small());
        expect_value(moved, q, "moved");
        expect_value(source, 0, "moved from");  // NOLINT(bugprone-use-after-move)
      }
    }
  }
}

TEST(QNumber, OperandsMayBeTheTarget) {
  for (const QNumber& a : operands()) {
    for (const QNumber& x : {a, big(a)}) {
      const mpq_class p = a.to_mpq();
      const auto check = [&](auto change, const mpq_class& want, const char* what) {
        QNumber r = x;
        change(r, r);
        expect_value(r, want, what + (" with x = " + text(a)));
        return r;
      };
      check([](QNumber& r, QNumber& same) { r += same; }, p + p, "x += x");
      check([](QNumber& r, QNumber& same) { r -= same; }, 0, "x -= x");
      check([](QNumber& r, QNumber& same) { r *= same; }, p * p, "x *= x");
      check([](QNumber& r, QNumber& same) { r = same; }, p, "x = x");
      check([](QNumber& r, QNumber& same) { r = std::move(same); }, p, "x = move(x)");
      if (x.is_integer() && !x.is_zero()) {
        QNumber q;
        check([&](QNumber& r, QNumber& same) { r.divmod(same, q, r); }, 0, "x mod x");
        expect_value(q, 1, "x / x");
      }
      expect_value(x.get_num(), p.get_num(), "numerator");
      expect_value(x.get_den(), p.get_den(), "denominator");
      const QNumber r = check([](QNumber& n, QNumber& /*same*/) { n.self_neg(); }, -p, "-x");
      EXPECT_EQ(r.is_small(), x.is_small());
    }
  }
}

template <typename T>
void expect_exact_construction() {
  for (const T v : {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), T{1}}) {
    const mpz_class want(std::to_string(v));
    expect_value(QNumber(v), want, "construction");
    QNumber q = 1;
    q += v;
    expect_value(q, want + 1, "+= with an integer");
    q -= v;
    expect_value(q - v, 1 - want, "- with an integer");
    EXPECT_EQ(QNumber(v).is_small(), fits(want));
  }
}

TEST(QNumber, ConstructionIsExactAndTakesTheFormOfItsSource) {
  expect_exact_construction<signed char>();
  expect_exact_construction<unsigned short>();
  expect_exact_construction<int>();
  expect_exact_construction<unsigned>();
  expect_exact_construction<long>();
  expect_exact_construction<unsigned long>();
  expect_exact_construction<long long>();
  expect_exact_construction<unsigned long long>();
  static_assert(!std::is_constructible_v<QNumber, bool> &&
                !std::is_constructible_v<QNumber, char> &&
                !std::is_constructible_v<QNumber, double>);
  struct {
    mpz_class n, d;
    const char* want;
    bool small;
  } const rows[] = {
      {6, 4, "3/2", true},
      {3, -6, "-1/2", true},
      {0, -7, "0", true},
      {pow2(31) - 1, 1, "2147483647", true},
      {pow2(31), 1, "2147483648", false},
      {-pow2(31), -pow2(31), "1", true},
      {3, pow2(31), "3/2147483648", false},
      {pow2(40), -pow2(41), "-1/2", false},
      {0, pow2(40), "0", false},
  };
  for (const auto& row : rows) {
    for (const QNumber& q : {QNumber(row.n, row.d), QNumber(mpq_class(row.n, row.d))}) {
      EXPECT_EQ(text(q), row.want);
      EXPECT_EQ(q.is_small(), row.small) << row.want;
    }
  }
  EXPECT_EQ(text(QNumber(355) / 113 - 3), "16/113");
}

TEST(QNumber, RefusesZeroDenominators) {
  QNumber q = 7;
  QNumber r = 8;
  EXPECT_EQ(zelk_test::message([] { return QNumber(mpz_class(1), mpz_class(0)); }),
            "Exception: division by zero");
  EXPECT_EQ(zelk_test::message([] { return QNumber().inv(); }), "Exception: division by zero");
  EXPECT_EQ(zelk_test::message([&] { return q.divmod(QNumber(), q, r), 0; }),
            "Exception: division by zero");
  EXPECT_EQ(q, 7);
  EXPECT_EQ(r, 8);
}

TEST(QNumber, GcdTableFillsBothWays) {
  const QNumber q(mpz_class(990), mpz_class(935));
  EXPECT_EQ(text(q), "18/17");
  EXPECT_EQ(zelk::gcd_cache[990][935], 55);
  EXPECT_EQ(zelk::gcd_cache[935][990], 55);
}

TEST(Exception, TextGrowsAndIsCopied) {
  zelk::Exception e("a");
  e.msg_stream << 7;
  zelk::Exception copy(e);
  e.msg_stream << "b";
  copy.msg_stream << "c";
  EXPECT_EQ(e.get_msg(), "a7b");
  EXPECT_STREQ(copy.what(), "a7c");
  copy = e;
  copy.msg_stream << "d";
  EXPECT_STREQ(static_cast<const std::exception&>(copy).what(), "a7bd");
  const zelk::IEEEFloat::error error("reached limit on float precision");
  const zelk::Exception& base = zelk::IEEEFloat::error(error);
  EXPECT_EQ(base.get_msg(), "reached limit on float precision");
}

// Static objects of a user's file compute before main and after it, in whatever order.
struct UsedOutsideMain {
  QNumber q = QNumber(1L << 62) * QNumber(1L << 62);
  zelk::IEEEFloat x =
      zelk::IEEEFloat::from_number(QNumber(1) / 3, {15, 112}, zelk::IEEEFloat::ROUND_NEAREST_EVEN);
  UsedOutsideMain() = default;
  UsedOutsideMain(const UsedOutsideMain&) = delete;
  UsedOutsideMain& operator=(const UsedOutsideMain&) = delete;
  ~UsedOutsideMain() {
    zelk::IEEEFloat y = x;
    y *= x;
    q *= q;
    if (q.to_mpq() != mpq_class(pow2(248)) || !(y < x) || y.to_number() >= QNumber(1) / 9) {
      std::abort();
    }
  }
} used_outside_main;

TEST(QNumber, ServesStaticObjects) {
  EXPECT_EQ(used_outside_main.q.to_mpq(), pow2(124));
  EXPECT_FALSE(used_outside_main.x.is_nan());
}

}  // namespace
