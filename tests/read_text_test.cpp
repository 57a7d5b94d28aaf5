// Numbers read from characters: against MPFR, and where prefixes end.
#include <sstream>
#include <utility>
#include <vector>

#include "tests/mpfr_oracle.h"
#include "tests/text_oracle.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static constexpr Format formats[] = {
    {5, 10}, {8, 7},  {8, 23},  {11, 52}, {15, 63},  {15, 112}, {19, 236},  {4, 3},
    {2, 1},  {8, 58}, {15, 48}, {3, 60},  {11, 116}, {20, 318}, {12, 1000}, {64, 5}};

// A setting by number: all roundings, either tininess, with flushing now and then.
static Environment setting_of(unsigned long i) {
  return {static_cast<Rounding>(i % 6), static_cast<zelk::Tininess>(i / 6 % 2), i / 12 % 4 == 0};
}

// The bits and flags of what is read from a text: alike by every way that reads it, whatever the
// processor's control word.
static std::string read(const std::string& text, Format f, const Environment& env) {
  Environment by_text = env, by_chars = env;
  const bool in_mode = env.rounding <= Rounding::toward_negative && !env.flush_results;
  IEEEFloat x(f, IEEEFloat::REPR_GENERIC, modes[3]), y, z;
  const std::vector<char> own(text.begin(), text.end());  // which nothing may be read beyond
  std::from_chars_result end{};
  {
    const OddControlWord odd;
    end = from_chars(own.data(), own.data() + own.size(), x, by_chars);
    y = by_text.from_text(text, f);
    z = in_mode ? IEEEFloat::from_text(text, f, modes[static_cast<int>(env.rounding)]) : y;
  }
  EXPECT_TRUE(end.ptr == own.data() + own.size() && end.ec == std::errc()) << text;
  EXPECT_TRUE(x.get_format() == f && x.get_mode() == 3 && x.get_repr() == IEEEFloat::REPR_GENERIC);
  EXPECT_TRUE(bits(y) == bits(x) && bits(z) == bits(x) && by_text.flags == by_chars.flags) << text;
  return bits(x).get_str(16) + ' ' + std::to_string(by_text.flags);
}

// The same by MPFR.
static std::string round(const std::string& text, Format f, const Environment& env) {
  Mpfr x({f.exp_width, f.mant_width + 9});
  const bool sticky = mpfr_strtofr(x.r, text.c_str(), nullptr, 0, MPFR_RNDZ) != 0;
  const Answer answer = Target(f).round(cut_off(x.r, sticky), env);
  return answer.bits.get_str(16) + ' ' + std::to_string(answer.flags);
}

#define ASSERT_READ(text, f, env)                                                       \
  ASSERT_EQ(read(text, f, env), round(text, f, env))                                    \
      << (text) << " into (" << (f).exp_width << ',' << (f).mant_width << ") rounding " \
      << static_cast<int>((env).rounding)

// digits * 10^k with a point before the last `place` digits.
static std::string spelled(std::string digits, unsigned long place, long k) {
  digits.insert(digits.size() - place, ".");
  const long exponent = k + static_cast<long>(place);
  return digits + (k % 2 == 0 ? "e" : exponent < 0 ? "E" : "E+") + std::to_string(exponent);
}

// log10 of the largest value, or what is tried of it.
static long reach(Format f) {
  return f.exp_width > 15 ? 700 : (1L << (f.exp_width - 1)) * 30103 / 100000 + 1;
}

TEST(ReadText, DecimalsAreRoundedOnce) {
  Random random;
  for (const Format f : formats) {
    const long below = reach(f) + static_cast<long>(f.mant_width) * 3 / 10;
    const auto range = static_cast<unsigned long>(reach(f) + below + 6);
    for (unsigned long i = 0; i < rounds() / 2; ++i) {
      const unsigned long length = random.below(40) + 1;
      mpz_class digits = random.get_z_range(power_of_ten(static_cast<long>(length)).get_num()) + 1;
      if (random.below(4) == 0) digits *= random.below(2) == 0 ? 1953125 : 1000000000;
      if (random.below(8) == 0) digits = pow2(length) * (2 * i + 1);
      std::string text = digits.get_str();
      const auto size = static_cast<long>(text.size());
      const long point = static_cast<long>(random.below(range)) - below - 2 - size;
      const long k = random.below(6) == 0 ? -static_cast<long>(random.below(60)) : point;
      // The point goes somewhere, behind zeros now and then.
      text.insert(0, random.below(3) * 9, '0');
      text = spelled(text, random.below(text.size() + 1), k);
      text.insert(0, random.below(2) == 0 ? "-" : "+");
      ASSERT_READ(text, f, setting_of(i));
    }
  }
}

// Numbers as close to values and to the middles of two as their digits allow: w * 10^k close to
// n * 2^j, where w / n is a convergent of 2^j / 10^k.
TEST(ReadText, CloseToMiddles) {
  Random random;
  for (const Format f : formats) {
    const long bits = static_cast<long>(f.mant_width) + 2;
    if (bits > 400) continue;
    const long most = std::min(reach(f) * 332 / 100, 9000L);
    for (unsigned long i = 0; i < rounds() / 8; ++i) {
      const long j =
          static_cast<long>(random.below(static_cast<unsigned long>(2 * most))) - most - bits;
      const long size = std::max(bits * 301 / 1000, 1L) + static_cast<long>(random.below(5)) - 2;
      const long k = (j + bits) * 30103 / 100000 - size;
      const mpq_class q = scaled(1 / power_of_ten(k), j);
      mpz_class a = q.get_num(), b = q.get_den();
      // Leading bits suffice.
      const auto least =
          std::min(mpz_sizeinbase(a.get_mpz_t(), 2), mpz_sizeinbase(b.get_mpz_t(), 2));
      const auto needless = std::max(static_cast<long>(least) - 3 * bits, 0L);
      a >>= static_cast<unsigned long>(needless);
      b >>= static_cast<unsigned long>(needless);
      const auto [w, n] = Convergents(a, b, pow2(f.mant_width + 2));
      for (const int which : {0, 1}) {
        if (n[which] == 0 || w[which] == 0) continue;
        const mpz_class factor = pow2(f.mant_width + 2) / n[which];
        const mpz_class digits = w[which] * std::max<mpz_class>(factor - random.below(3), 1);
        for (unsigned long r = 0; r < 6; ++r) {
          ASSERT_READ(digits.get_str() + 'e' + std::to_string(k), f, setting_of(r + 12 * i));
        }
      }
    }
  }
}

// Values and middles in full, and numbers that differ from them far behind.
TEST(ReadText, TheLastDigitDecides) {
  Random random;
  for (const Format f : formats) {
    if (f.exp_width > 15) continue;
    const Layout t(f);
    const bool large = f.exp_width > 11 || f.mant_width > 200;
    for (unsigned long i = 0; i < rounds() / (large ? 50 : 5); ++i) {
      const mpz_class p = random.pattern(t) % t.inf;
      const mpq_class v = (t.value(p) + t.value(p + random.below(2))) / 2;
      const long places = std::max(0L, 1 - t.exponent(p));
      if (v == 0 || places > 6000) continue;
      const mpz_class digits(v * power_of_ten(places));
      const unsigned long more = random.below(1000) + 1;
      const auto added = static_cast<long>(more);
      const mpz_class there(digits * power_of_ten(added));
      const Environment env = setting_of(random.below(48));
      for (const int change : {-1, 0, 1}) {
        const mpz_class n = there + change;
        const unsigned long place = random.below(n.get_str().size() + 1);
        ASSERT_READ(spelled(n.get_str(), place, -places - added), f, env);
      }
    }
  }
}

// Where the powers of five that tables have end, and those that are exact.
TEST(ReadText, AtTheEndsOfTables) {
  for (const Format f : {Format{11, 52}, {15, 48}, {15, 112}, {17, 100}, {20, 318}}) {
    for (const long end :
         {0, 27, 28, 54, 55, 56, 110, 111, 382, 400, 401, 5062, 5081, 5100, 5101}) {
      for (const long k : {end - 1, end, -end, 1 - end}) {
        for (const char* text : {"1", "7", "1234567890123456789", "98765432109876543210",
                                 "12345678901234567890123456789012345678",
                                 "7000000000000000000000000000000000000001"}) {
          ASSERT_READ(spelled(text, 1, k), f, setting_of(12));
        }
      }
    }
  }
}

TEST(ReadText, HexadecimalIsExact) {
  Random random;
  for (const Format f : formats) {
    const long most = reach(f) * 332 / 100 + static_cast<long>(f.mant_width) + 9;
    for (unsigned long i = 0; i < rounds() / 4; ++i) {
      const mpz_class n = random.get_z_bits(random.below(f.mant_width + 90) + 1) + 1;
      const mpz_class digits = n << random.below(3) * 2 * random.below(40);
      const long k = static_cast<long>(random.below(static_cast<unsigned long>(2 * most))) - most -
                     static_cast<long>(mpz_sizeinbase(digits.get_mpz_t(), 2));
      std::string text = digits.get_str(i % 2 == 0 ? 16 : -16);
      const unsigned long place = random.below(text.size() + 1);
      text.insert(text.size() - place, ".");
      text.insert(0, i % 2 == 0 ? "0x00" : "-0X");
      text += i % 3 == 0 ? 'P' : 'p';
      text += std::to_string(k + 4 * static_cast<long>(place));
      ASSERT_READ(text, f, setting_of(i / 2));
    }
  }
}

// What of a text is read, and what is left; the bits, as (5, 10), and the flags.
TEST(FromChars, ReadsTheLongestPrefix) {
  std::istringstream rows(
      "1|=3c00 0;+1| =3c00 0;-1|-=bc00 0;1|e=3c00 0;1|e+=3c00 0;1|E-x=3c00 0;1e1|e1=4900 0;"
      "1.5|.5=3e00 0;5.|=4500 0;5.|x=4500 0;.5|=3800 0;5.e0|=4500 0;0|x=0 0;0|x.=0 0;"
      "-0|xg=8000 0;0x1|p=3c00 0;0x1|p+=3c00 0;0x1.|p=3c00 0;0X.8P1|p=3c00 0;0xe|+1=4b00 0;"
      "1|/3=3c00 0;1|x=3c00 0;inf|init=7c00 0;-INF|=fc00 0;Infinity|y=7c00 0;nan|(1)=fc01 0;"
      "-nan|=fc01 0;+NaN|n=fc01 0;0e99999999999999999999|=0 0;-0.0|e=8000 0;"
      "00000000000000000000.1e1|=3c00 0;1e99999999999999999999|=7c00 20;"
      "1e-99999999999999999999|,=0 24;0x1p99999999999999999999|=7c00 20;-1e-8|=8000 24;"
      "65519|=7bff 16;65520|=7c00 20;0.1|=2e66 16;0x1p-25|=0 24;"
      "0x1.00000000000000000000000000000000001p-25|=1 24;");
  for (std::string row; std::getline(rows, row, ';');) {
    const std::size_t size = row.find('|'), end = row.find('=');
    const std::string text = row.substr(0, size) + row.substr(size + 1, end - size - 1);
    for (const unsigned before : {0U, 1U}) {
      Environment env{.flags = static_cast<std::uint8_t>(before)};
      IEEEFloat x({5, 10}, modes[2]);
      const auto [last, ec] = from_chars(text.data(), text.data() + text.size(), x, env);
      EXPECT_TRUE(ec == std::errc() && last == text.data() + size && x.get_mode() == 2) << text;
      EXPECT_EQ(bits(x).get_str(16) + ' ' + std::to_string(env.flags - before), row.substr(end + 1))
          << text;
    }
  }
  for (const std::string text : {"", "-", "+", ".", "-.", ".e1", "e1", " 1", "x", "in", "na", "--1",
                                 "+-1", "i", "(fp #b0 #b0 #b0)", "_1", ".x"}) {
    IEEEFloat x = IEEEFloat::from_bits(5, {5, 10});
    Environment env;
    const auto [end, ec] = from_chars(text.data(), text.data() + text.size(), x, env);
    EXPECT_TRUE(ec == std::errc::invalid_argument && end == text.data() && bits(x) == 5 &&
                env.flags == 0)
        << text;
  }
  IEEEFloat x({5, 10}, modes[0]);
  Environment env;
  EXPECT_EQ(from_chars(nullptr, nullptr, x, env).ptr, nullptr);
  const char zero_byte[] = {'5', '\0', '5'};
  EXPECT_EQ(from_chars(zero_byte, zero_byte + 3, x, env).ptr, zero_byte + 1);
}

TEST(FromChars, KeepsWhatIsNoPartOfTheNumber) {
  const std::string text = "-2.5e-1,";
  for (const auto repr :
       {IEEEFloat::REPR_FLOAT32, IEEEFloat::REPR_FLOAT64, IEEEFloat::REPR_GENERIC}) {
    for (const Format f : {Format{8, 23}, {11, 52}, {5, 10}, {15, 112}, {19, 236}, {70, 10}}) {
      IEEEFloat x(f, repr, modes[1]);
      IEEEFloat want = Environment().from_rational(QNumber(-1) / 4, f);
      want.self_specialize_repr(IEEEFloat::REPR_GENERIC);
      want.self_specialize_repr(repr);
      want.set_mode(modes[1]);
      Environment env;
      EXPECT_EQ(from_chars(text.data(), text.data() + text.size(), x, env).ptr, &text.back());
      EXPECT_TRUE(same(x, want) && env.flags == 0) << name(x);
    }
  }
  Environment bad{static_cast<Rounding>(6)};
  const auto call = [&](const IEEEFloat& value) {
    return TRIED(IEEEFloat(value), from_chars(text.data(), text.data() + 4, x, bad));
  };
  EXPECT_EQ(call(IEEEFloat({5, 10}, modes[0])), "bad rounding mode: 6");
  bad.rounding = Rounding::to_odd;
  EXPECT_EQ(call(IEEEFloat({1, 4}, modes[0])), "format without arithmetic: (1, 4)");
}

TEST(ReadText, TermsOfSmtLib) {
  const struct {
    const char* text;
    const char* want;  // the bits and flags, or what is thrown
    Format f = {5, 10};
  } rows[] = {{"(fp #b0 #b01111 #b1000000000)", "3e00 0"},
              {"(fp #b1 #b00000 #b0000000001)", "8001 0"},
              {"(fp #b1 #b00000 #b0000000000)", "8000 0"},
              {"(fp #b1 #b11111 #b0000000000)", "fc00 0"},
              {"(fp #b0 #b11111 #b0000000101)", "fc01 0"},
              {"(fp #b0 #x7f #b0000000)", "3f80 0", {8, 7}},
              {"(fp #b1 #b11111111111 #xfFffffffffffF)", "fff0000000000001 0", {11, 52}},
              {"(_ NaN 5 11)", "fc01 0"},
              {"(_ +oo 5 11)", "7c00 0"},
              {"(_ -oo 8 24)", "ff800000 0", {8, 23}},
              {"(_ +zero 5 11)", "0 0"},
              {"(_ -zero 5 11)", "8000 0"},
              {"(_ NaN 5 12)", "text of another format: (5, 11)"},
              {"(fp #b0 #b01111 #b100000000)", "text of another format: (5, 9)"},
              {"(fp #b0 #b01111  #b1000000000)", "invalid number at position 16: *"},
              {"(fp #b2 #b01111 #b1000000000)", "invalid number at position 6: *"},
              {"(fp #b01 #b01111 #b1000000000)", "invalid number at position 7: *"},
              {"(fp #b0 #b #b1000000000)", "invalid number at position 10: *"},
              {"(_ +zer 5 11)", "invalid number at position 7: *"},
              {"(_ oo 5 11)", "invalid number at position 3: *"},
              {"(_ NaN 05 11)", "invalid number at position 7: *"},
              {"(_ NaN 5 11) ", "invalid number at position 12: *"},
              {"(fp", "invalid number at position 3: *"},
              {"(", "invalid number at position 1: *"}};
  for (const auto& row : rows) {
    std::string want = row.want;
    if (want.ends_with('*')) want.replace(want.size() - 1, 1, row.text);
    Environment env;
    IEEEFloat x;
    const std::string thrown = message([&] { return x = env.from_text(row.text, row.f); });
    const std::string got = bits(x).get_str(16) + ' ' + std::to_string(env.flags);
    EXPECT_EQ(thrown.empty() ? got : thrown, want) << row.text;
    EXPECT_EQ(message([&] { return x = IEEEFloat::from_text(row.text, row.f, modes[1]); }), thrown);
  }
  Environment flushing{Rounding::nearest_even, zelk::Tininess::after_rounding, true};
  EXPECT_EQ(bits(flushing.from_text("(fp #b1 #b00000 #b0000000001)", {5, 10})), 0x8000);
  EXPECT_EQ(flushing.flags, 24);
}
