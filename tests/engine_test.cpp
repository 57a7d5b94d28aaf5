// The rounding engine at exponents beyond a word, and in scratch that is in the big form.
#include <gtest/gtest.h>

#include "tests/support.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

TEST(Engine, ExponentsOfAnySize) {
  constexpr Format wide{80, 4};
  const QNumber bias = wide.bias(), longest = -power(63) - 19;  // makes a shift of 2^63 - 1
  const auto value = [&](const QNumber& e) { return IEEEFloat::from_bits((e + bias) * 16, wide); };
  const std::pair<QNumber, unsigned> rows[] = {
      {power(70), 0x7C00}, {longest, 1}, {longest - 1, 2}, {-power(64), 2}};
  for (const auto& [e, want] : rows) {  // 2 for an error
    IEEEFloat x = value(e);
    x.set_mode(IEEEFloat::ROUND_TOWARD_POSITIVE);
    const std::string text = message([&] { return x.set_format({5, 10}), 0; });
    EXPECT_EQ(text, want == 2 ? "reached limit on float precision" : "") << e;
    EXPECT_EQ(x.get_bits(), want == 2 ? value(e).get_bits() : want) << e;
  }
  EXPECT_EQ((value(power(77)) * value(power(77))).get_bits(), value(power(78)).get_bits());
  EXPECT_TRUE((value(power(78)) * value(power(78))).is_inf());
}

// Scratch that wide operations left in the big form serves narrow ones, whose results are small.
TEST(Engine, ResultsKeepTheirForm) {
  IEEEFloat x = IEEEFloat::from_bits(0x4200, {5, 10});  // 3
  IEEEFloat quad = IEEEFloat::max_value({15, 112});
  quad += quad *= quad = quad / quad;
  x *= x;
  EXPECT_TRUE(x.to_number() == 9 && x.to_number().is_small() && x.to_integer(8).is_small());
  x.set_format({5, 11});
  EXPECT_TRUE(x.get_bits().is_small());
  x = IEEEFloat::from_number(x.to_number() / 7, {5, 10}, modes[0]);
  EXPECT_TRUE(x.get_bits().is_small());
}
