// Threads that call at the same time, on objects of their own and reading shared ones, and what
// they leave behind.
#include <barrier>
#include <numeric>
#include <thread>
#include <vector>

#include "tests/heap.h"
#include "tests/number_calls.h"
#include "zelk/float/native.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)
namespace swflt = zelk::swflt;

// Tasks, of which each makes all calls there are on values and numbers that all threads share, and
// on copies of these.
class Work {
 public:
  Work() {
    Random random;
    for (const Format f : formats) {
      for (std::size_t i = 0; i < per_format; ++i) {
        values.push_back(generic(f, modes[i % 4], random.pattern(Layout(f))));
        values.back().self_specialize_repr(IEEEFloat::get_best_repr(f));
      }
    }
    for (std::size_t i = 0; i < values.size(); ++i) results.push_back(result(i));
  }

  // Does all of them, in an order of the caller's, as the thread did that built the object.
  void check(std::size_t first) const {
    for (std::size_t i = 0; i < values.size(); ++i) {
      const std::size_t task = (first + 5 * i) % values.size();
      EXPECT_EQ(result(task), results[task]) << name(values[task]);
    }
  }

 private:
  static constexpr std::size_t per_format = 16;
  static constexpr Format formats[] = {{5, 10},   {8, 23},    {11, 52},   {15, 63}, {15, 112},
                                       {19, 236}, {30, 1000}, {12, 6400}, {64, 4}};

  std::size_t result(std::size_t i) const {
    const IEEEFloat& x = values[i];
    const IEEEFloat& y = values[i / per_format * per_format + (i + 1) % per_format];
    const bool huge = x.get_format().exp_width == 30;  // its exact values
    std::ostringstream all;
    all << bits(x) << x.is_nan() << x.is_inf() << x.is_zero() << x.is_subnormal() << x.get_sign()
        << ieee_cmp(x, y) << (x < y) << (x == y) << (x > y) << (x <= y) << x.to_integer(70)
        << zelk::PatternHash()(x) << zelk::SamePattern()(x, y)
        << message([&] { all << zelk::to_native<double>(x); })
        << message([&] { huge ? all : all << x << x.to_integer(0) << x.to_number(); });
    const QNumber &a = numbers[i % numbers.size()], &b = numbers[i / 3 % numbers.size()];
    all << a << b << (a < b) << (a == b) << a.inv() << a.get_num() << b.is_integer();
    const Format g = values[i * 7 % values.size()].get_format();
    for (std::size_t k = 0; k < std::size(calls); ++k) {
      if (!huge || k < first_exact || k >= first_of_g) all << outcome(calls[k], x, &y, g, a);
    }
    for (std::size_t k = 0; k < last_exact + (huge ? 0 : 1); ++k) {
      all << outcome(environment_calls[k], x, &y, g, a);
    }
    for (unsigned long which = 0; which < Numbers::calls; ++which) {
      Numbers some{{a, b, b, a}, {a.to_mpq(), b.to_mpq(), b.to_mpq(), a.to_mpq()}};
      some.call(which, i % 16, 1UL << i % 64);
      for (const QNumber& q : some.numbers) all << q;
    }
    swflt::float_exception_flags = 0;
    all << swflt::float64_div(i, i % 9, static_cast<int>(i % 4)) << swflt::float_exception_flags;
    return std::hash<std::string>()(all.str());
  }

  std::vector<IEEEFloat> values;
  const std::vector<QNumber> numbers = {
      7, QNumber(-3) / 8, 1L << 62, -power(70) - 1, power(70).inv() + 1, power(900) / 7};
  std::vector<std::size_t> results;
};

TEST(Threads, ComputeWhatOneDoes) {
  const Work work;
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < 4; ++i) {
    threads.emplace_back([&work, i] {
      for (long n = 1; n < 1000; ++n) {  // what no thread knows yet
        EXPECT_EQ((QNumber(n) / 1000).get_den(), 1000 / std::gcd(n, 1000));
      }
      for (int pass = 0; pass < 3; ++pass) work.check(40 * i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(Threads, HaveFlagsOfTheirOwn) {
  std::barrier all(4);
  std::vector<std::thread> threads;
  for (unsigned char i = 0; i < 4; ++i) {
    threads.emplace_back([&all, i] {
      swflt::float_exception_flags = i;
      all.arrive_and_wait();
      EXPECT_EQ(swflt::float_exception_flags, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// What a thread destroys at its end is at work then, be it older or younger than what the library
// keeps for the thread, or the only one at work; and all storage comes back.
struct AtWorkInTheEnd {
  const Work& work;
  explicit AtWorkInTheEnd(const Work& w) : work(w) {}
  AtWorkInTheEnd(const AtWorkInTheEnd&) = delete;
  AtWorkInTheEnd& operator=(const AtWorkInTheEnd&) = delete;
  ~AtWorkInTheEnd() { work.check(0); }
};

TEST(Threads, GiveBackWhatTheyKeep) {
  const Work work;
  for (const bool before : {false, true}) {
    for (const bool during : {false, true}) {
      for (const bool after : {false, true}) {
        const long had = heap.blocks;
        std::thread([&] {
          if (before) [[maybe_unused]]
            static thread_local const AtWorkInTheEnd older(work);
          const long has = heap.blocks;
          if (during) work.check(0);
          EXPECT_EQ(heap.blocks > has, during);  // it keeps something
          if (after) [[maybe_unused]]
            static thread_local const AtWorkInTheEnd younger(work);
        }).join();
        EXPECT_EQ(heap.blocks, had) << before << during << after;
      }
    }
  }
}
