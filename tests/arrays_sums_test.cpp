// Dot products and matrices against the environment's `dot`, and in draws against rationals.
#include "tests/arrays_support.h"
#include "zelk/arrays/stochastic.h"

namespace {

using namespace zelk_test;
using arrays::Accumulation;

// A sum as its definition has it, by the environment's dot of values.
class Reference {
 public:
  Reference(Environment& environment, const Accumulation& accumulation)
      : env(environment), sum(accumulation) {}

  IEEEFloat operator()(const std::vector<IEEEFloat>& x, const std::vector<IEEEFloat>& y) {
    const std::size_t n = x.size(), block = sum.block == 0 ? n : sum.block;
    if (n == 0) return {sum.result, IEEEFloat::ROUND_NEAREST_EVEN};
    std::vector<IEEEFloat> sums;
    for (std::size_t begin = 0; begin < n; begin += block) {
      std::vector<IEEEFloat> a, b;
      if (!sums.empty() && !sum.pairwise) {
        a.push_back(sums.back());
        b.push_back(one(sum.result));
        sums.pop_back();
      }
      const std::size_t end = std::min(n, begin + block);
      a.insert(a.end(), x.begin() + static_cast<long>(begin), x.begin() + static_cast<long>(end));
      b.insert(b.end(), y.begin() + static_cast<long>(begin), y.begin() + static_cast<long>(end));
      sums.push_back(env.dot(a, b, sum.result));
    }
    while (sums.size() > 1) {
      std::vector<IEEEFloat> next;
      for (std::size_t i = 0; i < sums.size(); i += 2) {
        next.push_back(i + 1 < sums.size() ? env.add(sums[i], sums[i + 1]) : sums[i]);
      }
      sums = next;
    }
    return sums[0];
  }

 private:
  static IEEEFloat one(format f) {
    return IEEEFloat::from_ratio(1, f, IEEEFloat::ROUND_NEAREST_EVEN);
  }

  Environment& env;
  const Accumulation& sum;
};

template <class T>
std::vector<IEEEFloat> values(const std::vector<T>& x, format f, bool flush) {
  std::vector<IEEEFloat> v;
  v.reserve(x.size());
  for (const T a : x) {
    v.push_back(operand(a, f, flush));
  }
  return v;
}

template <class T>
std::vector<T> any_elements(format f, std::size_t n, int kind) {
  std::vector<T> x(n);
  for (T& a : x) {
    a = any_element<T>(f);
    const IEEEFloat v = value(a, f);
    const bool far = v.is_nan() || v.is_inf();
    if (kind == 0 ? far : kind == 1 && (far || random_below(2) != 0)) {
      a = element<T>(IEEEFloat::from_scaled(static_cast<long>(random_below(64)) - 32, -3, f,
                                            IEEEFloat::ROUND_NEAREST_EVEN));
    } else if (kind == 2) {  // zeros and ones of both signs
      a = element<T>(IEEEFloat::from_scaled(static_cast<long>(random_below(2)), 0, f,
                                            IEEEFloat::ROUND_NEAREST_EVEN));
      IEEEFloat s = value(a, f);
      s.set_sign(random_below(3) != 0);
      a = element<T>(s);
    }
  }
  return x;
}

Accumulation any_accumulation(format result) {
  const std::size_t blocks[] = {0, 0, 1, 1, 2, 5, 100, 1000};
  return {result, blocks[random_below(8)], random_below(2) != 0};
}

template <class T>
void test_dot(format f, format result) {
  for (int kind = 0; kind < 4; ++kind) {
    for_environments([&](const Environment& settings) {
      const std::size_t n = random_below(3) == 0 ? random_below(1300) : random_below(20);
      const std::vector<T> x = any_elements<T>(f, n, kind);
      const std::vector<T> y = any_elements<T>(f, n, kind == 3 ? 1 : kind);
      const Accumulation sum = any_accumulation(result);
      Environment env = settings;
      const IEEEFloat want = Reference(env, sum)(values(x, f, settings.flush_operands),
                                                 values(y, f, settings.flush_operands));
      for_targets([&] {
        Environment own = settings;
        const OddControlWord odd;
        const IEEEFloat r = arrays::dot(own, x, y, f, sum);
        ASSERT_EQ(element<std::uint64_t>(r), element<std::uint64_t>(want))
            << text(f, settings) << n << " terms, kind " << kind << ", block " << sum.block
            << (sum.pairwise ? " pairwise" : "");
        ASSERT_EQ(own.flags, env.flags) << text(f, settings) << n << ", block " << sum.block;
      });
    });
  }
}

TEST(ArraysSums, DotIsTheEnvironments) {
  test_dot<std::uint16_t>({5, 10}, {8, 23});
  test_dot<std::uint8_t>({4, 3}, {5, 10});
  test_dot<std::uint16_t>({8, 7}, {8, 7});
  test_dot<float>({5, 10}, {11, 52});
  test_dot<double>({8, 23}, {8, 23});
  test_dot<double>({11, 52}, {4, 3});
}

template <class T, class C>
void test_matmul(format f, format result) {
  for (int kind = 0; kind < 4; ++kind) {
    for_environments([&](const Environment& settings) {
      const std::size_t rows = random_below(random_below(40) == 0 ? 140 : 12),
                        k = random_below(4) == 0 ? random_below(150) : random_below(9),
                        columns = random_below(20);
      const std::size_t gap = random_below(3), gap_b = random_below(3), gap_c = random_below(3);
      const std::vector<T> a = any_elements<T>(f, rows * (k + gap), kind);
      const std::vector<T> b = any_elements<T>(f, k * (columns + gap_b), kind);
      const Accumulation sum = any_accumulation(result);
      Environment env = settings;
      std::vector<C> want(rows * (columns + gap_c), C{77});
      const auto x = values(a, f, settings.flush_operands),
                 y = values(b, f, settings.flush_operands);
      for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < columns; ++j) {
          std::vector<IEEEFloat> row, column;
          for (std::size_t l = 0; l < k; ++l) {
            row.push_back(x[i * (k + gap) + l]);
            column.push_back(y[l * (columns + gap_b) + j]);
          }
          want[i * (columns + gap_c) + j] = element<C>(Reference(env, sum)(row, column));
        }
      }
      for_targets([&] {
        Environment own = settings;
        std::vector<C> c(want.size(), C{77});
        {
          const OddControlWord odd;
          arrays::matmul(own, arrays::Matrix<const T>{a, rows, k, k + gap},
                         arrays::Matrix<const T>{b, k, columns, columns + gap_b}, f, sum,
                         arrays::Matrix<C>{c, rows, columns, columns + gap_c});
        }
        for (std::size_t i = 0; i < c.size(); ++i) {
          ASSERT_EQ(bits(c[i]), bits(want[i])) << text(f, settings) << i << ", k " << k << ", kind "
                                               << kind << ", block " << sum.block;
        }
        ASSERT_EQ(own.flags, env.flags)
            << text(f, settings) << ", kind " << kind << ", block " << sum.block;
      });
    });
  }
}

TEST(ArraysSums, MatricesAreTheEnvironments) {
  test_matmul<std::uint16_t, float>({5, 10}, {8, 23});
  test_matmul<std::uint8_t, std::uint8_t>({4, 3}, {4, 3});
  test_matmul<float, double>({8, 7}, {11, 52});
  test_matmul<double, std::uint16_t>({8, 23}, {5, 10});
}

// Each rounding has a draw of its own, in the order of the definition: of dots of two blocks, whose
// exact sums are doubles, by rounding these.
TEST(ArraysSums, DrawsComeInOrder) {
  const format f{5, 10}, g{4, 3};
  const std::size_t n = 7, rows = 3, columns = 20;
  for (const std::size_t block : {0U, 3U}) {
    for (const bool pairwise : {false, true}) {
      const Accumulation sum{g, block, pairwise, arrays::Stochastic{5, 99}};
      std::vector<double> a(rows * n), b(n * columns), c(rows * columns);
      for (double& x : a) x = static_cast<double>(random_below(100)) / 64;
      for (double& x : b) x = static_cast<double>(random_below(100)) / 256;
      std::uint64_t draw = 99;
      const auto round = [&](double x) {
        Environment env;
        arrays::round(env, std::span(&x, 1), g, std::span(&x, 1), arrays::Stochastic{5, draw++});
        return x;
      };
      for_targets([&] {
        Environment env;
        draw = 99;
        arrays::matmul(env, arrays::Matrix<double>{a, rows, n},
                       arrays::Matrix<double>{b, n, columns}, f, sum,
                       arrays::Matrix<double>{c, rows, columns});
        for (std::size_t i = 0; i < c.size(); ++i) {
          std::vector<double> sums;
          for (std::size_t k = 0; k < n;) {
            double s = 0;
            for (const std::size_t end = block == 0 ? n : k + block; k < std::min(n, end); ++k) {
              s += a[i / columns * n + k] * b[k * columns + i % columns];
            }
            sums.push_back(round(!pairwise && !sums.empty() ? s + sums.back() : s));
          }
          const double want = !pairwise || sums.size() == 1 ? sums.back() : [&] {
            const double first = round(sums[0] + sums[1]);
            return round(first + sums[2]);
          }();
          ASSERT_EQ(c[i], want) << i << ", block " << block << (pairwise ? " pairwise" : "");
        }
      });
    }
  }
}

}  // namespace
