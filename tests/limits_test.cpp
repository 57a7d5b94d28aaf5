// Sizes: nothing that a caller can ask for reaches GMP's own limit, where the process would end.
// Linked against a library whose limit is low, so that the borders can be walked on.
#include <limits>

#include "tests/support.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)
using zelk::BVNumber;

static constexpr auto up = IEEEFloat::ROUND_TOWARD_POSITIVE;
static constexpr unsigned long top = 200000;

static const char* limit(const QNumber& /*x*/) { return "Exception: number too large"; }
static const char* limit(const IEEEFloat& /*x*/) { return "reached limit on float precision"; }

// Whether the expression of a number or value x throws for its size; x is then what it was.
#define REFUSED(value, ...) (TRIED(value, __VA_ARGS__) == limit(value))

TEST(Limits, NumbersRefuseToGrowAndKeepTheirValue) {
  ASSERT_EQ(zelk::max_bits, top);
  const QNumber zero, seven = 7, largest = power(top - 1);  // a number of max_bits bits
  for (const unsigned long k : {top, top + 1, 1UL << 37, 1UL << 63, ~0UL}) {
    EXPECT_TRUE(REFUSED(seven, BVNumber::pow2(k, &x)) &&
                REFUSED(seven, BVNumber::bit_left_shift(x, k, &x)) &&
                REFUSED(largest, BVNumber::bit_left_shift(x, k, &x)) &&
                REFUSED(seven, BVNumber::set_bit(x, k, true)) &&
                REFUSED(-seven, BVNumber::set_bit(x, k, false)));
    EXPECT_FALSE(REFUSED(zero, BVNumber::bit_left_shift(x, k, &x)) ||
                 REFUSED(seven, BVNumber::set_bit(x, k, false)) ||
                 REFUSED(seven, BVNumber::trim(x, k)));
    EXPECT_EQ(REFUSED(-seven, BVNumber::trim(x, k)), k > top);
  }
  const QNumber half = power(150000), tiny = half.inv(), third(mpq_class(1, 3));
  const QNumber thirds(1, mpz_class(std::string(30000, '3')));
  EXPECT_TRUE(REFUSED(largest, x += x) && REFUSED(largest, x *= x) && REFUSED(largest, x += third));
  EXPECT_TRUE(REFUSED(tiny, x *= x) && REFUSED(tiny, x -= power(100000)));
  EXPECT_TRUE(REFUSED(tiny, x += thirds) && REFUSED(half * third, x *= x));
  EXPECT_TRUE(REFUSED(zero, QNumber(largest.to_mpq() * 2 / 3)) &&
              REFUSED(zero, QNumber(1 / largest.to_mpq() / 2)));
  EXPECT_TRUE(REFUSED((power(top - 3) - 1) / 3, x += (power(top - 2) - 1) / 5) &&
              REFUSED((power(top / 2) - 1).inv(), x += (power(top / 2 + 1) - 1).inv()));
  // -2^max_bits, which cleared bits leave of negative numbers, has one bit more.
  EXPECT_TRUE(
      REFUSED(QNumber(1 - pow2(top), 1),
              BVNumber::bit_op(x, QNumber(2 - pow2(top), 1), BVNumber::bit_and_l, mpz_and, &x)));
  for (const unsigned long k : {0UL, 1UL, 64UL, top - 1}) {
    const QNumber last(pow2(k) - pow2(top), 1), more = k == 0 ? last + 2 : last + 1;
    EXPECT_TRUE(REFUSED(last, BVNumber::set_bit(x, k, false)));
    EXPECT_FALSE(REFUSED(more, BVNumber::set_bit(x, k, false)));
  }
  // The last that fit.
  for (const unsigned long k : {0UL, 1UL}) {
    EXPECT_EQ(REFUSED(power(top - 3 + k).inv(), x += third), k == 1);
    EXPECT_EQ(REFUSED(power(top - 3 + k) / 3, x *= QNumber(2, 5)), k == 1);
    EXPECT_EQ(REFUSED(3 / power(top - 3 + k), x *= QNumber(5, 2)), k == 1);
    const auto value = IEEEFloat::from_scaled(power(100) + 1, top - 102 + k, {20, 100}, up);
    EXPECT_EQ(REFUSED(value, x.to_number()), k == 1);
    const auto n = static_cast<long>(top + k);
    for (const long e : {1 - n, n - 65}) {
      EXPECT_EQ(REFUSED(zero, x = QNumber::scaled((1L << 62) + 1, e < 0 ? e : e + 2)), k == 1);
      EXPECT_EQ(REFUSED(zero, x = QNumber::scaled(std::data({1UL, 1UL}), 2, true, e)), k == 1);
    }
  }
  const std::string digits(top / 4, '1');
  EXPECT_TRUE(REFUSED(seven, x = x.from_text(digits + '1')) &&
              REFUSED(IEEEFloat(), x = x.from_text(digits + '1', {5, 10}, up)));
  EXPECT_FALSE(REFUSED(seven, x = x.from_text(digits)) ||
               REFUSED(seven, x = x.from_text("0x1p199998")) ||
               REFUSED(IEEEFloat(), x = x.from_text(digits, {5, 10}, up)) ||
               REFUSED(IEEEFloat(), x = x.from_text("1e-80000", {20, 10}, up)) ||
               REFUSED(half, x *= tiny) || REFUSED(power(70), x = tiny) ||
               REFUSED(largest, x -= x) || REFUSED(seven, BVNumber::set_bit(x, top - 1, true)) ||
               REFUSED(-seven, BVNumber::set_bit(x, top - 1, false)));
  EXPECT_TRUE(tiny < third && third < largest && !(largest < tiny));
}

TEST(Limits, FormatsOfAnyWidthAnswerOrThrow) {
  for (const unsigned long w : {top - 6, top - 5, top, 1UL << 37, 1UL << 63, ~0UL - 1, ~0UL}) {
    for (const Format f : {Format{w, 5}, {5, w}, {w, w}, {top / 2, top / 2}}) {
      const IEEEFloat zero(f, up);
      QNumber n = 1;
      // Widths from 2^63 on are negative numbers, cast, and no formats for arithmetic.
      const bool negative = std::max(f.exp_width, f.mant_width) >> 63 != 0;
      const auto is_refusal = [&](const std::string& text) {
        return text == limit(zero) || (negative && text.starts_with("format without arithmetic"));
      };
      for (std::size_t i = first_sized; i < first_of_g; ++i) {
        EXPECT_TRUE(is_refusal(TRIED(zero, calls[i](x, zero, {5, 10}, n)))) << i;
      }
      for (std::size_t i = 0; i < std::size(environment_calls); ++i) {
        // Such a format has +0 only, which has a class and an order. Factories make values of g.
        const bool answers = i == 16 || i == 17 || i == 21 || i == 22 || (i >= 39 && i <= 43);
        const std::string text = TRIED(zero, environment_calls[i](x, zero, {5, 10}, n));
        EXPECT_EQ(is_refusal(text), !answers) << i << text;
      }
      EXPECT_TRUE(REFUSED(IEEEFloat({8, 23}, up), x.set_format(f)) &&
                  is_gt(compare(IEEEFloat::max_value({8, 23}), zero)));
      EXPECT_EQ(REFUSED(IEEEFloat(), f.bias()), f.exp_width > top);
      EXPECT_EQ(REFUSED(IEEEFloat(), f.max_exponent()), f.exp_width >= top);
      EXPECT_EQ(REFUSED(IEEEFloat(), f.max_mantissa()), f.mant_width >= top);
    }
  }
  // Significands within the limit whose product, quotient or aligned sum is not.
  const Format wide{20, 150000};
  const IEEEFloat two = IEEEFloat::from_number(2, wide, up), max = IEEEFloat::max_value(wide);
  const IEEEFloat far = IEEEFloat::from_number(power(60000), wide, up);
  EXPECT_TRUE(REFUSED(two, x *= x) && REFUSED(two, x /= x) && REFUSED(two, x += far));
  EXPECT_FALSE(REFUSED(max, x += two));
  for (const unsigned long k : {top - 2, top - 1}) {  // a sum of exponents
    EXPECT_EQ(REFUSED(max, x = zelk::Environment().scale(x, power(k), {65, 10})), k == top - 1);
  }
  const IEEEFloat last = IEEEFloat::from_bits(1, {top - 3, 1});  // exponents with no room
  EXPECT_TRUE(REFUSED(last, x += x) && REFUSED(last, x.to_integer(9)));
}

TEST(Limits, WideExponentsCostNothingExtra) {
  for (const Format f : {Format{20, 4}, {40, 4}, {62, 1}, {63, 1}, {64, 4}}) {
    const mpz_class one = bits(IEEEFloat::from_number(1, f, up));
    const mpz_class minus_one = one + (mpz_class(1) << (f.exp_width + f.mant_width));
    const QNumber three_sevenths = f.mant_width < 4 ? QNumber(1) / 4 : QNumber(3) / 7;
    for (const auto rm : modes) {
      EXPECT_EQ(generic(f, rm, 3) / generic(f, rm, 7),
                IEEEFloat::from_ratio(three_sevenths, f, rm));
      const IEEEFloat v = generic(f, rm, one), tiny = generic(f, rm, 1);
      EXPECT_EQ(bits(v + tiny), one + (rm == 2 ? 1 : 0)) << name(v);
      EXPECT_EQ(bits(v - tiny), one - (rm == 1 || rm == 3 ? 1 : 0)) << name(v);
      EXPECT_EQ(bits(tiny - v), minus_one - (rm == 1 || rm == 2 ? 1 : 0)) << name(v);
      EXPECT_TRUE(bits(v + IEEEFloat(f, up)) == one && v.to_integer(3) == 1) << name(v);
      EXPECT_TRUE(REFUSED(tiny, x.to_number()));
      EXPECT_TRUE(f.exp_width > 63 || tiny.to_integer(0) + IEEEFloat(f, up).to_number() == 0);
    }
    const IEEEFloat huge = generic(f, up, bits(IEEEFloat::max_value(f)));
    const IEEEFloat smallest = generic(f, up, mpz_class(1) << f.mant_width);
    EXPECT_TRUE(REFUSED(huge, x.to_number()) && REFUSED(huge, x.to_integer(0)) &&
                REFUSED(huge, x.to_integer(~0UL)) && huge.to_integer(1000) == 0);
    mpz_class even = 300000 + f.mant_width;  // 2^m * 2^300001, of which the low 300002 bits are 0
    even = (even << f.mant_width) + (mpz_class(1) << (f.exp_width + f.mant_width - 1));
    EXPECT_EQ(generic(f, up, even).to_integer(300002), 0) << name(huge);
    EXPECT_EQ(REFUSED(huge, x += smallest), f.exp_width == 64);
    EXPECT_EQ(smallest.to_integer(8), f.exp_width == 64 ? 0 : 1);
  }
  const IEEEFloat v = IEEEFloat::from_number(power(63), {11, 52}, up);
  EXPECT_TRUE(v.to_integer(63) == 0 && v.to_integer(64) == power(63) &&
              v.to_integer(~0UL) == power(63));
}

TEST(Limits, TextsAreRefusedBeforeTheyAreBuilt) {
  const IEEEFloat half = IEEEFloat::from_ratio(QNumber(1) / 2, {5, 10}, up);
  constexpr auto whole = static_cast<long>(top);
  for (const long more : {0L, 1L, 1L << 40, std::numeric_limits<long>::max() - whole}) {
    EXPECT_EQ(REFUSED(half, to_fixed(x, whole - 2 + more)), more > 0);
    EXPECT_EQ(REFUSED(half, to_scientific(x, whole - 5 + more)), more > 0);
    EXPECT_EQ(REFUSED(half, to_hex(x, whole - 6 + more)), more > 0);
    EXPECT_EQ(REFUSED(IEEEFloat({5, 10}, up), to_fixed(x, whole - 2 + more)), more > 0);
  }
  char room[9];
  EXPECT_TRUE(REFUSED(half, to_chars(room, room, x, std::chars_format::fixed, 1 << 30)));
  EXPECT_EQ(to_fixed(IEEEFloat::from_scaled(1, whole - 20, {20, 4}, up), 20).size(), 60200 + 21);
  EXPECT_TRUE(REFUSED(IEEEFloat::from_scaled(1, whole - 20, {20, 4}, up), to_fixed(x, whole)));
  for (const char* sign : {"+", "-"}) {
    const IEEEFloat v =
        *sign == '+' ? IEEEFloat::max_value({62, 1}) : IEEEFloat::from_bits(1, {62, 1});
    EXPECT_TRUE(REFUSED(v, to_shortest(x)) && REFUSED(v, to_exact(x)) &&
                REFUSED(v, to_fixed(x, 1)) && REFUSED(v, to_scientific(x, 1)) &&
                REFUSED(v, to_hex(x)) && REFUSED(v, to_hex(x, 1)));
  }
  EXPECT_TRUE(REFUSED(IEEEFloat::max_value({64, 1}), to_hex(x, 1)));
  // A text of so many characters, and of one more.
  EXPECT_EQ(to_smtlib(IEEEFloat::max_value({15, top - 29})).size(), top);
  EXPECT_TRUE(REFUSED(IEEEFloat::max_value({15, top - 28}), to_smtlib(x)));
  for (const IEEEFloat& v : {half, IEEEFloat({5, 10}, up)}) {
    EXPECT_EQ(TRIED(v, to_fixed(x, -1)), "bad number of digits: -1");
    EXPECT_EQ(TRIED(v, to_scientific(x, 0)), "bad number of digits: 0");
    EXPECT_EQ(TRIED(v, to_hex(x, 0)), "bad number of digits: 0");
    const auto bad = static_cast<zelk::Rounding>(6);
    EXPECT_EQ(TRIED(v, to_fixed(x, 1, bad)), "bad rounding mode: 6");
    EXPECT_EQ(TRIED(v, to_scientific(x, 1, bad)), "bad rounding mode: 6");
    EXPECT_EQ(TRIED(v, to_hex(x, 1, bad)), "bad rounding mode: 6");
  }
}
