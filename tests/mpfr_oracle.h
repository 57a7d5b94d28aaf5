// MPFR as an oracle of wide formats, with its exponent range set to the format's and its subnormal
// emulation.
#ifndef ZELK_TESTS_MPFR_ORACLE_H_
#define ZELK_TESTS_MPFR_ORACLE_H_

#include <mpfr.h>

#include "tests/support.h"

namespace zelk_test {

inline constexpr mpfr_rnd_t directions[] = {MPFR_RNDN, MPFR_RNDZ, MPFR_RNDU, MPFR_RNDD};

inline void set_range(long emin, long emax) {
  mpfr_set_emin(emin);
  mpfr_set_emax(emax);
}

// MPFR as an arithmetic of one format: rounded to its precision first, then to its range. For
// e = 63 MPFR refuses to set that: such operands are kept to the middle.
struct Mpfr : Layout {
  mpfr_t a, b, r;

  explicit Mpfr(Format format) : Layout(format) {
    mpfr_inits2(static_cast<mpfr_prec_t>(f.mant_width) + 1, a, b, r, nullptr);
    set_range(mpfr_get_emin_min(), mpfr_get_emax_max());
  }
  Mpfr(const Mpfr&) = delete;
  Mpfr& operator=(const Mpfr&) = delete;
  ~Mpfr() { mpfr_clears(a, b, r, nullptr); }

  mpz_class operate(int op, const mpz_class& x, const mpz_class& y, unsigned rm) {
    constexpr decltype(&mpfr_add) functions[] = {mpfr_add, mpfr_sub, mpfr_mul, mpfr_div};
    decode(a, x);
    decode(b, y);
    return encode(functions[op](r, a, b, directions[rm]), rm);
  }

  mpz_class convert(Mpfr& from, const mpz_class& x, unsigned rm) {
    from.decode(from.a, x);
    return encode(mpfr_set(r, from.a, directions[rm]), rm);
  }

  mpz_class integer(const mpz_class& n, unsigned rm) {
    return encode(mpfr_set_z(r, n.get_mpz_t(), directions[rm]), rm);
  }

  void decode(mpfr_ptr x, const mpz_class& p) const {
    mpfr_set_z_2exp(x, significand(p).get_mpz_t(), exponent(p), MPFR_RNDN);
    if (p % sign == inf) mpfr_set_inf(x, 1);
    if (p % sign > inf) mpfr_set_nan(x);
    mpfr_setsign(x, x, static_cast<int>(p >= sign), MPFR_RNDN);
  }

  mpz_class encode(int ternary, unsigned rm) {
    set_range(exponent(0) + 1, 1L << (f.exp_width - 1));
    mpfr_subnormalize(r, mpfr_check_range(r, ternary, directions[rm]), directions[rm]);
    set_range(mpfr_get_emin_min(), mpfr_get_emax_max());
    mpz_class p = mpfr_inf_p(r) != 0 ? inf : mpz_class(0);
    if (mpfr_regular_p(r) != 0) {
      // r = p * 2^(exponent(0) + k) with p of exactly the precision; subnormals give bits back.
      const long k = mpfr_get_z_2exp(p.get_mpz_t(), r) - exponent(0);
      p = abs(p);
      p = k < 0 ? mpz_class(p >> static_cast<unsigned long>(-k)) : mpz_class(p + k * hidden);
    }
    return mpfr_nan_p(r) != 0 ? nan : mpfr_signbit(r) != 0 ? mpz_class(p + sign) : p;
  }
};

// Numerator and denominator are rounded on their own, then divided.
void check_number(Mpfr& t, auto& patterns, IEEEFloat::rounding_mode rm) {
  const Layout wider({9, 2 * t.f.mant_width});
  const mpq_class divisor = wider.value(patterns.pattern(wider));
  const mpq_class q =
      wider.value(patterns.pattern(wider)) / (divisor == 0 ? mpq_class(1) : divisor);
  const mpz_class numerator = t.integer(q.get_num(), rm);
  const IEEEFloat r = IEEEFloat::from_number(QNumber(q), t.f, rm);
  ASSERT_BITS(r, t.operate(3, numerator, t.integer(q.get_den(), rm), rm)) << std::dec << q;
  ASSERT_TRUE(r.get_mode() == rm && r.get_repr() == IEEEFloat::get_best_repr(t.f) &&
              (r.get_bits().is_small() || t.sign >= pow2(62)));
}

/// Every check of values of one format: of packed words and generic values, and of operands that
/// are one value.
void check_all(Mpfr& t, Mpfr& to, auto& patterns) {
  const unsigned long kind = patterns.below(256);
  const mpz_class p = patterns.pattern(t);
  IEEEFloat x = generic(t.f, modes[kind % 4], p);
  IEEEFloat y = kind < 8 ? x : generic(t.f, modes[0], patterns.pattern(t));
  for (const auto repr : {IEEEFloat::REPR_GENERIC, IEEEFloat::get_best_repr(t.f)}) {
    x.self_specialize_repr(repr);
    y.self_specialize_repr(repr);
    ASSERT_EQ(bits(x), p);
    check_pair(t, x, kind < 4 ? x : y);
    check_conversion(t, to, x);
    if (kind / 4 % 16 != 0) continue;
    check_value(t, x);
    check_number(t, patterns, x.get_mode());
  }
}

}  // namespace zelk_test

#endif  // ZELK_TESTS_MPFR_ORACLE_H_
