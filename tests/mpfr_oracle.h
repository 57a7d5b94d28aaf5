// MPFR as an oracle of wide formats.
#ifndef ZELK_TESTS_MPFR_ORACLE_H_
#define ZELK_TESTS_MPFR_ORACLE_H_

#include <mpfr.h>

#include <type_traits>
#include <vector>

#include "tests/environment_oracle.h"

namespace zelk_test {

/// A number of MPFR's with the precision of a format.
struct Mpfr {
  mpfr_t r;

  explicit Mpfr(Format f = {5, 10}) { mpfr_init2(r, static_cast<mpfr_prec_t>(f.mant_width) + 1); }
  Mpfr(const Mpfr&) = delete;
  Mpfr& operator=(const Mpfr&) = delete;
  ~Mpfr() { mpfr_clear(r); }
};

/// A number that may lack less than its last digit.
inline Exact cut_off(mpfr_srcptr r, bool sticky) {
  Exact x{.kind = Exact::finite, .negative = mpfr_signbit(r) != 0, .sticky = sticky};
  if (mpfr_inf_p(r) != 0) x.kind = Exact::infinite;
  if (mpfr_regular_p(r) != 0) {
    x.k = mpfr_get_z_2exp(x.q.get_num_mpz_t(), r);
    x.q = abs(x.q);
  }
  if (mpfr_zero_p(r) != 0 && sticky) x.q = 1, x.k = mpfr_get_emin() - 2;
  return mpfr_nan_p(r) != 0 ? invalid_result() : x;
}

/// Of results of MPFR: that of a format and a few digits more.
inline thread_local mpfr_prec_t mpfr_precision = 0;

/// What MPFR makes of operands of any exponents: the result cut off, and whether that is all.
template <auto function>
Exact by_mpfr(const Operands& v, Rounding d) {
  mpfr_set_emin(mpfr_get_emin_min());
  mpfr_set_emax(mpfr_get_emax_max());
  thread_local Mpfr numbers[4];
  for (Mpfr& x : numbers) mpfr_set_prec(x.r, mpfr_precision);
  for (std::size_t i = 0; i < v.size(); ++i) {
    mpfr_ptr x = numbers[i].r;
    mpfr_set_z_2exp(x, v[i].q.get_num_mpz_t(), v[i].k, MPFR_RNDN);
    if (v[i].kind == Exact::infinite) mpfr_set_inf(x, 1);
    mpfr_setsign(x, x, static_cast<int>(v[i].negative), MPFR_RNDN);
  }
  mpfr_ptr r = numbers[3].r, x = numbers[0].r, y = numbers[1].r;
  const auto call = [&](mpfr_rnd_t rnd) {
    if constexpr (std::is_invocable_v<decltype(function), mpfr_ptr, mpfr_srcptr, mpfr_rnd_t>) {
      return function(r, x, rnd);
    } else if constexpr (std::is_invocable_v<decltype(function), mpfr_ptr, mpfr_srcptr, mpfr_srcptr,
                                             mpfr_rnd_t>) {
      return function(r, x, y, rnd);
    } else {
      return function(r, x, y, numbers[2].r, rnd);
    }
  };
  mpfr_clear_flags();
  const bool sticky = call(MPFR_RNDZ) != 0;
  if (mpfr_zero_p(r) != 0 && !sticky && d == Rounding::toward_negative) call(MPFR_RNDD);
  Exact result = cut_off(r, sticky);
  if (mpfr_divby0_p() != 0) result.flags = pole;
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

/// Every check of values of one format: of packed words and generic values, and of operands that
/// are one value.
void check_all(const Target& t, const Target& to, auto& patterns) {
  static const std::vector<Operation> by = mpfr_operations();
  mpfr_precision = t.m + 9;
  const unsigned long kind = patterns.below(256);
  const mpz_class p = patterns.pattern(t);
  IEEEFloat x = generic(t.f, modes[kind % 4], p);
  IEEEFloat y = kind < 8 ? x : generic(t.f, modes[0], patterns.pattern(t));
  for (const auto repr : {IEEEFloat::REPR_GENERIC, IEEEFloat::get_best_repr(t.f)}) {
    x.self_specialize_repr(repr);
    y.self_specialize_repr(repr);
    ASSERT_EQ(bits(x), p);
    check_pair(t, by, x, kind < 4 ? x : y);
    check_conversion(t, to, x);
    if (kind / 4 % 16 == 0) check_value(t, x);
  }
}

}  // namespace zelk_test

#endif  // ZELK_TESTS_MPFR_ORACLE_H_
