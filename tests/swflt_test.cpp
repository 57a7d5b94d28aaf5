// The processor is the oracle: value and flags of every routine, in each of its rounding modes.
#include "zelk/swflt/swflt.h"

#include <gtest/gtest.h>

#include <bit>
#include <cfenv>
#include <cmath>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

using namespace zelk::swflt;

// A call of the routine for words of F.
#define CALL(name, ...) \
  [=] { return std::get<sizeof(F) / 8>(std::pair(&float32_##name, &float64_##name))(__VA_ARGS__); }

std::uint64_t convert(std::uint32_t a, int /*mode*/) { return float32_to_float64(a); }
std::uint32_t convert(std::uint64_t a, int mode) { return float64_to_float32(a, mode); }
bool pattern(bool x) { return x; }
auto pattern(float x) { return x != x ? 0xFF800001 : std::bit_cast<std::uint32_t>(x); }
auto pattern(double x) { return x != x ? 0xFFF0000000000001 : std::bit_cast<std::uint64_t>(x); }

template <class F>
struct Width {
  using Word = std::conditional_t<sizeof(F) == 4, std::uint32_t, std::uint64_t>;
  using Other = std::conditional_t<sizeof(F) == 4, double, float>;
  static constexpr Word mant = sizeof(F) == 4 ? 23 : 52, top = sizeof(F) == 4 ? 255 : 2047;
  static constexpr Word bias = top / 2, unit = Word{1} << mant, minus = unit * (top + 1);

  // Compares `routine` with `operation` on the processor, and sees that it clears no flag.
  static void check(const char* name, Word a, Word b, int mode, auto routine, auto operation) {
    const volatile F x = std::bit_cast<F>(a), y = std::bit_cast<F>(b);
    std::feclearexcept(FE_ALL_EXCEPT);
    const volatile auto value = operation(x, y);
    const int e = std::fetestexcept(FE_ALL_EXCEPT);
    int flags = (e & FE_INVALID ? flag_invalid : 0) | (e & FE_DIVBYZERO ? flag_divide_by_zero : 0) |
                (e & FE_OVERFLOW ? flag_overflow : 0) | (e & FE_UNDERFLOW ? flag_underflow : 0) |
                (e & FE_INEXACT ? flag_inexact : 0);
    const auto wanted = pattern(value);
    float_exception_flags = 0xFF;
    routine();
    const bool kept = std::exchange(float_exception_flags, 0) == 0xFF;
    const auto result = routine();
    if (result == wanted && float_exception_flags == flags && kept) return;
    ADD_FAILURE() << name << 8 * sizeof(F) << " mode " << mode << std::hex << std::showbase << ": "
                  << a << ", " << b << " = " << result << " flags " << +float_exception_flags
                  << ", wanted " << wanted << " flags " << flags << (kept ? "" : ", none cleared");
  }

  static void check_all(Word a, Word b, int mode) {
    if (testing::Test::HasFailure()) return;
    check("add", a, b, mode, CALL(add, a, b, mode), [](F x, F y) { return x + y; });
    check("sub", a, b, mode, CALL(sub, a, b, mode), [](F x, F y) { return x - y; });
    check("mul", a, b, mode, CALL(mul, a, b, mode), [](F x, F y) { return x * y; });
    check("div", a, b, mode, CALL(div, a, b, mode), [](F x, F y) { return x / y; });
    // Not every compiler compares by the instruction that signals on a quiet NaN.
    const auto see = [](F x, F y) { std::feraiseexcept(x != x || y != y ? FE_INVALID : 0); };
    check("lt", a, b, mode, CALL(lt, a, b), [=](F x, F y) { return see(x, y), x < y; });
    check("le", a, b, mode, CALL(le, a, b), [=](F x, F y) { return see(x, y), x <= y; });
    check("eq", a, b, mode, CALL(eq_signaling, a, b), [=](F x, F y) { return see(x, y), x == y; });
    const auto conversion = [=] { return convert(a, mode); };
    check("convert", a, b, mode, conversion, [](F x, F) { return static_cast<Other>(x); });
  }

  // Around 0, the smallest normal, ulps of 1, powers of 2, infinity (so NaNs), ends of narrowing.
  static std::vector<Word> boundaries() {
    std::vector<Word> all;
    for (const Word e : {Word{0}, Word{1}, bias - mant - 1, bias - mant, bias - 126, bias - 1, bias,
                         bias + 1, bias + mant, bias + mant + 1, bias + 128, top})
      for (const Word d : {Word{0}, Word{1}, Word{2}, unit / 2, Word{1} << 28})
        for (const Word x : {e * unit - d, e * unit + d}) all.insert(all.end(), {x, x ^ minus});
    return all;
  }

  static void run() {
    const char* given = std::getenv("ZELK_SEED");
    const std::uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 0) : 20240229;
    SCOPED_TRACE(testing::Message() << "ZELK_SEED=" << seed);
    std::mt19937_64 rng(seed);
    const auto up_to = [&](Word n) { return static_cast<Word>(rng() % (n + 1)); };
    // Any significand, or one that ends in zeros, ends in ones or is ones then zeros.
    const auto draw = [&](Word exp) {
      const Word any = static_cast<Word>(rng()), low = (unit >> up_to(mant)) - 1;
      const Word significand[] = {any, any & ~low, any | low, ~low};
      return significand[up_to(3)] % unit + (exp & top) * unit + up_to(1) * minus;
    };
    constexpr int rounding[] = {FE_TONEAREST, FE_TONEAREST,  FE_DOWNWARD,
                                FE_UPWARD,    FE_TOWARDZERO, FE_TONEAREST};
    for (int mode = -1; mode <= 4; ++mode) {
      std::fesetround(rounding[mode + 1]);
      for (const Word a : boundaries())
        for (const Word b : boundaries()) check_all(a, b, mode);
      for (int i = 0; i < 60000; ++i) {
        // Half the doubles are in reach of binary32; products and quotients meet the range's ends.
        const Word e = mant > 23 && i % 2 != 0 ? bias - 155 + up_to(285) : up_to(top);
        const Word near[] = {up_to(top), e, bias - e, top + bias - e, e + bias, e - bias - 1};
        check_all(draw(e), draw(near[up_to(5)] + up_to(2 * mant + 8) - mant - 4), mode);
      }
    }
    std::fesetround(FE_TONEAREST);
    for (const Word a : boundaries()) {
      const F x = std::bit_cast<F>(a);
      EXPECT_EQ(CALL(sign, a)(), std::signbit(x)) << a;
      EXPECT_EQ(CALL(is_inf, a)(), std::isinf(x)) << a;
      EXPECT_EQ(CALL(is_nan, a)(), std::isnan(x)) << a;
      EXPECT_EQ(CALL(is_zero, a)(), x == 0) << a;
      EXPECT_EQ(CALL(is_subnormal, a)(), std::fpclassify(x) == FP_SUBNORMAL) << a;
      EXPECT_EQ(CALL(negate, a)(), std::bit_cast<Word>(-x)) << a;
      EXPECT_EQ(CALL(set_sign, a, 0)(), std::bit_cast<Word>(std::fabs(x))) << a;
      EXPECT_EQ(CALL(set_sign, a, 1)(), std::bit_cast<Word>(-std::fabs(x))) << a;
    }
    EXPECT_EQ(CALL(make_inf)(), pattern(F{INFINITY}));
    EXPECT_EQ(CALL(make_nan)(), pattern(F{NAN}));
  }
};
TEST(Swflt, Binary32) { Width<float>::run(); }
TEST(Swflt, Binary64) { Width<double>::run(); }
