#include "bench/environment_rows.h"

#include <span>
#include <utility>

namespace zelk_bench {

namespace {

zelk::Environment env;

// The operations of an environment, each on two operands; of some the second means nothing. Sums to
// quotients are written as with operators, the others so that they use storage again.
struct Env : Zelk {
  static void add(Value& r, const Value& a, const Value& b) { r = env.add(a, b); }
  static void sub(Value& r, const Value& a, const Value& b) { r = env.subtract(a, b); }
  static void mul(Value& r, const Value& a, const Value& b) { r = env.multiply(a, b); }
  static void div(Value& r, const Value& a, const Value& b) { r = env.divide(a, b); }
  static void sqrt(Value& r, const Value& a, const Value& /*b*/) {
    r = a;
    r = env.sqrt(std::move(r));
  }
  static void remainder(Value& r, const Value& a, const Value& b) {
    r = a;
    r = env.remainder(std::move(r), b);
  }
  static void modulo(Value& r, const Value& a, const Value& b) {
    r = a;
    r = env.modulo(std::move(r), b);
  }
  static void integral(Value& r, const Value& a, const Value& /*b*/) {
    r = a;
    r = env.round_to_integral(std::move(r));
  }
  static void minimum(Value& r, const Value& a, const Value& b) {
    r = a;
    r = env.minimum(std::move(r), b);
  }
  static void fma(Value& r, const Value& a, const Value& b, const Value& c) {
    r = a;
    r = env.fma(std::move(r), b, c);
  }
};

struct Operators : Zelk {
  static constexpr const char* name = "operator";
  static void add(Value& r, const Value& a, const Value& b) { r = a + b; }
  static void sub(Value& r, const Value& a, const Value& b) { r = a - b; }
  static void mul(Value& r, const Value& a, const Value& b) { r = a * b; }
  static void div(Value& r, const Value& a, const Value& b) { r = a / b; }
};

struct Peer : Mpfr {
  static void sqrt(Value& r, const Value& a, const Value& /*b*/) {
    fit(r, mpfr_sqrt(r.x, a.x, MPFR_RNDN));
  }
  static void remainder(Value& r, const Value& a, const Value& b) {
    fit(r, mpfr_remainder(r.x, a.x, b.x, MPFR_RNDN));
  }
  static void modulo(Value& r, const Value& a, const Value& b) {
    fit(r, mpfr_fmod(r.x, a.x, b.x, MPFR_RNDN));
  }
  static void integral(Value& r, const Value& a, const Value& /*b*/) {
    fit(r, mpfr_rint(r.x, a.x, MPFR_RNDN));
  }
  static void minimum(Value& r, const Value& a, const Value& b) {
    mpfr_min(r.x, a.x, b.x, MPFR_RNDN);
  }
  static void fma(Value& r, const Value& a, const Value& b, const Value& c) {
    fit(r, mpfr_fma(r.x, a.x, b.x, c.x, MPFR_RNDN));
  }
};

// r := a * b + c.
template <typename P>
void fused_row(const Operands& o) {
  const std::string row = "env_fma/" + o.label + '/' + P::name;
  if (!wanted(row)) {
    return;
  }
  const auto a = load<P>(o.a);
  const auto b = load<P>(o.b);
  const auto c = load<P>(o.terms);
  const auto r = std::make_shared<typename P::Value>((*a)[0]);
  P::enter(o.f);
  for (std::size_t i = 0; i < count; ++i) {
    P::fma(*r, (*a)[i], (*b)[i], (*c)[i]);
    require(P::equals(*r, env.fma(o.a[i], o.b[i], o.terms[i])), row, i);
  }
  add_row(
      row, [f = o.f] { P::enter(f); },
      [=](std::size_t i, std::size_t j) {
        P::fma(*r, (*a)[i], (*b)[j], (*c)[i]);
        benchmark::DoNotOptimize(*r);
      });
}

template <typename P>
void basic_rows(const Operands& o) {
  operation_row<P, P::add, Zelk::add>("env_add", o);
  operation_row<P, P::sub, Zelk::sub>("env_sub", o);
  operation_row<P, P::mul, Zelk::mul>("env_mul", o);
  operation_row<P, P::div, Zelk::div>("env_div", o);
}

template <typename P>
void other_rows(const Operands& o, const Operands& positive) {
  fused_row<P>(o);
  operation_row<P, P::sqrt, Env::sqrt>("env_sqrt", positive);
  operation_row<P, P::remainder, Env::remainder>("env_remainder", o);
  operation_row<P, P::modulo, Env::modulo>("env_modulo", o);
  operation_row<P, P::integral, Env::integral>("env_integral", o);
  operation_row<P, P::minimum, Env::minimum>("env_minimum", o);
}

}  // namespace

void environment_rows(const Operands& o) {
  Operands positive = o;
  for (IEEEFloat& x : positive.a) {
    x.set_sign(false);
  }
  basic_rows<Env>(o);
  basic_rows<Operators>(o);
  basic_rows<Peer>(o);
  other_rows<Env>(o, positive);
  other_rows<Peer>(o, positive);
}

void convert_rows(const Operands& o, Format g) {
  const std::string row = "env_convert/" + o.label + "-" + name(g) + "/";
  if (!wanted(row + "zelk") && !wanted(row + "set_format")) {
    return;
  }
  const auto a = load<Zelk>(o.a);
  const auto r = std::make_shared<IEEEFloat>();
  const auto convert = [=](std::size_t i) {
    *r = env.convert((*a)[i], g);
    benchmark::DoNotOptimize(*r);
  };
  const auto set_format = [=](std::size_t i) {
    *r = (*a)[i];
    r->set_format(g);
    benchmark::DoNotOptimize(*r);
  };
  add_row(
      row + "zelk", [] {}, convert);
  add_row(
      row + "set_format", [] {}, set_format);
}

void dot_rows(const Operands& narrow, const Operands& wide) {
  const std::string label = narrow.label + "-" + wide.label + "/";
  const auto a = load<Zelk>(narrow.a);
  const auto b = load<Zelk>(narrow.b);
  const auto c = load<Zelk>(wide.terms);
  const auto r = std::make_shared<IEEEFloat>();
  if (const std::string row = "env_fma_into/" + label + "zelk"; wanted(row)) {
    add_row(
        row, [] {},
        [=, f = wide.f](std::size_t i, std::size_t j) {
          *r = env.fma((*a)[i], (*b)[j], (*c)[i], f);
          benchmark::DoNotOptimize(*r);
        });
  }
  constexpr std::size_t terms = 1000;
  if (const std::string row = "env_dot1000/" + label + "zelk"; wanted(row)) {
    add_row(
        row, [] {},
        [=, f = wide.f](std::size_t /*i*/) {
          *r = env.dot(std::span(*a).first(terms), std::span(*b).first(terms), f);
          benchmark::DoNotOptimize(*r);
        });
  }
  if (const std::string row = "env_dot1000/" + label + "mpfr(fma_at_200_bits)"; wanted(row)) {
    const auto x = load<Mpfr>(narrow.a);
    const auto y = load<Mpfr>(narrow.b);
    const auto sum = std::make_shared<Mpfr::Value>(200);
    add_row(
        row, [f = wide.f] { Mpfr::enter(f); },
        [=](std::size_t /*i*/) {
          mpfr_set_zero(sum->x, 1);
          for (std::size_t k = 0; k < terms; ++k) {
            mpfr_fma(sum->x, (*x)[k].x, (*y)[k].x, sum->x, MPFR_RNDN);
          }
          benchmark::DoNotOptimize(*sum);
        });
  }
}

}  // namespace zelk_bench
