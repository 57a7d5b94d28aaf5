// The rules that all roads share: against their definitions, every spelling of them against the
// rules, and the tables of special operands against the processor. All inputs there are.
#include <cfenv>
#include <cmath>

#include "tests/support.h"
#include "zelk/limbs/patterns.h"
#include "zelk/rules/rounding.h"
#include "zelk/rules/special.h"
#include "zelk/words/narrow.h"
#include "zelk/words/rounding.h"
#include "zelk/words/two_words.h"

using namespace zelk;       // NOLINT(google-build-using-namespace)
using namespace zelk_test;  // NOLINT(google-build-using-namespace)
using rules::Direction;
using words::uint128;

// A case of rounding: a kept part that is odd or even, and what is below it: whether half a unit,
// and of less than that nothing, the lowest digit, the highest or all.
struct Rest {
  Direction d;
  bool negative, odd, half;
  int less;

  bool increments() const { return rules::increments(d, negative, odd, half, less != 0); }
  // What is less than a half, of these digits, and all that is below in n digits.
  uint128 less_of(uint128 all) const {
    const uint128 some[] = {0, 1, all / 2 + 1, all};
    return some[less];
  }
  uint128 digits(std::int64_t n) const {
    const uint128 halves = uint128{1} << (n - 1);
    return half * halves + less_of(halves - 1);
  }
};

static void for_all(auto check) {
  for (unsigned i = 0; i < 6 * 32; ++i) {
    const Rest r{static_cast<Direction>(i / 32), i % 2 != 0, i / 2 % 2 != 0, i / 4 % 2 != 0,
                 static_cast<int>(i / 8 % 4)};
    ASSERT_TRUE(check(r)) << r.d << r.negative << r.odd << r.half << r.less;
  }
}

// Of 4n + the quarters that are below n: the neighbour that each direction is defined by.
TEST(Rules, RoundingIsWhatTheDirectionsAreDefinedBy) {
  for_all([](const Rest& r) {
    const int n = r.odd ? 5 : 4, quarters = (r.half ? 2 : 0) + (r.less != 0 ? 1 : 0);
    const double v = (r.negative ? -1 : 1) * (n + 0.25 * quarters);
    const double even = 2 * std::floor(v / 2 + 0.5);  // the one that is nearest to v, ties up
    const double nearest = std::abs(v - even) <= 0.5 ? even : v < even ? even - 1 : even + 1;
    const double up = std::ceil(std::abs(v)), down = std::floor(std::abs(v));
    const double neighbours[] = {nearest,       std::trunc(v), std::ceil(v),
                                 std::floor(v), std::round(v), std::fmod(up, 2) != 0 ? up : down};
    return r.increments() == (std::abs(neighbours[r.d]) == n + 1);
  });
  for_all([](const Rest& r) {  // all that is next to the end of the range and above it
    return rules::rounds_outward(r.d, r.negative) ==
           rules::increments(r.d, r.negative, true, true, true);
  });
  for (unsigned mode = 0; mode < 9; ++mode) EXPECT_EQ(rules::is_direction(mode), mode < 4);
}

// Significands in words: in the middle, and where the increment carries.
template <words::Shape S>
static void check_rounded(S s) {
  using W = words::Word<S>;
  const std::int64_t n = words::lead<W> - words::kept_width(s);
  const W least = W{1} << words::kept_width(s), most = 2 * least - 2;
  for_all([&](const Rest& r) {
    bool same = true;
    for (const W even : {least, most}) {
      const W kept = even | W{r.odd}, sig = kept << n | static_cast<W>(r.digits(n));
      const W got = words::rounded(s, sig, r.negative ? words::sign_bit(s) : W{0}, r.d);
      same = same && got == (kept + W{r.increments()}) << (s.mant_width - words::kept_width(s));
    }
    return same;
  });
}

// Patterns in two words whose n lowest digits are not kept, and the word below them. What is less
// than a half is in either.
template <words::Shape S>
static void check_pattern(S s, std::int64_t n) {
  const uint128 sign = words::sign_bit(s), exponent = sign >> 2;
  for_all([&](const Rest& r) {
    const uint128 unit = uint128{1} << n;
    bool same = true;
    for (const bool apart : {false, true}) {
      const uint128 digits = n < 2 || apart ? r.half * unit / 2 : r.digits(n);
      const uint128 below = n == 0 ? r.digits(64) : n < 2 || apart ? r.less_of(~0UL) : 0;
      for (const uint128 even : {exponent, exponent - 2 * unit}) {  // the second may carry
        const uint128 kept = r.negative * sign | even | r.odd * unit;
        const uint128 got = words::round_pattern(s, kept + digits, words::low_word(below), r.d);
        same = same && got == kept + r.increments() * unit;
      }
    }
    return same;
  });
}

// A significand at the upper end of two words, of which one keeps all that is kept.
static void check_narrow(words::NarrowShape s) {
  const std::int64_t n = 127 - s.mant_width;
  for_all([&](const Rest& r) {
    const uint128 sign = r.negative ? words::sign_bit(s) : 0, least = words::hidden_bit(s);
    bool same = true;
    for (const uint128 even : {least, 2 * least - 2}) {
      const uint128 kept = even | uint128{r.odd}, sig = kept << n | r.digits(n);
      const uint128 got = words::pack_narrow(s, words::high_word(sign), 0, words::high_word(sig),
                                             words::low_word(sig), r.d);
      same = same && got == (sign | (kept + r.increments()));
    }
    return same;
  });
}

TEST(Rules, EverySpellingIsTheRule) {
  check_rounded(words::FixedShape<5, 10>());
  check_rounded(words::FixedShape<8, 7>());
  check_rounded(words::binary32);
  check_rounded(words::binary64);
  check_rounded(words::binary128);
  for (unsigned e = 2; e < 63; ++e) {
    for (unsigned m = 1; m < 128 - e; ++m) {
      if (words::serves_in_one_word(e, m)) check_rounded(words::RuntimeShape{e, m});
      if (e + m < 64 && m <= words::short_width) check_rounded(words::ShortShape{{e, m}});
      if (!words::serves_in_two_words(e, m)) continue;
      check_rounded(words::RaisedShape{e, m});
      check_pattern(words::RaisedShape{e, m}, 127 - e - m);
      m < 64 ? check_narrow({e, m}) : check_pattern(words::LongShape{e, m}, 0);
    }
  }
  check_pattern(words::binary128, 0);
  for_all([](const Rest& r) {
    const std::uint64_t below = words::low_word(r.digits(64));
    return words::rounds_up(r.d, r.negative, r.odd, below) == r.increments() &&
           limbs::rounds_up(r.d, limbs::Limb{r.negative}, r.odd, below) == r.increments();
  });
}

// Every class in either sign, b's NaN being another than a's.
struct Operand : rules::Operand {
  explicit Operand(unsigned i) : rules::Operand{static_cast<rules::Class>(i / 2), i % 2 != 0} {}

  double number() const {
    constexpr double magnitudes[] = {0, 1.5, HUGE_VAL, NAN};
    return std::copysign(magnitudes[static_cast<int>(what)], negative ? -1 : 1);
  }
  IEEEFloat value(Format f, IEEEFloat::Repr repr, Direction d, bool other) const {
    IEEEFloat x = IEEEFloat::from_number(QNumber(3) / 2, f, modes[d]);
    x.self_specialize_repr(repr);
    if (is(rules::Class::zero)) x.self_zero(false);
    if (is(rules::Class::infinite)) x.self_inf(false);
    if (is(rules::Class::nan)) x.self_nan();
    x.set_sign(negative);
    if (is(rules::Class::nan) && other) x.packed_next(!negative);
    return x;
  }
};

static bool table_has(rules::Result r, double a, double b, double result, int flags, Direction d) {
  const bool sign = std::signbit(result);
  switch (r.outcome) {
    case rules::Outcome::left:
      return std::isnan(a) && std::isnan(result) && flags == 0;
    case rules::Outcome::right:
      return !std::isnan(a) && std::isnan(b) && std::isnan(result) && flags == 0;
    case rules::Outcome::invalid:
      return std::isnan(result) && flags == FE_INVALID;
    case rules::Outcome::zero:
      return result == 0 && sign == r.negative && flags == 0;
    case rules::Outcome::infinity:
      return std::isinf(result) && sign == r.negative && flags == 0;
    case rules::Outcome::pole:
      return std::isinf(result) && sign == r.negative && flags == FE_DIVBYZERO;
    default:  // with these operands only a sum can be 0, and is exact
      return std::isfinite(result) && flags == 0 &&
             (result != 0 || sign == rules::zero_sum_is_negative(d));
  }
}

// At least one for each road.
static constexpr Format on_roads[] = {{5, 10},   {8, 7},     {8, 23},  {8, 50},
                                      {11, 52},  {15, 112},  {30, 97}, {2, 125},
                                      {19, 236}, {30, 1000}, {64, 4}};

static void check_on_roads(int op, Direction d, Operand a, Operand b, double want) {
  for (const Format f : on_roads) {
    for (const auto repr : {IEEEFloat::get_best_repr(f), IEEEFloat::REPR_GENERIC}) {
      const IEEEFloat x = a.value(f, repr, d, false), y = b.value(f, repr, d, true);
      IEEEFloat r = x, nan = x;
      apply(op, r, y);
      nan.self_nan();
      if (repr == IEEEFloat::REPR_GENERIC && (x.is_nan() || y.is_nan())) nan = x.is_nan() ? x : y;
      ASSERT_TRUE(std::isnan(want)   ? bits(r) == bits(nan)
                  : std::isinf(want) ? r.is_inf() && r.get_sign() == std::signbit(want)
                                     : r.to_number().to_mpq() == mpq_class(want) &&
                                           r.get_sign() == std::signbit(want))
          << name(x) << "+-*/"[op] << name(y) << " gives " << name(r);
    }
  }
}

TEST(Rules, TablesAreTheProcessors) {
  constexpr int directions[] = {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD, FE_DOWNWARD};
  for (unsigned i = 0; i < 4 * 4 * 64; ++i) {
    const int op = static_cast<int>(i % 4);
    const auto d = static_cast<Direction>(i / 4 % 4);
    const Operand a(i / 16 % 8), b(i / 128);
    const rules::Operand minus_b{b.what, !b.negative};
    const volatile double x = a.number(), y = b.number();
    std::feclearexcept(FE_ALL_EXCEPT);
    std::fesetround(directions[d]);
    const volatile double z = op == 0 ? x + y : op == 1 ? x - y : op == 2 ? x * y : x / y;
    const int flags = std::fetestexcept(FE_INVALID | FE_DIVBYZERO);
    std::fesetround(FE_TONEAREST);
    const rules::Result r = op == 0   ? rules::sum(a, b, d)
                            : op == 1 ? rules::sum(a, minus_b, d)
                            : op == 2 ? rules::product(a, b)
                                      : rules::quotient(a, b);
    ASSERT_TRUE(table_has(r, x, y, z, flags, d)) << x << "+-*/"[op] << y << " mode " << d;
    check_on_roads(op, d, a, b, z);
  }
}
