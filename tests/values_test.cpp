// Rules that no oracle knows: representations, ownership, the texts of errors, what a mode
// outside 0 to 3 does, flags, text under a precision and a locale.
#include <cmath>
#include <locale>

#include "tests/support.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static constexpr Format half{5, 10}, single{8, 23}, twice{11, 52}, quad{15, 112};
static constexpr auto repr3 = static_cast<IEEEFloat::Repr>(3);

static IEEEFloat from(unsigned long bits, Format f = half, unsigned mode = 0) {
  IEEEFloat x = IEEEFloat::from_bits(bits, f);
  x.set_mode(static_cast<IEEEFloat::rounding_mode>(mode));
  return x;
}

TEST(Values, Representations) {
  EXPECT_TRUE(same(IEEEFloat(), {{0, 0}, IEEEFloat::REPR_FLOAT32, modes[0]}) &&
              TRIED(IEEEFloat(), x.set_format(half)).empty());
  EXPECT_EQ(IEEEFloat().to_str() + IEEEFloat().to_float_str(), "[0:0]+0{0}0");
  EXPECT_TRUE(from(0, half, ~0U).get_mode() == (1U << 30) - 1 && half.max_mantissa() == 1023 &&
              bits(IEEEFloat::max_value(half)) == 0x7BFF);
  for (unsigned i = 0; i < 16; ++i) {
    IEEEFloat x = generic(twice, modes[0], 0x8000000012345678UL);
    x.self_specialize_repr(static_cast<IEEEFloat::Repr>(i / 4));
    x.self_specialize_repr(static_cast<IEEEFloat::Repr>(i % 4));
    EXPECT_EQ(x.get_repr(), i % 4);
    EXPECT_EQ(x.get_bits(), i / 4 == 0 || i % 4 == 0 ? 0x12345678UL : 0x8000000012345678UL) << i;
  }
  // Without an exponent a zero is one, and steps stay inside.
  for (const unsigned long m : {5UL, 127UL, 200UL}) {
    IEEEFloat none({0, m}, IEEEFloat::REPR_GENERIC, modes[0]);
    EXPECT_TRUE(none.is_zero() && !none.is_inf() && none.to_number() == 0);
    none.packed_next(false);
    EXPECT_TRUE(none.is_zero() && none.get_sign());
  }
  EXPECT_EQ(TRIED(IEEEFloat(), x.max_value({0, 5})), "invalid bit pattern for IEEEFloat: -1");
  // A packed word is what it is, whatever the format.
  IEEEFloat foreign({18, 45}, IEEEFloat::REPR_FLOAT64, modes[0]);
  foreign.self_inf(true);
  EXPECT_TRUE(foreign.to_integer(0) == 0 && foreign.to_integer(9) == 0);
  EXPECT_TRUE(foreign == foreign && !(foreign < foreign));
  foreign.set_format(single);
  EXPECT_TRUE(foreign.is_inf() && bits(foreign) == 0xFF800000);
  IEEEFloat low(half, IEEEFloat::REPR_FLOAT32, modes[0]);
  low.self_inf(true);
  EXPECT_TRUE(low.is_inf() && bits(low) == 0xFF800000 && low.to_number() == 0 &&
              classify(low) == zelk::FloatClass::positive_zero);
  EXPECT_TRUE(low <= low && ieee_cmp(low, low) == 0);
  low.set_format(twice);
  EXPECT_EQ(bits(low), 0xFFF0000000000000UL);
  // A stored representation of 3 is generic, on either side of an operation.
  IEEEFloat three(half, repr3, modes[2]);
  three += from(0x3C00);
  EXPECT_TRUE(three.get_repr() == 3 && from(0x3C00) == three && three == from(0x3C00));
  EXPECT_EQ((std::ostringstream() << three).str(), "[5:10]1{0_01111_0000000000}");
  three.set_format({4, 3});
  EXPECT_TRUE(three.get_repr() == IEEEFloat::REPR_GENERIC && bits(three) == 0x38);
}

TEST(Values, CopiesAreDeepAndMovesLeaveThePlaceholder) {
  // Without an exponent, too, a copy has the pattern of its source.
  for (const unsigned long m : {62UL, 63UL, 64UL, 200UL}) {
    IEEEFloat odd = IEEEFloat::max_value(half), taken = IEEEFloat::max_value(quad);
    odd.set_mode(modes[1]);
    odd.set_format({0, m});
    EXPECT_EQ((taken = odd).get_bits(), odd.get_bits()) << m;
  }
  const IEEEFloat all[] = {IEEEFloat(half, repr3, modes[1]),
                           from(0x3C01, half, 2),
                           from(0xC0490FDB, single, 3),
                           from(0x8000000000000001UL, twice),
                           IEEEFloat::max_value(quad),
                           IEEEFloat::max_value({19, 5000}),
                           IEEEFloat::from_ratio(QNumber(1) / 3, {19, 5000}, modes[1])};
  for (const IEEEFloat& source : all) {
    for (const IEEEFloat& target : all) {
      IEEEFloat x = target, y = source;
      x = source;
      EXPECT_TRUE(same(x, source)) << source << " over " << target;
      x.set_sign(!x.get_sign());
      EXPECT_TRUE(!same(x, source) && same(y, source));
      IEEEFloat& alias = y;
      y = alias;
      y = std::move(alias);
      x = std::move(y);
      EXPECT_TRUE(same(x, source) && same(y, {}));  // NOLINT(bugprone-use-after-move)
      const IEEEFloat z(std::move(x));
      y = target;
      // NOLINTNEXTLINE(bugprone-use-after-move)
      EXPECT_TRUE(same(x, {}) && same(z, source) && same(y, target));
    }
  }
}

// The step back from an infinity, which assigns; what becomes of the flags.
TEST(Values, PackedOnes) {
  const auto flags_were = [](int want) {
    return std::exchange(zelk::swflt::float_exception_flags, 1) == want;
  };
  for (const Format f : {single, twice}) {
    const IEEEFloat zero(f, modes[0]);
    IEEEFloat nan = zero, x(f, IEEEFloat::REPR_GENERIC, modes[1]);
    x.self_inf(true);
    x.next_representable(true);
    EXPECT_TRUE(x.get_mode() == 0 && x.get_repr() == zero.get_repr() && !x.is_inf());
    nan.self_nan();
    flags_were(0);
    EXPECT_TRUE(zero.is_zero() && nan.is_nan() && !nan.is_inf() && flags_were(1));
    EXPECT_TRUE(!(nan < zero) && flags_were(0) && !(nan <= zero) && flags_were(0) &&
                !(nan == zero) && flags_were(0) && (zero / zero).is_nan() && flags_were(0));
    EXPECT_TRUE(!IEEEFloat::from_number(QNumber(1) / 3, f, modes[0]).is_zero() && flags_were(0) &&
                !IEEEFloat::from_number(3, f, modes[0]).is_zero() && flags_were(1));
    for (int op = 0; op < 8; ++op) {
      IEEEFloat three = IEEEFloat::from_number(3, f, modes[op < 4 ? 0 : 2]);
      flags_were(0);
      EXPECT_TRUE(apply(op % 4, three, three).get_format() == f && flags_were(0)) << op;
    }
    nan.set_format(f == single ? twice : single);
    EXPECT_TRUE(bits(nan) == (f == twice ? 0xFF800001 : 0xFFF0000000000001) && flags_were(0));
  }
}

// The digits of GMP's default precision, and no thousands separators of the user's locale.
TEST(Values, Text) {
  struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\3"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
  const std::string texts =
      TRIED(from(0), x = from(2143289344, single)) + TRIED(from(1, half, 5000), x *= x);
  std::locale::global(before);
  EXPECT_EQ(texts, "invalid bit pattern for IEEEFloat: 2143289344bad rounding mode: 5000");
  const IEEEFloat third = IEEEFloat::from_number(QNumber(1) / 3, {19, 236}, modes[0]);
  const auto precision = mpf_get_default_prec();
  for (const unsigned digits : {64U, 240U}) {
    mpf_set_default_prec(digits);
    const mpf_class text(third.to_float_str(), 1000), want(third.to_number().to_mpq(), 1000);
    EXPECT_LT(mpf_class(abs(text / want - 1)).get_d(), std::pow(0.5, digits));
    EXPECT_EQ(third.to_float_str().size() > 60, digits == 240);
    EXPECT_EQ(IEEEFloat::max_value(quad).to_float_str().size(), 4933);
  }
  mpf_set_default_prec(precision);
}

TEST(Values, ErrorsLeaveThemUnchanged) {
  const IEEEFloat nan = from(0xFC01), inf = from(0xFFF0000000000000UL, twice);
  EXPECT_EQ(TRIED(nan, x.to_number()), "can't convert NaN to a Number");
  EXPECT_EQ(TRIED(inf, x.to_number()), "can't convert infinity to a Number");
  EXPECT_EQ(TRIED(nan, x.to_float_str()), "can't convert NaN to float str");
  EXPECT_EQ(TRIED(inf, x.to_float_str()), "can't convert Infinity to float str");
  for (const std::string text : {"-1", "-2049", "1/2", "65536", "31745", "18446744073709551616"}) {
    EXPECT_EQ(TRIED(nan, x.from_bits(QNumber(mpq_class(text)), half)),
              "invalid bit pattern for IEEEFloat: " + text);
  }
  const IEEEFloat one = from(0x3F800000, single), unpacked = generic(single, modes[0], 0x3F800000);
  for (const IEEEFloat& a : {one, unpacked}) {
    for (const IEEEFloat& b : {from(0x3C00), from(0, twice), one, unpacked}) {
      const bool formats = b.get_format() != single, differ = a.get_repr() != b.get_repr();
      const std::string what = formats ? "formats" : "representations";
      const std::string text = formats || differ ? "operands of different " + what : "";
      for (int op = 0; op < 4; ++op) EXPECT_EQ(TRIED(a, apply(op, x, b)), text);
      EXPECT_TRUE(TRIED(a, x < b) == text && TRIED(a, x <= b) == text && TRIED(a, x == b) == text);
    }
  }
}

// A mode outside 0 to 3 is reported by what has to round, and only then.
TEST(Values, BadModes) {
  constexpr unsigned long reported = 1;
  constexpr unsigned long rows[][4] = {{1, 0x3C00, 0x3C00, 0},      {0, 0x3C00, 0x3C00, 0x4000},
                                       {0, 0, 0x8000, 0},           {0, 0x3C00, 1, reported},
                                       {2, 0x3C00, 0x3C01, 0x3C01}, {2, 0x3C01, 0x3C01, reported},
                                       {3, 0x3C00, 0, 0x7C00},      {3, 0x3C00, 0x4200, reported},
                                       {2, 0x7BFF, 0x4000, 0x7C00}, {2, 0x7BFF, 0x7BFF, reported}};
  const std::string bad = "bad rounding mode: 7";
  for (const auto& [op, left, right, want] : rows) {
    IEEEFloat x = from(left, half, 7);
    const IEEEFloat b = from(right);
    const int o = static_cast<int>(op);
    const bool thrown = message([&] { return apply(o, x, b); }) == bad;
    EXPECT_TRUE(thrown == (want == reported) && bits(x) == (thrown ? left : want))
        << name(x) << op << right;
  }
  EXPECT_EQ(bits(from(0x3C00, half, 2) + from(1, half, 7)), 0x3C01);  // the left operand's mode
  EXPECT_EQ(TRIED(from(0x3C01, half, 7), x.set_format({4, 3})), bad);
  IEEEFloat third = IEEEFloat::from_ratio(QNumber(1) / 3, {19, 236}, modes[0]);
  third.set_mode(static_cast<IEEEFloat::rounding_mode>(7));
  EXPECT_EQ(TRIED(IEEEFloat(third), x.set_format(quad)) + TRIED(third, x.set_format(twice)),
            bad + bad);
  for (const char* text : {"1e9", "1e999999", "-1e-9", "1e-999999", "0.1"}) {
    EXPECT_EQ(TRIED(from(1, half, 7), x = x.from_text(text, half, x.get_mode())), bad) << text;
  }
  constexpr auto seven = static_cast<IEEEFloat::rounding_mode>(7);
  for (const Format f : {half, quad, Format{19, 236}, Format{20, 318}, Format{64, 5}}) {
    EXPECT_EQ(IEEEFloat::from_ratio(QNumber(15) / 4, f, seven).to_integer(8), 3);
    third = IEEEFloat::from_ratio(QNumber(1) / 3, f, modes[0]);
    third.set_mode(seven);
    EXPECT_EQ(TRIED(third, x *= x) + TRIED(third, x.set_format({4, 2})), bad + bad) << third;
    EXPECT_EQ(TRIED(third, x = x.from_number(power(999) + 1, f, seven)), bad) << third;
  }
  for (const char* text : {"16", "-64", "64.00", "64.1", "1e21", "1e22", "40000e15", "60000e16",
                           "0x1p99", "-5/7", "200/7", "450359962737049e1", "450359962737051e1",
                           "2251799813685247", "2251799813685249"}) {
    IEEEFloat x = third, y = third;
    const auto read = [&] { return x = IEEEFloat::from_text(text, {3, 50}, seven); };
    const QNumber q = QNumber::from_text(text);
    EXPECT_EQ(message(read), message([&] { return y = IEEEFloat::from_ratio(q, {3, 50}, seven); }));
    EXPECT_EQ(bits(x), bits(y)) << text;
  }
  IEEEFloat tenth = from(0x3FF0000000000000UL, twice, 7);  // packed: to nearest-even
  tenth /= from(0x4024000000000000UL, twice);
  EXPECT_EQ(bits(tenth), 0x3FB999999999999AUL);
  tenth.set_format(single);
  EXPECT_TRUE(bits(tenth) == 0x3DCCCCCD && tenth.get_mode() == 7);
}

// The rounding engine at exponents beyond a word.
TEST(Values, ExponentsOfAnySize) {
  constexpr Format wide{80, 4};
  const QNumber longest = -power(63) - 19;  // makes a shift of 2^63 - 1
  const auto value = [&](const QNumber& e) { return IEEEFloat::from_scaled(1, e, wide, modes[2]); };
  const std::pair<QNumber, unsigned> rows[] = {
      {power(70), 0x7C00}, {longest, 1}, {longest - 1, 2}, {-power(64), 2}};
  for (const auto& [e, want] : rows) {  // 2 for an error
    IEEEFloat v = value(e);
    const std::string text = TRIED(v, x.set_format(half));
    EXPECT_EQ(text, want == 2 ? "reached limit on float precision" : "") << e;
    EXPECT_TRUE(want == 2 || (v.set_format(half), v.get_bits() == want)) << v;
  }
  EXPECT_TRUE(same(value(power(77)) * value(power(77)), value(power(78))));
  EXPECT_TRUE((value(power(78)) * value(power(78))).is_inf());
}
