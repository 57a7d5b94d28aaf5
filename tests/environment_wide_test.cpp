// Environments: mixed and wide formats, sums, and quotients of far exponents.
#include <random>

#include "tests/mpfr_oracle.h"
#include "zelk/float/functions.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// In one of the representations that keep the pattern: packed words of other formats, too.
static IEEEFloat represented(Random& random, IEEEFloat x) {
  const Format f = x.get_format();
  const unsigned long width = 1 + f.exp_width + f.mant_width;
  const IEEEFloat::Repr reprs[] = {IEEEFloat::REPR_GENERIC, IEEEFloat::get_best_repr(f),
                                   width > 64 ? IEEEFloat::REPR_GENERIC : IEEEFloat::REPR_FLOAT64,
                                   width > 32 ? IEEEFloat::REPR_GENERIC : IEEEFloat::REPR_FLOAT32};
  x.self_specialize_repr(reprs[random.below(4)]);
  x.set_mode(static_cast<IEEEFloat::rounding_mode>(random.below(5)));
  return x;
}

// Within a few powers of two of one, of 62 ones at times, a subnormal of narrow formats, or
// special.
static Operand value_near_one(Random& random, const Target& t) {
  const unsigned long kind = random.below(20),
                      reach = random.below(2) == 0 ? 4 : t.f.mant_width + 9;
  mpz_class p = kind == 0 ? mpz_class(0) : kind == 1 ? t.inf : t.nan % t.sign;
  if (kind > 2) {
    const mpz_class one = 1 - t.least, top = t.inf / t.hidden - 1;
    const mpz_class e = one + random.below(2 * reach + 1) - reach;
    p = std::clamp<mpz_class>(e, 0, top) * t.hidden + random.digits(t.f.mant_width);
    if (kind < 7) p = p / t.hidden * t.hidden + random.below(2);
    if (kind == 7) p |= t.hidden - 1, p -= (t.hidden - 1) >> 61;
  }
  p += random.below(2) * t.sign;
  const IEEEFloat x = IEEEFloat::from_encoding(QNumber(p, 1), t.f);
  return {t, represented(random, x)};
}

static constexpr Format mixed_formats[] = {
    {5, 10},  {8, 7}, {8, 23}, {11, 52}, {15, 112}, {19, 236}, {2, 1},    {4, 3},   {3, 60},
    {15, 63}, {5, 2}, {62, 1}, {63, 64}, {64, 63},  {65, 10},  {100, 40}, {9, 400}, {5, 122}};
static const std::vector<Target> mixed(std::begin(mixed_formats), std::end(mixed_formats));

TEST(MixedFormats, MatchRationals) {
  Random random;
  const auto any = [&]() -> const Target& { return mixed[random.below(mixed.size())]; };
  for (unsigned long i = 0; i < rounds(); ++i) {
    const Target &t = any(), &to = any();
    const Operand same[] = {value_near_one(random, t), value_near_one(random, t),
                            value_near_one(random, t)};
    const Operand others[] = {same[0], value_near_one(random, any()),
                              value_near_one(random, any())};
    for (const Operation& op : operations) {
      std::vector<const Operand*> one, many;
      for (std::size_t k = 0; k < op.operands; ++k)
        one.push_back(&same[k]), many.push_back(&others[k]);
      check_operation(op, one, t, false);
      check_operation(op, many, i % 3 == 0 ? t : to, true);
    }
    // What a product was rounded by.
    Environment env{static_cast<Rounding>(i % 6)};
    const Operand near(t, -env.multiply(same[0].x, same[1].x));
    check_operation(operations[6], {&same[0], &same[1], &near}, t, false);
    const Operand &a = same[0], &b = others[1];
    ASSERT_TRUE(compare(a.x, b.x) == order(a.exact[0], b.exact[0])) << name({a.x, b.x});
    const Layout bare({1, 3});  // without arithmetic
    const mpz_class p = random.below(8);
    ASSERT_TRUE(compare(generic(bare.f, modes[0], p), b.x) ==
                order(number(bare.value(p)), b.exact[0]))
        << name(b.x);
    ASSERT_FALSE(HasFailure());
  }
}

// A rational of parts of up to 200 bits, or 0; every other one is the middle of two values of a
// format with a significand of m bits, or next to one.
static mpq_class any_rational(Random& random, long m) {
  const auto part = [&]() -> mpz_class { return random.digits(random.below(200)) + 1; };
  mpq_class q(part() - 1, random.below(4) == 0 ? mpz_class(1) : part());
  if (random.below(2) == 0) {
    const mpz_class factor = random.below(2) == 0 ? mpz_class(1) : part();
    const mpz_class middle = 2 * random.digits(static_cast<unsigned long>(m + 1)) + 1;
    q = mpq_class(middle * factor + static_cast<int>(factor > 1), factor << random.below(200));
  }
  q.canonicalize();
  return random.below(2) == 0 ? q : mpq_class(-q);
}

// Rationals as numbers and as text, where most formats have their values and at their ends.
TEST(MixedFormats, NumbersRoundOnce) {
  Random random;
  for (unsigned long i = 0; i < rounds(); ++i) {
    const Target& to = mixed[random.below(mixed.size())];
    const Environment start{static_cast<Rounding>(i % 6), static_cast<Tininess>(i / 6 % 2),
                            i % 5 == 0, i % 7 == 0, other_bits};
    const mpq_class q = any_rational(random, to.m);
    const bool end = random.below(3) == 0 && to.f.exp_width < 60;
    const long k = static_cast<long>(random.below(end ? 2 * to.f.mant_width + 200 : 500)) - 300 +
                   (end ? random.below(2) == 0 ? to.emin : -to.emin : 0);
    check_factories(to, start, q, k);
    ASSERT_FALSE(HasFailure());
    if (i % 6 > 3) continue;
    Environment env{start.rounding};
    const IEEEFloat::rounding_mode rm = modes[i % 6];
    EXPECT_EQ(bits(IEEEFloat::from_scaled(QNumber(q), k, to.f, rm)),
              bits(env.from_scaled(QNumber(q), k, to.f)));
    EXPECT_EQ(bits(IEEEFloat::from_number(QNumber(q), to.f, rm)),
              bits(env.divide(env.from_integer(QNumber(q.get_num(), 1), to.f),
                              env.from_integer(QNumber(q.get_den(), 1), to.f))))
        << q << ' ' << name(env);
  }
}

// Roots first estimated as too large by two, which their last place would show, and by a quotient
// of 2^64.
TEST(MixedFormats, RootsAreCorrectedTwice) {
  const Target t({5, 122});
  for (const char* digits : {"01444145fec4a525a68e708bacff6d41", "2000000000000000"}) {
    for (const unsigned long field : {15UL, 16UL}) {
      const Operand x(t, generic(t.f, modes[0], field * t.hidden + mpz_class(digits, 16)));
      check_operation(operations[7], {&x}, t, false);
    }
  }
}

// ---- Remainders ----

// 2^n modulo 3 tells whether n is even, modulo 7 what it is modulo 3, however large it is.
TEST(WideFormats, ExponentsOfRemaindersCanBeFarApart) {
  for (const Format f : {Format{11, 52}, {15, 112}, {20, 300}, {62, 1}, {63, 9}, {65, 10}}) {
    const mpz_class bias = pow2(f.exp_width - 1) - 1, top = bias - 2;
    for (int i = 0; i < 32; ++i) {
      const mpz_class low = (i % 2 == 0 ? mpz_class(0) : mpz_class(-top / 2)),
                      n = top - i / 4 - low, divisor = i % 4 < 2 || f.mant_width < 2 ? 3 : 7;
      mpz_class left = 2;
      mpz_powm(left.get_mpz_t(), left.get_mpz_t(), n.get_mpz_t(), divisor.get_mpz_t());
      Environment env;
      const auto value = [&](const mpz_class& digits, const mpz_class& exponent) {
        return env.from_scaled(QNumber(digits, 1), QNumber(exponent, 1), f);
      };
      const IEEEFloat x = value(1, low + n), y = value(divisor, low);
      EXPECT_EQ(bits(env.modulo(x, y)), bits(value(left, low))) << name({x, y});
      if (2 * left > divisor) left -= divisor;
      EXPECT_EQ(bits(env.remainder(-x, y)), bits(value(-left, low))) << name({x, y});
      EXPECT_EQ(env.flags, 0);
    }
  }
}

// ---- Sums ----

TEST(Sums, MatchRationalsInAnyOrder) {
  Random random;
  const auto any = [&]() -> const Target& { return mixed[random.below(mixed.size())]; };
  for (unsigned long i = 0; i < rounds(); ++i) {
    const Environment env = any_environment(random);
    const bool specials = random.below(4) == 0;
    std::vector<Operand> x, y;
    while (random.below(6) != 0) {
      const Target &t = any(), &u = any();
      const Operand a = value_near_one(random, t), b = value_near_one(random, u);
      if (!specials && (!zelk::is_finite(a.x) || !zelk::is_finite(b.x))) continue;
      x.push_back(a), y.push_back(b);
      if (random.below(3) == 0) x.push_back(a), y.emplace_back(u, -b.x);  // products that cancel
    }
    const Target& to = any();
    check_sums(to, env, x, y);
    std::reverse(x.begin(), x.end()), std::reverse(y.begin(), y.end());
    std::rotate(x.begin(), x.begin() + static_cast<long>(x.size() / 3), x.end());
    check_sums(to, env, x, y);
    ASSERT_FALSE(HasFailure());
  }
}

TEST(Sums, ProductsFillTwoWords) {
  const IEEEFloat max = IEEEFloat::max_value({5, 33});
  const QNumber square = max.to_number() * max.to_number();
  for (const std::size_t n : {1U, 2U, 3U, 4U}) {  // 126 bits, the sign aside, to 128
    const Values x(n, max);
    EXPECT_EQ(Environment().dot(x, x, {11, 99}).to_number(), QNumber(n) * square) << n;
  }
}

// Groups of terms, each far above the next, of which any may cancel.
TEST(Sums, ExponentsCanBeFarApart) {
  Random random;
  const Format wide{62, 8};
  for (const Format f : {Format{63, 8}, {65, 30}, {64, 1}}) {
    const Target t(f);
    for (unsigned long i = 0; i < rounds() / 5; ++i) {
      const long distance = i % 3 == 0 ? 1L << 60 : static_cast<long>(20 + random.below(40));
      Values x;
      mpz_class groups[3];
      for (int g = 0; g < 3; ++g) {
        for (unsigned long n = random.below(4); n > 0; --n) {
          const mpz_class z = mpz_class(random.digits(5)) - 16;
          if (z == 0) continue;
          const bool cancels = random.below(2) == 0;
          groups[g] += cancels ? mpz_class(0) : z;
          for (const mpz_class& term : {z, mpz_class(-z)}) {
            if (term != z && !cancels) continue;
            x.push_back(represented(
                random,
                Environment().from_scaled(QNumber(term, 1), QNumber(1 - g) * distance, wide)));
          }
        }
      }
      std::shuffle(x.begin(), x.end(), std::mt19937_64(i));
      const int top = groups[0] != 0 ? 0 : groups[1] != 0 ? 1 : 2;
      const int below = top < 1 && groups[1] != 0 ? sgn(groups[1]) : top < 2 ? sgn(groups[2]) : 0;
      Exact exact = number(groups[top]);
      exact.k = (1 - top) * distance;
      if (i % 3 != 0) {
        exact = number(scaled(groups[0], distance) + groups[1] + scaled(groups[2], -distance));
      } else if (below != 0) {
        exact.q = (exact.q << 70) - static_cast<int>(below != (exact.negative ? -1 : 1));
        exact.k -= 70;
        exact.sticky = true;
      }
      for (unsigned d = 0; d < 6; ++d) {
        if (exact.q == 0) exact.negative = d == 3 && !x.empty();
        check_sum(t, {.rounding = static_cast<Rounding>(d), .flags = other_bits}, exact, x, {});
      }
      ASSERT_FALSE(HasFailure());
    }
  }
}
