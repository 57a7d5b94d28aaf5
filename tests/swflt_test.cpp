// The processor is the oracle: value and flags of every routine, in each of its rounding modes.
#include <bit>
#include <cfenv>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

#include "tests/support.h"

using namespace zelk::swflt;

// A call of the routine for words of F.
#define CALL(name, ...)                   \
  [=] {                                   \
    if constexpr (sizeof(F) == 4)         \
      return float32_##name(__VA_ARGS__); \
    else                                  \
      return float64_##name(__VA_ARGS__); \
  }

std::uint64_t convert(std::uint32_t a, int /*mode*/) { return float32_to_float64(a); }
std::uint32_t convert(std::uint64_t a, int mode) { return float64_to_float32(a, mode); }
bool pattern(bool x) { return x; }
auto pattern(float x) { return x != x ? 0xFF800001 : std::bit_cast<std::uint32_t>(x); }
auto pattern(double x) { return x != x ? 0xFFF0000000000001 : std::bit_cast<std::uint64_t>(x); }

// Compares `routine` with `operation` on the processor; flags only accumulate.
template <class F, class Word>
void check(const char* name, Word a, Word b, int mode, auto routine, auto operation) {
  const volatile F x = std::bit_cast<F>(a), y = std::bit_cast<F>(b);
  std::feclearexcept(FE_ALL_EXCEPT);
  const volatile auto value = operation(x, y);
  const int e = std::fetestexcept(FE_ALL_EXCEPT);
  const int flags = (e & FE_INVALID ? flag_invalid : 0) | (e & FE_OVERFLOW ? flag_overflow : 0) |
                    (e & FE_DIVBYZERO ? flag_divide_by_zero : 0) |
                    (e & FE_UNDERFLOW ? flag_underflow : 0) | (e & FE_INEXACT ? flag_inexact : 0);
  // Some processors find everything tiny that is rounded up to the smallest normal.
  constexpr bool late = zelk_test::tininess_of_processor == zelk::Tininess::after_rounding;
  constexpr auto least = std::numeric_limits<decltype(operation(x, y))>::min();
  const int either = !late && (value == least || -value == least) ? flag_underflow : 0;
  for (const int before : {0, 0xFF}) {
    float_exception_flags = static_cast<unsigned char>(before);
    const auto result = routine();
    ASSERT_TRUE(result == pattern(value) &&
                (float_exception_flags | either) == (before | flags | either))
        << name << 8 * sizeof(F) << " mode " << mode << std::hex << std::showbase << ": " << a
        << ", " << b << " = " << result << " flags " << +float_exception_flags << ", wanted "
        << pattern(value) << " flags " << (before | flags);
  }
}

template <class F, class Word, class Other>
void run(zelk_test::Format f) {
  const zelk_test::Layout t(f);
  zelk_test::Random random;
  // Some NaNs are quiet, and some doubles are in reach of binary32.
  const auto draw = [&] {
    mpz_class p = random.pattern(t);
    if (p % t.sign >= t.inf) {
      p |= t.hidden / 2 * random.below(2);
    } else if (f.mant_width > 23 && random.below(3) == 0) {
      p = p - p % t.sign + p % t.hidden + (868 + random.below(285)) * t.hidden;
    }
    return static_cast<Word>(p.get_ui());
  };
  // Not every compiler compares by the instruction that signals on a quiet NaN.
  const auto see = [](F x, F y) { std::feraiseexcept(x != x || y != y ? FE_INVALID : 0); };
  int rounding[4];
  rounding[mode_nearest_even] = FE_TONEAREST, rounding[mode_toward_negative] = FE_DOWNWARD;
  rounding[mode_toward_positive] = FE_UPWARD, rounding[mode_toward_zero] = FE_TOWARDZERO;
  const int rounds = static_cast<int>(zelk_test::rounds());
  for (int i = 0; i < 30 * rounds && !testing::Test::HasFailure(); ++i) {
    const Word a = draw(), b = draw();
    const int mode = i % 6 - 1;
    std::fesetround(rounding[mode < 4 ? std::max(mode, 0) : 0]);
    check<F>("add", a, b, mode, CALL(add, a, b, mode), [](F x, F y) { return x + y; });
    check<F>("sub", a, b, mode, CALL(sub, a, b, mode), [](F x, F y) { return x - y; });
    check<F>("mul", a, b, mode, CALL(mul, a, b, mode), [](F x, F y) { return x * y; });
    check<F>("div", a, b, mode, CALL(div, a, b, mode), [](F x, F y) { return x / y; });
    check<F>("lt", a, b, mode, CALL(lt, a, b), [=](F x, F y) { return see(x, y), x < y; });
    check<F>("le", a, b, mode, CALL(le, a, b), [=](F x, F y) { return see(x, y), x <= y; });
    check<F>("eq", a, b, mode, CALL(eq_signaling, a, b),
             [=](F x, F y) { return see(x, y), x == y; });
    const auto conversion = [=] { return convert(a, mode); };
    check<F>("convert", a, b, mode, conversion, [](F x, F) { return static_cast<Other>(x); });
    std::fesetround(FE_TONEAREST);
  }
}
static const int flags_at_start = float_exception_flags;
TEST(Swflt, NoFlagIsRaisedAtStart) { EXPECT_EQ(flags_at_start, 0); }
TEST(Swflt, AnyCharacterButNulSetsTheSign) {
  for (const int s : {1, 2, 64, -128}) {
    const auto c = static_cast<char>(s);
    EXPECT_TRUE(float32_set_sign(5, c) == 0x80000005 && float64_set_sign(5, c) == 5 + (1UL << 63));
  }
  EXPECT_TRUE(float32_set_sign(0x80000005, 0) == 5 && float64_set_sign(5 + (1UL << 63), 0) == 5);
}
// How many routines take a mode of this type: not of an enumeration, which numbers otherwise.
enum Codes : int {};
#define TAKES(name, ...) \
  requires { name(__VA_ARGS__, M()); }
template <class M>
constexpr int taking = TAKES(float32_add, 0, 0) + TAKES(float64_add, 0, 0) +
                       TAKES(float32_sub, 0, 0) + TAKES(float64_sub, 0, 0) +
                       TAKES(float32_mul, 0, 0) + TAKES(float64_mul, 0, 0) +
                       TAKES(float32_div, 0, 0) + TAKES(float64_div, 0, 0) +
                       TAKES(float64_to_float32, 0);
static_assert(taking<int> == 9 && taking<std::remove_const_t<decltype(mode_toward_zero)>> == 9 &&
              taking<zelk::IEEEFloat::rounding_mode> == 0 && taking<Codes> == 0 &&
              taking<zelk::Rounding> == 0);
TEST(Swflt, Binary32) { run<float, std::uint32_t, double>({8, 23}); }
TEST(Swflt, Binary64) { run<double, std::uint64_t, float>({11, 52}); }
