// Environments against the processor and its flags, in binary32 and binary64.
#include <cfenv>
#include <cmath>
#include <limits>
#include <span>

#include "tests/environment_oracle.h"
#include "zelk/float/native.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

template <typename T>
static constexpr Format format = zelk::native_format<T>;

// A value, packed or generic, and the same as the compiler's.
template <typename T>
static IEEEFloat value(Random& random, T& native) {
  const Layout t(format<T>);
  IEEEFloat x = IEEEFloat::from_encoding(QNumber(random.pattern(t), 1), t.f);
  native = x.is_nan() ? std::numeric_limits<T>::quiet_NaN() : zelk::to_native<T>(x);
  if (random.below(2) == 0) x.self_specialize_repr(IEEEFloat::REPR_GENERIC);
  return x;
}

// What processors may have beyond C++: flushing, and a fused instruction that leaves no flag open.
#ifdef __SSE2__
#include <xmmintrin.h>

static constexpr bool can_flush = true;
static void flush(const Environment& env) {
  _mm_setcsr(_mm_getcsr() | (env.flush_results ? 0x8000U : 0U) | (env.flush_operands ? 0x40U : 0U));
}
static bool can_fuse(const IEEEFloat& /*addend*/) { return __builtin_cpu_supports("fma"); }
#define ZELK_FUSING gnu::target("fma")
#elif defined(__aarch64__) || defined(__riscv) || defined(__s390x__)
static constexpr bool can_flush = false;  // AArch64 can, and then raises no inexact
static void flush(const Environment& /*env*/) {}
// IEEE 754 leaves open whether infinity * 0 + NaN is invalid.
static bool can_fuse(const IEEEFloat& addend) { return !addend.is_nan(); }
#define ZELK_FUSING gnu::noinline
#endif

#ifdef ZELK_FUSING
// The processor in the state of an environment.
struct Control {
  std::fenv_t before{};

  explicit Control(const Environment& env) {
    constexpr int rounding[] = {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD, FE_DOWNWARD};
    std::feholdexcept(&before);
    std::fesetround(rounding[static_cast<unsigned>(env.rounding)]);
    flush(env);
  }
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;
  ~Control() { std::fesetenv(&before); }
  static unsigned flags() {
    constexpr int of_flag[] = {FE_INVALID, FE_DIVBYZERO, FE_OVERFLOW, FE_UNDERFLOW, FE_INEXACT};
    unsigned flags = 0;
    for (int i = 0; i < 5; ++i) flags |= unsigned{std::fetestexcept(of_flag[i]) != 0} << i;
    return flags;
  }
};

// What a call gives in an environment, and the flags that it leaves.
static auto on_processor(const Environment& env, auto call) {
  const Control control(env);
  const volatile auto result = call();
  return std::pair(result, Control::flags());
}

template <typename T>
[[ZELK_FUSING]] static T fused_by_processor(T x, T y, T z) {
  return std::fma(x, y, z);
}

// Of operands that the compiler does not know, so that it changes no order.
template <typename T, typename R>
struct Instruction {
  const char* name;
  IEEEFloat (*call)(Environment& env, const Values& v);
  R (*native)(const volatile T* v);
};
template <typename T>
using Other = std::conditional_t<sizeof(T) == 4, double, float>;
#define ZELK_INSTRUCTION(call, ...)                                                               \
  {                                                                                               \
#call, [](Environment & env,                                                                  \
              const Values& v) { return env.call; },                                              \
                                                  [](const volatile T* v) { return __VA_ARGS__; } \
  }
template <typename T>
static const Instruction<T, T> instructions[] = {
    ZELK_INSTRUCTION(add(v[0], v[1]), v[0] + v[1]),
    ZELK_INSTRUCTION(subtract(v[0], v[1]), v[0] - v[1]),
    ZELK_INSTRUCTION(multiply(v[0], v[1]), v[0] * v[1]),
    ZELK_INSTRUCTION(divide(v[0], v[1]), v[0] / v[1]),
    ZELK_INSTRUCTION(sqrt(v[0]), std::sqrt(v[0])),
    ZELK_INSTRUCTION(round_to_integral(v[0]), std::rint(v[0])),
    ZELK_INSTRUCTION(nearbyint(v[0]), std::nearbyint(v[0])),
    ZELK_INSTRUCTION(fma(v[0], v[1], v[2]), fused_by_processor<T>(v[0], v[1], v[2]))};
template <typename T>
static const Instruction<T, Other<T>> conversion = ZELK_INSTRUCTION(convert(v[0], format<Other<T>>),
                                                                    static_cast<Other<T>>(v[0]));

template <typename T, typename R>
static void check(const Instruction<T, R>& i, Environment env, const Values& v, const T* operands) {
  const volatile T natives[] = {operands[0], operands[1], operands[2]};
  const auto [result, flags] = on_processor(env, [&] { return i.native(natives); });
  const Environment start = env;
  const IEEEFloat r = i.call(env, v);
  ASSERT_TRUE(bits(r) == bits(zelk::from_native<R>(result)) && env.flags == flags)
      << name(start) << i.name << " of " << name(v) << "is " << name(r) << ' '
      << unsigned{env.flags} << ", wanted " << name(zelk::from_native<R>(result)) << ' ' << flags;
}

template <typename T>
static void check_integers(Environment env, const IEEEFloat& x, T operand) {
  const volatile T native = operand;
  const auto [result, flags] = on_processor(env, [&] { return std::lrint(native); });
  const auto n = env.to_signed(x, 64);
  ASSERT_TRUE(env.flags == flags && n.has_value() == ((flags & invalid) == 0) &&
              n.value_or(result) == result)
      << name(env) << name(x) << ' ' << unsigned{env.flags} << ", wanted " << result << ' '
      << flags;
}

template <typename T>
static void match_processor(Random& random) {
  for (unsigned long i = 0; i < 4 * rounds(); ++i) {
    T n[3];
    const Values v = {value(random, n[0]), value(random, n[1]), value(random, n[2])};
    const Environment env{static_cast<Rounding>(i % 4), tininess_of_processor,
                          can_flush && i / 4 % 2 == 1, can_flush && i / 8 % 2 == 1};
    const std::size_t count = std::size(instructions<T>) - (can_fuse(v[2]) ? 0 : 1);
    for (const auto& one : std::span(instructions<T>).first(count)) check(one, env, v, n);
    check(conversion<T>, env, v, n);
    check_integers(env, v[0], n[0]);
    ASSERT_FALSE(testing::Test::HasFailure());
  }
}

TEST(Native, OperationsMatchTheProcessor) {
  Random random;
  match_processor<float>(random);
  match_processor<double>(random);
}
#endif
