// Numbers and values from text and from exact numbers, rounded once; formats by name and limits.
#include <functional>
#include <limits>
#include <sstream>
#include <vector>

#include "tests/mpfr_oracle.h"
#include "zelk/float/mpfr.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static const IEEEFloat half({5, 10}, modes[0]);
static constexpr auto up = IEEEFloat::ROUND_TOWARD_POSITIVE;

// The words of a text, in pairs.
static std::vector<std::pair<std::string, std::string>> pairs(const char* text) {
  std::vector<std::pair<std::string, std::string>> all;
  std::istringstream words(text);
  for (std::string first, second; words >> first >> second;) all.emplace_back(first, second);
  return all;
}

TEST(Text, NumbersAreExact) {
  for (const auto& [text, want] : pairs(
           "0 0 -0 0 +12 12 007 7 -7/4 -7/4 10/4 5/2 .5 1/2 5. 5 -0.125 -1/8 1e3 1000 12.5E-2 1/8 "
           "1e+0 1 0x1F 31 0x1P3 8 0X.8 1/2 0x1.8p-3 3/16 -0xap1 -20 0e99999999999999999999 0 "
           "18446744073709551616 18446744073709551616")) {
    EXPECT_EQ(QNumber::from_text(text).to_mpq(), mpq_class(want)) << text;
  }
  const QNumber tiny = QNumber::from_text("1e-400000");
  EXPECT_TRUE(tiny.get_num() == 1 && zelk::BVNumber::bit_length(tiny.get_den()) == 1328772);
  for (const auto& row :
       pairs("- 1 abc 0 1_ 1 1.2.3 3 . 1 1e 2 1e+ 3 1/ 2 1/0 2 1/-2 2 1.5/2 3 0x 2 "
             "0x1p 4 0xg 2 1f 1 --1 1 inf 0 1e5/3 3 0x1/2 3")) {
    const std::string text = row.first;
    const std::string want = "invalid number at position " + row.second + ": " + text;
    EXPECT_EQ(TRIED(QNumber(), x.from_text(text)), "Exception: " + want);
    EXPECT_EQ(TRIED(half, x.from_text(text, half.get_format(), up)), text == "inf" ? "" : want);
  }
  for (const char* text : {"1e999999999999", "-1e-9999999999999999999999", "0x1p4294967297"}) {
    EXPECT_EQ(TRIED(QNumber(), x.from_text(text)), "Exception: number too large");
  }
}

// Exponents that no number could hold, and words.
TEST(Text, RangesAndWords) {
  for (const auto& [text, want] : pairs(  // the mode comes first
           "01e999999999999 7C00 11e999999999999 7BFF 3-1e99999999999999999999 FC00 "
           "01e-999999999999 0 21e-999999999999 1 3-1e-99999999999999999999 8001 "
           "20x1p-99999999999999999999 1 00e99999999999999999999 0 0-0.0 8000 0inf 7C00 "
           "1-Infinity FC00 3+INF 7C00 0NaN FC01 3-nan FC01 20 0")) {
    const IEEEFloat x = IEEEFloat::from_text(text.substr(1), {5, 10}, modes[text[0] - '0']);
    EXPECT_TRUE(bits(x) == mpz_class(want, 16) && x.get_mode() == modes[text[0] - '0']) << text;
  }
  for (const QNumber& k : {-power(64), -power(63) + 1, -power(70), power(64), power(70)}) {
    for (const QNumber& q : {QNumber(1), QNumber(-1) / 3, power(100) + 1}) {
      const IEEEFloat x = IEEEFloat::from_scaled(q, k, {5, 10}, modes[k.sign() < 0 ? 2 : 0]);
      const int magnitude = k.sign() > 0 ? 0x7C00 : q.sign() > 0 ? 1 : 0;
      EXPECT_EQ(bits(x), magnitude + (q.sign() < 0 ? 0x8000 : 0)) << q << " 2^" << k;
    }
  }
  const std::string nul("1\0002", 3);
  EXPECT_EQ(TRIED(half, x.from_text(nul, {5, 10}, up)), "invalid number at position 1: " + nul);
  EXPECT_EQ(TRIED(half, x.from_scaled(1, QNumber(1) / 2, {5, 10}, up)),
            "exponent is not an integer: 1/2");
  // By logarithms: 1.02841 * 2^3321928094884. The power itself would pass the limit.
  for (const Format f : {Format{60, 10}, Format{64, 10}}) {
    EXPECT_EQ(bits(IEEEFloat::from_text("1e999999999999", f, up)),
              bits(IEEEFloat::from_scaled(1054, 3321928094874, f, up)));
  }
}

template <typename T>
static void check_limits(Format f) {
  using L = std::numeric_limits<T>;
  const zelk::FormatLimits is(f);
  const auto value = [](const IEEEFloat& x) { return zelk::to_native<T>(x); };
  EXPECT_TRUE(is.precision() == L::digits && is.digits10() == L::digits10 &&
              is.max_digits10() == L::max_digits10 && is.min_exponent() == L::min_exponent - 1 &&
              is.max_exponent() == L::max_exponent - 1);
  EXPECT_TRUE(value(is.smallest_subnormal()) == L::denorm_min() && value(is.one()) == 1 &&
              value(is.smallest_normal()) == L::min() && value(is.largest()) == L::max() &&
              value(is.epsilon()) == L::epsilon());
}

TEST(Formats, LimitsAreThoseOfTheProcessor) {
  check_limits<float>(zelk::formats::single);
  check_limits<double>(zelk::formats::double_);
  namespace named = zelk::formats;
  constexpr Format others[] = {named::half,    named::bfloat16, named::tf32,    named::quad,
                               named::octuple, named::fp8_e4m3, named::fp8_e5m2};
  constexpr Format widths[] = {{5, 10}, {8, 7}, {8, 10}, {15, 112}, {19, 236}, {4, 3}, {5, 2}};
  EXPECT_TRUE(std::equal(std::begin(others), std::end(others), std::begin(widths)));
  Random random;
  Mpfr log({15, 300}), product({15, 300});
  mpfr_set_ui(log.r, 2, MPFR_RNDN);
  mpfr_log10(log.r, log.r, MPFR_RNDN);
  const auto digits = [&](unsigned long n) {
    mpfr_mul_ui(product.r, log.r, n, MPFR_RNDN);
    return mpfr_get_ui(product.r, MPFR_RNDD);
  };
  for (unsigned long i = 1; i < 3000; ++i) {
    const unsigned long m = i < 999 ? i : random.digits(63).get_ui() + 1;
    const zelk::FormatLimits limits({15, m});
    ASSERT_TRUE(limits.digits10() == digits(m) && limits.max_digits10() == 2 + digits(m + 1)) << m;
  }
  EXPECT_EQ(zelk::FormatLimits(zelk::formats::fp8_e4m3).largest().to_number(), 240);
  EXPECT_EQ(zelk::FormatLimits(zelk::formats::quad).epsilon().to_number(),
            QNumber::scaled(1, -112));
}

TEST(Factories, TakeAModeOrRefuseIt) {
  using Mode = IEEEFloat::rounding_mode;
  const auto all = [](const QNumber& bits, double native, Format f, auto... rm) {
    const auto call = [](auto make) { return [make] { return make().get_mode(); }; };
    return std::vector<std::function<Mode()>>{
        call([=] { return IEEEFloat::from_bits(bits, f, rm...); }),
        call([=] { return IEEEFloat::from_encoding(bits, f, rm...); }),
        call([=] { return IEEEFloat::max_value(f, rm...); }),
        call([=] { return zelk::from_native(native, rm...); })};
  };
  for (const double native : {1.5, std::numeric_limits<double>::quiet_NaN()}) {
    for (const auto& factory : all(5, native, {5, 10})) EXPECT_EQ(factory(), modes[0]);
    for (const Mode rm : modes) {
      for (const auto& factory : all(5, native, {8, 23}, rm)) EXPECT_EQ(factory(), rm);
    }
    for (const auto& factory : all(-1, native, {0, 5}, static_cast<Mode>(4))) {
      EXPECT_EQ(message(factory), "bad rounding mode: 4");
    }
  }
}

// After a mode that is none, and before anything else that they could refuse.
TEST(Factories, RefuseFormatsWithoutArithmetic) {
  Mpfr one({5, 10}), zero({5, 10});
  mpfr_set_ui(one.r, 1, MPFR_RNDN), mpfr_set_ui(zero.r, 0, MPFR_RNDN);
  const QNumber third = QNumber(1) / 3;
  constexpr unsigned long negative = 1UL << 63;
  for (const Format f : {Format{0, 0}, {1, 10}, {5, 0}, {negative, 5}, {5, negative}, {5, ~0UL}}) {
    const std::string text = "format without arithmetic: (" + std::to_string(f.exp_width) + ", " +
                             std::to_string(f.mant_width) + ')';
    for (const unsigned mode : {0U, 3U, 7U}) {
      const std::string want = mode > 3 ? "bad rounding mode: 7" : text;
      const auto rm = static_cast<IEEEFloat::rounding_mode>(mode);
      EXPECT_EQ(message([&] { return IEEEFloat::from_text("x", f, rm); }), want);
      EXPECT_EQ(message([&] { return IEEEFloat::from_ratio(1, f, rm); }), want);
      EXPECT_EQ(message([&] { return IEEEFloat::from_scaled(1, third, f, rm); }), want);
      EXPECT_EQ(message([&] { return IEEEFloat::from_encoding(-1, f, rm); }), want);
      EXPECT_EQ(message([&] { return zelk::from_mpfr(one.r, f, rm); }), want);
      EXPECT_EQ(message([&] { return zelk::from_mpfr(zero.r, f, rm); }), want);
      zelk::Environment env{static_cast<zelk::Rounding>(mode)};
      EXPECT_EQ(message([&] { return env.from_text("x", f); }), want);
    }
    EXPECT_EQ(message([&] { return zelk::FormatLimits(f).one(); }), text);
  }
  EXPECT_EQ(message([&] {
              return IEEEFloat::from_text("x", {2, 1}, up);
            }),
            "invalid number at position 0: x");
}

TEST(Errors, QuoteTwoHundredCharacters) {
  const Format f{5, 10};
  zelk::Environment env;
  for (const std::size_t n : {200UL, 201UL}) {
    const std::string fraction = std::string(n - 2, '1') + "/2", word(n, 'x');
    const std::string nines(n - 6, '9'), other = '(' + nines + ", 11)";
    const QNumber q = QNumber::from_text(fraction);
    const auto check = [&](const std::string& text, const std::string& bad, auto call) {
      EXPECT_EQ(message(call), text + (n > 200 ? bad.substr(0, 200) + "..." : bad));
    };
    check("invalid bit pattern for IEEEFloat: ", fraction, [&] { return half.from_bits(q, f); });
    check("exponent is not an integer: ", fraction, [&] { return half.from_scaled(1, q, f, up); });
    check("exponent is not an integer: ", fraction, [&] { return env.scale(half, q); });
    check("number is not an integer: ", fraction, [&] { return env.from_integer(q, f); });
    check("Exception: exponent is not an integer: ", fraction, [&] { return pow(2, q); });
    check("Exception: number is not an integer: ", fraction, [&] { return q % 2; });
    check("Exception: invalid number at position 0: ", word, [&] { return q.from_text(word); });
    check("invalid number at position 0: ", word, [&] { return half.from_text(word, f, up); });
    check("text of another format: ", other,
          [&] { return half.from_text("(_ NaN " + nines + " 12)", f, up); });
    const std::string term = "(_ " + word.substr(3);
    check("invalid number at position 3: ", term, [&] { return env.from_text(term, f); });
  }
  for (const std::size_t n : {196UL, 197UL, 198UL, 199UL}) {  // before the border and over it
    const std::string word = std::string(n, 'x') + "\U0001F600\U0001F600";
    EXPECT_EQ(message([&] { return half.from_text(word, f, up); }),
              "invalid number at position 0: " + word.substr(0, n == 196 ? 200 : n) + "...");
  }
}
