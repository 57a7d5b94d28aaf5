// Values as text, against rationals and the C++ and the C library, and back again.
#include <cmath>
#include <cstdio>
#include <memory>

#include "tests/text_oracle.h"
#include "zelk/float/native.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// The room of a text, to the character: the address sanitizer knows where it ends.
static std::string in_every_room(const std::string& want, auto write) {
  for (std::size_t size = want.size() > 70 ? want.size() - 1 : 0;; ++size) {
    const std::unique_ptr<char[]> room(new char[size]);
    const auto [end, error] = write(room.get(), room.get() + size);
    if (error == std::errc()) {
      EXPECT_EQ(size, want.size()) << want;
      return {room.get(), end};
    }
    EXPECT_TRUE(error == std::errc::value_too_large && end == room.get() + size && size < 9999);
  }
}

// Patterns of small formats: the shortest text, all digits, and roundings of any length.
TEST(ToText, SmallFormatsAreThoseOfRationals) {
  std::vector<Format> formats = {{5, 10}, {8, 7}, {1, 3}};
  for (unsigned long e = 2; e < 11; ++e) {
    for (unsigned long m = 1; e + m < 12; ++m) formats.push_back({e, m});
  }
  Random random;
  for (const Format f : formats) {
    const Layout t(f);
    for (mpz_class p = 1; p < t.inf; p += 1 + random.below(1 + 100000 / rounds())) {
      IEEEFloat x = generic(f, modes[0], p);
      const mpq_class v = t.value(p);
      const std::string text = to_shortest(x);
      ASSERT_EQ(text, shortest(t, p)) << name(x);
      ASSERT_EQ(text, in_every_room(text, [&](char* a, char* b) { return to_chars(a, b, x); }));
      ASSERT_EQ(to_exact(x).find_first_not_of("0123456789.e+-"), std::string::npos);
      ASSERT_EQ(QNumber::from_text(to_exact(x)).to_mpq(), v);
      ASSERT_EQ(QNumber::from_text(to_hex(x)).to_mpq(), v);
      ASSERT_TRUE(to_hex(x).starts_with("0x1") && to_hex(x).find("0p") == std::string::npos);
      const bool negative = random.below(2) == 1;
      x.set_sign(negative);
      const std::string sign = negative ? "-" : "";
      ASSERT_EQ(to_shortest(x), sign + text);
      for (const Rounding r : roundings) {
        const auto n = static_cast<long>(random.below(12));
        const mpq_class q = negative ? mpq_class(-v) : v;
        ASSERT_EQ(to_fixed(x, n, r), sign + plain(rounded(q, -n, r).get_str(), -n))
            << name(x) << n << int(r);
        ASSERT_EQ(to_scientific(x, n + 1, r), scientific(q, n + 1, r)) << name(x);
        ASSERT_EQ(to_hex(x, n / 2 + 1, r), sign + hexadecimal(q, n / 2, r)) << name(x);
        const auto in_rooms = [&](std::chars_format form, const std::string& want) {
          const auto write = [&](char* a, char* b) {
            return to_chars(a, b, x, form, static_cast<int>(n), r);
          };
          EXPECT_EQ(in_every_room(want, write), want) << name(x) << n << int(r);
        };
        in_rooms(std::chars_format::fixed, to_fixed(x, n, r));
        in_rooms(std::chars_format::scientific, to_scientific(x, n + 1, r));
        in_rooms(std::chars_format::hex, to_hex(x, n + 1, r));
        in_rooms(std::chars_format::general, general(to_scientific(x, std::max(n, 1L), r), n));
      }
    }
  }
}

// What printf gives for these forms, hexadecimal ones of normal values, in the processor's
// rounding.
static std::string printed(double d, char form, int precision) {
  char format[] = "%.*e", text[1200];
  format[3] = form;
  // NOLINTNEXTLINE(clang-diagnostic-format-nonliteral)
  return {text, static_cast<std::size_t>(std::snprintf(text, sizeof text, format, precision, d))};
}

// Values of binary64, or of binary32: the shortest text is the C++ library's, others are printf's
// in each of its four roundings; the processor's control word plays no part.
template <class T>
static void check_native(T value) {
  const IEEEFloat x = zelk::from_native(value);
  char text[64];
  const std::string want(text, std::to_chars(text, text + sizeof text, value).ptr);
  ASSERT_EQ(to_shortest(x), want);
  ASSERT_TRUE(sizeof value < sizeof(double) || std::strtod(want.c_str(), nullptr) == value);
}

TEST(ToText, NativeValuesAreThoseOfTheLibraries) {
  constexpr int directions_of_processor[] = {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD, FE_DOWNWARD};
  constexpr std::chars_format forms[] = {std::chars_format::scientific, std::chars_format::fixed,
                                         std::chars_format::general, std::chars_format::hex};
  Random random;
  for (int k = -1074; k < 1024; ++k) check_native(std::ldexp(1.0, k));
  for (int k = -149; k < 128; ++k) check_native(std::ldexp(1.0F, k));
  for (int k = -323; k < 309; ++k) {
    const std::string ten = "1e" + std::to_string(k);
    check_native(std::strtod(ten.c_str(), nullptr));
    check_native(std::strtof(ten.c_str(), nullptr));
  }
  for (unsigned long i = 0; i < 200 * rounds(); ++i) {
    const auto word = random.digits(63).get_ui();
    const auto narrow = std::bit_cast<float>(static_cast<std::uint32_t>(word >> 32));
    const auto value = std::bit_cast<double>(word);
    if (std::isfinite(narrow)) check_native(narrow);
    if (std::isfinite(value))
      check_native(i % 8 == 0 ? std::nearbyint(std::fmod(value, 1e25)) : value);
    if (i % 64 != 0 || !std::isfinite(value)) continue;
    const double d = (i % 128 == 0 ? std::ldexp(value, -std::ilogb(value) + 9) : value) *
                     (random.below(2) == 0 ? -1 : 1);
    const IEEEFloat x = zelk::from_native(d);
    const std::string shortest = to_shortest(x);
    const auto precision = static_cast<int>(random.below(30)) - 1;
    for (unsigned long mode = 0; mode < 4; ++mode) {
      for (unsigned long form = 0; form < 4; ++form) {
        if (form == 3 && !std::isnormal(d)) continue;
        std::fesetround(directions_of_processor[mode]);
        const std::string want = printed(d, "efga"[form], precision);
        std::fesetround(FE_TONEAREST);
        if (want.find("0x2") != std::string::npos) continue;  // a carry, in glibc's spelling
        char room[500];
        const OddControlWord odd;
        ASSERT_EQ(to_shortest(x), shortest);
        const auto [end, error] =
            to_chars(room, room + sizeof room, x, forms[form], precision, roundings[mode]);
        ASSERT_EQ(std::string(room, end), want) << "%"
                                                << "efga"[form] << precision;
        ASSERT_EQ(error, std::errc());
      }
    }
  }
}

// Formats of two words and more: to a given number of digits, the shortest text and back.
TEST(ToText, WideFormatsAreThoseOfRationals) {
  Random random;
  constexpr Format formats[] = {{15, 112}, {15, 63},  {15, 48},  {12, 115}, {2, 125},
                                {11, 100}, {13, 190}, {19, 236}, {11, 319}, {15, 1001}};
  for (const Format f : formats) {
    const Layout t(f);
    for (unsigned long i = 0; i < rounds() / (f.exp_width > 15 ? 200 : 20); ++i) {
      mpz_class p = random.pattern(t);
      if (i % 8 == 0) {  // where integers are about to get an exponent
        p = (t.inf / t.hidden / 2 + f.mant_width + random.below(20)) * t.hidden;
        p = (p + random.digits(f.mant_width)) % t.inf;
      }
      if (p % t.sign == 0 || p % t.sign >= t.inf) continue;
      IEEEFloat x = IEEEFloat::from_bits(QNumber(p % t.sign, 1), f);
      const std::string text = to_shortest(x);
      ASSERT_EQ(read_back(text, f), name(x)) << text;
      ASSERT_TRUE((i % 16 != 0 && f.exp_width > 12) || text == shortest(t, p % t.sign)) << name(x);
      x.set_sign(p >= t.sign);
      const long n = 1 + static_cast<long>(random.below(random.below(2) == 0 ? 50 : 400));
      ASSERT_EQ(to_scientific(x, n, roundings[i % 6]), scientific(t.value(p), n, roundings[i % 6]))
          << name(x);
    }
  }
}

// Values whose midpoint to the next one is very close to a short decimal number, and values very
// close to one, or to the middle of two.
TEST(ToText, HardCasesAreDecidedExactly) {
  Random random;
  for (const Format f :
       {Format{5, 10}, {8, 23}, {11, 52}, {15, 48}, {15, 112}, {15, 190}, {19, 236}}) {
    const Layout t(f);
    for (unsigned long i = 0; i < rounds() / (f.exp_width > 11 ? 50 : 10); ++i) {
      // The exponent of the last place, and a decimal place.
      const unsigned long fields = std::min(1UL << f.exp_width, 24000UL);
      const mpz_class field = t.inf / t.hidden / 2 - fields / 2 + random.below(fields);
      if (field < 1 || field * t.hidden >= t.inf) continue;
      const long k = t.exponent(field * t.hidden);
      const auto scale = [&](long p) { return scaled(1 / power_of_ten(p), k); };
      const long last = decade(scale(0));
      const bool middle = random.below(2) == 0;  // of this value and the next
      const long p = middle ? last : last + static_cast<long>(random.below(f.mant_width / 3 + 1));
      const mpq_class unit = middle || random.below(2) == 0 ? mpq_class(scale(p) / 2) : scale(p);
      const mpz_class least = middle ? mpz_class(2 * t.hidden) : t.hidden;
      // Close to an integer, times the unit.
      const mpz_class q = Convergents(unit.get_num(), unit.get_den(), 2 * least).n[1];
      mpz_class n = (least + q - 1) / q;
      n = q * (n % 2 == 0 && n > 1 ? mpz_class(n + 1) : n);  // an odd multiple
      if (n >= 2 * least || (middle && n % 2 == 0)) continue;
      if (middle) n /= 2;
      const mpz_class pattern = field * t.hidden + n - t.hidden;
      const IEEEFloat x = IEEEFloat::from_bits(QNumber(pattern, 1), f);
      ASSERT_EQ(to_shortest(x), shortest(t, pattern)) << name(x);
      const mpq_class v = t.value(pattern);
      for (const Rounding r : roundings) {
        const long digits = decade(v) - p + 1;
        if (digits < 1) break;
        ASSERT_EQ(to_scientific(x, digits, r), scientific(v, digits, r)) << name(x);
      }
    }
  }
  for (const long p : {60, 500, 1700}) {  // exactly the middle of two, and powers cut off to divide
    for (const long n : {1234, 1235}) {
      const QNumber v(mpz_class((2 * n + 1) * power_of_ten(p).get_num() / 2), 1);
      const IEEEFloat x = IEEEFloat::from_number(v, {20, 4204}, IEEEFloat::ROUND_TOWARD_ZERO);
      EXPECT_EQ(to_scientific(x, 4), with_exponent(n % 2 == 0 ? "1234" : "1236", p));
    }
    const mpz_class few = power_of_ten(p).get_num() + 7;  // blocks with few digits that are not 0
    EXPECT_EQ(to_fixed(IEEEFloat::from_number(QNumber(few, 1), {20, 6000}, modes[0]), 0),
              few.get_str());
  }
}

TEST(ToText, SpecialValuesAndPatterns) {
  const auto at = [](Format f, const char* pattern) {
    return IEEEFloat::from_encoding(QNumber(mpz_class(pattern, 16), 1), f);
  };
  const struct {
    IEEEFloat x;
    const char* want;
  } rows[] = {
      {at({5, 10}, "0"), "0 0 0.00e+00 0.00 0x0p+0 0x0.00p+0 (_ +zero 5 11) 0x0000"},
      {at({5, 10}, "8000"), "-0 -0 -0.00e+00 -0.00 -0x0p+0 -0x0.00p+0 (_ -zero 5 11) 0x8000"},
      {at({5, 10}, "7c00"), "inf inf inf inf inf inf (_ +oo 5 11) 0x7C00"},
      {at({5, 10}, "fc00"), "-inf -inf -inf -inf -inf -inf (_ -oo 5 11) 0xFC00"},
      {at({5, 10}, "7e00"), "nan nan nan nan nan nan (_ NaN 5 11) 0xFC01"},
      {at({5, 10}, "1"),
       "6e-08 5.9604644775390625e-08 5.96e-08 0.00 0x1p-24 0x1.00p-24 "
       "(fp #b0 #b00000 #b0000000001) 0x0001"},
      {at({5, 10}, "fbff"),
       "-65504 -65504 -6.55e+04 -65504.00 -0x1.ffcp+15 -0x1.00p+16 "
       "(fp #b1 #b11110 #b1111111111) 0xFBFF"},
      {at({4, 2}, "60"), "-2 -2 -2.00e+00 -2.00 -0x1p+1 -0x1.00p+1 (fp #b1 #b1000 #b00) 0x60"},
      {IEEEFloat({0, 6}, modes[0]), "0 0 0.00e+00 0.00 0x0p+0 0x0.00p+0 (_ +zero 0 7) 0x00"}};
  for (const auto& [x, want] : rows) {
    EXPECT_EQ(to_shortest(x) + ' ' + to_exact(x) + ' ' + to_scientific(x, 3) + ' ' +
                  to_fixed(x, 2) + ' ' + to_hex(x) + ' ' + to_hex(x, 3) + ' ' + to_smtlib(x) + ' ' +
                  to_bits_text(x),
              want);
  }
}
