// Environments: every pattern, pair and triple of tiny formats against rationals.
#include "tests/environment_oracle.h"
#include "zelk/float/functions.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static void report(const char* what) {
  std::cout << cases << ' ' << what << '\n';
  cases = 0;
}

// Every value of a format, each with a stored mode, of all NaNs the canonical one and one more.
static std::vector<Operand> all_of(const Target& t) {
  std::vector<Operand> all;
  for (mpz_class p = 0; p < 2 * t.sign; ++p) {
    if (p % t.sign > t.inf + 1) continue;
    all.emplace_back(t, generic(t.f, static_cast<IEEEFloat::rounding_mode>(p.get_ui() % 5), p));
  }
  return all;
}

static Exact magnitude_of(Exact x) { return x.negative = false, x; }

struct Selection {
  const char* name;
  IEEEFloat (Environment::*call)(IEEEFloat x, const IEEEFloat& y);
  bool largest, magnitude, number;

  bool takes_first(const Exact& a, const Exact& b) const {
    if (any_nan({a, b})) return any_nan({b}) == number;
    auto o = order(magnitude_of(a), magnitude_of(b));
    if (!magnitude || o == 0) o = order(a, b);
    if (o == 0) o = static_cast<int>(b.negative) <=> static_cast<int>(a.negative);
    return largest ? o > 0 : o < 0;
  }
};
static const Selection selections[] = {
    {"minimum", &Environment::minimum, false, false, false},
    {"maximum", &Environment::maximum, true, false, false},
    {"minimum_number", &Environment::minimum_number, false, false, true},
    {"maximum_number", &Environment::maximum_number, true, false, true},
    {"minimum_magnitude", &Environment::minimum_magnitude, false, true, false},
    {"maximum_magnitude", &Environment::maximum_magnitude, true, true, false},
    {"minimum_magnitude_number", &Environment::minimum_magnitude_number, false, true, true},
    {"maximum_magnitude_number", &Environment::maximum_magnitude_number, true, true, true}};

static void check_selections(const Target& t, const Operand& x, const Operand& y) {
  for (const Selection& s : selections) {
    for (const bool flush : {false, true}) {
      const Exact &a = x.exact[flush], &b = y.exact[flush];
      Environment env{.flush_results = true, .flush_operands = flush, .flags = other_bits};
      const IEEEFloat r = (env.*s.call)(x.x, y.x);
      ++cases;
      ASSERT_BITS(r, t.round(s.takes_first(a, b) ? a : b, {}).bits)
          << name(env) << s.name << " of " << name({x.x, y.x});
      ASSERT_TRUE(env.flags == other_bits && r.get_mode() == x.x.get_mode() &&
                  r.get_repr() == x.x.get_repr());
    }
  }
}

TEST(TinyFormats, EveryPairAndTriple) {
  for (const Format f : {Format{2, 1}, {2, 2}, {3, 2}, {2, 3}}) {
    const Target t(f);
    const std::vector<Operand> all = all_of(t);
    for (const Operand& x : all) {
      for (const Operand& y : all) {
        check_selections(t, x, y);
        for (const Operation& op : operations) {
          if (op.operands == 2) check_operation(op, {&x, &y}, t, false);
          if (op.operands != 3) continue;
          for (const Operand& z : all) check_operation(op, {&x, &y, &z}, t, false);
        }
        ASSERT_FALSE(HasFailure());
      }
    }
    report(name(all[0].x).c_str());
  }
}

// These have the first form only.
static const IEEEFloat& own(const IEEEFloat& x, auto... /*f*/) { return x; }
static const Operation to_integers[] = {
    ZELK_OPERATION(round_to_integral(own(v[0], f...)), 1, to_integral(v[0], d, inexact)),
    ZELK_OPERATION(nearbyint(own(v[0], f...)), 1, to_integral(v[0], d, 0))};

static void check_integers(const Operand& x) {
  for (unsigned i = 0; i < 12 * (x.subnormal ? 2 : 1); ++i) {
    const Environment start{static_cast<Rounding>(i % 6), Tininess::after_rounding, i / 6 % 2 == 0,
                            i / 12 == 1, other_bits};
    const Exact n = to_integral(x.exact[i / 12], start.rounding, inexact);
    for (const unsigned long w : {1UL, 3UL, 6UL, 70UL, ~0UL}) {
      for (const bool is_signed : {true, false}) {
        Environment env = start;
        const auto got = w == ~0UL && is_signed ? env.to_integer(x.x)
                         : is_signed            ? env.to_signed(x.x, w)
                                                : env.to_unsigned(x.x, w);
        const mpq_class q = n.kind == Exact::finite ? n.value() : mpq_class(0);
        const mpq_class end = mpq_class(1) << (w == ~0UL ? 9999 : is_signed ? w - 1 : w);
        const bool fits =
            n.kind == Exact::finite && q < end && q >= (is_signed ? mpq_class(-end) : mpq_class(0));
        const unsigned flags = other_bits | (fits ? n.flags : invalid);
        ++cases;
        ASSERT_TRUE(got.has_value() == fits && (!fits || got->to_mpq() == q) && env.flags == flags)
            << name(start) << name(x.x) << " to " << w << " bits, signed " << is_signed
            << ", wanted " << (fits ? q.get_str() : "none") << ' ' << flags << ", not "
            << env.flags;
      }
    }
  }
}

// All that rounds nothing, p being the pattern of x.
static void check_functions(const Target& t, const Operand& x, const mpz_class& p) {
  const auto encoded = [&](const mpz_class& pattern) {
    return IEEEFloat::from_encoding(QNumber(pattern, 1), t.f);
  };
  const Exact& a = x.exact[0];
  const bool nan = a.kind == Exact::nan, inf = a.kind == Exact::infinite;
  const int what = nan ? 1 : inf ? 9 : a.is_zero() ? 6 : x.subnormal ? 7 : 8;
  const bool integral = a.kind == Exact::finite && a.value().get_den() == 1;
  ASSERT_TRUE(static_cast<int>(classify(x.x)) == (nan || !a.negative ? what : 11 - what) &&
              is_normal(x.x) == (what == 8) && is_finite(x.x) == (a.kind == Exact::finite) &&
              is_integral(x.x) == integral)
      << name(x.x);
  const auto check = [&](const char* function, const IEEEFloat& r, const mpz_class& want) {
    ASSERT_BITS(r, nan ? t.nan : want) << function << ' ' << name(x.x);
    ASSERT_TRUE(r.get_mode() == x.x.get_mode() && r.get_repr() == x.x.get_repr()) << function;
  };
  const mpz_class magnitude = p % t.sign;
  check("abs", abs(x.x), magnitude);
  check("-", -x.x, p ^ t.sign);
  check("copy_sign", copy_sign(x.x, encoded(t.sign)), magnitude + t.sign);
  check("next_up", next_up(x.x),
        p < t.sign       ? std::min<mpz_class>(p + 1, t.inf)
        : magnitude == 0 ? mpz_class(1)
                         : p - 1);
  check("next_down", next_down(x.x),
        p >= t.sign      ? std::min<mpz_class>(p + 1, t.sign + t.inf)
        : magnitude == 0 ? mpz_class(t.sign + 1)
                         : p - 1);
  ASSERT_EQ(bits(encoded(p)), nan ? t.nan : p);
  const std::string none = nan ? "NaN" : inf ? "infinity" : a.is_zero() ? "zero" : "";
  ASSERT_EQ(message([&] { return exponent_of(x.x); }),
            none.empty() ? "" : none + " has no exponent");
  ASSERT_TRUE(!none.empty() || exponent_of(x.x) == a.exponent()) << name(x.x);
}

TEST(SmallFormats, EveryPattern) {
  const Target others[] = {Target({3, 2}), Target({4, 7}), Target({2, 9})};
  for (unsigned long e = 2; e < 11; ++e) {
    for (unsigned long m = 1; e + m < 12; ++m) {
      const Target t({e, m});
      for (const Operand& x : all_of(t)) {
        for (const Operation& op : operations) {
          if (op.operands == 1) check_operation(op, {&x}, t, false);
        }
        for (const Operation& op : to_integers) check_operation(op, {&x}, t, false);
        for (const Target& u : others) check_operation(operations[8], {&x}, u, true);
        check_operation(operations[7], {&x}, others[e % 3], true);
        check_integers(x);
        check_functions(t, x, bits(x.x));
        ASSERT_FALSE(HasFailure());
      }
    }
  }
  report("of one operand");
}
