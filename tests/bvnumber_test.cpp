// Bit operations against GMP integers, for operands of both signs in both forms: the value and
// the form of every result.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support.h"

using zelk::BVNumber;
using zelk::QNumber;

static mpz_class pow2(unsigned k) { return mpz_class(1) << k; }
static bool fits(const mpz_class& z) { return abs(z) < pow2(63); }

TEST(BVNumber, EveryOperationMatchesGmp) {
  constexpr unsigned counts[] = {0, 1, 5, 31, 60, 61, 62, 63, 64, 65, 80, 127, 128, 200};
  std::vector<mpz_class> integers{0};
  for (const unsigned k : counts)
    for (int d = -1; d <= 1; ++d) integers.insert(integers.end(), {pow2(k) + d, -pow2(k) - d});
  for (std::size_t i = 0; i < 2 * integers.size(); ++i) {
    const mpz_class& z = integers[i / 2];
    QNumber a(pow2(i % 2 * 100), 1);
    a = fits(z) ? QNumber(z.get_si()) : QNumber(z, 1);
    const bool small = a.is_small();
    ASSERT_EQ(small, i % 2 == 0 && fits(z));

    // A small target's result is small when `form` is; a big target stays big.
    const auto expect = [&](const char* what, bool form, const mpz_class& want, auto operation) {
      QNumber out, big_out(pow2(100), 1);
      operation(&out);
      operation(&big_out);
      EXPECT_TRUE(out.to_mpq() == want && out.is_small() == form && big_out.to_mpq() == want &&
                  !big_out.is_small())
          << what << " gives " << out << " and " << big_out << ", wanted " << want << ", a = " << z;
    };
#define EXPECT_OUT(form, want, ...) \
  expect(#__VA_ARGS__, form, want, [&](QNumber* out) { __VA_ARGS__; })
    for (const unsigned k : counts) {
      SCOPED_TRACE(k);
      mpz_class want = z << k;
      EXPECT_OUT(k <= 62, pow2(k), BVNumber::pow2(k, out));
      EXPECT_OUT(fits(want) && (small || k > 0), want, BVNumber::bit_left_shift(a, k, out));
      want = pow2(k) - z;
      EXPECT_OUT(small && k <= 62 && fits(want), want, BVNumber::neg(k, a, out));
      mpz_fdiv_q_2exp(want.get_mpz_t(), z.get_mpz_t(), k);
      EXPECT_OUT(small, want, *out = a, BVNumber::bit_right_shift(*out, k, out));
      mpz_fdiv_r_2exp(want.get_mpz_t(), z.get_mpz_t(), k);
      EXPECT_OUT(small && (z >= 0 || k <= 63), want, *out = a, BVNumber::trim(*out, k));
      for (const bool bit : {false, true}) {
        want = z;
        (bit ? mpz_setbit : mpz_clrbit)(want.get_mpz_t(), k);
        const bool form = small && (want == z || (z >= 0 && k <= 62));
        EXPECT_OUT(form, want, *out = a, BVNumber::set_bit(*out, k, bit));
      }
      const unsigned long length = z == 0 ? 0 : mpz_sizeinbase(z.get_mpz_t(), 2);
      EXPECT_EQ(BVNumber::bit_length(a), length) << z;
      EXPECT_EQ(BVNumber::count_leading_zeros(a, k), z < 0 || length > k ? 0 : k - length) << z;
      EXPECT_EQ(BVNumber::test_bit(a, k), mpz_tstbit(z.get_mpz_t(), k) != 0) << z;
      EXPECT_EQ(BVNumber::lowest_one(a, k), mpz_scan1(z.get_mpz_t(), k)) << z;
      EXPECT_EQ(BVNumber::lowest_zero(a, k), mpz_scan0(z.get_mpz_t(), k)) << z;
    }
    for (const mpz_class& y : integers) {
      const QNumber b(y, 1);
      const bool form = small && b.is_small() && fits(z & y);
      EXPECT_OUT(form, z & y, BVNumber::bit_op(a, b, BVNumber::bit_and_l, mpz_and, out));
    }
    EXPECT_EQ(BVNumber::low_word(a), mpz_class(z & (pow2(64) - 1)).get_ui()) << z;
  }
}
