// Operations on arrays against the environment's on single elements: values and flags, in every
// rounding, on every instruction set of the machine.
#include "tests/arrays_support.h"

namespace {

using namespace zelk_test;

// All operations on n triples of elements, one operand being the same in every place at times; on
// all pairs of 8-bit patterns those with two operands, on all 16-bit patterns the others.
template <class T>
void test_operations(format f, std::size_t n) {
  const bool all = n == 65536;
  std::vector<T> x[3];
  for (int k = 0; k < 3; ++k) {
    for (std::size_t i = 0; i < n; ++i) {
      x[k].push_back(all && k < 2 ? static_cast<T>(k == 0 ? i : i >> 8) : any_element<T>(f));
    }
  }
  for_environments([&](const Environment& settings) {
    for (const Operation<T>& op : operations<T>) {
      if (all && op.operands != (sizeof(T) == 1 ? 2 : 1)) continue;
      check_operation(settings, op, x, all ? 3 : random_below(6), f);
    }
  });
}

TEST(Arrays, OperationsOnNumbersAreTheEnvironments) {
  for (const format f : {format{5, 10}, format{8, 7}, format{5, 2}, format{4, 3}, format{8, 23},
                         format{2, 1}, format{3, 20}, format{7, 22}}) {
    test_operations<double>(f, 300);
    test_operations<float>(f, 300);
  }
  for (const format f : {format{11, 52}, format{11, 30}, format{10, 50}, format{10, 52},
                         format{9, 26}, format{8, 40}}) {
    test_operations<double>(f, 200);
  }
}

TEST(Arrays, OperationsOnPatternsAreTheEnvironments) {
  for (const format f : {format{4, 3}, format{5, 2}}) {
    test_operations<std::uint8_t>(f, every);
    test_operations<std::uint8_t>(f, 300);
  }
  for (const format f : {format{5, 10}, format{8, 7}}) {
    test_operations<std::uint16_t>(f, every);
    test_operations<std::uint16_t>(f, 500);
  }
  test_operations<std::uint16_t>({9, 6}, 300);
  test_operations<std::uint32_t>({8, 23}, 500);
  test_operations<std::uint32_t>({11, 20}, 200);
  test_operations<std::uint64_t>({11, 52}, 200);
  test_operations<std::uint64_t>({10, 52}, 200);
}

// Where digits are few, among them squares of what lies at or between values; later some have more.
TEST(Arrays, RootsOfFewDigitsAreTheEnvironments) {
  for (const format f : {format{5, 10}, {8, 23}, {8, 25}, {9, 30}, {7, 22}, {5, 2}, {2, 1}}) {
    const format g{f.exp_width, f.mant_width + 1};
    std::vector<double> x;
    for (int i = 0; i < 1500; ++i) {
      const auto c = element<double>(value(any_pattern(g), g));
      const std::uint64_t digits = bits(random_below(4) == 0 ? c : c * c) & ~std::uint64_t{3};
      x.push_back(std::bit_cast<double>(digits));
      if (i > 700 && random_below(90) == 0)
        x.back() = std::nextafter(x.back(), random_below(2) == 0 ? 0 : 1e9);
    }
    const std::vector<double> operands[] = {x, x, x};
    for_environments([&](const Environment& settings) {
      check_operation(settings, operations<double>[6], operands, 3, f);
    });
  }
  Environment env;  // and where one has more digits, and its root lies just above a half
  for (std::size_t i = 0; i < 64; ++i) {
    std::vector<double> x(64, 1);
    x[i] = std::nextafter(0x1.000001p0 * 0x1.000001p0, 2);
    arrays::sqrt(env, x, {8, 23}, x);
    EXPECT_EQ(x[i], 0x1.000002p0) << i;
  }
}

}  // namespace
