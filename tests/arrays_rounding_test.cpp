// Rounding of arrays and conversions between their elements, by directions and by draws; errors.
#include "tests/arrays_support.h"

namespace {

using namespace zelk_test;

// n elements of f, or numbers, into g.
template <class In, class Out>
void test_rounding(format f, format g, std::size_t n) {
  std::vector<In> x;
  const bool all = !arrays::number<In> && n >= 256;
  for (std::size_t i = 0; i < n; ++i)
    x.push_back(all ? static_cast<In>(i) : any_element<In>(arrays::number<In> ? g : f));
  for_environments([&](const Environment& settings) {
    for (const bool draws : {false, true}) {
      if (draws && n > 1000) continue;  // the reference is slow
      const Draws stochastic =
          draws ? Draws({random_words(), random_below(2) * random_words() - 20}) : std::nullopt;
      check_rounding<In, Out>(settings, x, f, g, stochastic);
    }
  });
}

TEST(ArraysRounding, IsTheEnvironments) {
  for (const format f : {format{5, 10}, {8, 7}, {5, 2}, {4, 3}, {2, 1}, {3, 12}}) {
    test_rounding<double, double>({11, 52}, f, 300);
    test_rounding<float, float>({8, 23}, f, 300);
    test_rounding<double, std::uint16_t>({11, 52}, f, 200);
    test_rounding<float, std::uint32_t>({8, 23}, f, 100);
  }
  for (const format f : {format{8, 23}, {8, 22}, {8, 20}, {7, 21}, {7, 22}, {7, 23}, {2, 23}}) {
    test_rounding<double, float>({11, 52}, f, 100);
    test_rounding<float, float>({8, 23}, f, 300);
  }
  for (const format f :
       {format{11, 52}, {11, 51}, {11, 50}, {11, 1}, {10, 50}, {10, 51}, {10, 52}, {2, 52}}) {
    test_rounding<double, double>({11, 52}, f, 200);
    test_rounding<float, double>({8, 23}, f, 50);
    test_rounding<double, std::uint64_t>({11, 52}, f, 100);
  }
  test_rounding<double, double>({11, 52}, {10, 51}, 900);  // more than a block
  test_rounding<std::uint16_t, std::uint8_t>({5, 10}, {5, 2}, every);
  test_rounding<std::uint16_t, std::uint8_t>({8, 7}, {4, 3}, every);
  test_rounding<std::uint16_t, std::uint16_t>({5, 10}, {8, 7}, 1000);
  test_rounding<std::uint8_t, std::uint16_t>({5, 2}, {4, 3}, 256);
  test_rounding<std::uint32_t, std::uint8_t>({8, 23}, {5, 2}, 250);
  test_rounding<std::uint64_t, std::uint16_t>({10, 46}, {11, 4}, 250);
}

template <class In, class Out>
void test_decode(format f, std::size_t n) {
  std::vector<In> x(n);
  for (std::size_t i = 0; i < n; ++i)
    x[i] = n == 65536 ? static_cast<In>(i) : static_cast<In>(any_pattern(f));
  check_decoding<In, Out>(x, f);
}

TEST(ArraysRounding, DecodesAllPatterns) {
  for (const format f : {format{5, 10}, {8, 7}, {4, 3}, {7, 8}, {2, 13}}) {
    test_decode<std::uint16_t, double>(f, 65536);
    test_decode<std::uint16_t, float>(f, 65536);
  }
  for (const format f : {format{9, 6}, {11, 4}}) test_decode<std::uint16_t, double>(f, 65536);
  test_decode<std::uint8_t, float>({5, 2}, 65536);
  test_decode<std::uint32_t, float>({8, 23}, 10000);
  for (const format f : {format{11, 52}, {8, 23}, {9, 30}, {10, 52}, {2, 52}}) {
    test_decode<std::uint64_t, double>(f, 10000);
  }
}

TEST(ArraysRounding, DrawsArePhilox) {
  using Words = std::array<std::uint32_t, 4>;
  EXPECT_EQ(Philox::words({0, 0, 0, 0}, {0, 0}),
            (Words{0x6627E8D5, 0xE169C58D, 0xBC57AC4C, 0x9B00DBD8}));
  EXPECT_EQ(Philox::words({~0U, ~0U, ~0U, ~0U}, {~0U, ~0U}),
            (Words{0x408F276D, 0x41C83B0E, 0xA20BC7C6, 0x6D5451FD}));
  EXPECT_EQ(
      Philox::words({0x243F6A88, 0x85A308D3, 0x13198A2E, 0x03707344}, {0xA4093822, 0x299F31D0}),
      (Words{0xD16CFE09, 0x94FDCCEB, 0x5001E420, 0x24126EA1}));
  EXPECT_EQ(Philox::draw(0, 0), 0xE169C58D6627E8D5);
  EXPECT_EQ(Philox::draw(0, 1), 0x9B00DBD8BC57AC4C);
}

// A fraction that is the draw's stays, and the next one goes up: of sums, and of numbers whose
// digits are as many as the draw's; on to an infinity, too.
TEST(ArraysRounding, DrawsAreBelowTheFraction) {
  const format f{5, 1};
  for (std::uint64_t n = 0; n < 40000; ++n) {
    const std::uint64_t d = Philox::draw(1, n);
    const bool is_double = d % 8192 == 0;
    if (n > 50 && !is_double) continue;
    for (const int e : {0, 15}) {
      const double base = std::ldexp(e == 0 ? 1 : 1.5, e), half_up = e == 0 ? 1.5 : INFINITY;
      const double high = std::ldexp(d >> 32, e - 33), low = std::ldexp(d & 0xFFFFFFFF, e - 65);
      for (const double more : {0.0, std::ldexp(1, e - 117)}) {
        const double want = more == 0 ? base : half_up;
        const int flags = std::isinf(want) ? 4 | 16 : 16;
        Environment env;
        const std::vector<double> x{base, high, low, more};
        EXPECT_EQ(element<double>(arrays::dot(env, x, 1.0, f, {f, 0, false, Draws({1, n})})), want);
        EXPECT_EQ(env.flags, flags);
        if (!is_double) continue;
        for_targets([&] {
          Environment own;
          std::vector<double> y{more == 0 ? base + high + low
                                          : std::nextafter(base + high + low, INFINITY)};
          arrays::round(own, y, f, y, Stochastic{1, n});
          EXPECT_EQ(y[0], want) << n;
          EXPECT_EQ(own.flags, flags);
        });
      }
    }
  }
}

// Of a number a fraction p of a place above a value, p of 10^6 go up, within five standard errors.
TEST(ArraysRounding, DrawsHaveTheRightMean) {
  constexpr std::size_t n = 1000000;
  for (const double p : {0.25, 0.001, 0.7}) {
    Environment env;
    std::vector<double> out(n);
    arrays::round(env, std::vector<double>(n, -(1 + p / 8)), {4, 3}, out, Stochastic{42, 7});
    const auto up = static_cast<double>(std::count(out.begin(), out.end(), -1.125));
    EXPECT_EQ(std::count(out.begin(), out.end(), -1.0), static_cast<long>(n - up));
    EXPECT_LT(std::abs(up - p * n), 5 * std::sqrt(n * p * (1 - p))) << p;
    EXPECT_EQ(env.flags, 16);
  }
}

#define EXPECT_ERROR(text, ...) \
  EXPECT_EQ(message([&] { return static_cast<void>(__VA_ARGS__), 0; }), text)

TEST(ArraysRounding, ErrorsComeInOrderAndBeforeResults) {
  Environment env, bad{static_cast<Rounding>(6)};
  const format half{5, 10}, quad{15, 112}, one{1, 60};
  std::vector<double> x(4, 0.3), y(3, 0.3);
  std::vector<float> z(4, 0.3F);
  std::vector<std::uint8_t> b(4, 7);
  std::vector<std::uint16_t> h(4, 7);
  EXPECT_ERROR("bad rounding mode: 6", arrays::add(bad, x, y, one, x));
  EXPECT_ERROR("format without arithmetic: (1, 60)", arrays::add(env, x, y, one, x));
  EXPECT_ERROR("format without arithmetic: (5, 0)", arrays::convert(env, h, quad, b, {5, 0}));
  EXPECT_ERROR("format too wide for arrays: (15, 112)", arrays::decode(h, quad, z));
  EXPECT_ERROR("format too wide for arrays: (12, 3)", arrays::sqrt(env, x, {12, 3}, y));
  EXPECT_ERROR("format too wide for arrays: (5, 53)", arrays::encode(env, x, {5, 53}, b));
  EXPECT_ERROR("elements too narrow for the format: (5, 10)", arrays::encode(env, y, half, b));
  EXPECT_ERROR("elements too narrow for the format: (8, 24)", arrays::round(env, y, {8, 24}, z));
  EXPECT_ERROR("elements too narrow for the format: (9, 6)", arrays::decode(h, {9, 6}, z));
  EXPECT_ERROR("spans of different lengths", arrays::fma(env, x, 1.0, y, half, x));
  EXPECT_ERROR("spans of different lengths", arrays::dot(env, x, y, half, {half}));
  EXPECT_ERROR("format too wide for arrays: (15, 112)", arrays::dot(env, x, x, half, {quad}));
  const std::span all(x), floats(reinterpret_cast<double*>(z.data()), 2);
  const char* overlaps = "result overlaps an operand";
  EXPECT_ERROR(overlaps, arrays::add(env, all.first(3), 1.0, half, all.last(3)));
  EXPECT_ERROR(overlaps, arrays::round(env, std::span(z).first(2), half, floats));
  EXPECT_ERROR("", arrays::add(env, all.first(2), 1.0, half, all.last(2)));
  EXPECT_ERROR("", arrays::add(env, all.first(0), 1.0, half, all.subspan(1, 0)));
  const auto product = [&](Matrix<double> a, Matrix<double> c) {
    return message([&] {
      return arrays::matmul(env, a, Matrix<double>{y, 1, 1}, half, {half}, c), 0;
    });
  };
  EXPECT_EQ(product({x, 2, 2}, {x, 2, 1}), "matrices of different shapes");
  for (const Matrix<double>& c : {Matrix<double>{x, 1, 1}, {x, 3, 1}, {x, 2, 2}, {x, 2, 0}}) {
    EXPECT_EQ(product({x, 2, 1}, c), "matrices of different shapes");
  }
  EXPECT_EQ(product({x, 5, 1}, {x, 5, 1}), "matrix beyond its span");
  EXPECT_EQ(product({x, 3, 1, SIZE_MAX / 2 + 1}, {x, 3, 1}), "matrix beyond its span");
  // Sizes that wrap around to few elements, and to none; and matrices without elements.
  const std::size_t huge = std::size_t{1} << 32;
  const auto of_huge = [&](Matrix<double> left, Matrix<double> right, Matrix<double> to) {
    return message([&] { return arrays::matmul(env, left, right, half, {half, 1, true}, to), 0; });
  };
  EXPECT_EQ(of_huge({{}, huge, 0}, {{}, 0, huge}, {x, huge, huge}), "matrix beyond its span");
  EXPECT_EQ(of_huge({x, 2, 1, SIZE_MAX}, {x, 1, 1}, {x, 2, 1}), "matrix beyond its span");
  EXPECT_EQ(of_huge({x, 0, SIZE_MAX}, {{}, SIZE_MAX, 0}, {x, 0, 0}), "");
  EXPECT_EQ(of_huge({x, SIZE_MAX, 0}, {x, 0, 0}, {x, SIZE_MAX, 0}), "");
  EXPECT_EQ(of_huge({x, SIZE_MAX, 0}, {x, 0, 1}, {x, SIZE_MAX, 1}), "matrix beyond its span");
  EXPECT_EQ(product({x, 2, 1, 3}, {x, 2, 1, 3}), "result overlaps an operand");
  EXPECT_EQ(product({x, 1, 1}, {y, 1, 1}), "result overlaps an operand");
  EXPECT_EQ(x[0], 0.3);
  EXPECT_EQ(z[0], 0.3F);
}

}  // namespace
