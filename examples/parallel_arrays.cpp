// Arrays by several threads: each takes a part, with an environment of its own, and the flags are
// united. Elements do not depend on how an array is split, nor does a product of matrices by rows.
#include <iostream>
#include <thread>
#include <vector>

#include "zelk/arrays.h"
#include "zelk/float/formats.h"

namespace {

using zelk::Environment;
namespace arrays = zelk::arrays;
constexpr zelk::IEEEFloat::format half = zelk::formats::half, single = zelk::formats::single;

// Calls work(env, begin, end) for parts of [0, n), and gives all flags.
template <class Work>
unsigned in_parts(unsigned threads, std::size_t n, Work work) {
  std::vector<Environment> environments(threads);
  {
    std::vector<std::jthread> team;
    for (std::size_t i = 0; i < threads; ++i) {
      team.emplace_back([&, i] { work(environments[i], n * i / threads, n * (i + 1) / threads); });
    }
  }  // joined
  unsigned flags = 0;
  for (const Environment& env : environments) flags |= env.flags;
  return flags;
}

struct Results {
  std::vector<std::uint16_t> rounded;
  std::vector<float> product;
  unsigned flags;
  bool operator==(const Results&) const = default;
};

Results compute(unsigned threads, std::size_t n) {
  std::vector<double> x(n * n);
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i * 7919 % 10007) / 997 - 5;
  Results r{std::vector<std::uint16_t>(n * n), std::vector<float>(n * n), 0};
  r.flags = in_parts(threads, x.size(), [&](Environment& env, std::size_t begin, std::size_t end) {
    const std::span part = std::span(r.rounded).subspan(begin, end - begin);
    arrays::encode(env, std::span(x).subspan(begin, end - begin), half, part,
                   arrays::Stochastic{1, begin});
  });
  r.flags |= in_parts(threads, n, [&](Environment& env, std::size_t begin, std::size_t end) {
    const std::span<const std::uint16_t> a(r.rounded);
    const arrays::Matrix<const std::uint16_t> rows{a.subspan(begin * n), end - begin, n},
        all{a, n, n};
    arrays::matmul(env, rows, all, half, {single},
                   arrays::Matrix<float>{std::span(r.product).subspan(begin * n), end - begin, n});
  });
  return r;
}

}  // namespace

int main() {
  const Results one = compute(1, 101);
  bool same = true;
  for (const unsigned threads : {2U, 3U, 8U}) same = same && compute(threads, 101) == one;
  std::cout << "1, 2, 3 and 8 threads: " << (same ? "the same bits and flags" : "they differ")
            << '\n';
  return same ? 0 : 1;
}
