// Bit operations against GMP integers, for operands of both signs and both forms.
#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "tests/support.h"
#include "zelk/zelk.h"

namespace {

using zelk::BVNumber;
using zelk::QNumber;

mpz_class value(const QNumber& q) { return q.to_mpq().get_num(); }

TEST(BVNumber, EveryOperationMatchesGmp) {
  std::vector<mpz_class> integers{0};
  for (const unsigned k : {0U, 1U, 5U, 31U, 61U, 62U, 63U, 64U, 65U, 70U, 127U, 200U}) {
    for (int d = -1; d <= 1; ++d) {
      const mpz_class n = (mpz_class(1) << k) + d;
      integers.push_back(n);
      integers.emplace_back(-n);
    }
  }
  const std::vector<unsigned long> counts = {0,  1,  2,  8,  31,  32,  60,  61,  62,
                                             63, 64, 65, 80, 127, 128, 199, 200, 256};
  for (const mpz_class& z : integers) {
    for (int form = 0; form < 2; ++form) {
      QNumber a(z, 1);
      if (form == 0 && abs(z) < mpz_class(1) << 63) {
        a = QNumber(z.get_si());
      }
      for (const unsigned long k : counts) {
        const std::string what = z.get_str() + ", " + std::to_string(k);
        const mpz_class power = mpz_class(1) << k;
        QNumber small_out;
        QNumber big_out(mpz_class(1) << 100, 1);
        const auto expect = [&](auto operation, const mpz_class& want, const char* name) {
          for (QNumber* out : {&small_out, &big_out}) {
            operation(out);
            EXPECT_EQ(value(*out), want) << name << ' ' << what;
            EXPECT_TRUE(out->is_integer());
          }
          EXPECT_FALSE(big_out.is_small()) << name << ' ' << what;
        };
        mpz_class want;
        expect([&](QNumber* out) { BVNumber::pow2(k, out); }, power, "pow2");
        EXPECT_EQ(small_out.is_small(), k <= 62);
        small_out = QNumber();
        expect([&](QNumber* out) { BVNumber::bit_left_shift(a, k, out); }, z * power, "<<");
        mpz_fdiv_q_2exp(want.get_mpz_t(), z.get_mpz_t(), k);
        expect([&](QNumber* out) { BVNumber::bit_right_shift(a, k, out); }, want, ">>");
        expect([&](QNumber* out) { BVNumber::neg(k, a, out); }, power - z, "neg");
        mpz_fdiv_r_2exp(want.get_mpz_t(), z.get_mpz_t(), k);
        expect([&](QNumber* out) { *out = a, BVNumber::trim(*out, k); }, want, "trim");
        for (const bool bit : {false, true}) {
          want = z;
          (bit ? mpz_setbit : mpz_clrbit)(want.get_mpz_t(), k);
          expect([&](QNumber* out) { *out = a, BVNumber::set_bit(*out, k, bit); }, want, "set_bit");
        }
        const unsigned long length = z == 0 ? 0 : mpz_sizeinbase(z.get_mpz_t(), 2);
        EXPECT_EQ(BVNumber::count_leading_zeros(a, k), z < 0 || length > k ? 0 : k - length)
            << what;
        EXPECT_EQ(BVNumber::bit_length(a), length) << what;
        EXPECT_EQ(BVNumber::test_bit(a, k), mpz_tstbit(z.get_mpz_t(), k) != 0) << what;
        EXPECT_EQ(BVNumber::lowest_one(a), mpz_scan1(z.get_mpz_t(), 0)) << what;
        EXPECT_EQ(BVNumber::lowest_zero(a, k), mpz_scan0(z.get_mpz_t(), k)) << what;
      }
      for (const mpz_class& y : integers) {
        QNumber out;
        BVNumber::bit_op(a, QNumber(y, 1), BVNumber::bit_and_l, mpz_and, &out);
        EXPECT_EQ(value(out), mpz_class(z & y)) << z << " and " << y;
      }
      QNumber shifted = a;
      BVNumber::bit_left_shift(shifted, 7, &shifted);
      EXPECT_EQ(value(shifted), z * 128);
      EXPECT_EQ(BVNumber::low_word(a), mpz_class(z & mpz_class("18446744073709551615")).get_ui());
    }
  }
}

TEST(BVNumber, FormsAtTheBorderOfTheWord) {
  QNumber n = 5;
  BVNumber::set_bit(n, 100, false);
  EXPECT_TRUE(n.is_small());
  BVNumber::set_bit(n, 63, true);
  EXPECT_FALSE(n.is_small());
  const auto shifted = [](long a, unsigned long k) {
    QNumber out;
    BVNumber::bit_left_shift(a, k, &out);
    return out.is_small();
  };
  EXPECT_TRUE(shifted(1, 62) && shifted(3, 61));
  EXPECT_FALSE(shifted(4, 61) || shifted(1L << 62, 1));
  QNumber out(mpz_class(1) << 100, 1);
  QNumber small;
  BVNumber::bit_left_shift(out - out, 5, &small);  // a big 0 gives a small one
  EXPECT_TRUE(small.is_small());
}

}  // namespace
