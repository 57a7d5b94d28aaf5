// What tests of arrays share: elements of every kind, all environments and instruction sets, and
// the comparison of pieces of arrays with single results, flags included.
#ifndef ZELK_TESTS_ARRAYS_SUPPORT_H_
#define ZELK_TESTS_ARRAYS_SUPPORT_H_

#include <hwy/highway.h>

#include <bit>
#include <cmath>
#include <string>
#include <vector>

#include "tests/exact_oracle.h"
#include "zelk/arrays.h"
#include "zelk/arrays/stochastic.h"
#include "zelk/float/formats.h"
#include "zelk/float/native.h"

namespace zelk_test {

namespace arrays = zelk::arrays;
using arrays::Accumulation;
using arrays::Draws;
using arrays::format;
using arrays::Matrix;
using arrays::Operand;
using arrays::Stochastic;
using arrays::detail::Philox;

// Patterns of 16 bits; some of them where single operations are slow, or have assertions.
#if defined(ZELK_REFERENCE_ONLY) || !defined(NDEBUG)
inline constexpr std::size_t every = 2000;
#else
inline constexpr std::size_t every = 65536;
#endif

// Every setting of an environment.
inline void for_environments(auto visit) {
  for (unsigned i = 0; i < 48; ++i) {
    visit(Environment{static_cast<Rounding>(i % 6), static_cast<Tininess>(i / 6 % 2),
                      i / 12 % 2 != 0, i / 24 != 0});
  }
}

// Every instruction set of this machine that the library has, forced in turn, or a choice of them.
inline const std::int64_t all_targets = hwy::SupportedTargets() & HWY_TARGETS;
inline std::int64_t chosen_targets = all_targets;

inline void for_targets(auto visit) {
  for (std::int64_t left = chosen_targets; left != 0; left &= left - 1) {
    hwy::SetSupportedTargetsForTest(left & -left);
    SCOPED_TRACE(hwy::TargetName(left & -left));
    visit();
  }
  hwy::SetSupportedTargetsForTest(0);
}

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
    const double least = std::ldexp(1, 2 - (1 << (f.exp_width - 1)));
    if (std::abs(element<double>(v)) < least) v.self_zero(v.get_sign());
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

// Of values of every kind, with anything above the bits of the format.
inline std::uint64_t any_pattern(format f) {
  static Random random;
  const std::uint64_t above = (random_words() << f.exp_width << f.mant_width) << 1;
  return random_below(3) == 0 ? random_words() : above | random.pattern(Layout(f)).get_ui();
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
struct Operation {
  const char* name;
  int operands;
  void (*on_arrays)(Environment& e, const Operand<T>* v, format f, std::span<T> out);
  IEEEFloat (*single)(Environment& e, const IEEEFloat* v, format f);
};

#define ZELK_OPERATION(name, count, call, ...)                                               \
  {                                                                                          \
#name, count,                                                                            \
        [](auto& e, auto* v, auto f,                                                         \
           auto out) { arrays::name(e, __VA_ARGS__, f, out); }, [](auto& e, auto* v,         \
                                                                   [[maybe_unused]] auto     \
                                                                       f) { return e.call; } \
  }
template <class T>
inline const Operation<T> operations[] = {
    ZELK_OPERATION(add, 2, add(v[0], v[1], f), v[0], v[1]),
    ZELK_OPERATION(subtract, 2, subtract(v[0], v[1], f), v[0], v[1]),
    ZELK_OPERATION(multiply, 2, multiply(v[0], v[1], f), v[0], v[1]),
    ZELK_OPERATION(divide, 2, divide(v[0], v[1], f), v[0], v[1]),
    ZELK_OPERATION(minimum, 2, minimum(v[0], v[1]), v[0], v[1]),
    ZELK_OPERATION(maximum, 2, maximum(v[0], v[1]), v[0], v[1]),
    ZELK_OPERATION(sqrt, 1, sqrt(v[0], f), v[0]),
    ZELK_OPERATION(fma, 3, fma(v[0], v[1], v[2], f), v[0], v[1], v[2])};

// The single operation, of numbers that are flushed in f.
template <class T>
T expected(const Operation<T>& op, Environment& env, const T (&x)[3], format f) {
  const bool flush = arrays::number<T> && env.flush_operands;
  const IEEEFloat v[] = {operand(x[0], f, flush), operand(x[1], f, flush), operand(x[2], f, flush)};
  Environment inner = env;
  inner.flush_operands = env.flush_operands && !flush;
  const T r = element<T>(op.single(inner, v, f));
  env.flags = inner.flags;
  return r;
}

// x rounded into f where d < 2^64 * the fraction goes up.
inline IEEEFloat rounded(Environment& env, const IEEEFloat& x, format f, std::uint64_t d) {
  const Target to(f);
  Placed p = to.place(Target(x.get_format()).decode(zelk_test::bits(x)));
  if (!p.values.exact) {
    bool rest = false;
    const long place = std::max(p.x.exponent(), to.emin) - to.m;
    const mpz_class fraction = p.x.digits(64 - place, rest) % pow2(64);
    p.values.middle = d < fraction || (d == fraction && rest) ? 1 : -1;
  }
  const Answer r =
      p.round(to, {Rounding::nearest_even, Tininess::before_rounding, env.flush_results});
  env.flags = static_cast<std::uint8_t>(env.flags | r.flags);
  return IEEEFloat::from_encoding(QNumber(r.bits, 1), f);
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
    const IEEEFloat wide = exact.dot(x, y, {13, (2U << width) + 150});
    env.flags |= exact.flags;
    return rounded(env, wide, sum.result, Philox::draw(sum.stochastic->seed, next++));
  }

  Environment& env;
  const Accumulation& sum;
  std::uint64_t next;
  IEEEFloat one = IEEEFloat::from_ratio(1, sum.result, IEEEFloat::ROUND_NEAREST_EVEN);
};

// Operands of sums, flushed in f if need be.
inline std::vector<IEEEFloat> values(const auto& x, format f, bool flush) {
  std::vector<IEEEFloat> v;
  v.reserve(x.size());
  for (const auto a : x) v.push_back(operand(a, f, flush));
  return v;
}

inline std::string text(format f, const Environment& env) {
  return "(" + std::to_string(f.exp_width) + ", " + std::to_string(f.mant_width) + ") " + name(env);
}

// Runs call(env, begin, out) on consecutive pieces of n elements, of random lengths, and holds each
// against single(env, i) of its elements: values and flags.
template <class T>
void expect_pieces(const Environment& settings, std::size_t n, const std::string& what, auto single,
                   auto call) {
  std::vector<T> want(n), out(n + 64);
  std::vector<unsigned> flags(n);
  for (std::size_t i = 0; i < n; ++i) {
    Environment env = settings;
    want[i] = single(env, i);
    flags[i] = env.flags;
  }
  for_targets([&] {
    std::size_t begin = 0;
    do {
      const std::size_t left = n - begin, longest = random_below(8) == 0 ? 1100 : 131;
      std::size_t size = std::min(random_below(random_below(4) == 0 ? longest : 7), left);
      if (left < 80 && random_below(2) != 0) size = left;
      if (size > 64 && random_below(2) != 0) size -= size % 64;
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
    } while (begin < n);
  });
}

// An operation; of operand `once`, if there is one, the first element is in every place.
template <class T>
void check_operation(const Environment& settings, const Operation<T>& op,
                     const std::vector<T> (&x)[3], std::size_t once, format f) {
  const auto at = [&](std::size_t k, std::size_t i) { return x[k][k == once ? 0 : i]; };
  expect_pieces<T>(
      settings, x[0].size(), text(f, settings) + op.name,
      [&](auto& env, std::size_t i) {
        return expected(op, env, {at(0, i), at(1, i), at(2, i)}, f);
      },
      [&](Environment& env, std::size_t begin, std::span<T> out) {
        Operand<T> operands[] = {out, out, out};  // one in place, at times
        const std::size_t place = random_below(6);
        for (std::size_t k = 0; k < 3; ++k) {
          const std::span in = std::span(x[k]).subspan(begin, out.size());
          if (k == place) std::copy(in.begin(), in.end(), out.begin());
          if (k != place) operands[k] = in;
          if (k == once && !x[k].empty()) operands[k] = x[k][0];
        }
        op.on_arrays(env, operands, f, out);
      });
}

// Rounding of x, of format f if it has patterns, into g.
template <class In, class Out>
void check_rounding(const Environment& settings, const std::vector<In>& x, format f, format g,
                    const Draws& draws) {
  expect_pieces<Out>(
      settings, x.size(), text(g, settings) + (draws ? "draws" : "rounded"),
      [&](auto& env, std::size_t i) { return rounded_element<Out>(env, x[i], f, g, draws, i); },
      [&](Environment& env, std::size_t begin, std::span<Out> out) {
        std::span<const In> in = std::span(x).subspan(begin, out.size());
        if constexpr (std::is_same_v<In, Out>) {
          if (random_below(2) != 0) {
            std::copy(in.begin(), in.end(), out.begin());
            in = out;
          }
        }
        Draws by = draws;
        if (by) by->first += begin;
        if constexpr (!arrays::number<In>) {
          arrays::convert(env, in, f, out, g, by);
        } else if constexpr (arrays::number<Out>) {
          arrays::round(env, in, g, out, by);
        } else {
          arrays::encode(env, in, g, out, by);
        }
      });
}

template <class In, class Out>
void check_decoding(const std::vector<In>& x, format f) {
  expect_pieces<Out>(
      {}, x.size(), text(f, {}) + "decoded",
      [&](auto&, std::size_t i) { return element<Out>(value(x[i], f)); },
      [&](auto&, std::size_t begin, std::span<Out> out) {
        arrays::decode(std::span(x).subspan(begin, out.size()), f, out);
      });
}

// A dot product; a y of another length has one element that is in every place.
template <class T>
void check_dot(const Environment& settings, const std::vector<T>& x, const std::vector<T>& y,
               format f, const Accumulation& sum) {
  const bool once = y.size() != x.size();
  Environment env = settings;
  const IEEEFloat want =
      Reference(env, sum)(values(x, f, settings.flush_operands),
                          values(once ? std::vector(x.size(), y[0]) : y, f, env.flush_operands));
  for_targets([&] {
    Environment own = settings;
    const OddControlWord odd;
    const IEEEFloat r = arrays::dot(own, x, once ? Operand<T>(y[0]) : Operand<T>(y), f, sum);
    ASSERT_EQ(element<std::uint64_t>(r), element<std::uint64_t>(want))
        << text(f, settings) << x.size() << " terms, block " << sum.block
        << (sum.pairwise ? " pairwise" : "");
    ASSERT_EQ(own.flags, env.flags) << text(f, settings) << x.size() << ", block " << sum.block;
  });
}

// c := a * b into rows of a stride, against sums of single elements; a has a stride other than 0.
template <class T, class C>
void check_matmul(const Environment& settings, Matrix<const T> a, Matrix<const T> b, format f,
                  const Accumulation& sum, std::size_t stride) {
  Environment env = settings;
  Reference reference(env, sum);
  const auto x = values(a.data, f, env.flush_operands), y = values(b.data, f, env.flush_operands);
  std::vector<C> want(a.rows * stride, C{77}), c;
  for (std::size_t i = 0; i < a.rows * b.columns; ++i) {
    std::vector<IEEEFloat> row, column;
    for (std::size_t k = 0; k < a.columns; ++k) {
      row.push_back(x[i / b.columns * a.stride + k]);
      column.push_back(y[k * b.stride + i % b.columns]);
    }
    want[i / b.columns * stride + i % b.columns] = element<C>(reference(row, column));
  }
  for_targets([&] {
    Environment own = settings;
    c.assign(want.size(), C{77});
    {
      const OddControlWord odd;
      arrays::matmul(own, a, b, f, sum, Matrix<C>{c, a.rows, b.columns, stride});
    }
    for (std::size_t i = 0; i < c.size(); ++i) {
      ASSERT_EQ(bits(c[i]), bits(want[i]))
          << text(f, settings) << i << ", k " << a.columns << ", block " << sum.block;
    }
    ASSERT_EQ(own.flags, env.flags) << text(f, settings) << ", block " << sum.block;
  });
}

}  // namespace zelk_test

#endif  // ZELK_TESTS_ARRAYS_SUPPORT_H_
