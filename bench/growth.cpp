// How the cost of an operation grows with the significand width, beside MPFR at the same
// precision, and what an addition costs at a distance of exponents. Prints a table that
// docs/draw.py makes a chart of.
//
// Each operation is `r = a; r op= b` here and `op(r, a, b)` there, on normal values a few binades
// apart; the least of the repetitions counts, taken in turns.
#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/peers.h"
#include "bench/walk.h"

namespace {

using namespace zelk_bench;  // NOLINT(google-build-using-namespace)

gmp_randclass random_bits(gmp_randinit_mt);
zelk::Environment env;

// A positive value whose exponent is `distance` binades above one's.
IEEEFloat make_value(Format f, long distance) {
  const mpz_class exponent = f.bias().to_mpq().get_num() + distance;
  const mpz_class bits = (exponent << f.mant_width) + random_bits.get_z_bits(f.mant_width);
  return IEEEFloat::from_bits(QNumber(bits, 1), f);
}

// Nanoseconds per call of operation(i, j) on `count` operands, over at least a millisecond.
template <typename Operation>
double time_once(std::size_t count, Operation operation) {
  using Clock = std::chrono::steady_clock;
  Walk walk(count);
  for (std::size_t passes = 1;; passes *= 2) {
    const auto start = Clock::now();
    for (std::size_t k = 0; k < passes; ++k) walk.pass(operation);
    const std::chrono::duration<double, std::nano> spent = Clock::now() - start;
    if (spent.count() > 1e6) return spent.count() / static_cast<double>(passes * count);
  }
}

template <typename P>
struct Operands {
  std::vector<typename P::Value> a, b;
  typename P::Value r;

  Operands(const std::vector<IEEEFloat>& x, const std::vector<IEEEFloat>& y) : r(P::load(x[0])) {
    for (const IEEEFloat& value : x) a.push_back(P::load(value));
    for (const IEEEFloat& value : y) b.push_back(P::load(value));
  }
  template <auto operation>
  double time() {
    return time_once(a.size(), [this](std::size_t i, std::size_t j) { operation(r, a[i], b[j]); });
  }
};

template <auto ours, auto theirs>
void row(const char* name, Format f, Operands<Zelk>& x, Operands<Mpfr>& y) {
  for (std::size_t i = 0; i < std::min<std::size_t>(x.a.size(), 8); ++i) {
    ours(x.r, x.a[i], x.b[i]);
    theirs(y.r, y.a[i], y.b[i]);
    if (!Mpfr::equals(y.r, x.r)) {
      std::fprintf(stderr, "growth: %s differs at m = %lu\n", name, f.mant_width);
      std::exit(1);
    }
  }
  double best[2] = {1e300, 1e300};
  for (int repetition = 0; repetition < 9; ++repetition) {
    best[0] = std::min(best[0], x.template time<ours>());
    best[1] = std::min(best[1], y.template time<theirs>());
  }
  std::printf("%s %lu %.1f %.1f %.2f\n", name, f.mant_width, best[0], best[1], best[1] / best[0]);
}

// On two operands, the environment's operations: a * b + b, and the root of a.
void env_fma(IEEEFloat& r, const IEEEFloat& a, const IEEEFloat& b) { r = env.fma(a, b, b); }
void env_sqrt(IEEEFloat& r, const IEEEFloat& a, const IEEEFloat& /*b*/) { r = env.sqrt(a); }
void mpfr_fma_of(Mpfr::Value& r, const Mpfr::Value& a, const Mpfr::Value& b) {
  Mpfr::fit(r, mpfr_fma(r.x, a.x, b.x, b.x, MPFR_RNDN));
}
void mpfr_sqrt_of(Mpfr::Value& r, const Mpfr::Value& a, const Mpfr::Value& /*b*/) {
  Mpfr::fit(r, mpfr_sqrt(r.x, a.x, MPFR_RNDN));
}

void growth(unsigned long mant_width) {
  const Format f{30, mant_width};
  std::vector<IEEEFloat> x, y;
  for (unsigned long i = 0; i < std::clamp(std::bit_floor(4000000 / mant_width), 4UL, 1024UL);
       ++i) {
    x.push_back(make_value(f, mpz_class(random_bits.get_z_range(7)).get_si()));
    y.push_back(make_value(f, mpz_class(random_bits.get_z_range(7)).get_si()));
    y.back().set_sign(random_bits.get_z_bits(1) != 0);
  }
  Operands<Zelk> ours(x, y);
  Operands<Mpfr> theirs(x, y);
  Mpfr::enter(f);
  row<Zelk::add, Mpfr::add>("add", f, ours, theirs);
  row<Zelk::mul, Mpfr::mul>("mul", f, ours, theirs);
  row<Zelk::div, Mpfr::div>("div", f, ours, theirs);
  row<env_fma, mpfr_fma_of>("fma", f, ours, theirs);
  row<env_sqrt, mpfr_sqrt_of>("sqrt", f, ours, theirs);
}

void addition_at(long distance) {
  const Format f{62, 236};
  const std::vector<IEEEFloat> x(2, make_value(f, distance));
  const std::vector<IEEEFloat> y(2, make_value(f, 0));
  Operands<Zelk> values{x, y};
  double best = 1e300;
  for (int repetition = 0; repetition < 9; ++repetition) {
    best = std::min(best, values.time<Zelk::add>());
  }
  std::printf("distance %ld %.1f\n", distance, best);
}

}  // namespace

int main(int argc, char** argv) {
  Walk::fixed = argc > 1 && std::string(argv[1]) == "--fixed";
  std::printf("# operation, m, zelk ns, MPFR ns, MPFR's time over ours (e = 30)\n");
  for (const unsigned long m : {112UL, 236UL, 1000UL, 10000UL, 100000UL, 1000000UL}) growth(m);
  std::printf("# addition in (62, 236): distance of the exponents, zelk ns\n");
  for (const long d : {0L, 1L, 30L, 100L, 236L, 1000L, 1L << 20, 1L << 40, 1L << 60}) {
    addition_at(d);
  }
}
