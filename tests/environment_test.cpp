// Environments: their errors, and what they leave alone.
#include "tests/environment_oracle.h"
#include "zelk/float/functions.h"
#include "zelk/swflt/swflt.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static IEEEFloat value(const char* text, Format f) { return Environment().from_text(text, f); }

TEST(Environments, RefuseInOneOrder) {
  const Format f{5, 10};
  const IEEEFloat x = value("1.5", f), y = value("3", {8, 7}), none({1, 4}, modes[0]);
  const IEEEFloat too_wide({1UL << 62, 4}, modes[0]), nan = value("nan", f), inf = value("inf", f);
  const Values two = {x, y}, bad = {x, none};
  const QNumber half = QNumber(1) / 2;
  const auto fails = [&](const std::string& text, auto call) {
    Environment env{.flush_operands = true, .flags = other_bits};
    EXPECT_EQ(message([&] { return call(env), 0; }), text);
    EXPECT_TRUE(text.empty() || env.flags == other_bits) << text;
  };
  const auto at_every_rounding = [&](const std::string& text, auto call) {
    fails(text, call);
    fails("bad rounding mode: 6", [&](Environment& env) {
      env.rounding = static_cast<Rounding>(6);
      call(env);
    });
  };
#define FAILS(text, call) at_every_rounding(text, [&](Environment& env) { env.call; })
  const std::string arithmetic = "format without arithmetic: (1, 4)",
                    mixed_formats = "operands of different formats",
                    limit = "reached limit on float precision";
  for (const auto& o : operations) {
    if (std::string(o.name).starts_with("convert")) continue;
    const auto check = [&](const std::string& text, const Values& v) {
      at_every_rounding(text, [&](Environment& env) { o.call(env, v); });
    };
    check(arithmetic, {none, none, none});
    check("", {x, x, x});
    if (o.operands > 1) check(mixed_formats, {x, y, x}), check(arithmetic, {x, none, x});
    if (o.operands > 2) check(mixed_formats, {x, x, y}), check(arithmetic, {y, x, none});
    at_every_rounding(arithmetic, [&](Environment& env) { o.into(env, {x, y, x}, {1, 4}); });
    at_every_rounding("format without arithmetic: (9, 0)", [&](Environment& env) {
      o.into(env, {x, y, x}, {9, 0});
    });
    check(limit, {too_wide, too_wide, too_wide});
  }
  for (const Selection& s : selections) {
    at_every_rounding(mixed_formats, [&](Environment& env) { s.call(env, x, y); });
    at_every_rounding(arithmetic, [&](Environment& env) { s.call(env, none, y); });
  }
  FAILS(arithmetic, round_to_integral(none)), FAILS(arithmetic, nearbyint(none));
  FAILS(arithmetic, scale(none, half)), FAILS("exponent is not an integer: 1/2", scale(x, half));
  FAILS(arithmetic, scale(x, half, {1, 4})), FAILS(arithmetic, convert(x, {1, 4}));
  FAILS(arithmetic, from_rational(1, {1, 4})), FAILS(arithmetic, from_scaled(1, half, {1, 4}));
  FAILS("exponent is not an integer: 1/2", from_scaled(1, half, f));
  FAILS(arithmetic, from_integer(half, {1, 4}));
  FAILS("number is not an integer: 1/2", from_integer(half, f));
  FAILS(arithmetic, from_text("x", {1, 4}));
  FAILS("invalid number at position 0: x", from_text("x", f));
  FAILS("format without arithmetic: (5, 9223372036854775808)", add(x, y, {5, 1UL << 63}));
  FAILS(arithmetic, to_signed(none, 0)), FAILS("width of 0 bits", to_signed(nan, 0));
  FAILS(arithmetic, to_unsigned(none, 0)), FAILS("width of 0 bits", to_unsigned(x, 0));
  FAILS(arithmetic, to_integer(none)), FAILS("", to_integer(inf));
  FAILS(arithmetic, sum(bad, f)), FAILS(arithmetic, sum({}, {1, 4})), FAILS("", sum(two, f));
  FAILS(arithmetic, dot(two, bad, f)), FAILS(arithmetic, dot({}, two, {1, 4}));
  FAILS("spans of different lengths", dot(two, {}, f)), FAILS("", dot(two, two, f));
  FAILS(limit, add(x, y, {5, 1UL << 62})), FAILS(limit, from_integer(1, {1UL << 62, 1}));
  const IEEEFloat huge = Environment().from_scaled(1, power(60), {63, 4});
  FAILS(limit, to_integer(huge)), FAILS("", to_signed(huge, ~0UL >> 9));
  EXPECT_EQ(message([&] { return std::is_eq(total_order(x, y)); }), mixed_formats);
  EXPECT_EQ(message([&] { return x > y; }), mixed_formats);
  EXPECT_EQ(message([&] { return x >= y; }), mixed_formats);
  EXPECT_EQ(message([&] { return x != y; }), mixed_formats);
  // In two's complement, or cut off, these would be NaNs.
  for (const QNumber& n : {QNumber(-1), 0x7C01 + half, power(16) + 0x7C01}) {
    EXPECT_TRUE(message([&] {
                  return IEEEFloat::from_encoding(n, f);
                }).starts_with("invalid bit pattern for IEEEFloat: "));
  }
}

// Bits of flags, flags of others, and the processor's state.
TEST(Environments, TouchNothingElse) {
  const OddControlWord odd;
  zelk::swflt::float_exception_flags = 5;
  for (const Format f : {Format{5, 10}, {8, 23}, {11, 52}, {15, 112}, {19, 236}}) {
    const Target t(f);
    const Values v = {value("1.3", f), value("-inf", f), value("nan", f)};
    const Values w = {value("1e-4", f), value("7", f), IEEEFloat::max_value(f)};
    for (const Operation& op : operations) {
      for (const Values& values : {v, w}) {
        Environment fresh, full{.flags = 0xFF}, some{.flags = 0x4A};
        op.call(fresh, values), op.call(full, values), op.call(some, values);
        op.into(full, values, {6, 9});
        EXPECT_TRUE(full.flags == 0xFF && some.flags == (0x4A | fresh.flags)) << op.name;
      }
    }
  }
  EXPECT_EQ(zelk::swflt::float_exception_flags, 5);
}

TEST(Environments, HaveNoLimitOnDistancesOfExponents) {
  Environment env;
  const Format f{65, 10};
  const IEEEFloat one = value("1", f), tiny = next_up(IEEEFloat(f, modes[0]));
  EXPECT_EQ(bits(env.remainder(one, tiny)), 0);
  EXPECT_EQ(bits(env.modulo(tiny, one)), bits(tiny));
  for (const auto d : {Rounding::nearest_even, Rounding::to_odd}) {
    Environment far{.rounding = d};
    const IEEEFloat largest = IEEEFloat::max_value(f);
    EXPECT_EQ(bits(far.scale(one, power(200))), bits(largest) + (d == Rounding::to_odd ? 0 : 1));
    EXPECT_EQ(far.flags, overflow | inexact);
    EXPECT_EQ(bits(far.scale(one, -power(200))), d == Rounding::to_odd ? 1 : 0);
    EXPECT_EQ(far.flags, overflow | inexact | underflow);
  }
}
