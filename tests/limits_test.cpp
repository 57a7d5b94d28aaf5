// Sizes: nothing that a caller can ask for reaches GMP's own limit, where the process would end.
// Linked against a library whose limit is low, so that the borders can be walked on.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support.h"

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)
using zelk::BVNumber;

const std::string too_large = "Exception: number too large";
const std::string limit = "reached limit on float precision";
const auto up = IEEEFloat::ROUND_TOWARD_POSITIVE;

QNumber power(unsigned long k) {
  QNumber q;
  BVNumber::pow2(k, &q);
  return q;
}

TEST(Limits, NumbersRefuseToGrowAndKeepTheirValue) {
  const unsigned long top = zelk::max_bits;
  ASSERT_EQ(top, 200000);
  const QNumber largest = power(top - 1);  // a number of max_bits bits
  EXPECT_EQ(BVNumber::bit_length(largest), top);
  const QNumber fraction = power(150000).inv();
  const QNumber third = QNumber(mpz_class(1), mpz_class(3));
  const auto refused = [](QNumber value, auto change) {
    const QNumber before = value;
    std::string text = message([&] { return change(value), 0; });
    EXPECT_EQ(value, before);
    return text;
  };
  for (const unsigned long k : {top, top + 1, 1UL << 37, 1UL << 63, ~0UL}) {
    EXPECT_EQ(refused(7, [&](QNumber& q) { BVNumber::pow2(k, &q); }), too_large);
    EXPECT_EQ(refused(7, [&](QNumber& q) { BVNumber::set_bit(q, k, true); }), too_large);
    EXPECT_EQ(refused(7, [&](QNumber& q) { BVNumber::bit_left_shift(q, k, &q); }), too_large);
    EXPECT_EQ(refused(largest, [&](QNumber& q) { BVNumber::bit_left_shift(q, k, &q); }), too_large);
    EXPECT_EQ(refused(-7, [&](QNumber& q) { BVNumber::set_bit(q, k, false); }), too_large);
    EXPECT_EQ(refused(7, [&](QNumber& q) { BVNumber::set_bit(q, k, false); }), "");
    EXPECT_EQ(refused(7, [&](QNumber& q) { BVNumber::trim(q, k); }), "");
    EXPECT_EQ(refused(0, [&](QNumber& q) { BVNumber::bit_left_shift(q, k, &q); }), "");
    EXPECT_EQ(refused(0, [&](QNumber& q) { BVNumber::bit_right_shift(q, k, &q); }), "");
    EXPECT_EQ(BVNumber::count_leading_zeros(7, k), k - 3);
    EXPECT_FALSE(BVNumber::test_bit(largest, k));
  }
  EXPECT_EQ(refused(-7, [&](QNumber& q) { BVNumber::trim(q, top + 1); }), too_large);
  EXPECT_EQ(refused(largest, [](QNumber& q) { q += q; }), too_large);
  EXPECT_EQ(refused(largest, [](QNumber& q) { q *= q; }), too_large);
  EXPECT_EQ(refused(largest, [&](QNumber& q) { q += third; }), too_large);
  EXPECT_EQ(refused(fraction, [&](QNumber& q) { q *= fraction; }), too_large);
  EXPECT_EQ(refused(fraction, [&](QNumber& q) { q -= power(100000); }), too_large);
  EXPECT_EQ(power(150000) * fraction, 1);
  EXPECT_EQ(message([&] { return QNumber(mpz_class(1) << top, 1); }), too_large);
  EXPECT_TRUE(fraction < third && third < largest && !(largest < fraction));
}

TEST(Limits, FormatsOfAnyWidthAnswerOrThrow) {
  const unsigned long top = zelk::max_bits;
  std::vector<Format> formats;
  for (const unsigned long w : {top - 5, top, 1UL << 37, 1UL << 63, ~0UL - 1, ~0UL}) {
    formats.insert(formats.end(), {{w, 5}, {5, w}, {w, w}});
  }
  formats.push_back({top / 2, top / 2});
  for (const Format f : formats) {
    IEEEFloat x(f, up);
    EXPECT_EQ(message([&] { return IEEEFloat::from_bits(0, f); }), limit);
    EXPECT_EQ(message([&] { return IEEEFloat::max_value(f); }), limit);
    EXPECT_EQ(message([&] { return IEEEFloat::from_number(1, f, up); }), limit);
    for (int op = 0; op < 4; ++op) {
      EXPECT_EQ(message([&] { return apply(op, x, x); }), limit);
    }
    EXPECT_EQ(message([&] { return x.self_nan(), 0; }), limit);
    EXPECT_EQ(message([&] { return x.set_sign(true), 0; }), limit);
    EXPECT_EQ(message([&] { return x.next_representable(true), 0; }), limit);
    EXPECT_EQ(message([&] { return x.packed_next(true), 0; }), limit);
    EXPECT_EQ(message([&] { return x.set_format({5, 10}), 0; }), limit);
    EXPECT_EQ(message([&] { return x < x; }), limit);
    EXPECT_EQ(message([&] { return x.to_number(); }), limit);
    EXPECT_EQ(message([&] { return x.to_integer(8); }), limit);
    EXPECT_EQ(message([&] { return x.to_str(); }), limit);
    IEEEFloat y = IEEEFloat::from_number(1, {8, 23}, up);
    EXPECT_EQ(message([&] { return y.set_format(f), 0; }), limit);
    EXPECT_TRUE(x.get_bits().is_zero() && x.get_format() == f && bits(y) == 0x3F800000);
    EXPECT_EQ(message([&] { return f.bias(); }), f.exp_width > top ? limit : "");
    EXPECT_EQ(message([&] { return f.max_exponent(); }), f.exp_width >= top ? limit : "");
    EXPECT_EQ(message([&] { return f.max_mantissa(); }), f.mant_width >= top ? limit : "");
  }
  // A significand within the limit whose product, quotient or aligned sum is not.
  const Format wide{20, 150000};
  IEEEFloat x = IEEEFloat::max_value(wide);
  x.set_mode(up);
  for (const int op : {2, 3}) {
    EXPECT_EQ(message([&] { return apply(op, x, x); }), limit);
  }
  EXPECT_EQ(message([&] { return x += IEEEFloat::from_number(1, wide, up); }), "");
  EXPECT_TRUE(x.is_inf());
}

TEST(Limits, DegenerateFormatsStaySafe) {
  for (const Format f : {Format{0, 0}, {0, 5}, {1, 0}, {1, 1}, {5, 0}, {8, 0}, {64, 0}}) {
    for (const auto repr :
         {IEEEFloat::REPR_FLOAT32, IEEEFloat::REPR_FLOAT64, IEEEFloat::REPR_GENERIC}) {
      for (unsigned long start = 0; start < 4; ++start) {
        IEEEFloat x(f, repr, up);
        const auto attempt = [&](auto change) { message([&] { return change(x), 0; }); };
        for (unsigned long i = 0; i < start; ++i) {
          attempt([](IEEEFloat& v) { v.packed_next(true); });
        }
        for (int op = 0; op < 4; ++op) {
          attempt([&](IEEEFloat& v) { apply(op, v, x); });
        }
        attempt([](IEEEFloat& v) { v.next_representable(false); });
        attempt([](IEEEFloat& v) { v.self_inf(true); });
        attempt([](IEEEFloat& v) { v.self_nan(); });
        attempt([](IEEEFloat& v) { v.to_integer(70); });
        attempt([](IEEEFloat& v) { v.to_number(); });
        EXPECT_FALSE(x.to_str().empty());
        attempt([](IEEEFloat& v) { v.set_format({5, 10}); });
        EXPECT_EQ(message([&] { return x.to_str(); }), "");
      }
    }
  }
  IEEEFloat x;
  x.set_format({5, 10});
  EXPECT_EQ(x.to_str(), "[5:10]0{0_00000_0000000000}");
}

TEST(Limits, WideExponentsCostNothingExtra) {
  for (const Format f : {Format{20, 4}, {40, 4}, {62, 1}, {63, 1}, {64, 4}}) {
    const IEEEFloat one = IEEEFloat::from_number(1, f, IEEEFloat::ROUND_NEAREST_EVEN);
    const IEEEFloat tiny = IEEEFloat::from_bits(1, f);
    IEEEFloat above = one;
    above.next_representable(true);
    IEEEFloat below = one;
    below.next_representable(false);
    for (const auto rm : modes) {
      IEEEFloat x = one;
      x.set_mode(rm);
      EXPECT_EQ(bits(x + tiny), bits(rm == up ? above : one));
      EXPECT_EQ(bits(x - tiny), bits(rm == 1 || rm == 3 ? below : one));
      IEEEFloat y = tiny;
      y.set_mode(rm);
      IEEEFloat minus = rm == 1 || rm == up ? below : one;
      minus.self_neg();
      EXPECT_EQ(bits(y - one), bits(minus));
      EXPECT_EQ(bits(x + IEEEFloat(f, up)), bits(one));
      EXPECT_EQ(message([&] { return tiny.to_number(); }), limit);
      EXPECT_EQ(x.to_integer(3), 1);
    }
    IEEEFloat huge = IEEEFloat::max_value(f);
    huge.set_mode(up);
    EXPECT_EQ(message([&] { return huge.to_number(); }), limit);
    EXPECT_EQ(message([&] { return huge.to_integer(0); }), limit);
    EXPECT_EQ(huge.to_integer(1000), 0);
    IEEEFloat small(f, up);  // the smallest normal value
    while (small.is_zero() || small.is_subnormal()) {
      small.next_representable(true);
    }
    EXPECT_EQ(small.to_integer(8), f.exp_width == 64 ? 0 : 1);
    if (f.exp_width < 64) {
      EXPECT_EQ(message([&] { return huge.to_integer(~0UL); }), limit);
      EXPECT_EQ(message([&] { return (huge + tiny).is_inf(); }), "");
    }
  }
  const IEEEFloat x = IEEEFloat::from_number(power(63), {11, 52}, up);
  EXPECT_EQ(x.to_integer(63), 0);
  EXPECT_EQ(x.to_integer(64), power(63));
  EXPECT_EQ(x.to_integer(~0UL), power(63));
  EXPECT_EQ(IEEEFloat::from_bits(1, {20, 4}).to_integer(5), 0);
}

}  // namespace
