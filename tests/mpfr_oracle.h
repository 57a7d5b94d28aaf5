// MPFR as an oracle of wide formats, with its exponent range set to the format's and its subnormal
// emulation.
#ifndef ZELK_TESTS_MPFR_ORACLE_H_
#define ZELK_TESTS_MPFR_ORACLE_H_

#include <mpfr.h>

#include <type_traits>
#include <vector>

#include "tests/environment_oracle.h"

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

/// Of results of MPFR: that of a format and a few digits more.
inline thread_local mpfr_prec_t mpfr_precision = 0;

/// What MPFR makes of operands of any exponents: the result cut off, and whether that is all.
template <auto function>
Exact by_mpfr(const Operands& v, Rounding d) {
  mpfr_t x[4];
  mpfr_inits2(mpfr_precision, x[0], x[1], x[2], x[3], nullptr);
  for (std::size_t i = 0; i < v.size(); ++i) {
    mpfr_set_z_2exp(x[i], v[i].q.get_num_mpz_t(), v[i].k, MPFR_RNDN);
    if (v[i].kind == Exact::infinite) mpfr_set_inf(x[i], 1);
    mpfr_setsign(x[i], x[i], static_cast<int>(v[i].negative), MPFR_RNDN);
  }
  mpfr_ptr r = x[3];
  const auto call = [&](mpfr_rnd_t rnd) {
    if constexpr (std::is_invocable_v<decltype(function), mpfr_ptr, mpfr_srcptr, mpfr_rnd_t>) {
      return function(r, x[0], rnd);
    } else if constexpr (std::is_invocable_v<decltype(function), mpfr_ptr, mpfr_srcptr, mpfr_srcptr,
                                             mpfr_rnd_t>) {
      return function(r, x[0], x[1], rnd);
    } else {
      return function(r, x[0], x[1], x[2], rnd);
    }
  };
  mpfr_clear_flags();
  Exact result{Exact::finite};
  result.sticky = call(MPFR_RNDZ) != 0;
  if (mpfr_zero_p(r) != 0 && d == Rounding::toward_negative) call(MPFR_RNDD);
  result.negative = mpfr_signbit(r) != 0;
  if (mpfr_nan_p(r) != 0) result = invalid_result();
  if (mpfr_inf_p(r) != 0) result.kind = Exact::infinite;
  if (mpfr_divby0_p() != 0) result.flags = pole;
  if (mpfr_regular_p(r) != 0) {
    result.k = mpfr_get_z_2exp(result.q.get_num_mpz_t(), r);
    result.q = abs(result.q);
  }
  mpfr_clears(x[0], x[1], x[2], x[3], nullptr);
  return result;
}

/// The operations of environments, by MPFR.
inline std::vector<Operation> mpfr_operations() {
  std::vector<Operation> by(std::begin(operations), std::end(operations));
  constexpr Exact (*meanings[])(const Operands&, Rounding) = {
      by_mpfr<mpfr_add>,       by_mpfr<mpfr_sub>,  by_mpfr<mpfr_mul>, by_mpfr<mpfr_div>,
      by_mpfr<mpfr_remainder>, by_mpfr<mpfr_fmod>, by_mpfr<mpfr_fma>, by_mpfr<mpfr_sqrt>};
  for (std::size_t i = 0; i < std::size(meanings); ++i) by[i].numbers = meanings[i];
  return by;
}

}  // namespace zelk_test

#endif  // ZELK_TESTS_MPFR_ORACLE_H_
