// The table of ./dev bench arrays: whole arrays beside a plain pass over as many arrays of the same
// types, and beside the environment's single operation in a loop.
#include "zelk/arrays.h"

#include <hwy/highway.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "zelk/float/formats.h"
#include "zelk/float/native.h"

namespace {

using zelk::Environment;
using zelk::IEEEFloat;
using zelk::Rounding;
namespace arrays = zelk::arrays;
using arrays::format;

// The processor's time for this thread, in nanoseconds: others may be at work.
double now() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

// The least time of a call, in nanoseconds an element, of calls in batches that outweigh the clock.
double time(std::size_t elements, double seconds, const std::function<void()>& call) {
  const std::size_t batch = std::max<std::size_t>(1, 200000 / elements);
  const auto once = [&] {
    const double start = now();
    for (std::size_t i = 0; i < batch; ++i) call();
    return (now() - start) / static_cast<double>(elements * batch);
  };
  double best = once();
  for (const double end = now() + seconds * 1e9; now() < end;) best = std::min(best, once());
  return best;
}

// An array whose place modulo 4096 is a number's own, so that stores do not look like loads.
template <class T>
class Array {
 public:
  explicit Array(std::size_t n, std::size_t number)
      : room(new char[n * sizeof(T) + 8192]), size(n) {
    const auto address = reinterpret_cast<std::uintptr_t>(room.get());
    first = reinterpret_cast<T*>(room.get() + (4096 - address % 4096) + number * 832);
  }
  std::span<T> span() const { return {first, size}; }

 private:
  std::unique_ptr<char[]> room;
  std::size_t size;
  T* first;
};

using Words = std::uint64_t __attribute__((vector_size(32), aligned(1), may_alias));

// Reads all operands and writes the result, 32 bytes of the widest at a time.
template <class In, class Out>
void pass(const std::vector<std::span<In>>& in, std::span<Out> out) {
  if (in.size() == 1 && sizeof(In) == sizeof(Out)) {
    std::memcpy(out.data(), in[0].data(), out.size_bytes());
    return;
  }
  const auto bytes = [](auto s) { return s.size() * sizeof(s[0]) / sizeof(Words); };
  const auto n = bytes(out), k = bytes(in[0]);
  auto* to = reinterpret_cast<Words*>(out.data());
  if (n == k) {
    for (std::size_t i = 0; i < n; ++i) {
      Words w = reinterpret_cast<const Words*>(in[0].data())[i];
      for (std::size_t j = 1; j < in.size(); ++j)
        w |= reinterpret_cast<const Words*>(in[j].data())[i];
      to[i] = w;
    }
    return;
  }
  const auto* from = reinterpret_cast<const Words*>(in[0].data());
  for (std::size_t i = 0; i < std::min(n, k); ++i) {
    Words w = from[i * k / std::min(n, k)];
    for (std::size_t j = 1; j < k / std::min(n, k); ++j) w |= from[i * (k / n) + j];
    for (std::size_t j = 0; j < n / std::min(n, k); ++j) to[i * (n / std::min(n, k)) + j] = w;
  }
}

constexpr std::size_t in_cache = 16384, in_memory = std::size_t{1} << 24;

// A copy of doubles in cache, beside which times are put: taken again for each row, as others who
// are at work on the machine slow down copies and arithmetic alike.
double copy_of_doubles() {
  static const Array<double> x(in_cache, 1), y(in_cache, 0);
  std::memset(x.span().data(), 0, x.span().size_bytes());
  return time(in_cache, 0.02, [&] { pass<double, double>({x.span()}, y.span()); });
}

// Values of f, normal ones near 1 with some far from it, and subnormals.
template <class T>
void fill(std::span<T> x, format f, bool rounded, bool positive, unsigned seed) {
  std::mt19937_64 words(seed);
  std::normal_distribution<double> normal;
  Environment env;
  std::vector<double> numbers(std::min<std::size_t>(x.size(), 4096));
  const double least = zelk::to_native<double>(
      Environment{}.convert(zelk::FormatLimits(f).smallest_normal(), {11, 52}));
  for (double& a : numbers) a = normal(words) * (words() % 16 == 0 ? least : 1.0);
  for (double& a : numbers) a = positive ? std::abs(a) : a;
  if (rounded) arrays::round(env, numbers, f, numbers);
  if constexpr (arrays::number<T>) {
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = static_cast<T>(numbers[i % numbers.size()]);
  } else {
    std::vector<T> patterns(numbers.size());
    arrays::encode(env, numbers, f, patterns);
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = patterns[i % patterns.size()];
  }
}

template <class In, class Out>
struct Row {
  std::string name;
  format f;
  std::size_t operands;
  bool rounded;  // operands are values of f
  double bar, memory_bar;
  std::function<void(Environment&, std::span<const In>, std::span<const In>, std::span<const In>,
                     std::span<Out>)>
      arrays;
  std::function<IEEEFloat(Environment&, const IEEEFloat&, const IEEEFloat&, const IEEEFloat&)>
      single;
};

template <class In, class Out>
double run(const Row<In, Out>& row, std::size_t n, double seconds, Environment env, double& plain) {
  std::vector<Array<In>> x;
  std::vector<std::span<In>> in;
  for (std::size_t k = 0; k < row.operands; ++k) {
    x.emplace_back(n, k + 1);
    in.push_back(x[k].span());
    fill<In>(in[k], row.f, row.rounded, row.name.starts_with("sqrt"), static_cast<unsigned>(k + 1));
  }
  const Array<Out> out(n, 0);
  std::memset(out.span().data(), 0, out.span().size_bytes());
  plain = time(n, seconds / 3, [&] { pass<In, Out>(in, out.span()); });
  const double t = time(n, seconds, [&] {
    row.arrays(env, in[0], in[1 % in.size()], in[2 % in.size()], out.span());
  });
  plain = std::min(plain, time(n, seconds / 3, [&] { pass<In, Out>(in, out.span()); }));
  return t;
}

template <class In, class Out>
double run_single(const Row<In, Out>& row, Environment env) {
  std::vector<IEEEFloat> x[3];
  for (std::size_t k = 0; k < 3; ++k) {
    std::vector<In> numbers(2048);
    fill<In>(numbers, row.f, row.rounded, row.name.starts_with("sqrt"),
             static_cast<unsigned>(k + 1));
    for (const In a : numbers) {
      if constexpr (arrays::number<In>) {
        const IEEEFloat v = zelk::from_native(a);
        x[k].push_back(row.rounded ? Environment{}.convert(v, row.f) : v);
      } else {
        x[k].push_back(
            zelk::detail::PatternAccess::make(row.f, IEEEFloat::ROUND_NEAREST_EVEN, a, 0));
      }
    }
  }
  std::vector<IEEEFloat> out(2048);
  return time(2048, 0.02, [&] {
    for (std::size_t i = 0; i < out.size(); ++i)
      out[i] = row.single(env, x[0][i], x[1][i], x[2][i]);
  });
}

int failed = 0;
bool memory = true;
std::string only;

template <class In, class Out>
void report(const Row<In, Out>& row, Environment env = {}) {
  if (row.name.find(only) == std::string::npos) return;
  double plain = 0, far_plain = 1, far = 0;
  const double before = copy_of_doubles();
  const double t = run(row, in_cache, 0.05, env, plain);
  const double copies = t / std::min(before, copy_of_doubles());
  if (memory) far = run(row, in_memory, 0.5, env, far_plain);
  const double single = run_single(row, env);
  std::printf("%-34s (%lu, %-2lu) %6.3f %6.2f %5.1f %6.3f | %6.3f %5.2f %4.1f | %6.1f %6.1f\n",
              row.name.c_str(), row.f.exp_width, row.f.mant_width, t, copies, row.bar, plain, far,
              far / far_plain, row.memory_bar, single, single / t);
  std::fflush(stdout);
  failed += copies > row.bar ? 1 : 0;
}

#define ZELK_ROW(op)                                                         \
  [f](auto& e, auto x, auto y, auto, auto o) { arrays::op(e, x, y, f, o); }, \
      [](auto& e, auto& x, auto& y, auto&) { return e.op(x, y); }

void rounding_rows(format f) {
  const auto single = [f](auto& e, auto& x, auto&, auto&) { return e.convert(x, f); };
  const auto whole = [f](auto& e, auto x, auto, auto, auto o) { arrays::round(e, x, f, o); };
  report<double, double>({"round doubles", f, 1, false, 4, 1.4, whole, single});
  report<double, double>({"round doubles, upward", f, 1, false, 4, 1.4, whole, single},
                         {Rounding::toward_positive});
  report<double, double>({"round doubles, downward", f, 1, false, 4, 1.4, whole, single},
                         {Rounding::toward_negative});
  report<double, double>({"round doubles, toward zero", f, 1, false, 4, 1.4, whole, single},
                         {Rounding::toward_zero});
  report<double, double>({"round doubles, nearest-away", f, 1, false, 6, 1.4, whole, single},
                         {Rounding::nearest_away});
  report<double, double>({"round doubles, to odd", f, 1, false, 6, 1.4, whole, single},
                         {Rounding::to_odd});
  report<double, double>({"round doubles, stochastic", f, 1, false, 25, 99,
                          [f](auto& e, auto x, auto, auto, auto o) {
                            arrays::round(e, x, f, o, arrays::Stochastic{1, 0});
                          },
                          single});
  report<float, float>({"round floats", f, 1, false, 2.5, 1.4, whole, single});
}

template <class T>
void arithmetic_rows(format f, const std::string& of) {
  const bool patterns = arrays::pattern<T>;
  const double away = patterns ? 99 : 0;
  report<T, T>({"add" + of, f, 2, true, 5 + away, 1.4, ZELK_ROW(add)});
  report<T, T>({"add, upward" + of, f, 2, true, 5 + away, 1.4, ZELK_ROW(add)},
               {Rounding::toward_positive});
  report<T, T>({"multiply" + of, f, 2, true, 5 + away, 1.4, ZELK_ROW(multiply)});
  report<T, T>({"divide" + of, f, 2, true, 9 + away, 1.4, ZELK_ROW(divide)});
  report<T, T>({"sqrt" + of, f, 1, true, 9 + away, 1.4,
                [f](auto& e, auto x, auto, auto, auto o) { arrays::sqrt(e, x, f, o); },
                [](auto& e, auto& x, auto&, auto&) { return e.sqrt(x); }});
  report<T, T>({"fma" + of, f, 3, true, 8 + away, 2,
                [f](auto& e, auto x, auto y, auto z, auto o) { arrays::fma(e, x, y, z, f, o); },
                [](auto& e, auto& x, auto& y, auto& z) { return e.fma(x, y, z); }});
  report<T, T>({"maximum" + of, f, 2, true, 5 + away, 1.4, ZELK_ROW(maximum)});
}

template <class T>
void pattern_rows(format f) {
  report<double, T>({"encode doubles", f, 1, false, 8, 2,
                     [f](auto& e, auto x, auto, auto, auto o) { arrays::encode(e, x, f, o); },
                     [f](auto& e, auto& x, auto&, auto&) { return e.convert(x, f); }});
  report<T, double>({"decode to doubles", f, 1, true, 4, 1.4,
                     [f](auto&, auto x, auto, auto, auto o) { arrays::decode(x, f, o); },
                     [](auto& e, auto& x, auto&, auto&) {
                       return e.convert(x, {11, 52});
                     }});
  arithmetic_rows<T>(f, " of patterns");
}

void sum_rows() {
  const format half{5, 10}, single{8, 23};
  const Array<std::uint16_t> x(in_cache, 1), y(in_cache, 2);
  fill<std::uint16_t>(x.span(), half, true, false, 1);
  fill<std::uint16_t>(y.span(), half, true, false, 2);
  Environment env;
  const double dot =
      time(in_cache, 0.2, [&] { arrays::dot(env, x.span(), y.span(), half, {single}); });
  std::printf("%-34s          %6.3f %6.2f %5.1f a term\n", "exact dot of halves", dot,
              dot / copy_of_doubles(), 4.0);
  const std::size_t n = 512;
  const Array<std::uint16_t> a(n * n, 1), b(n * n, 2);
  const Array<float> c(n * n, 3);
  fill<std::uint16_t>(a.span(), half, true, false, 1);
  fill<std::uint16_t>(b.span(), half, true, false, 2);
  for (const std::size_t block : {0U, 1U}) {
    const double t = time(n * n * n, 1, [&] {
      arrays::matmul<std::uint16_t, std::uint16_t, float>(env, {a.span(), n, n}, {b.span(), n, n},
                                                          half, {single, block}, {c.span(), n, n});
    });
    std::printf("%-34s          %6.3f %6.2f %5.1f a multiply-add\n",
                block == 0 ? "matmul of halves, exact sums" : "matmul of halves, chains of fma", t,
                t / copy_of_doubles(), 1.0);
  }
}

}  // namespace

// Arguments: part of a row's name, and after it anything to leave memory out; HWY_TARGET in the
// environment names an instruction set.
int main(int argc, char** argv) {
  only = argc > 1 ? argv[1] : "";
  memory = argc <= 2;
  if (const char* name = std::getenv("HWY_TARGET")) {
    for (std::int64_t left = HWY_TARGETS; left != 0; left &= left - 1) {
      if (name == std::string(hwy::TargetName(left & -left)))
        hwy::SetSupportedTargetsForTest(left & -left);
    }
  }
  std::printf("a copy of doubles in cache: %.3f ns\n", copy_of_doubles());
  std::printf(
      "%-34s %7s  in cache, ns; in copies, bar; plain pass | from memory, ns; in plain passes, bar "
      "| single, ns; slower\n",
      "row", "format");
  for (const format f : {format{5, 10}, {8, 7}, {5, 2}, {4, 3}, {8, 23}}) {
    rounding_rows(f);
    arithmetic_rows<double>(f, "");
  }
  pattern_rows<std::uint16_t>({5, 10});
  pattern_rows<std::uint16_t>({8, 7});
  pattern_rows<std::uint8_t>({5, 2});
  pattern_rows<std::uint8_t>({4, 3});
  if (std::string("sums").find(only) != std::string::npos) sum_rows();
  std::printf("%d rows over their bars in cache\n", failed);
}
