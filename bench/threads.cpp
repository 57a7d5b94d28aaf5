// What threads cost each other: the throughput of as many threads as there are cores over one
// thread's, as a share of the cores. Beside it the same for a loop that computes in registers,
// which is what the machine has to give; the quotient of both is what the library makes of it.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/peers.h"

namespace {

using namespace zelk_bench;  // NOLINT(google-build-using-namespace)
using Clock = std::chrono::steady_clock;

// What a thread does over and over, with operands that it has made itself.
using Job = std::function<void()>;
using MakeJob = std::function<Job()>;

// Seconds until all of so many threads, which start together, have done the job so many times.
double seconds(std::size_t threads, std::size_t times, const MakeJob& make) {
  std::barrier start(static_cast<std::ptrdiff_t>(threads));
  std::vector<Clock::time_point> begins(threads), ends(threads);
  std::vector<std::thread> all;
  for (std::size_t t = 0; t < threads; ++t) {
    all.emplace_back([&, t] {
      const Job job = make();
      job();
      start.arrive_and_wait();
      begins[t] = Clock::now();
      for (std::size_t i = 0; i < times; ++i) {
        job();
      }
      ends[t] = Clock::now();
    });
  }
  for (std::thread& thread : all) {
    thread.join();
  }
  return std::chrono::duration<double>(*std::max_element(ends.begin(), ends.end()) -
                                       *std::min_element(begins.begin(), begins.end()))
      .count();
}

struct Row {
  std::string name;
  MakeJob make;
  std::size_t times = 1;
  // The least seconds so far, of one thread and of all.
  double one = 1e9;
  double all = 1e9;

  // Enough jobs for a few milliseconds.
  void calibrate() {
    while (seconds(1, times, make) < 0.004) {
      times *= 2;
    }
  }
  void measure(std::size_t cores) {
    one = std::min(one, seconds(1, times, make));
    all = std::min(all, seconds(cores, times, make));
  }
  // Of the throughput of all threads over one's, what is due to a core.
  double share() const { return one / all; }
};

template <class T>
Row row(const std::string& name, const std::vector<T>& operands,
        void (*call)(T& r, const T& a, const T& b)) {
  return {name, [=]() -> Job {
            return [operands, call, r = T()]() mutable {
              for (std::size_t i = 0; i < operands.size(); ++i) {
                call(r, operands[i], operands[(i + 1) % operands.size()]);
                benchmark::DoNotOptimize(r);
              }
            };
          }};
}

Row computing() {
  return {"computing", []() -> Job {
            return [x = std::uint64_t{1}]() mutable {
              for (int i = 0; i < 4096; ++i) {
                x ^= x << 13;
                x ^= x >> 7;
                x ^= x << 17;
              }
              benchmark::DoNotOptimize(x);
            };
          }};
}

std::vector<QNumber> fractions(long factor) {
  std::vector<QNumber> all;
  for (long i = 1; i <= 256; ++i) {
    const QNumber q = QNumber(i * 7919 % 1009 - 500) / (i + 2);
    all.push_back(q * factor * factor + q);
  }
  return all;
}

std::vector<Row> rows() {
  std::vector<Row> all;
  for (const Format f : {Format{5, 10}, {11, 52}, {15, 112}, {19, 236}}) {
    const std::string suffix =
        '/' + std::to_string(f.exp_width) + '.' + std::to_string(f.mant_width);
    std::vector<IEEEFloat> values;
    for (const QNumber& q : fractions(0)) {
      values.push_back(IEEEFloat::from_ratio(q, f, IEEEFloat::ROUND_NEAREST_EVEN));
    }
    all.push_back(row("add" + suffix, values, Zelk::add));
    all.push_back(row("mul" + suffix, values, Zelk::mul));
    all.push_back(row<IEEEFloat>("copy" + suffix, values,
                                 [](IEEEFloat& r, const IEEEFloat& a, const IEEEFloat& /*b*/) {
                                   IEEEFloat copied(a);
                                   benchmark::DoNotOptimize(copied);
                                   r.set_mode(copied.get_mode());
                                 }));
  }
  const auto add = [](QNumber& r, const QNumber& a, const QNumber& b) { (r = a) += b; };
  all.push_back(row<QNumber>("q_add/small", fractions(0), add));
  all.push_back(row<QNumber>("q_add/big", fractions(1L << 61), add));
  return all;
}

}  // namespace

int main() {
  const std::size_t cores = std::max(std::thread::hardware_concurrency(), 1U);
  std::vector<Row> all = rows();
  all.insert(all.begin(), computing());
  for (Row& r : all) {
    r.calibrate();
  }
  for (int repetition = 0; repetition < 40; ++repetition) {
    for (Row& r : all) {
      r.measure(cores);
    }
  }
  std::printf("%zu threads; throughput over one thread's, by core; wanted: 0.9 of computing\n\n",
              cores);
  if (all[0].share() < 0.8) {
    std::printf("The machine is busy or its cores share one: the quotients say little.\n\n");
  }
  std::printf("%-14s %9s %10s %9s\n", "row", "by core", "computing", "quotient");
  for (auto r = all.begin() + 1; r != all.end(); ++r) {
    std::printf("%-14s %9.3f %10.3f %9.3f\n", r->name.c_str(), r->share(), all[0].share(),
                r->share() / all[0].share());
  }
}
