// Dot products and matrices against the environment's `dot`.
#include "tests/arrays_support.h"
#include "tests/heap.h"

namespace {

using namespace zelk_test;

// Of all values (kind 3), of finite ones (0), half of them integers times a power of two (1), zeros
// and powers of two of both signs (2), numbers of all digits (4), such integers alone (5).
template <class T>
std::vector<T> any_elements(format f, std::size_t n, int kind, long place = -3) {
  const auto scaled = [&](std::uint64_t i, long e) {
    const format own = kind == 4 ? value(T{}, f).get_format() : f;
    return element<T>(
        IEEEFloat::from_scaled(static_cast<long>(i), e, own, IEEEFloat::ROUND_NEAREST_EVEN));
  };
  std::vector<T> x(n);
  for (T& a : x) {
    a = any_element<T>(f);
    const IEEEFloat v = value(a, f);
    const bool far = v.is_nan() || v.is_inf();
    if (kind == 5 || (kind == 0 ? far : kind == 1 && (far || random_below(2) != 0))) {
      a = scaled(random_below(64) - 32, place);
    } else if (kind == 4) {
      a = scaled((random_words() >> 11) * (1 - 2 * random_below(2)), place - 50);
    } else if (kind == 2) {
      const long apart = f.exp_width < 11 ? 0 : static_cast<long>(random_below(7)) * 70;
      IEEEFloat one = value(scaled(random_below(2), apart), f);
      one.set_sign(random_below(3) != 0);
      a = element<T>(one);
    }
  }
  return x;
}

Accumulation any_accumulation(format result) {
  const std::size_t blocks[] = {0, 0, 1, 1, 2, 5, 100, 1000};
  arrays::Draws draws;  // whose numbers wrap around at times
  if (random_below(4) == 0) draws = {random_words(), random_below(2) * random_words() - 20};
  return {result, blocks[random_below(8)], random_below(2) != 0, draws};
}

template <class T>
void test_dot(format f, format result) {
  for (int kind = 0; kind < 5; ++kind) {
    for_environments([&](const Environment& settings) {
      const std::size_t n = random_below(2) == 0 ? random_below(1300) : random_below(20);
      const long place = f.exp_width == 11 && random_below(3) == 0 ? -520 : -3;  // tiny products
      const std::vector<T> x = any_elements<T>(f, n, kind, place);
      const int other = kind == 3 ? 1 : kind < 3 ? kind : 4 + static_cast<int>(random_below(2));
      std::vector<T> y = any_elements<T>(f, n, other, place);
      if (n > 0 && random_below(8) == 0) y.resize(1);
      check_dot(settings, x, y, f, any_accumulation(result));
    });
  }
}

TEST(ArraysSums, DotIsTheEnvironments) {
  test_dot<std::uint16_t>({5, 10}, {8, 23});
  test_dot<std::uint8_t>({4, 3}, {5, 10});
  test_dot<std::uint16_t>({8, 7}, {8, 7});
  test_dot<std::uint64_t>({2, 40}, {11, 52});
  test_dot<float>({5, 10}, {11, 52});
  test_dot<double>({8, 23}, {8, 23});
  test_dot<double>({11, 52}, {4, 3});
  test_dot<double>({11, 52}, {11, 52});
}

template <class T, class C>
void test_matmul(format f, format result) {
  for (int round = 0; round < 10; ++round) {
    const int kind = round % 5;
    for_environments([&](const Environment& settings) {
      // Small ones, and some beyond the blocks in which rows, terms and columns are taken.
      constexpr std::size_t most[][3] = {{12, 9, 20}, {7, 30, 9},  {5, 9, 9},
                                         {140, 4, 5}, {2, 4, 530}, {3, 257, 3}};
      const auto& shape = most[random_below(6)];
      const auto size = [&](int i) {
        return random_below(2) != 0 ? shape[i] : random_below(shape[i] + 1);
      };
      const std::size_t rows = size(0), k = size(1), columns = size(2);
      const std::size_t gap = random_below(3), gap_b = random_below(3), gap_c = random_below(3);
      const std::vector<T> a = any_elements<T>(f, rows * (k + gap), kind);
      const long least = 1 - (1L << (result.exp_width - 1));  // where some products are subnormal
      const std::vector<T> b = any_elements<T>(f, k * (columns + gap_b), kind + kind / 4,
                                               random_below(2) != 0 ? -3 : std::max(least, -100L));
      const Matrix<const T> left{a, rows, k, k + gap}, right{b, k, columns, columns + gap_b};
      check_matmul<T, C>(settings, left, right, f, any_accumulation(result), columns + gap_c);
    });
  }
}

TEST(ArraysSums, MatricesAreTheEnvironments) {
  test_matmul<std::uint16_t, float>({5, 10}, {8, 23});
  test_matmul<std::uint8_t, std::uint8_t>({4, 3}, {4, 3});
  test_matmul<float, double>({8, 7}, {11, 52});
  test_matmul<double, double>({8, 23}, {10, 50});
  test_matmul<double, std::uint16_t>({8, 23}, {5, 10});
}

// By slices, by chains, one by one, and in pairs: whichever allocation fails, nothing is written.
TEST(ArraysSums, FailedAllocationsLeaveResultsAlone) {
  constexpr std::size_t rows = 70, terms = 30, columns = 9;
  const std::vector<double> a(rows * terms, 1.0 / 3), b(terms * columns, 3e5);
  for (const Accumulation& sum :
       {Accumulation{{5, 10}}, {{5, 10}, 1}, {{5, 10}, 7}, {{5, 10}, 7, true}}) {
    std::vector<double> c(rows * columns, 7);
    bool failed = true;
    for (long i = 0; failed; ++i) {
      Environment env;
      failed = false;
      const OddControlWord odd;
      try {
        heap.until_failure = i;
        arrays::matmul(env, Matrix<const double>{a, rows, terms},
                       Matrix<const double>{b, terms, columns}, {8, 23}, sum,
                       Matrix<double>{c, rows, columns});
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      heap.until_failure = -1;
      ASSERT_TRUE(failed ? i < 20 && env.flags == 0 : i > 1 && env.flags != 0) << i;
      ASSERT_EQ(std::count(c.begin(), c.end(), 7.0), failed ? static_cast<long>(c.size()) : 0) << i;
    }
  }
}

}  // namespace
