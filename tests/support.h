// What the test programs share.
#ifndef ZELK_TESTS_SUPPORT_H_
#define ZELK_TESTS_SUPPORT_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cstdlib>
#include <iostream>
#include <random>
#include <span>
#include <string>

#include "zelk/base/quoted.h"
#include "zelk/numbers/room.h"
#include "zelk/zelk.h"

#ifdef __SSE2__
#include <xmmintrin.h>
#endif

namespace zelk_test {

using zelk::IEEEFloat;
using zelk::QNumber;
using Format = IEEEFloat::format;

inline constexpr IEEEFloat::rounding_mode modes[] = {
    IEEEFloat::ROUND_NEAREST_EVEN, IEEEFloat::ROUND_TOWARD_ZERO, IEEEFloat::ROUND_TOWARD_POSITIVE,
    IEEEFloat::ROUND_TOWARD_NEGATIVE};

/// Hardware formats, and those at the borders of words, limbs and exponents in words.
inline constexpr Format wide_formats[] = {
    {5, 10},   {8, 7},   {8, 23},   {11, 52},   {15, 112},  {19, 236}, {10, 51},  {10, 52},
    {10, 53},  {10, 54}, {8, 55},   {15, 48},   {15, 49},   {8, 29},   {8, 30},   {62, 1},
    {63, 1},   {61, 2},  {20, 2},   {2, 58},    {3, 59},    {4, 59},   {3, 60},   {2, 61},
    {32, 30},  {32, 31}, {2, 64},   {15, 63},   {15, 125},  {15, 126}, {15, 127}, {13, 190},
    {62, 255}, {9, 255}, {11, 319}, {22, 1001}, {20, 4204}, {30, 320}};

/// A number that the environment can set.
inline unsigned long setting(const char* name, unsigned long otherwise) {
  const char* given = std::getenv(name);
  return given != nullptr ? std::strtoul(given, nullptr, 0) : otherwise;
}
/// The seed of the random cases, printed once, and how many of a kind are tried: fewer in builds
/// with assertions, which sanitizers slow down, too.
inline unsigned long seed() {
  static const unsigned long value = setting("ZELK_SEED", 20240229);
  [[maybe_unused]] static const auto& printed = std::cout << "ZELK_SEED=" << value << '\n';
  return value;
}
inline unsigned long rounds() {
#ifdef NDEBUG
  constexpr unsigned long usual = 5000;
#else
  constexpr unsigned long usual = 1000;
#endif
  return setting("ZELK_ROUNDS", usual);
}

inline thread_local std::mt19937_64 random_words(seed());
inline std::uint64_t random_below(std::uint64_t n) { return random_words() % n; }

/// Whether the processor looks for tiny results before it rounds them, or after.
#if defined(__aarch64__) || defined(__s390x__)
inline constexpr auto tininess_of_processor = zelk::Tininess::before_rounding;
#else
inline constexpr auto tininess_of_processor = zelk::Tininess::after_rounding;
#endif

/// The text that the call throws: as it is for the float error, after "Exception: " for any other
/// exception of the library; "" when nothing is thrown.
std::string message(auto call) {
  try {
    static_cast<void>(call());
  } catch (const IEEEFloat::error& e) {
    return e.get_msg();
  } catch (const zelk::Exception& e) {
    return "Exception: " + e.get_msg();
  }
  return "";
}

inline mpz_class pow2(unsigned long k) { return mpz_class(1) << k; }
inline mpz_class from_limbs(std::span<const std::uint64_t> limbs) {
  mpz_class n;
  mpz_import(n.get_mpz_t(), limbs.size(), -1, sizeof limbs[0], 0, 0, limbs.data());
  return n;
}
inline QNumber power(unsigned long k) { return {pow2(k), 1}; }

/// The pattern as an integer of GMP.
inline mpz_class bits(const IEEEFloat& x) { return x.get_bits().to_mpq().get_num(); }

/// A control word of the caller's that nothing may depend on, and that has to come back.
class OddControlWord {
 public:
  OddControlWord(const OddControlWord&) = delete;
  OddControlWord& operator=(const OddControlWord&) = delete;
#ifdef __SSE2__
  OddControlWord() : before(_mm_getcsr()) { _mm_setcsr(odd); }
  ~OddControlWord() {
    EXPECT_EQ(_mm_getcsr(), odd);
    _mm_setcsr(before);
  }

 private:
  unsigned before;
  // Any rounding, flushing, status bits; traps only where no status bit is set already.
  unsigned odd = random_below(2) != 0 ? static_cast<unsigned>(random_below(4) << 13 | 0x8040)
                                      : static_cast<unsigned>(random_below(0x10000)) | 0x1F80;
#else
  OddControlWord() {
    std::feclearexcept(FE_ALL_EXCEPT);
    std::feraiseexcept(static_cast<int>(random_words()) & FE_ALL_EXCEPT);
    std::fesetround(direction);
    raised = std::fetestexcept(FE_ALL_EXCEPT);
  }
  ~OddControlWord() {
    EXPECT_EQ(std::fegetround(), direction);
    EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), raised);
    std::fesetenv(FE_DFL_ENV);
  }

 private:
  static constexpr int directions[] = {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD, FE_DOWNWARD};
  int direction = directions[random_below(4)], raised = 0;
#endif
};

/// How a check of a result fails; what led to the result is streamed to it.
#define ASSERT_BITS(result, want) \
  ASSERT_EQ(bits(result), want) << name(result) << ", wanted 0x" << std::hex << (want) << ", from "

/// The patterns of a format, and what they stand for.
struct Layout {
  Format f;
  mpz_class hidden = mpz_class(1) << f.mant_width;  // the smallest normal
  mpz_class sign = hidden << f.exp_width;
  mpz_class inf = sign - hidden;
  mpz_class nan = sign + inf + 1;

  explicit Layout(Format format) : f(format) {}

  // The value is significand * 2^exponent; of infinities and NaNs too, as if they were finite.
  mpz_class significand(const mpz_class& p) const {
    const mpz_class m = p % hidden + (p % sign < hidden ? mpz_class(0) : hidden);
    return p < sign ? m : mpz_class(-m);
  }
  long exponent(const mpz_class& p) const {
    return std::max(mpz_class(p % sign / hidden).get_si(), 1L) - (1L << (f.exp_width - 1)) + 1 -
           static_cast<long>(f.mant_width);
  }
  mpq_class value(const mpz_class& p) const {
    mpq_class q(significand(p));
    q <<= static_cast<unsigned long>(std::max(exponent(p), 0L));
    return q >> static_cast<unsigned long>(std::max(-exponent(p), 0L));
  }
};

/// A generic value of any pattern, NaNs that `from_bits` refuses included.
inline IEEEFloat generic(Format f, IEEEFloat::rounding_mode rm, const mpz_class& pattern) {
  const Layout t(f);
  const mpz_class nan_steps = std::max<mpz_class>(pattern % t.sign - t.inf, 0);
  IEEEFloat x = IEEEFloat::from_bits(QNumber(pattern - nan_steps, 1), f);
  x.self_specialize_repr(IEEEFloat::REPR_GENERIC);
  x.set_mode(rm);
  for (mpz_class i = 0; i < nan_steps; ++i) x.packed_next(pattern < t.sign);
  return x;
}

/// "(5,10) mode 2 0x3c01": how failures name a value.
inline std::string name(const IEEEFloat& x) {
  const Format f = x.get_format();
  return "(" + std::to_string(f.exp_width) + ',' + std::to_string(f.mant_width) + ") mode " +
         std::to_string(x.get_mode()) + " 0x" + bits(x).get_str(16);
}

/// Whether two values are one, in one form.
inline bool same(const QNumber& a, const QNumber& b) {
  return a == b && a.is_small() == b.is_small();
}
inline bool same(const IEEEFloat& a, const IEEEFloat& b) {
  return a.get_format() == b.get_format() && a.get_mode() == b.get_mode() &&
         a.get_repr() == b.get_repr() && same(a.get_bits(), b.get_bits());
}

/// The text that an expression of a value or number x throws, see `message`; x is then what it was.
#define TRIED(value, ...) \
  tried(value, [&](auto& x) { static_cast<void>(x), static_cast<void>(__VA_ARGS__); })
std::string tried(auto x, auto call) {
  const auto before = x;
  std::string text = message([&] { return call(x), 0; });
  EXPECT_TRUE(text.empty() || same(x, before)) << text;
  return text;
}

/// The four operations, by number.
inline IEEEFloat& apply(int op, IEEEFloat& a, const IEEEFloat& b) {
  return op == 0 ? a += b : op == 1 ? a -= b : op == 2 ? a *= b : a /= b;
}

/// A number that tells texts apart.
inline QNumber sum_of(const std::string& text) {
  long sum = 0;
  for (const char c : text) sum = (sum * 31 + c) % 1000003;
  return sum;
}

/// Calls on a value x, to be made under low limits, as allocations fail, and in every build: y has
/// its format and representation, g is another format, n a number.
using Call = void (*)(IEEEFloat& x, const IEEEFloat& y, Format g, QNumber& n);
#define ON_VALUES(...)                                                   \
  []([[maybe_unused]] IEEEFloat& x, [[maybe_unused]] const IEEEFloat& y, \
     [[maybe_unused]] Format g, [[maybe_unused]] QNumber& n) { __VA_ARGS__; }
inline constexpr Call calls[] = {
    ON_VALUES(x = y), ON_VALUES(x.self_zero(y.get_sign())), ON_VALUES(x.self_neg()),
    // From here on there is no answer for formats that are too wide.
    ON_VALUES(apply(0, x, y)), ON_VALUES(apply(1, x, y)), ON_VALUES(apply(2, x, y)),
    ON_VALUES(apply(3, x, y)), ON_VALUES(n = x <= y ? ieee_cmp(x, y) : x == y),
    ON_VALUES(n = x.is_nan() + 2 * x.is_inf() + 4 * x.is_subnormal() + 8 * x.is_zero()),
    ON_VALUES(x.self_nan()), ON_VALUES(x.self_inf(true)), ON_VALUES(x.set_sign(true)),
    ON_VALUES(x.next_representable(y.get_sign())), ON_VALUES(x.packed_next(!y.get_sign())),
    ON_VALUES(n = x.to_integer(9)),
    // From here on there are new values, which are allocated if they are wide.
    ON_VALUES(x = x + y), ON_VALUES(x.set_format(g)),
    ON_VALUES(x = IEEEFloat::max_value(y.get_format())),
    ON_VALUES(x = IEEEFloat::from_number(n, y.get_format(), x.get_mode())),
    ON_VALUES(x = IEEEFloat::from_scaled(n, 3, y.get_format(), x.get_mode())),
    ON_VALUES(x = IEEEFloat::from_bits(y.get_bits(), y.get_format())),
    // Exact values can be larger than their formats; then g matters.
    ON_VALUES(n = x.to_number()), ON_VALUES(n = x.to_integer(0)),
    ON_VALUES(n = sum_of(x.to_str() + to_shortest(x) + to_hex(x, 5) + to_scientific(x, 9) +
                         to_smtlib(x))),
    ON_VALUES(n = x.to_integer(g.mant_width)),
    ON_VALUES(x = IEEEFloat::from_number(n, g, x.get_mode())),
    ON_VALUES(x = IEEEFloat::from_text("-12.5e-30", g, x.get_mode()))};
inline constexpr std::size_t first_sized = 3, first_new = 15, first_of_bits = 20, first_exact = 21,
                             first_of_g = 24;

/// Calls of environments, which differ with modes and, where formats have patterns, with signs; n
/// gets the flags.
inline zelk::Environment environment(const IEEEFloat& x, const IEEEFloat& y) {
  const auto is_negative = [](const IEEEFloat& v) {
    const Format f = v.get_format();
    return zelk::detail::has_patterns(f.exp_width, f.mant_width) && v.get_sign();
  };
  const unsigned k = x.get_mode() + 5U * is_negative(x) + 11U * is_negative(y);
  return {static_cast<zelk::Rounding>(k % 6), static_cast<zelk::Tininess>(k / 2 % 2), k % 5 == 0,
          k % 7 == 1};
}
/// Those of a call that computes something; one that throws raises none.
inline long flags_of(zelk::Environment env, auto compute) {
  try {
    compute(env);
  } catch (...) {
    EXPECT_EQ(env.flags, 0) << "after a throw";
    throw;
  }
  return env.flags;
}
#define IN_ENVIRONMENT(...) \
  ON_VALUES(n = flags_of(environment(x, y), [&](auto& env) { __VA_ARGS__; }))
inline constexpr Call environment_calls[] = {
    IN_ENVIRONMENT(x = env.add(x, y)), IN_ENVIRONMENT(x = env.subtract(x, y)),
    IN_ENVIRONMENT(x = env.multiply(x, y)), IN_ENVIRONMENT(x = env.divide(x, y)),
    IN_ENVIRONMENT(x = env.sqrt(x)), IN_ENVIRONMENT(x = env.fma(x, y, x)),
    IN_ENVIRONMENT(x = env.fma(y, y, x)), IN_ENVIRONMENT(x = env.round_to_integral(x)),
    IN_ENVIRONMENT(x = env.nearbyint(x)), IN_ENVIRONMENT(x = env.minimum(x, y)),
    IN_ENVIRONMENT(x = env.maximum_magnitude_number(x, y)),
    IN_ENVIRONMENT(x = env.maximum(env.minimum_number(x, y), env.minimum_magnitude(y, x))),
    IN_ENVIRONMENT(
        x = env.maximum_number(env.maximum_magnitude(x, y), env.minimum_magnitude_number(y, x))),
    ON_VALUES(x = abs(-x)), ON_VALUES(x = copy_sign(x, y)),
    ON_VALUES(x = y.get_sign() ? next_up(x) : next_down(x)),
    ON_VALUES(n = static_cast<long>(classify(x)) + 16L * is_normal(x)),
    ON_VALUES(n = std::is_lt(total_order(x, y)) + 2 * std::is_lt(x <=> y)),
    // From here on they may allocate but on words.
    IN_ENVIRONMENT(x = env.scale(x, 40)), IN_ENVIRONMENT(x = env.convert(x, y.get_format())),
    IN_ENVIRONMENT(n = env.to_unsigned(x, 9).value_or(7); x.self_zero(env.flags == 16)),
    ON_VALUES(n = is_integral(x)                                     ? 1
                  : classify(x) == zelk::FloatClass::positive_normal ? exponent_of(x)
                                                                     : QNumber(0)),
    // And from here on there, too.
    ON_VALUES(n = is_integral(x) ? 1 : exponent_of(x)), IN_ENVIRONMENT(x = env.remainder(x, y)),
    IN_ENVIRONMENT(x = env.modulo(x, y)),
    IN_ENVIRONMENT(n = env.to_signed(x, 70).value_or(7); x.self_zero(env.flags == 16)),
    ON_VALUES(x = IEEEFloat::from_encoding(y.get_bits(), x.get_format())),
    // From here on g matters.
    IN_ENVIRONMENT(x = env.add(x, y, g)), IN_ENVIRONMENT(x = env.subtract(x, y, g)),
    IN_ENVIRONMENT(x = env.multiply(x, y, g)), IN_ENVIRONMENT(x = env.divide(x, y, g)),
    IN_ENVIRONMENT(x = env.sqrt(x, g)), IN_ENVIRONMENT(x = env.fma(x, y, x, g)),
    IN_ENVIRONMENT(x = env.remainder(x, y, g)), IN_ENVIRONMENT(x = env.modulo(y, x, g)),
    IN_ENVIRONMENT(x = env.convert(x, g)), IN_ENVIRONMENT(x = env.scale(x, -power(70), g)),
    IN_ENVIRONMENT(const IEEEFloat all[] = {x, y, x}; x = env.sum(all, g)),
    IN_ENVIRONMENT(const IEEEFloat all[] = {x, y, x}; x = env.dot(all, all, g)),
    IN_ENVIRONMENT(x = env.from_scaled(n, 3, g)), IN_ENVIRONMENT(x = env.from_text("-7.3e-9", g)),
    IN_ENVIRONMENT(x = env.from_rational(n, g)),
    IN_ENVIRONMENT(x = env.from_integer(n.get_num(), g)),
    ON_VALUES(n = static_cast<int>(std::is_lt(compare(x, zelk::Environment().from_integer(3, g))))),
    IN_ENVIRONMENT(n = env.to_integer(x).value_or(7))};  // of any length
inline constexpr std::size_t first_growing = 18, first_on_words = 22, first_into = 27,
                             end_into = 36, last_exact = 44;
static_assert(std::size(environment_calls) == last_exact + 1);

/// What a call on copies of x and n leaves, and the text that it throws; without a y, y is x.
inline std::string outcome(Call call, IEEEFloat x, const IEEEFloat* y, Format g, QNumber n) {
  const std::string text = message([&] { return call(x, y != nullptr ? *y : x, g, n), 0; });
  return text + name(x) + ' ' + n.to_mpq().get_str(16);
}

/// Patterns that find faults, from what gives numbers: `below(n)`, and `digits(n)` of n bits.
template <typename Numbers>
struct Patterns {
  mpz_class exponent = 0;
  mpz_class previous = 0;

  // Exponents at the ends, around one, and where the last pattern makes results meet the ends;
  // few ones, long runs, none, or any bits; neighbours of the last one. NaNs are within a few steps
  // of infinity.
  mpz_class pattern(const Layout& t) {
    auto& numbers = static_cast<Numbers&>(*this);
    const mpz_class top = t.inf / t.hidden, b = top / 2, last = exponent;
    const mpz_class centers[] = {b, 0, top, last, b - last, last + b, last - b, top + b - last};
    const unsigned long reach = t.f.mant_width + 4;
    exponent = centers[t.f.exp_width == 63 ? 0 : numbers.below(8)] - reach;
    exponent += numbers.below(2) == 0 ? numbers.below(2 * reach) : numbers.below(5) + reach - 2;
    exponent = std::clamp<mpz_class>(exponent, 0, top);
    const mpz_class any = numbers.digits(t.f.mant_width);
    const mpz_class low = (t.hidden >> numbers.below(t.f.mant_width + 1)) - 1;
    const mpz_class kinds[] = {any, any | low, t.hidden - 1 - low, low, low + 1, 0};
    const mpz_class below = exponent < top ? t.hidden : std::min<mpz_class>(t.hidden, 4);
    mpz_class p = exponent * t.hidden + kinds[numbers.below(6)] % below;
    const bool neighbour = numbers.below(8) == 0 && previous > 0 && previous < t.inf;
    if (neighbour) p = previous + numbers.below(3) - 1;
    previous = p;
    return numbers.below(2) * t.sign + p;
  }
};

/// Random ones.
struct Random : gmp_randclass, Patterns<Random> {
  Random() : gmp_randclass(gmp_randinit_mt) { gmp_randclass::seed(zelk_test::seed()); }

  unsigned long below(unsigned long n) { return mpz_class(get_z_range(n)).get_ui(); }
  mpz_class digits(unsigned long n) { return get_z_bits(n); }
};

}  // namespace zelk_test

#endif  // ZELK_TESTS_SUPPORT_H_
