// The arithmetics that are compared, each with the same few operations on a value of its own.
//
// `load` takes a finite value over exactly; `equals` holds a result against ours. Every peer
// rounds to nearest-even.
#ifndef ZELK_BENCH_PEERS_H_
#define ZELK_BENCH_PEERS_H_

#include <mpfr.h>

#include <bit>
#include <boost/multiprecision/cpp_bin_float.hpp>
#include <string>

#include "zelk/zelk.h"

namespace zelk_bench {

using zelk::IEEEFloat;
using zelk::QNumber;
using Format = IEEEFloat::format;

struct Zelk {
  using Value = IEEEFloat;
  static constexpr const char* name = "zelk";
  static void enter(Format /*f*/) {}
  static Value load(const IEEEFloat& x) { return x; }
  static void add(Value& r, const Value& a, const Value& b) { (r = a) += b; }
  static void sub(Value& r, const Value& a, const Value& b) { (r = a) -= b; }
  static void mul(Value& r, const Value& a, const Value& b) { (r = a) *= b; }
  static void div(Value& r, const Value& a, const Value& b) { (r = a) /= b; }
  static void chain_add(Value& r, const Value& b) { r += b; }
  static void chain_mul(Value& r, const Value& b) { r *= b; }
  static bool less(const Value& a, const Value& b) { return a < b; }
  static void copy(Value& r, const Value& a) { r = a; }
  static bool equals(const Value& r, const IEEEFloat& x) { return r.get_bits() == x.get_bits(); }
};

/// MPFR as its users write it: three operands, then the calls that make the result the format's.
/// The exponent range is the process's; `enter` sets it.
struct Mpfr {
  struct Value {
    mpfr_t x;
    explicit Value(unsigned long precision) { mpfr_init2(x, static_cast<mpfr_prec_t>(precision)); }
    Value(const Value& other) : Value(static_cast<unsigned long>(mpfr_get_prec(other.x))) {
      mpfr_set(x, other.x, MPFR_RNDN);
    }
    Value& operator=(const Value&) = delete;
    ~Value() { mpfr_clear(x); }
  };
  static constexpr const char* name = "mpfr";
  static void enter(Format f) {
    const long emax = 1L << (f.exp_width - 1);
    mpfr_set_emin(3 - emax - static_cast<long>(f.mant_width));
    mpfr_set_emax(emax);
  }
  static Value load(const IEEEFloat& x) {
    Value v(x.get_format().mant_width + 1);
    enter(x.get_format());
    mpfr_set_q(v.x, x.to_number().to_mpq().get_mpq_t(), MPFR_RNDN);
    mpfr_setsign(v.x, v.x, x.get_sign() ? 1 : 0, MPFR_RNDN);
    return v;
  }
  static void fit(Value& r, int ternary) {
    mpfr_subnormalize(r.x, mpfr_check_range(r.x, ternary, MPFR_RNDN), MPFR_RNDN);
  }
  static void add(Value& r, const Value& a, const Value& b) {
    fit(r, mpfr_add(r.x, a.x, b.x, MPFR_RNDN));
  }
  static void sub(Value& r, const Value& a, const Value& b) {
    fit(r, mpfr_sub(r.x, a.x, b.x, MPFR_RNDN));
  }
  static void mul(Value& r, const Value& a, const Value& b) {
    fit(r, mpfr_mul(r.x, a.x, b.x, MPFR_RNDN));
  }
  static void div(Value& r, const Value& a, const Value& b) {
    fit(r, mpfr_div(r.x, a.x, b.x, MPFR_RNDN));
  }
  static void chain_add(Value& r, const Value& b) { add(r, r, b); }
  static void chain_mul(Value& r, const Value& b) { mul(r, r, b); }
  static bool less(const Value& a, const Value& b) { return mpfr_less_p(a.x, b.x) != 0; }
  static void copy(Value& r, const Value& a) { mpfr_set(r.x, a.x, MPFR_RNDN); }
  static bool equals(const Value& r, const IEEEFloat& x) {
    if (x.is_nan() || x.is_inf()) {
      return x.is_nan() ? mpfr_nan_p(r.x) != 0
                        : mpfr_inf_p(r.x) != 0 && (mpfr_signbit(r.x) != 0) == x.get_sign();
    }
    if (mpfr_number_p(r.x) == 0 || (mpfr_signbit(r.x) != 0) != x.get_sign()) {
      return false;
    }
    mpq_class q;
    mpfr_get_q(q.get_mpq_t(), r.x);
    return q == x.to_number().to_mpq();
  }
};

/// A type of the compiler's, on the processor or in its run-time library, of the width of Word.
template <typename T, typename Word>
struct Native {
  using Value = T;
  static constexpr const char* name = sizeof(T) == 16  ? "float128"
                                      : sizeof(T) == 2 ? "Float16"
                                                       : "processor";
  static void enter(Format /*f*/) {}
  static Value load(const IEEEFloat& x) {
    const mpz_class bits = x.get_bits().to_mpq().get_num();
    Word word = static_cast<Word>(bits.get_ui());
    if constexpr (sizeof(Word) == 16) {
      word |= static_cast<Word>(mpz_class(bits >> 64).get_ui()) << 64;
    }
    return std::bit_cast<T>(word);
  }
  static void add(Value& r, Value a, Value b) { r = a + b; }
  static void sub(Value& r, Value a, Value b) { r = a - b; }
  static void mul(Value& r, Value a, Value b) { r = a * b; }
  static void div(Value& r, Value a, Value b) { r = a / b; }
  static void chain_add(Value& r, Value b) { r += b; }
  static void chain_mul(Value& r, Value b) { r *= b; }
  static bool less(Value a, Value b) { return a < b; }
  static void copy(Value& r, Value a) { r = a; }
  static bool equals(Value r, const IEEEFloat& x) {
    return x.is_nan() ? r != r : std::bit_cast<Word>(r) == std::bit_cast<Word>(load(x));
  }
};

/// Boost's binary float. It has no subnormals, so a check leaves those operands and results out.
template <unsigned E, unsigned M>
struct Boost {
  using Value = boost::multiprecision::number<
      boost::multiprecision::cpp_bin_float<M + 1, boost::multiprecision::digit_base_2, void,
                                           std::int32_t, 2 - (1 << (E - 1)), (1 << (E - 1)) - 1>,
      boost::multiprecision::et_off>;
  static constexpr const char* name = "cpp_bin_float";
  static void enter(Format /*f*/) {}
  static Value load(const IEEEFloat& x) {
    if (x.is_subnormal()) {
      return 0;
    }
    const mpq_class q = x.to_number().to_mpq();
    using Wide = boost::multiprecision::number<boost::multiprecision::cpp_bin_float<
        M + 1, boost::multiprecision::digit_base_2, void, std::int32_t>>;
    const Value r(Wide(q.get_num().get_str()) / Wide(q.get_den().get_str()));
    return x.get_sign() && q == 0 ? Value(-r) : r;
  }
  static void add(Value& r, const Value& a, const Value& b) { r = a + b; }
  static void sub(Value& r, const Value& a, const Value& b) { r = a - b; }
  static void mul(Value& r, const Value& a, const Value& b) { r = a * b; }
  static void div(Value& r, const Value& a, const Value& b) { r = a / b; }
  static void chain_add(Value& r, const Value& b) { r += b; }
  static void chain_mul(Value& r, const Value& b) { r *= b; }
  static bool less(const Value& a, const Value& b) { return a < b; }
  static void copy(Value& r, const Value& a) { r = a; }
  static bool equals(const Value& r, const IEEEFloat& x) {
    if (x.is_nan() || x.is_inf() || x.is_zero()) {
      return x.is_nan() ? bool(isnan(r)) : x.is_inf() ? bool(isinf(r)) : r == 0;
    }
    return r == load(x);
  }
};

}  // namespace zelk_bench

#endif  // ZELK_BENCH_PEERS_H_
