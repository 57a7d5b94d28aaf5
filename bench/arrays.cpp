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
#include <limits>
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

double now(clockid_t clock) {
  timespec t;
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

// The least time of a call, in nanoseconds an element, of calls in batches that outweigh the clock.
// Others may be at work: long calls are timed by this thread's own time. That is some microseconds
// short where a thread has been interrupted, so that short batches go by the time of day.
double time(std::size_t elements, double seconds, const std::function<void()>& call) {
  const auto run = [&](clockid_t clock, std::size_t batch) {
    const double start = now(clock);
    for (std::size_t i = 0; i < batch; ++i) call();
    return (now(clock) - start) / static_cast<double>(batch);
  };
  call();  // which brings what it needs into the caches
  const double first = run(CLOCK_THREAD_CPUTIME_ID, 1);
  const bool brief = first < 1e5;
  const clockid_t clock = brief ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID;
  const std::size_t batch = brief ? 1 + static_cast<std::size_t>(3e4 / std::max(first, 100.0)) : 1;
  double best = run(clock, batch);
  for (const double end = now(clock) + seconds * 1e9; now(clock) < end;) {
    best = std::min(best, run(clock, batch));
  }
  return best / static_cast<double>(elements);
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

using Words = std::uint64_t __attribute__((vector_size(16), aligned(1), may_alias));

// Reads N operands and writes the result, 16 bytes of the narrowest at a time.
template <std::size_t N, class In, class Out>
void pass_of(const std::vector<std::span<In>>& in, std::span<Out> out) {
  const Words* from[N];
  for (std::size_t j = 0; j < N; ++j)
    from[j] = reinterpret_cast<const Words*>(in[j % in.size()].data());
  auto* to = reinterpret_cast<Words*>(out.data());
  constexpr std::size_t least = std::min(sizeof(In), sizeof(Out)), many = sizeof(In) / least;
  for (std::size_t i = 0; i < out.size() * least / sizeof(Words); ++i) {
    Words w{};
    for (std::size_t k = 0; k < many; ++k) {
      for (std::size_t j = 0; j < N; ++j) w |= from[j][i * many + k];
    }
    for (std::size_t k = 0; k < sizeof(Out) / least; ++k) to[i * (sizeof(Out) / least) + k] = w;
  }
}

template <class In, class Out>
void pass(const std::vector<std::span<In>>& in, std::span<Out> out) {
  if (in.size() == 1 && sizeof(In) == sizeof(Out)) {
    std::memcpy(out.data(), in[0].data(), out.size_bytes());
  } else {
    in.size() == 1   ? pass_of<1>(in, out)
    : in.size() == 2 ? pass_of<2>(in, out)
                     : pass_of<3>(in, out);
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

// The least times of a row and of its plain pass, those of earlier runs among them.
template <class In, class Out>
void run(const Row<In, Out>& row, std::size_t n, double seconds, Environment env, double& best,
         double& plain) {
  std::vector<Array<In>> x;
  std::vector<std::span<In>> in;
  for (std::size_t k = 0; k < row.operands; ++k) {
    x.emplace_back(n, k + 1);
    in.push_back(x[k].span());
    fill<In>(in[k], row.f, row.rounded, row.name.starts_with("sqrt"), static_cast<unsigned>(k + 1));
  }
  const Array<Out> out(n, 0);
  std::memset(out.span().data(), 0, out.span().size_bytes());
  const auto run_plain =
      [&] {  // whether a copy is quicker by loop or by memcpy depends on its size
        plain = std::min(plain, time(n, seconds / 3, [&] { pass<In, Out>(in, out.span()); }));
        if (in.size() == 1) {
          plain = std::min(plain, time(n, seconds / 3, [&] { pass_of<1>(in, out.span()); }));
        }
      };
  run_plain();
  best = std::min(best, time(n, seconds, [&] {
                    row.arrays(env, in[0], in[1 % in.size()], in[2 % in.size()], out.span());
                  }));
  run_plain();
}

// The same numbers as single values.
template <class T>
std::vector<IEEEFloat> values(format f, unsigned seed, bool rounded, bool positive = false) {
  std::vector<T> numbers(2048);
  fill<T>(numbers, f, rounded, positive, seed);
  std::vector<IEEEFloat> x;
  for (const T a : numbers) {
    if constexpr (arrays::number<T>) {
      const IEEEFloat v = zelk::from_native(a);
      x.push_back(rounded ? Environment{}.convert(v, f) : v);
    } else {
      x.push_back(zelk::detail::PatternAccess::make(f, IEEEFloat::ROUND_NEAREST_EVEN, a, 0));
    }
  }
  return x;
}

template <class In, class Out>
double run_single(const Row<In, Out>& row, Environment env) {
  std::vector<IEEEFloat> x[3], out(2048);
  for (unsigned k = 0; k < 3; ++k) {
    x[k] = values<In>(row.f, k + 1, row.rounded, row.name.starts_with("sqrt"));
  }
  return time(out.size(), 0.02, [&] {
    for (std::size_t i = 0; i < out.size(); ++i) {
      out[i] = row.single(env, x[0][i], x[1][i], x[2][i]);
    }
  });
}

bool memory = true;
std::string only;
int over[3];  // rows over their bars: in cache, from memory, and less than 5 times as quick as
              // singles

// A line of the table, in nanoseconds an element; what is `none` has not been timed, or no bar.
constexpr double none = std::numeric_limits<double>::infinity();
struct Line {
  double time = none, copies = none, bar = none, plain = none;  // in cache
  double far = none, far_plain = none, memory_bar = none;       // from memory
  double single = none;
};

void print(const std::string& name, format f, const Line& l) {
  const double slower = l.single / l.time, passes = l.far / l.far_plain;
  std::printf("%-34s (%lu, %-2lu)", name.c_str(), f.exp_width, f.mant_width);
  const auto cell = [](int width, int digits, double x) {
    std::isfinite(x) ? std::printf("%*.*f", width, digits, x) : std::printf("%*s", width, "-");
  };
  cell(7, 3, l.time), cell(7, 2, l.copies), cell(6, 1, l.bar), cell(7, 3, l.plain);
  std::printf(" |");
  cell(7, 3, l.far), cell(6, 2, passes), cell(5, 1, l.memory_bar);
  std::printf(" |");
  cell(7, 1, l.single), cell(7, 1, slower);
  std::printf("\n");
  std::fflush(stdout);
  over[0] += l.copies > l.bar ? 1 : 0;
  over[1] += std::isfinite(passes) && passes > l.memory_bar ? 1 : 0;
  over[2] += slower < 5 ? 1 : 0;
}

template <class In, class Out>
void report(const Row<In, Out>& row, Environment env = {}) {
  if (row.name.find(only) == std::string::npos) return;
  Line l;
  l.bar = row.bar;
  l.memory_bar = row.memory_bar;
  // Rows over their bars are timed again, a few times, as others may be at work.
  double copy = none;
  for (int i = 0; i < 5 && (i == 0 || l.copies > l.bar); ++i) {
    copy = std::min(copy, copy_of_doubles());
    run(row, in_cache, 0.05, env, l.time, l.plain);
    copy = std::min(copy, copy_of_doubles());
    l.copies = l.time / copy;
  }
  for (int i = 0; memory && i < 3 && (i == 0 || l.far / l.far_plain > l.memory_bar); ++i) {
    run(row, in_memory, 0.5, env, l.far, l.far_plain);
  }
  if (row.single) l.single = run_single(row, env);
  print(row.name, row.f, l);
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
  // No single operation rounds by draws.
  report<double, double>({"round doubles, stochastic",
                          f,
                          1,
                          false,
                          25,
                          none,
                          [f](auto& e, auto x, auto, auto, auto o) {
                            arrays::round(e, x, f, o, arrays::Stochastic{1, 0});
                          },
                          {}});
  report<float, float>({"round floats", f, 1, false, 2.5, 1.4, whole, single});
}

// Bars are for numbers.
template <class T>
void arithmetic_rows(format f, const std::string& of) {
  const auto bar = [](double x) { return arrays::number<T> ? x : none; };
  report<T, T>({"add" + of, f, 2, true, bar(5), bar(1.4), ZELK_ROW(add)});
  report<T, T>({"add, upward" + of, f, 2, true, bar(5), bar(1.4), ZELK_ROW(add)},
               {Rounding::toward_positive});
  report<T, T>({"multiply" + of, f, 2, true, bar(5), bar(1.4), ZELK_ROW(multiply)});
  report<T, T>({"divide" + of, f, 2, true, bar(9), bar(1.4), ZELK_ROW(divide)});
  report<T, T>({"sqrt" + of, f, 1, true, bar(9), bar(1.4),
                [f](auto& e, auto x, auto, auto, auto o) { arrays::sqrt(e, x, f, o); },
                [](auto& e, auto& x, auto&, auto&) { return e.sqrt(x); }});
  report<T, T>({"fma" + of, f, 3, true, bar(8), bar(2),
                [f](auto& e, auto x, auto y, auto z, auto o) { arrays::fma(e, x, y, z, f, o); },
                [](auto& e, auto& x, auto& y, auto& z) { return e.fma(x, y, z); }});
  report<T, T>({"maximum" + of, f, 2, true, bar(5), bar(1.4), ZELK_ROW(maximum)});
}

template <class T>
void pattern_rows(format f, format g) {
  report<double, T>({"encode doubles", f, 1, false, 8, 2,
                     [f](auto& e, auto x, auto, auto, auto o) { arrays::encode(e, x, f, o); },
                     [f](auto& e, auto& x, auto&, auto&) { return e.convert(x, f); }});
  report<T, double>({"decode to doubles", f, 1, true, 4, 1.4,
                     [f](auto&, auto x, auto, auto, auto o) { arrays::decode(x, f, o); },
                     [](auto& e, auto& x, auto&, auto&) {
                       return e.convert(x, {11, 52});
                     }});
  const std::string to = std::to_string(g.exp_width) + ", " + std::to_string(g.mant_width);
  report<T, T>({"convert to (" + to + ")", f, 1, true, none, none,
                [f, g](auto& e, auto x, auto, auto, auto o) { arrays::convert(e, x, f, o, g); },
                [g](auto& e, auto& x, auto&, auto&) { return e.convert(x, g); }});
  arithmetic_rows<T>(f, " of patterns");
}

// Reads two arrays of halves.
void read(std::span<const std::uint16_t> x, std::span<const std::uint16_t> y) {
  Words w{};
  for (std::size_t i = 0; i < x.size_bytes() / sizeof(Words); ++i) {
    w |= reinterpret_cast<const Words*>(x.data())[i] | reinterpret_cast<const Words*>(y.data())[i];
  }
  [[maybe_unused]] volatile std::uint64_t read = w[0];
}

const format half{5, 10}, single{8, 23};
using Halves = std::span<std::uint16_t>;

void dot_rows() {
  Line l{.bar = 4};
  Environment env;
  for (const std::size_t n : {in_cache, in_memory}) {
    if (n == in_memory && !memory) continue;
    const Array<std::uint16_t> x(n, 1), y(n, 2);
    fill<std::uint16_t>(x.span(), half, true, false, 1);
    fill<std::uint16_t>(y.span(), half, true, false, 2);
    (n == in_cache ? l.time : l.far) =
        time(n, 0.2, [&] { arrays::dot(env, x.span(), y.span(), half, {single}); });
    (n == in_cache ? l.plain : l.far_plain) = time(n, 0.1, [&] { read(x.span(), y.span()); });
    if (n == in_cache) l.copies = l.time / copy_of_doubles();
  }
  const auto x = values<std::uint16_t>(half, 1, true), y = values<std::uint16_t>(half, 2, true);
  l.single = time(x.size(), 0.1, [&] { env.dot(x, y, single); });
  print("exact dot of halves, a term", half, l);
}

// Times are of a multiply-add. Chains of fma have no bar.
void product_rows() {
  const std::size_t n = 512;
  const Array<std::uint16_t> a(n * n, 1), b(n * n, 2);
  const Array<float> c(n * n, 3);
  fill<std::uint16_t>(a.span(), half, true, false, 1);
  fill<std::uint16_t>(b.span(), half, true, false, 2);
  const auto x = values<std::uint16_t>(half, 1, true), y = values<std::uint16_t>(half, 2, true);
  Environment env;
  for (const std::size_t block : {0U, 1U}) {
    Line l{.bar = block == 0 ? 1 : none};
    l.time = time(n * n * n, 1, [&] {
      arrays::matmul<std::uint16_t, std::uint16_t, float>(env, {a.span(), n, n}, {b.span(), n, n},
                                                          half, {single, block}, {c.span(), n, n});
    });
    l.copies = l.time / copy_of_doubles();
    l.plain = time(n * n * n, 0.1, [&] {
      pass<std::uint16_t, float>({a.span(), b.span()}, c.span());
    });
    l.single = time(x.size(), 0.1, [&] {
      if (block == 0) {
        for (std::size_t i = 0; i < x.size(); i += n) {
          env.dot(std::span(x).subspan(i, n), std::span(y).subspan(i, n), single);
        }
      } else {
        IEEEFloat sum(single, IEEEFloat::ROUND_NEAREST_EVEN);
        for (std::size_t i = 0; i < x.size(); ++i) sum = env.fma(x[i], y[i], sum, single);
      }
    });
    print(block == 0 ? "exact matmul of halves, 512 cubed" : "matmul of halves by chains of fma",
          half, l);
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
  pattern_rows<std::uint16_t>({5, 10}, {8, 7});
  pattern_rows<std::uint16_t>({8, 7}, {5, 10});
  pattern_rows<std::uint8_t>({5, 2}, {4, 3});
  pattern_rows<std::uint8_t>({4, 3}, {5, 2});
  if (std::string("dot").find(only) != std::string::npos) dot_rows();
  if (std::string("matmul").find(only) != std::string::npos) product_rows();
  std::printf(
      "rows over their bars: %d in cache, %d from memory; %d less than 5 times as quick as "
      "single operations\n",
      over[0], over[1], over[2]);
}
