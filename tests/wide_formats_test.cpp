// Wide and hardware formats, generic and packed, against MPFR.
#include <vector>

#include "tests/mpfr_oracle.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

TEST(WideFormats, ValuesPairsConversionsAndNumbersMatchMpfr) {
  std::vector<Mpfr> oracles(std::begin(wide_formats), std::end(wide_formats));
  Random random;
  for (Mpfr& t : oracles) {
    for (unsigned long i = 0; i < rounds(); ++i) {
      const mpz_class p = random.pattern(t);
      IEEEFloat x = generic(t.f, modes[i % 4], p);
      IEEEFloat y = i % 51 == 0 ? x : generic(t.f, modes[0], random.pattern(t));
      if (i % 3 == 1) x = in_big_form(x);
      if (i % 5 == 1) y = in_big_form(y);
      const bool hardware = IEEEFloat::get_best_repr(t.f) != IEEEFloat::REPR_GENERIC;
      ASSERT_TRUE(i % 3 != 1 || hardware || !x.get_bits().is_small());
      for (const auto repr : {IEEEFloat::REPR_GENERIC, IEEEFloat::get_best_repr(t.f)}) {
        x.self_specialize_repr(repr);
        y.self_specialize_repr(repr);
        ASSERT_EQ(bits(x), p);
        check_pair(t, x, i % 51 == 0 ? x : y);
        check_conversion(t, oracles[i / 4 % oracles.size()], x);
        if (i % 15 == 0) {
          check_value(t, x);
          check_number(t, random, x.get_mode());
        }
      }
      ASSERT_FALSE(HasFailure());
    }
  }
}

// A product whose lowest computed digit and all that is sticky below it are ones, and none above.
TEST(WideFormats, DigitsFarBelowAreSticky) {
  const auto value = [](const QNumber& q) { return IEEEFloat::from_ratio(q, {15, 112}, modes[2]); };
  const QNumber y = QNumber::scaled(1, -63) + 1;
  const IEEEFloat x = value(y + QNumber::scaled(1, -100));
  EXPECT_EQ((x * value(y)).to_number(),
            QNumber::scaled(1, -112) + QNumber::scaled(1, -100) + 1 + QNumber::scaled(1, -62));
}
