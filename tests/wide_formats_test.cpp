// Wide and hardware formats, generic and packed, against MPFR.
#include <vector>

#include "tests/mpfr_oracle.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

TEST(WideFormats, ValuesPairsConversionsAndNumbersMatchMpfr) {
  std::vector<Mpfr> oracles(std::begin(wide_formats), std::end(wide_formats));
  Random random;
  for (Mpfr& t : oracles) {
    for (unsigned long i = 0; i < rounds(); ++i) {
      check_all(t, oracles[i % oracles.size()], random);
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
