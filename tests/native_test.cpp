// The compiler's types, GMP's and MPFR's numbers, and keys.
#include "zelk/float/native.h"

#include <unordered_set>

#include "tests/mpfr_oracle.h"
#include "zelk/float/mpfr.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// There and back, pattern for pattern; the value against MPFR, from which it comes back as it was.
template <typename T>
static void check(Random& random) {
  constexpr Format f = zelk::native_format<T>;
  const Layout t(f);
  Mpfr want(f), got(f);
  for (int i = 0; i < 2000; ++i) {
    const mpz_class p = random.pattern(t);
    const bool nan = p % t.sign > t.inf;
    const IEEEFloat x = generic(f, modes[0], p);
    const T native = zelk::to_native<T>(x);
    EXPECT_EQ(zelk::from_native(native).get_bits().to_mpq(), nan ? t.nan : p);
    EXPECT_EQ(native != native, nan);
    if constexpr (sizeof(T) == 4 || sizeof(T) == 8) {
      EXPECT_TRUE(nan || p % t.sign == t.inf || mpq_class(native) == t.value(p)) << name(x);
    }
    zelk::to_mpfr(got.r, x);
    mpfr_set_z_2exp(want.r, t.significand(p).get_mpz_t(), t.exponent(p), MPFR_RNDN);
    if (p % t.sign == t.inf) mpfr_set_inf(want.r, p < t.sign ? 1 : -1);
    EXPECT_TRUE(nan ? mpfr_nan_p(got.r) : mpfr_equal_p(got.r, want.r)) << name(x);
    EXPECT_EQ(bits(zelk::from_mpfr(got.r, f, modes[0])), nan ? t.nan : p) << name(x);
  }
  EXPECT_EQ(TRIED(IEEEFloat({6, 9}, modes[0]), zelk::to_native<T>(x)), "format is not the type's");
}

TEST(Native, TypesOfTheCompiler) {
  Random random;
  check<float>(random);
  check<double>(random);
#ifdef ZELK_HAS_FLOAT128
  check<zelk::float128>(random);
#endif
#ifdef ZELK_HAS_FLOAT16
  check<zelk::float16>(random);
#endif
}

TEST(Native, GmpAndMpfr) {
  EXPECT_TRUE(zelk::from_mpz(pow2(70)) == power(70) && zelk::to_mpz(power(70)) == pow2(70));
  EXPECT_EQ(zelk::to_mpz(QNumber(-7) / 2), -3);
  Mpfr t({5, 199});
  mpfr_ptr a = t.r;
  mpfr_set_ui_2exp(a, 2049, -11, MPFR_RNDN);  // 1 and half an ulp of half precision
  EXPECT_EQ(bits(zelk::from_mpfr(a, {5, 10}, modes[0])), 0x3C00);
  EXPECT_EQ(bits(zelk::from_mpfr(a, {5, 10}, modes[2])), 0x3C01);
  const std::string beyond = "value is beyond MPFR's range";
  mpfr_clear_flags();
  mpfr_set_emin(-100);
  mpfr_set_emax(100);
  for (const long k : {-102, -101, 99, 100}) {  // 1.5 * 2^k; the least is rounded up by MPFR
    mpfr_set_ui(a, 7, MPFR_RNDN);
    const std::string text =
        TRIED(IEEEFloat::from_scaled(3, k - 1, {8, 23}, modes[0]), zelk::to_mpfr(a, x));
    EXPECT_EQ(text, k == -101 || k == 99 ? "" : beyond) << k;
    EXPECT_EQ(mpfr_cmp_ui(a, 7) == 0, text == beyond) << k;
  }
  zelk::to_mpfr(a, IEEEFloat::from_text("nan", {8, 23}, modes[0]));
  EXPECT_EQ(mpfr_flags_save(), 0U);
  mpfr_set_emin(mpfr_get_emin_min());
  mpfr_set_emax(mpfr_get_emax_max());
  mpfr_set_prec(a, 200);
  mpfr_set_ui_2exp(a, 2049, -11, MPFR_RNDN);
  EXPECT_EQ(TRIED(IEEEFloat({5, 1UL << 61}, modes[0]), zelk::to_mpfr(a, x)), beyond);
  EXPECT_TRUE(mpfr_get_prec(a) == 200 && mpfr_cmp_ui_2exp(a, 2049, -11) == 0);
  const IEEEFloat far = IEEEFloat::from_scaled(3, power(36), {40, 10}, modes[0]);
  zelk::to_mpfr(a, far);
  EXPECT_TRUE(mpfr_cmp_ui_2exp(a, 3, 1L << 36) == 0);
  EXPECT_EQ(bits(zelk::from_mpfr(a, {40, 10}, modes[0])), bits(far));
}

TEST(Native, Keys) {
  const IEEEFloat packed({19, 236}, IEEEFloat::REPR_FLOAT32, modes[0]);
  EXPECT_TRUE(zelk::SamePattern()(packed, IEEEFloat(packed.get_format(), modes[0])));
  std::unordered_set<IEEEFloat, zelk::PatternHash, zelk::SamePattern> keys;
  const zelk::PatternHash hash;
  const IEEEFloat zero({5, 10}, modes[0]), other({8, 7}, modes[0]);
  EXPECT_TRUE(hash(zero) != hash(other) && !zelk::SamePattern()(zero, other));
  for (const Format f : {Format{5, 10}, {8, 23}, {15, 112}, {19, 236}}) {
    IEEEFloat x(f, modes[0]);
    for (int i = 0; i < 3; ++i) {
      EXPECT_TRUE(keys.insert(x).second);
      IEEEFloat y = x;
      y.set_mode(modes[2]);
      y.self_specialize_repr(IEEEFloat::REPR_GENERIC);
      EXPECT_FALSE(keys.insert(y).second) << name(y);
      i == 0 ? x.self_nan() : x.self_zero(true);
    }
  }
}
