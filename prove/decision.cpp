// The decision: what a number cut off to a pattern becomes, given the digits below it, for every
// combination of direction, rule of tininess, sign, parity, digits and place in the range, with the
// flags: each road's own spelling of the rule, and what rounds by it, against one table.
#include "prove/theorem.h"
#include "tests/environment_oracle.h"
#include "zelk/limbs/rounding.h"
#include "zelk/words/two_words.h"

namespace prove {

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)
namespace limbs = zelk::limbs;
namespace words = zelk::words;

mpz_class shifted(const mpz_class& n, long k) {
  return k < 0 ? mpz_class(n >> static_cast<unsigned long>(-k))
               : mpz_class(n << static_cast<unsigned long>(k));
}

// +-n * 2^k: the magnitude of a pattern, that of infinity and what would be above it included, with
// quarters of its last place, and less than that: nothing, a half of one or a digit far below.
struct Number {
  bool negative;
  mpz_class pattern, n, low;  // low is what is below the last place
  long places;
  QNumber k;

  Number(const Layout& t, bool sign, const mpz_class& p, unsigned quarters, int rest)
      : negative(sign), pattern(p), places(rest == 2 ? 93 : 3) {
    n = 4 * (p < t.hidden ? p : mpz_class(p % t.hidden + t.hidden)) + quarters;
    n = shifted(n, places - 2) + static_cast<int>(rest != 0);
    low = n % shifted(1, places);
    const mpz_class bias = pow2(t.f.exp_width - 1) - 1;
    k = QNumber(std::max<mpz_class>(p / t.hidden, 1) - bias - t.f.mant_width - places, 1);
  }
  // The neighbours among the multiples of 2^-digits of the last place.
  Neighbours neighbours(long digits) const {
    const mpz_class v = shifted(pattern, places) + low, unit = shifted(1, places - digits);
    const mpz_class below = v / unit, rest = v % unit;
    return {below, rest == 0, cmp(2 * rest, unit)};
  }
  IEEEFloat value(const mpz_class& digits, Format f, Environment& env) const {
    return env.from_scaled(QNumber(negative ? mpz_class(-digits) : digits, 1), k, f);
  }
};

// In every environment what the table has for x. One digit more counts only above half of the least
// normal number, where it is the last one of the precision.
void check(const char* what, const Layout& t, const Number& x, auto call) {
  const Neighbours values = x.neighbours(0), finer = x.neighbours(1);
  for (unsigned i = 0; i < 24; ++i) {
    Environment env{Rounding(i % 6), Tininess(i / 6 % 2), i / 12 == 1};
    const Answer want =
        rounded(t, x.negative, values, x.pattern < t.hidden ? &finer : nullptr, env);
    const IEEEFloat r = call(env);
    ++cases;
    ASSERT_TRUE(bits(r) == want.bits && env.flags == want.flags)
        << name(env) << what << ' ' << (x.negative ? '-' : '+') << x.n << " * 2^" << x.k << " is "
        << name(r) << " with " << unsigned{env.flags} << ", wanted 0x" << std::hex << want.bits
        << std::dec << " with " << want.flags;
  }
}

void check_number(const Layout& t, const Number& x) {
  Environment exact;
  const Format f = t.f,
               wide{f.exp_width + 6, f.mant_width + static_cast<unsigned long>(x.places) + 1};
  const IEEEFloat all = x.value(x.n, wide, exact), low = x.value(x.low, wide, exact);
  const IEEEFloat high = x.value(x.n - x.low, wide, exact);
  EXPECT_EQ(exact.flags, 0);
  check("from_scaled", t, x, [&](Environment& env) { return x.value(x.n, f, env); });
  check("convert", t, x, [&](Environment& env) { return env.convert(all, f); });
  check("add", t, x, [&](Environment& env) { return env.add(high, low, f); });
  const IEEEFloat small = x.value(x.low, f, exact), large = x.value(x.n - x.low, f, exact);
  if (exact.flags == 0) {  // both terms have the format
    const IEEEFloat one = exact.from_integer(1, f);
    check("add", t, x, [&](Environment& env) { return env.add(small, large); });
    check("subtract", t, x, [&](Environment& env) { return env.subtract(large, -small); });
    check("fma", t, x, [&](Environment& env) { return env.fma(large, one, small); });
  }
  for (const auto mode : modes) {
    const mpz_class want = rounded(t, x.negative, x.neighbours(0), nullptr, {Rounding(mode)}).bits;
    IEEEFloat r = all, sum = large;
    r.set_mode(mode), sum.set_mode(mode);
    r.set_format(f), sum += small;
    ASSERT_BITS(r, want) << name(all);
    if (exact.flags != 0) continue;
    ASSERT_BITS(sum, want) << name(large) << " + " << name(small);
    cases += 2;
  }
}

// The spellings of the rule: whether a magnitude is incremented that has these digits below.
void check_rule(unsigned i) {
  const auto d = static_cast<zelk::rules::Direction>(i % 6);
  const bool negative = i / 6 % 2 != 0, odd = i / 12 % 2 != 0, half = i / 24 % 2 != 0;
  const unsigned long rest = i / 48 % 4,
                      below = (half ? 1UL << 63 : 0) + (rest >> 1 << 62) + rest % 2;
  const Neighbours n{odd, below == 0, half ? rest != 0 : -1};
  const bool up = n.chosen(Rounding(d), negative) != odd;
  const bool carries = (words::to_carry(d, negative, odd, 8UL) + (half ? 4 : 0) + rest) / 8 != 0;
  ++cases;
  ASSERT_TRUE(zelk::rules::increments(d, negative, odd, half, rest != 0) == up && carries == up &&
              words::rounds_up(d, negative, odd, below) == up &&
              limbs::rounds_up({d}, limbs::Limb{negative}, odd, below) == up)
      << "direction " << d << ", negative " << negative << ", odd " << odd << ", half " << half
      << ", rest " << rest;
}

unsigned long check_format(Format f) {
  const Layout t(f);
  const unsigned long before = cases;
  for (unsigned i = 0; i < 6 * 32; ++i) check_rule(i);
  const mpz_class one = t.inf / t.hidden / 2 * t.hidden;
  // Where numbers are cut off, with an even last digit.
  for (const mpz_class& even :
       {mpz_class(0), std::max<mpz_class>(t.hidden / 2 - 2, 0), mpz_class(t.hidden - 2), t.hidden,
        one, mpz_class(2 * t.hidden - 2), mpz_class(one + t.hidden - 2), mpz_class(t.inf - 2),
        t.inf, mpz_class(t.inf + 64 * t.hidden)}) {
    for (unsigned i = 0; i < 48; ++i) {
      const Number x(t, i % 2 != 0, even + i / 2 % 2, i / 4 % 4, static_cast<int>(i / 16));
      if (x.n != 0) check_number(t, x);
    }
  }
  return cases - before;
}

}  // namespace

std::vector<Theorem> decision() {
  std::vector<Format> formats = {{5, 10}, {8, 7}, {8, 23}, {11, 52}, {15, 112}, {19, 236}};
  for (unsigned long m = 1; m < 330; ++m) {
    for (const unsigned long e : {2UL, 3UL, 5UL, 8UL, 15UL, 31UL, 56UL}) formats.push_back({e, m});
  }
  for (const unsigned long width : {59UL, 60UL, 61UL, 62UL, 63UL, 64UL, 65UL, 126UL, 127UL}) {
    for (unsigned long e = 2; e < 63 && e < width; ++e) formats.push_back({e, width - e});
  }
  return {{"decision", formats.size(),
           [formats](unsigned long i) { return check_format(formats[i]); }}};
}

}  // namespace prove
