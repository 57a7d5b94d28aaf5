// All of binary16 and bfloat16: every pair of patterns, values only, against the processor.
//
// The processor computes in binary64, and its result is rounded once more. For + - * / and square
// roots that is innocuous where p digits are wanted of operands of p digits and the intermediate
// has 2p + 2 (S. Figueroa, When is double rounding innocuous?, SIGNUM Newsletter 30:3, 1995):
// binary64 has 53, binary16 asks for 24 and bfloat16 for 18. It has wider exponents, in which no
// result is subnormal. Of those that are subnormal here, products are exact in binary64 and sums
// in both; roots there are none. A quotient a / b other than the middle M of two of them, which has
// p digits at most, differs from it by |a - Mb| / Mb > 2^-(2p + 1) of M, which binary64 shows.
// Directed roundings need no theorem, and remainders are exact.
#include <bit>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>

#include "prove/theorem.h"
#include "tests/environment_oracle.h"

namespace prove {

namespace {

using zelk::Environment;
using zelk::IEEEFloat;
using zelk::Rounding;

constexpr int processor[] = {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD, FE_DOWNWARD};
constexpr unsigned count = 1U << 16;

// The pattern in the first word of a value, as the map of the code has it: nothing is called.
unsigned long word(const IEEEFloat& x) {
  std::uint64_t w = 0;
  std::memcpy(&w, reinterpret_cast<const char*>(&x) + 16, sizeof w);
  return w;
}

template <int e, int m>
struct Format {
  static constexpr IEEEFloat::format f{e, m};
  static constexpr std::uint64_t hidden = 1U << m, sign = hidden << e, inf = sign - hidden;
  static constexpr int least = 2 - (1 << (e - 1));  // the exponent of normal values

  std::vector<IEEEFloat> values;
  std::vector<double> doubles;

  Format() {
    for (unsigned p = 0; p < count; ++p) {
      values.push_back(IEEEFloat::from_encoding(p, f));
      const auto field = static_cast<int>(p % sign / hidden);
      const auto significand = static_cast<double>(p % hidden + (field == 0 ? 0 : hidden));
      const double finite = std::ldexp(significand, std::max(field, 1) - 1 + least - m);
      const double d = p % sign > inf ? NAN : p % sign == inf ? HUGE_VAL : finite;
      doubles.push_back(p < sign ? d : -d);
    }
  }

  // A double rounded to this format; of NaNs the canonical one. Compilers make vectors of it.
  template <unsigned direction>
  static std::uint16_t rounded(double d) {
    constexpr std::uint64_t infinity = std::uint64_t{0x7FF} << 52;
    const auto bits = std::bit_cast<std::uint64_t>(d), magnitude = bits << 1 >> 1;
    const std::uint64_t negative = bits >> 63, fraction = magnitude & ((infinity & -infinity) - 1);
    const auto exponent = static_cast<std::int64_t>(magnitude >> 52) - 1023;
    const std::int64_t kept = exponent > least ? exponent : least;
    const std::int64_t below = kept - exponent + 51 - m;  // digits below a half of the last place
    const auto n = static_cast<std::uint64_t>(below < 59 ? below : 59);
    const std::uint64_t all = fraction | std::uint64_t{magnitude != 0} << 52;
    const std::uint64_t halves = all >> n, q = halves >> 1, half = halves & 1;
    const auto rest = static_cast<std::uint64_t>(all != halves << n);
    const std::uint64_t outward = direction == 0   ? 1
                                  : direction == 1 ? 0
                                                   : (direction == 2) ^ negative;
    const std::uint64_t up = direction == 0 ? half & (rest | q) : (half | rest) & outward;
    const std::uint64_t p = q + static_cast<std::uint64_t>(kept - least) * hidden + up;
    const std::uint64_t finite = p < inf ? p : inf - 1 + outward;
    const std::uint64_t number = negative * sign + (magnitude == infinity ? inf : finite);
    return static_cast<std::uint16_t>(magnitude > infinity ? sign + inf + 1 : number);
  }
};

double remainder_of(double x, double y) {
#ifdef __x86_64__
  long double r = x;
  const long double divisor = y;
  unsigned short status = 0;
  do {  // NOLINT(bugprone-infinite-loop): the instruction writes its status
    asm("fprem1\n\tfnstsw %%ax" : "+t"(r), "=a"(status) : "u"(divisor));
  } while ((status & 0x400) != 0);  // until it is complete
  return static_cast<double>(r);
#else
  return std::remainder(x, y);
#endif
}

// What is computed of one operand and every second one.
template <class F>
struct Row {
  const F& t;
  unsigned p = 0;
  std::vector<double> exact = std::vector<double>(count);
  std::vector<std::uint16_t> want = std::vector<std::uint16_t>(count);

  template <unsigned d>
  void check(const char* name, auto native, auto call) {
    std::fesetround(processor[d]);
    for (unsigned q = 0; q < count; ++q) exact[q] = native(q);
    std::fesetround(FE_TONEAREST);
    for (unsigned q = 0; q < count; ++q) want[q] = F::template rounded<d>(exact[q]);
    const IEEEFloat x = t.values[p];
    Environment env{Rounding{d}};
    for (unsigned q = 0; q < count; ++q) {
      const IEEEFloat r = call(env, x, t.values[q]);
      if (word(r) != want[q]) [[unlikely]] {
        GTEST_FAIL() << zelk_test::name(env) << name << " of " << zelk_test::name({x, t.values[q]})
                     << "is " << zelk_test::name(r) << ", wanted 0x" << std::hex << want[q];
      }
    }
  }

#define PROVE_CALL(name, native)                                                  \
#name, [&]([[maybe_unused]] unsigned                                            \
                 q) { return native; }, [](Environment & env, const IEEEFloat& a, \
                                           const IEEEFloat& b) { return env.name(a, b); }
  template <unsigned d>
  void check_all() {
    const double x = t.doubles[p], *y = t.doubles.data();
    check<d>(PROVE_CALL(add, x + y[q]));
    check<d>(PROVE_CALL(subtract, x - y[q]));
    check<d>(PROVE_CALL(multiply, x * y[q]));
    check<d>(PROVE_CALL(divide, x / y[q]));
  }

  void check_row() {
    check_all<0>(), check_all<1>(), check_all<2>(), check_all<3>();
    check<0>(PROVE_CALL(remainder, remainder_of(t.doubles[p], t.doubles[q])));
    zelk_test::cases += 17UL * count;
  }
};

template <class F>
Theorem pairs(const char* name) {
  const auto t = std::make_shared<F>();
  return {name, count, [t](unsigned long p) {
            thread_local Row<F> row{*t};
            row.p = static_cast<unsigned>(p);
            row.check_row();
          }};
}

}  // namespace

std::vector<Theorem> half() {
  return {pairs<Format<5, 10>>("binary16"), pairs<Format<8, 7>>("bfloat16")};
}

}  // namespace prove
