// Value and flags of every routine, in each of its rounding modes, against rationals.
#include <type_traits>
#include <vector>

#include "tests/environment_oracle.h"

using namespace zelk_test;    // NOLINT(google-build-using-namespace)
using namespace zelk::swflt;  // NOLINT(google-build-using-namespace)

std::uint64_t convert(std::uint32_t a, int /*mode*/) { return float32_to_float64(a); }
std::uint32_t convert(std::uint64_t a, int mode) { return float64_to_float32(a, mode); }

// A call of the routine for words of type Word.
#define CALL(name, ...)                   \
  [=]() -> std::uint64_t {                \
    if constexpr (sizeof(Word) == 4)      \
      return float32_##name(__VA_ARGS__); \
    else                                  \
      return float64_##name(__VA_ARGS__); \
  }

template <class Word>
void run(Format f, Format other) {
  const Target t(f), to(other);
  Random random;
  // Some NaNs are quiet, and some doubles are in reach of binary32.
  const auto draw = [&] {
    mpz_class p = random.pattern(t);
    if (p % t.sign >= t.inf) {
      p |= t.hidden / 2 * random.below(2);
    } else if (f.mant_width > 23 && random.below(3) == 0) {
      p = p - p % t.sign + p % t.hidden + (868 + random.below(285)) * t.hidden;
    }
    return p;
  };
  const auto signals = [&](const mpz_class& p) {
    return p % t.sign > t.inf && p % t.hidden < t.hidden / 2;
  };
  Rounding rounding[6] = {};  // nearest-even, for codes that are none, too
  rounding[1 + mode_toward_negative] = Rounding::toward_negative;
  rounding[1 + mode_toward_positive] = Rounding::toward_positive;
  rounding[1 + mode_toward_zero] = Rounding::toward_zero;
  for (unsigned long i = 0; i < 30 * rounds() && !testing::Test::HasFailure(); ++i) {
    const mpz_class p = draw(), q = draw();
    const auto a = static_cast<Word>(p.get_ui()), b = static_cast<Word>(q.get_ui());
    const int mode = static_cast<int>(i % 6) - 1;
    const Environment env{rounding[i % 6]};
    const Operands v = {t.decode(p), t.decode(q)};
    // Flags only accumulate.
    const auto check = [&](const char* name, const Answer& want, bool heard, auto routine) {
      for (const unsigned before : {0U, 0xA4U}) {
        float_exception_flags = static_cast<unsigned char>(before);
        const std::uint64_t result = routine();
        const unsigned flags = before | want.flags | unsigned{heard};
        ASSERT_TRUE(want.bits == result && float_exception_flags == flags)
            << name << " mode " << mode << std::hex << ": 0x" << p << ", 0x" << q << " = 0x"
            << result << " flags " << +float_exception_flags << ", wanted 0x" << want.bits
            << " flags " << flags;
      }
    };
    const auto rounded = [&](std::size_t which) {
      return t.round(operations[which].exact(v, env.rounding), env);
    };
    const bool heard = signals(p) || signals(q), unordered = any_nan(v);
    check("add", rounded(0), heard, CALL(add, a, b, mode));
    check("sub", rounded(1), heard, CALL(sub, a, b, mode));
    check("mul", rounded(2), heard, CALL(mul, a, b, mode));
    check("div", rounded(3), heard, CALL(div, a, b, mode));
    check("convert", to.round(v[0], env), signals(p), [=] { return convert(a, mode); });
    const auto o = order(v[0], v[1]);
    check("lt", {std::is_lt(o), 0}, unordered, CALL(lt, a, b));
    check("le", {std::is_lteq(o), 0}, unordered, CALL(le, a, b));
    check("eq", {std::is_eq(o), 0}, unordered, CALL(eq_signaling, a, b));
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
TEST(Swflt, Binary32) { run<std::uint32_t>({8, 23}, {11, 52}); }
TEST(Swflt, Binary64) { run<std::uint64_t>({11, 52}, {8, 23}); }
