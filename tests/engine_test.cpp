// The rounding engine itself: exponents that no value has, and what is left behind by a throw.
#include <gtest/gtest.h>

#include "tests/support.h"
#include "zelk/float/rounding.h"

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)
using zelk::TempNumProvider;

QNumber power(unsigned long k) {
  QNumber q;
  zelk::BVNumber::pow2(k, &q);
  return q;
}

struct Engine {
  QNumber out = 12345;
  std::string error;
  Engine(Format f, unsigned rm, bool sign, const QNumber& exp, const QNumber& mant) {
    TempNumProvider tp;
    tp.exp1 = exp;
    tp.mant1 = mant;
    error = message([&] {
      zelk::round_and_pack_float(tp, f, static_cast<IEEEFloat::rounding_mode>(rm), sign, tp.exp1,
                                 tp.mant1, out);
      return 0;
    });
  }
};

TEST(Engine, NamedRoundings) {
  struct {
    long mant, exp;
    bool sign;
    unsigned long want[4];  // by mode
  } const rows[] = {
      {1, 10, false, {0x3C00, 0x3C00, 0x3C00, 0x3C00}},
      {2049, 10, false, {0x6800, 0x6800, 0x6801, 0x6800}},
      {2051, 10, false, {0x6802, 0x6801, 0x6802, 0x6801}},
      {4095, 10, false, {0x6C00, 0x6BFF, 0x6C00, 0x6BFF}},
      {65519, 10, false, {0x7BFF, 0x7BFF, 0x7C00, 0x7BFF}},
      {65520, 10, false, {0x7C00, 0x7BFF, 0x7C00, 0x7BFF}},
      {-65536, 10, false, {0xFC00, 0xFBFF, 0xFBFF, 0xFC00}},
      {65536, 10, true, {0xFC00, 0xFBFF, 0xFBFF, 0xFC00}},
      {1, -14, false, {1, 1, 1, 1}},
      {1, -15, false, {0, 0, 1, 0}},
      {1, -15, true, {0x8000, 0x8000, 0x8000, 0x8001}},
      {3, -16, false, {1, 0, 1, 0}},
      {2047, -15, false, {0x0400, 0x03FF, 0x0400, 0x03FF}},
      {0, 99, true, {0x8000, 0x8000, 0x8000, 0x8000}},
      {-3, 10, false, {0xC200, 0xC200, 0xC200, 0xC200}},
      {1, -100000, true, {0x8000, 0x8000, 0x8000, 0x8001}},
  };
  for (const auto& row : rows) {
    for (unsigned rm = 0; rm < 4; ++rm) {
      EXPECT_EQ(Engine({5, 10}, rm, row.sign, row.exp, row.mant).out, row.want[rm])
          << row.mant << " * 2^" << row.exp - 10 << " mode " << rm;
    }
  }
  EXPECT_EQ(Engine({8, 23}, 0, false, 23, 16777217).out, 0x4B800000);
  EXPECT_EQ(Engine({8, 23}, 0, false, 23, 16777219).out, 0x4B800002);
}

TEST(Engine, ExponentsOfAnySize) {
  const QNumber far = power(70);
  EXPECT_EQ(Engine({5, 10}, 0, false, far, 1).out, 0x7C00);
  EXPECT_EQ(Engine({5, 10}, 1, true, far, 1).out, 0xFBFF);
  for (const QNumber& exp : {-far, -power(64)}) {
    const Engine e({5, 10}, 0, false, exp, 1);
    EXPECT_EQ(e.error, "reached limit on float precision");
    EXPECT_EQ(e.out, 12345);
  }
  // The longest shift that is still made: everything is below the sticky bit.
  const QNumber longest = -power(63) + 1 - 14;  // 1 - bias - exp = 2^63 - 1
  EXPECT_EQ(Engine({5, 10}, 2, false, longest, 1).out, 1);
  EXPECT_EQ(Engine({5, 10}, 0, false, longest - 1, 1).error, "reached limit on float precision");
  // An exponent field of 80 bits: 1 * 2^(2^78), and the same below the range.
  const Format wide{80, 4};
  EXPECT_EQ(Engine(wide, 0, false, power(78) + 4, 1).out * power(4).inv(), power(78) + wide.bias());
  EXPECT_EQ(Engine(wide, 0, false, power(79) + 4, 1).out, wide.max_exponent() * 16);
}

TEST(Engine, BadModesAreReportedBeforeAnythingIsWritten) {
  for (const auto& [mant, exp] : {std::pair{4097L, 10L}, {1L, -15L}, {65537L, 40L}}) {
    const Engine e({5, 10}, 7, false, exp, mant);
    EXPECT_EQ(e.error, "bad rounding mode: 7");
    EXPECT_EQ(e.out, 12345);
  }
  EXPECT_EQ(Engine({5, 10}, 7, false, 10, 4096).out, 0x6C00);
  EXPECT_EQ(Engine({5, 10}, 7, true, 40, 65536).out, 0xFC00);  // exact, overflows
}

// Scratch that a wide operation left in the big form serves narrow ones, whose results stay in
// words.
TEST(Engine, ScratchKeepsItsFormAndResultsTheirs) {
  IEEEFloat quad = IEEEFloat::max_value({15, 112});
  quad *= quad;
  EXPECT_FALSE(TempNumProvider().mant1.is_small() && quad.is_inf() && quad.get_bits().is_small());
  IEEEFloat x = IEEEFloat::from_number(3, {5, 10}, IEEEFloat::ROUND_NEAREST_EVEN);
  x *= x;
  x += x;
  x -= IEEEFloat::from_number(QNumber(7) / 2, {5, 10}, IEEEFloat::ROUND_NEAREST_EVEN);
  EXPECT_TRUE(x.get_bits().is_small());
  EXPECT_TRUE(x.to_number().is_small());
  EXPECT_EQ(x.to_number(), QNumber(29) / 2);
}

}  // namespace
