// What tests of arrays share: elements of every kind, all environments and instruction sets, and
// the comparison of pieces of arrays with single results, flags included.
#ifndef ZELK_TESTS_ARRAYS_SUPPORT_H_
#define ZELK_TESTS_ARRAYS_SUPPORT_H_

#include <gtest/gtest.h>
#include <hwy/highway.h>

#include <bit>
#include <cfenv>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "zelk/arrays.h"
#include "zelk/arrays/stochastic.h"
#include "zelk/float/formats.h"
#include "zelk/float/native.h"

#ifdef __SSE2__
#include <xmmintrin.h>
#endif

namespace zelk_test {

using zelk::Environment;
using zelk::IEEEFloat;
using zelk::Rounding;
using zelk::Tininess;
namespace arrays = zelk::arrays;
using arrays::Accumulation;
using arrays::Draws;
using arrays::format;
using arrays::Matrix;
using arrays::Operand;
using arrays::Stochastic;
using arrays::detail::Philox;

// Patterns of 16 bits; some of them where single operations are slow.
#ifdef ZELK_REFERENCE_ONLY
inline constexpr std::size_t every = 2000;
#else
inline constexpr std::size_t every = 65536;
#endif

inline std::mt19937_64 random_words(20240229);

inline std::uint64_t random_below(std::uint64_t n) { return random_words() % n; }

// Every setting of an environment.
template <class Visit>
void for_environments(Visit visit) {
  for (unsigned i = 0; i < 48; ++i) {
    visit(Environment{static_cast<Rounding>(i % 6), static_cast<Tininess>(i / 6 % 2),
                      i / 12 % 2 != 0, i / 24 != 0});
  }
}

// Every instruction set that this machine has, forced in turn.
template <class Visit>
void for_targets(Visit visit) {
  hwy::SetSupportedTargetsForTest(0);
  for (std::int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
    hwy::SetSupportedTargetsForTest(left & -left);
    SCOPED_TRACE(hwy::TargetName(left & -left));
    visit();
  }
  hwy::SetSupportedTargetsForTest(0);
}

// A control word of the caller's that nothing may depend on, and that has to come back.
class OddControlWord {
 public:
  OddControlWord(const OddControlWord&) = delete;
  OddControlWord& operator=(const OddControlWord&) = delete;
#ifdef __SSE2__
  OddControlWord() : before(_mm_getcsr()) { _mm_setcsr(odd); }
  ~OddControlWord() {
    EXPECT_EQ(_mm_getcsr(), odd);
    _mm_setcsr(before);
  }

 private:
  unsigned before;
  // Any rounding, flushing, status bits; traps only where no status bit is set already.
  unsigned odd = random_below(2) != 0 ? static_cast<unsigned>(random_below(4) << 13 | 0x8040)
                                      : static_cast<unsigned>(random_below(0x10000)) | 0x1F80;
#else
  OddControlWord() { std::fesetround(FE_UPWARD); }
  ~OddControlWord() {
    EXPECT_EQ(std::fegetround(), FE_UPWARD);
    std::fesetround(FE_TONEAREST);
  }
#endif
};

// Elements as values: patterns of f, or numbers.
template <class T>
IEEEFloat value(T x, format f) {
  if constexpr (arrays::number<T>) {
    return zelk::from_native(x);
  } else {
    const std::uint64_t mask = ~std::uint64_t{0} >> (63 - f.exp_width - f.mant_width);
    return zelk::detail::PatternAccess::make(f, IEEEFloat::ROUND_NEAREST_EVEN, x & mask, 0);
  }
}

template <class T>
T element(const IEEEFloat& x) {
  if constexpr (arrays::number<T>) {
    return x.is_nan() ? std::numeric_limits<T>::quiet_NaN()
                      : zelk::to_native<T>(Environment{}.convert(x, zelk::native_format<T>));
  } else {
    const format f = x.get_format();  // the canonical NaN has all of e and the sign, and a 1
    const auto one = std::uint64_t{1} << f.mant_width;
    return static_cast<T>(x.is_nan() ? (one << (f.exp_width + 1)) - one + 1
                                     : zelk::detail::PatternAccess::words(x)[0]);
  }
}

// An operand, flushed in f if need be.
template <class T>
IEEEFloat operand(T x, format f, bool flush) {
  IEEEFloat v = value(x, f);
  if (flush) {
    const auto least = Environment{}.convert(zelk::FormatLimits(f).smallest_normal(), {11, 52});
    if (std::abs(element<double>(v)) < zelk::to_native<double>(least)) v.self_zero(v.get_sign());
  }
  return v;
}

template <class T>
auto bits(T x) {
  if constexpr (arrays::number<T>) {
    return std::bit_cast<zelk::native_word<T>>(x);
  } else {
    return x;
  }
}

// Values of every kind: random patterns, boundaries and their neighbours, all signs.
inline std::uint64_t any_pattern(format f) {
  const std::uint64_t inf = ((std::uint64_t{1} << f.exp_width) - 1) << f.mant_width;
  const std::uint64_t one = ((std::uint64_t{1} << (f.exp_width - 1)) - 1) << f.mant_width;
  const std::uint64_t base[] = {0,
                                std::uint64_t{1} << f.mant_width,
                                inf,
                                one,
                                one,
                                random_words(),
                                random_words(),
                                one + (random_below(16) << f.mant_width)};
  const std::uint64_t near = base[random_below(8)] + random_below(5) - 2;
  const std::uint64_t p = random_below(3) == 0 ? random_words() : near;
  return random_below(2) != 0 ? p : p ^ inf;
}

template <class T>
T any_element(format f) {
  if constexpr (!arrays::number<T>) {
    return static_cast<T>(any_pattern(f));
  } else {
    const format own = zelk::native_format<T>;
    if (random_below(4) == 0) {
      return std::bit_cast<T>(static_cast<zelk::native_word<T>>(any_pattern(own)));
    }
    // A value of f, or one of the numbers beside it or between two.
    const T x = element<T>(value(any_pattern(f), f));
    const T half = x + element<T>(IEEEFloat::from_encoding(1, f)) / 2;
    const T near[] = {x, x, x, half, std::nextafter(half, T{0}), std::nextafter(x, T{2})};
    return near[random_below(6)];
  }
}

// The operations, on arrays and on single values.
template <class T>
using ArrayCall = void (*)(Environment&, Operand<T>, Operand<T>, Operand<T>, format, std::span<T>);
using SingleCall = IEEEFloat (*)(Environment&, IEEEFloat, const IEEEFloat&, const IEEEFloat&,
                                 format);

template <class T>
struct Call {
  const char* name;
  int operands;
  ArrayCall<T> on_arrays;
  SingleCall single;
};

#define ZELK_TWO(name)                                                                      \
  {                                                                                         \
#name, 2,                                                                               \
        [](auto& e, auto x, auto y, auto, auto f,                                           \
           auto o) { arrays::name(e, x, y, f, o); }, [](auto& e, auto x, auto& y, auto&,    \
                                                        auto f) { return e.name(x, y, f); } \
  }
#define ZELK_SELECT(name)                                                                \
  {                                                                                      \
#name, 2,                                                                            \
        [](auto& e, auto x, auto y, auto, auto f,                                        \
           auto o) { arrays::name(e, x, y, f, o); }, [](auto& e, auto x, auto& y, auto&, \
                                                        auto) { return e.name(x, y); }   \
  }
template <class T>
inline const Call<T> calls[] = {
    ZELK_TWO(add),
    ZELK_TWO(subtract),
    ZELK_TWO(multiply),
    ZELK_TWO(divide),
    ZELK_SELECT(minimum),
    ZELK_SELECT(maximum),
    {"sqrt", 1, [](auto& e, auto x, auto, auto, auto f, auto o) { arrays::sqrt(e, x, f, o); },
     [](auto& e, auto x, auto&, auto&, auto f) { return e.sqrt(x, f); }},
    {"fma", 3,
     [](auto& e, auto x, auto y, auto z, auto f, auto o) { arrays::fma(e, x, y, z, f, o); },
     [](auto& e, auto x, auto& y, auto& z, auto f) { return e.fma(x, y, z, f); }},
};

// The single operation, of numbers that are flushed in f.
template <class T>
T expected(const SingleCall call, Environment& env, const T (&x)[3], format f) {
  const bool flush = arrays::number<T> && env.flush_operands;
  const IEEEFloat v[] = {operand(x[0], f, flush), operand(x[1], f, flush), operand(x[2], f, flush)};
  Environment inner = env;
  inner.flush_operands = env.flush_operands && !flush;
  const T r = element<T>(call(inner, v[0], v[1], v[2], f));
  env.flags = inner.flags;
  return r;
}

// x rounded into f where d < 2^64 * the fraction goes up: on rationals.
inline IEEEFloat rounded(Environment& env, const IEEEFloat& x, format f, std::uint64_t d) {
  if (x.is_nan() || x.is_inf() || x.is_zero()) return Environment{}.convert(x, f);
  const mpq_class q = abs(x.to_number().to_mpq());
  const long emax = (1L << (f.exp_width - 1)) - 1, m = static_cast<long>(f.mant_width);
  const auto scaled = [](mpq_class r, long n) {
    const auto size = static_cast<unsigned long>(std::abs(n));
    (n < 0 ? mpq_div_2exp : mpq_mul_2exp)(r.get_mpq_t(), r.get_mpq_t(), size);
    return r;
  };
  long e = static_cast<long>(mpz_sizeinbase(q.get_num_mpz_t(), 2)) -
           static_cast<long>(mpz_sizeinbase(q.get_den_mpz_t(), 2));
  e -= q < scaled(1, e) ? 1 : 0;
  const bool tiny = e < 1 - emax;
  const long place = std::max(e, 1 - emax) - m;
  mpq_class r = scaled(q, -place);
  const mpz_class whole = r.get_num() / r.get_den();
  const mpq_class fraction = r - whole;
  r = scaled(whole + (d < scaled(fraction, 64) ? 1 : 0), place);
  IEEEFloat result(f, IEEEFloat::ROUND_NEAREST_EVEN);
  if (tiny && env.flush_results) {
    env.flags |= 8 | 16;
  } else if (r >= scaled(1, emax + 1)) {
    env.flags |= 4 | 16;
    result.self_inf(false);
  } else {
    if (fraction != 0) env.flags |= 16;
    if (fraction != 0 && tiny) env.flags |= 8;
    result = IEEEFloat::from_ratio(zelk::from_mpz(r.get_num()) / zelk::from_mpz(r.get_den()), f,
                                   IEEEFloat::ROUND_NEAREST_EVEN);
  }
  if (x.get_sign()) result.self_neg();
  return result;
}

// x, of format f if it has patterns, rounded into g, by draw i or as the environment says.
template <class Out, class In>
Out rounded_element(Environment& env, In x, format f, format g, const Draws& draws,
                    std::uint64_t i) {
  IEEEFloat a = value(x, f);
  if (env.flush_operands && a.is_subnormal()) a.self_zero(a.get_sign());
  return element<Out>(draws ? rounded(env, a, g, Philox::draw(draws->seed, draws->first + i))
                            : env.convert(a, g));
}

// The same of arrays.
template <class In, class Out>
void round_arrays(Environment& env, std::span<const In> in, format f, std::span<Out> out, format g,
                  const Draws& draws) {
  if constexpr (!arrays::number<In>) {
    arrays::convert(env, in, f, out, g, draws);
  } else if constexpr (arrays::number<Out>) {
    arrays::round(env, in, g, out, draws);
  } else {
    arrays::encode(env, in, g, out, draws);
  }
}

// Sums as their definition has them, by the environment's dot of values; those that are rounded by
// draws are exact in a wide format first. Sums of one object draw one after the other.
class Reference {
 public:
  Reference(Environment& environment, const Accumulation& accumulation)
      : env(environment), sum(accumulation), next(sum.stochastic.value_or(Stochastic{}).first) {}

  using Values = std::vector<IEEEFloat>;
  IEEEFloat operator()(const Values& x, const Values& y) {
    const std::size_t n = x.size(), block = sum.block == 0 ? n : sum.block;
    Values sums;
    for (std::size_t begin = 0; begin < n; begin += block) {
      const auto first = static_cast<long>(begin),
                 last = static_cast<long>(std::min(n, begin + block));
      Values a(x.begin() + first, x.begin() + last), b(y.begin() + first, y.begin() + last);
      if (!sums.empty() && !sum.pairwise) {
        a.push_back(sums.back());
        b.push_back(one);
        sums.pop_back();
      }
      sums.push_back(dot(a, b));
    }
    while (sums.size() > 1) {
      Values next_sums;
      for (std::size_t i = 0; i < sums.size(); i += 2) {
        next_sums.push_back(i + 1 < sums.size() ? dot({sums[i], sums[i + 1]}, {one, one})
                                                : sums[i]);
      }
      sums = next_sums;
    }
    return n == 0 ? IEEEFloat(sum.result, IEEEFloat::ROUND_NEAREST_EVEN) : sums[0];
  }

 private:
  IEEEFloat dot(const Values& x, const Values& y) {
    if (!sum.stochastic) return env.dot(x, y, sum.result);
    Environment exact;
    exact.flush_operands = env.flush_operands;
    const auto width = std::max(x[0].get_format().exp_width, sum.result.exp_width);
    const IEEEFloat wide = exact.dot(x, y, width <= 8 ? format{11, 600} : format{13, 4400});
    env.flags |= exact.flags;
    return rounded(env, wide, sum.result, Philox::draw(sum.stochastic->seed, next++));
  }

  Environment& env;
  const Accumulation& sum;
  std::uint64_t next;
  IEEEFloat one = IEEEFloat::from_ratio(1, sum.result, IEEEFloat::ROUND_NEAREST_EVEN);
};

// Operands of sums, flushed in f if need be.
template <class T>
std::vector<IEEEFloat> values(const std::vector<T>& x, format f, bool flush) {
  std::vector<IEEEFloat> v;
  v.reserve(x.size());
  for (const T a : x) v.push_back(operand(a, f, flush));
  return v;
}

// c := a * b by sums of single elements; no stride is 0.
template <class T, class C>
void multiply_single(Environment& env, Matrix<const T> a, Matrix<const T> b, format f,
                     const Accumulation& sum, Matrix<C> c) {
  Reference reference(env, sum);
  for (std::size_t i = 0; i < c.rows * c.columns; ++i) {
    std::vector<T> row, column;
    for (std::size_t k = 0; k < a.columns; ++k) {
      row.push_back(a.data[i / c.columns * a.stride + k]);
      column.push_back(b.data[k * b.stride + i % c.columns]);
    }
    c.data[i / c.columns * c.stride + i % c.columns] = element<C>(
        reference(values(row, f, env.flush_operands), values(column, f, env.flush_operands)));
  }
}

// Runs call(env, begin, size, out) on consecutive pieces of random lengths and holds each against
// its elements' values and flags.
template <class T, class OnPiece>
void expect_pieces(const Environment& settings, const std::vector<T>& want,
                   const std::vector<unsigned char>& flags, const std::string& what, OnPiece call) {
  std::vector<T> out(want.size() + 64);
  for_targets([&] {
    for (std::size_t begin = 0; begin < want.size();) {
      const std::size_t size = std::min<std::size_t>(
          random_below(4) == 0 ? random_below(random_below(8) == 0 ? 1100 : 131) : random_below(7),
          want.size() - begin);
      Environment env = settings;
      unsigned expected_flags = 0;
      const std::span<T> piece(out.data() + begin + random_below(3), size);
      const std::vector<T> behind(piece.end(), piece.end() + 60);
      {
        const OddControlWord odd;
        call(env, begin, piece);
      }
      for (std::size_t i = 0; i < size; ++i) {
        expected_flags |= flags[begin + i];
        ASSERT_EQ(bits(piece[i]), bits(want[begin + i])) << what << ", element " << begin + i;
      }
      ASSERT_TRUE(std::equal(behind.begin(), behind.end(), piece.end(),
                             [](T a, T b) { return bits(a) == bits(b); }))
          << what << " writes behind its result";
      ASSERT_EQ(env.flags, expected_flags) << what << ", elements from " << begin << ", " << size;
      begin += size;
    }
  });
}

inline std::string text(format f, const Environment& env) {
  return "(" + std::to_string(f.exp_width) + ", " + std::to_string(f.mant_width) + ") rounding " +
         std::to_string(static_cast<int>(env.rounding)) + " tininess " +
         std::to_string(static_cast<int>(env.tininess)) + " flush " +
         std::to_string(env.flush_results) + std::to_string(env.flush_operands) + ' ';
}

}  // namespace zelk_test

#endif  // ZELK_TESTS_ARRAYS_SUPPORT_H_
