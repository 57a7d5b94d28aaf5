// Exact rationals against GMP's, the form that each result takes, errors, static objects.

// Built before the library's static objects, and gone after them: defined above all that it uses.
struct FirstAndLast {
  FirstAndLast() = default;
  FirstAndLast(const FirstAndLast&) = delete;
  FirstAndLast& operator=(const FirstAndLast&) = delete;
  ~FirstAndLast();
};
[[gnu::init_priority(101)]] static const FirstAndLast first_and_last;

#include <memory>
#include <random>
#include <set>
#include <vector>

#include "tests/number_calls.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// Boundaries of the forms and random quotients of them, in the big form and in the small one.
static std::vector<std::pair<mpq_class, QNumber>> boundary_values(std::mt19937_64& random) {
  std::vector<std::pair<mpq_class, QNumber>> all;
  for (const unsigned k : {0U, 1U, 31U, 62U, 63U, 64U, 127U}) {
    for (int i = 0; i < 12; ++i) {
      const mpz_class n = (pow2(k) + i % 3 - 1) * (i % 2 * 2 - 1);
      mpq_class v(n, i < 6 ? mpz_class(1) : pow2(random() % 64) + random() % 3);
      v.canonicalize();
      all.emplace_back(v, power(100));
      all.back().second = QNumber(v);
      if (!fits(v)) continue;
      all.emplace_back(v, QNumber(v.get_num().get_si()) / v.get_den().get_si());
      EXPECT_TRUE(all.back().second.is_small()) << v;
    }
  }
  return all;
}

TEST(QNumber, CallsOnBoundaryValuesMatchGmp) {
  std::mt19937_64 random(zelk_test::seed());
  const auto all = boundary_values(random);
  constexpr unsigned long counts[] = {0,  1,  5,  31,  60,  61,  62,  63,
                                      64, 65, 80, 111, 112, 127, 128, 200};
  for (const auto& [p, x] : all) {
    for (const auto& [q, y] : all) {
      if (random() % 5000 >= rounds()) continue;  // all pairs, unless fewer cases are asked for
      // The count is taken modulo 220.
      const unsigned long word = random() % 2 * 220 * (random() >> (8 + random() % 56));
      const unsigned long count = word + counts[random() % 16];
      SCOPED_TRACE(testing::Message() << p << " and " << q << ", word " << count);
      for (unsigned long call = 0; call < Numbers::calls; ++call) {
        // y is x, divmod's other target, or neither.
        const unsigned long i = &x == &y ? 0 : random() % 2 * 4 + 4;
        Numbers some{{x}, {p}};
        if (random() % 2 == 0) some.numbers[1] = power(100), some.values[1] = pow2(100);
        some.numbers[i / 4] = y;
        some.values[i / 4] = q;
        some.check(call, i, count);
      }
    }
  }
}

TEST(QNumber, FunctionsOnBoundaryValuesMatchGmp) {
  std::mt19937_64 random(zelk_test::seed());
  const auto all = boundary_values(random);
  const auto check = [](const QNumber& q, const mpq_class& want, const std::string& what) {
    expect_value(q, want, what);
    EXPECT_EQ(q.is_small(), fits(want)) << what << " = " << q;
  };
  for (const auto& [v, x] : all) {
    const mpz_class below = floor_div(v.get_num(), v.get_den());
    EXPECT_EQ(x.to_string(), v.get_str());
    check(abs(x), abs(v), "abs");
    check(floor(x), below, "floor"), check(ceil(x), below + (below != v ? 1 : 0), "ceil");
    mpq_class power_of = 1;
    for (int n = 0; n < 5; ++n, power_of *= v) {
      check(pow(x, n), power_of, "power");
      if (v != 0) check(pow(x, -n), 1 / power_of, "power");
    }
    for (const auto& [w, y] : all) {
      const std::string what = v.get_str() + " and " + w.get_str();
      EXPECT_TRUE(v != w || std::hash<QNumber>()(x) == std::hash<QNumber>()(y)) << what;
      if (w != 0) expect_value(QNumber(x) /= y, v / w, what);
      const mpq_class& fraction = v.get_den() == 1 ? w : v;
      if (fraction.get_den() != 1 || w == 0) {
        const std::string error = fraction.get_den() == 1
                                      ? "division by zero"
                                      : "number is not an integer: " + fraction.get_str();
        EXPECT_EQ(message([&a = x, &b = y] { return a % b; }), "Exception: " + error);
      } else {
        check(x % y, v - floor_div(v.get_num(), w.get_num()) * w, what);
      }
    }
  }
  const QNumber half = QNumber(1) / 2;
  EXPECT_EQ(TRIED(QNumber(), x /= x), "Exception: division by zero");
  EXPECT_EQ(TRIED(QNumber(), x = pow(x, -3)), "Exception: division by zero");
  EXPECT_EQ(TRIED(QNumber(3), x = pow(x, half)), "Exception: exponent is not an integer: 1/2");
  for (const QNumber& q : {QNumber(1), QNumber(-1), QNumber(0)}) {
    check(pow(q, power(70) + 1), q.to_mpq(), "power");
  }
  for (const QNumber& q : {QNumber(2), half, power(90), QNumber(-3)}) {
    for (const QNumber& n : {QNumber(zelk::max_bits), -power(70)}) {
      EXPECT_EQ(TRIED(q, x = pow(x, n)), "Exception: number too large");
    }
  }
}

// Of 1024 numbers in line about 1024 (1 - 1/e) = 647 have the low ten bits of a hash to themselves,
// or the high ones.
TEST(QNumber, HashesSpread) {
  for (const unsigned k : {0U, 10U, 32U, 52U, 100U}) {
    for (const bool inverse : {false, true}) {
      std::set<std::size_t> low, high;
      for (long i = 1; i <= 1024; ++i) {
        const QNumber q = QNumber(i) * power(k);
        const std::size_t hash = std::hash<QNumber>()(inverse ? q.inv() : q);
        low.insert(hash % 1024), high.insert(hash >> 54);
      }
      for (const auto& bits : {low, high}) EXPECT_NEAR(static_cast<double>(bits.size()), 647, 60);
    }
  }
}

TEST(QNumber, TextIsRefusedByTheSizeOfItsNumber) {
  std::mt19937_64 random(zelk_test::seed());
  const auto size = [](const mpz_class& z) { return mpz_sizeinbase(z.get_mpz_t(), 2); };
  for (int i = 0; i < 3000; ++i) {
    const int base = i % 3 == 0 ? 16 : 10;
    const unsigned long divisor = random() % 4 == 0 ? 5 : 2;  // many of which an exponent cancels
    mpz_class n = mpz_class(random() >> random() % 64);
    for (unsigned long k = random() % 60; k > 0; --k) n *= divisor;
    const long k = static_cast<long>(random() % 99) - 60;
    const std::string zeros(random() % 9, '0');
    std::string text = base == 16 ? "0x" : "";
    text.append(zeros).append(n.get_str(base)).append(zeros);
    text.append(base == 16 ? "p" : "e").append(std::to_string(k));
    mpz_class scale;
    mpz_ui_pow_ui(scale.get_mpz_t(), base == 16 ? 2 : 10, static_cast<unsigned long>(std::abs(k)));
    mpz_class shift;
    mpz_ui_pow_ui(shift.get_mpz_t(), static_cast<unsigned long>(base), zeros.size());
    mpq_class want(k < 0 ? mpz_class(n * shift) : mpz_class(n * shift * scale), k < 0 ? scale : 1);
    want.canonicalize();
    const unsigned long bits = std::max(size(want.get_num()), size(want.get_den()));
    EXPECT_EQ(QNumber::from_text(text, bits), QNumber(want)) << text;
    EXPECT_TRUE(n == 0 ||
                TRIED(QNumber(), x = x.from_text(text, bits - 1)) == "Exception: number too large")
        << text << ' ' << bits;
  }
  const std::string digits(3000000, '7');
  for (const std::string& text :
       std::vector<std::string>{"1e999999999", "-1e-999999999", "0x1p99999999999",
                                "1e-9999999999999999999999", digits + "e9", "." + digits}) {
    EXPECT_EQ(TRIED(QNumber(), x = x.from_text(text, 1 << 20)), "Exception: number too large");
  }
  EXPECT_TRUE(QNumber::from_text("-0.00e999999999", 0).is_zero() &&
              QNumber::from_text("6/4", 2) == QNumber(3) / 2);
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
  for (const unsigned k : {0U, 62U, 63U, 64U, 126U}) {
    for (const auto n : {(zelk::detail::int128{1} << k) - 1, zelk::detail::int128{1} << k,
                         ~zelk::detail::int128{0} << k}) {
      const mpz_class high(static_cast<long>(n >> 64)), low(static_cast<unsigned long>(n));
      const mpz_class want = high * pow2(64) + low;
      const mpz_class bits = want < 0 ? mpz_class(want + pow2(128)) : want;
      check(n, want, fits(want)),
          check(static_cast<zelk::detail::unsigned_int128>(n), bits, fits(bits));
    }
  }
  for (const long n : {0L, 6L, 990L, word - 1, word, -word, word << 9}) {
    for (const long d : {1L, 4L, -7L, 935L, word - 1, word, -word, -word << 10}) {
      mpq_class want(n, d);
      want.canonicalize();
      check({n, d}, want, static_cast<int>(n) == n && static_cast<int>(d) == d);
    }
  }
  for (const mp_limb_t limb : {(1UL << 63) - 1, 1UL << 63}) {
    check(QNumber::scaled(&limb, 1, true, 0), -mpz_class(limb), limb < 1UL << 63);
    check(IEEEFloat::from_number(limb, {19, 236}, modes[0]).to_integer(100), mpz_class(limb),
          limb < 1UL << 63);
  }
  EXPECT_TRUE(zelk::gcd_cache[990][935] == 55 && zelk::gcd_cache[935][990] == 55);
  EXPECT_EQ(QNumber(1) / 4106 + QNumber(1) / 6159, QNumber(5, 12318));  // a large common divisor
  QNumber q = 7, r = 8;
  const std::string text = "Exception: division by zero";
  EXPECT_TRUE(TRIED(QNumber(), x = QNumber(mpq_class(1, 0))) == text &&
              TRIED(QNumber(), x = x.inv()) == text &&
              message([&] { return q.divmod(0, q, r), 0; }) == text && q == 7 && r == 8);
}

// Static objects of a user's file compute before main and after it, in whatever order.
static const std::shared_ptr<IEEEFloat> used_outside_main(
    new IEEEFloat(IEEEFloat::from_number(QNumber(1L << 62) * (1L << 62), {20, 9000}, modes[0])),
    [](IEEEFloat* x) {
      *x *= *x;
      if (x->to_number().to_mpq() != pow2(248)) std::abort();
      delete x;
    });

FirstAndLast::~FirstAndLast() {
  const QNumber big = (power(200) + 1) / (power(100) - 1);
  QNumber q, r;
  power(200).divmod(power(70) + 1, q, r);
  const std::vector<QNumber> many(99, big);  // which take all memory that was given back
  bool holds = (big - power(100)) * (power(100) - 1) == power(100) + 1 &&
               q * (power(70) + 1) + r == power(200);
  for (const Format f : {Format{11, 52}, {10, 53}, {15, 112}, {19, 236}, {20, 400}, {64, 60}}) {
    const IEEEFloat x = IEEEFloat::from_ratio(big, f, modes[1]);
    const IEEEFloat y = IEEEFloat::from_text("0x.8", f, modes[1]);
    IEEEFloat z = (x + x) * y / (y + y) - x * y;
    holds = holds && z * (y + y) == x * y && z.to_integer(0) == power(99);
    z.set_format({20, 400});
    holds = holds && z.to_number() == (x * y).to_number();
  }
  if (!holds || many != std::vector<QNumber>(99, big)) std::abort();
}

TEST(QNumber, ServesStaticObjects) {
  const FirstAndLast leaves_storage;
  EXPECT_EQ((*used_outside_main * *used_outside_main).to_number(), power(248));
}

// What converts to numbers and errors, and what adds to them or not.
#define WITH(T, ...) \
  requires(QNumber q, T n) { __VA_ARGS__; }
template <typename T>
constexpr int uses = WITH(const T, q += n) + WITH(const T, q - n) + WITH(const T, q /= n) +
                     WITH(T, q -= n);
template <typename... T>
constexpr bool taken = ((uses<T> == 4) && ...);
template <typename... T>
constexpr bool refused = ((uses<T> == 0) && ...);
enum Unscoped { unscoped };
static_assert(taken<signed char, short, int, long, long long, unsigned char, unsigned short,
                    unsigned, unsigned long, unsigned long long, zelk::detail::int128,
                    zelk::detail::unsigned_int128, QNumber, mpq_class>);
static_assert(refused<bool, char, char16_t, wchar_t, float, double, long double, Unscoped,
                      std::true_type, void*, mpz_class, std::string>);
static_assert(std::is_convertible_v<mpq_class, QNumber> &&
              std::is_convertible_v<std::string, zelk::Exception> &&
              std::is_convertible_v<std::string, IEEEFloat::error>);

TEST(QNumber, TakesWordsAndGmpRationalsAsOperands) {
  QNumber& (QNumber::*const add)(long) = &QNumber::operator+=;
  QNumber& (QNumber::*const subtract)(long) = &QNumber::operator-=;
  QNumber (*const difference)(const QNumber&, long) = &zelk::operator-;
  QNumber q = QNumber(1) / 2;
  q += 1UL << 63;
  EXPECT_EQ(q, QNumber(mpq_class(pow2(64) + 1, 2)));
  q += -1;
  q -= 3U;
  (q.*add)(8), (q.*subtract)(4);
  EXPECT_EQ(difference(q, 5) - (1UL << 63) - -5, QNumber(1) / 2);
  const mpq_class half(1, 2);
  q = half;
  EXPECT_TRUE(q == half && half == q && q < mpq_class(half + 1) && q + half == 1 && half - q == 0 &&
              half / q == 1 && half + half == 1 && half - 1L == -half);
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
