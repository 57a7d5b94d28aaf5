// Rules that no oracle knows: representations, ownership, the texts of errors, what a mode
// outside 0 to 3 does, and the values that the documentation names.
#include <gtest/gtest.h>

#include <cmath>
#include <locale>
#include <utility>
#include <vector>

#include "tests/support.h"

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

constexpr Format half{5, 10};
constexpr Format single{8, 23};
constexpr Format twice{11, 52};
constexpr Format quad{15, 112};
constexpr auto nearest = IEEEFloat::ROUND_NEAREST_EVEN;
constexpr auto bad_mode = static_cast<IEEEFloat::rounding_mode>(7);

IEEEFloat from(unsigned long bits, Format f = half) { return IEEEFloat::from_bits(bits, f); }

TEST(Values, BestRepresentation) {
  EXPECT_EQ(IEEEFloat::get_best_repr(single), IEEEFloat::REPR_FLOAT32);
  EXPECT_EQ(IEEEFloat::get_best_repr(twice), IEEEFloat::REPR_FLOAT64);
  for (const Format f : {Format{8, 52}, Format{11, 23}, Format{8, 24}, quad}) {
    EXPECT_EQ(IEEEFloat::get_best_repr(f), IEEEFloat::REPR_GENERIC);
  }
  const IEEEFloat x({11, 52}, IEEEFloat::ROUND_TOWARD_ZERO);
  EXPECT_TRUE(x.get_repr() == IEEEFloat::REPR_FLOAT64 && x.is_zero() && x.get_mode() == 1);
  EXPECT_EQ(IEEEFloat(single, IEEEFloat::REPR_GENERIC, nearest).get_repr(), 2);
  EXPECT_EQ(IEEEFloat(half, static_cast<IEEEFloat::rounding_mode>((1U << 30) + 2)).get_mode(), 2);
  IEEEFloat y;
  EXPECT_TRUE(y.get_format() == Format() && y.get_repr() == 0 && y.get_bits().is_zero());
  y.set_mode(static_cast<IEEEFloat::rounding_mode>(~0U));
  EXPECT_EQ(y.get_mode(), (1U << 30) - 1);
  EXPECT_EQ(half.bias(), 15);
  EXPECT_EQ(half.max_exponent(), 31);
  EXPECT_EQ(half.max_mantissa(), 1023);
}

TEST(Values, RepresentationsCarryThePatternOver) {
  for (const auto& [f, word] : {std::pair{single, 0xFF800001UL},
                                {single, 0x12345678UL},
                                {twice, 0x8000000000000001UL},
                                {twice, 0x3FF0000000000000UL}}) {
    const IEEEFloat x = from(f == single ? word : 1, f);
    IEEEFloat y = generic(f, nearest, word);
    EXPECT_EQ(y.get_repr(), IEEEFloat::REPR_GENERIC);
    for (const auto r : {x.get_repr(), x.get_repr(), static_cast<IEEEFloat::Repr>(3),
                         IEEEFloat::REPR_GENERIC, x.get_repr()}) {
      y.self_specialize_repr(r);
      EXPECT_EQ(y.get_repr(), r);
      EXPECT_EQ(y.get_bits(), word);
    }
  }
  IEEEFloat x = from(0x40490FDB, single);
  x.self_specialize_repr(IEEEFloat::REPR_FLOAT64);
  EXPECT_EQ(x.get_bits(), 0x40490FDB);
  // A stored representation of 3 is generic, on either side of an operation.
  IEEEFloat three(half, static_cast<IEEEFloat::Repr>(3), nearest);
  EXPECT_EQ(three.get_repr(), 3);
  three += from(0x3C00);
  EXPECT_TRUE(from(0x3C00) == three && three == from(0x3C00));
  EXPECT_EQ(three.to_str(), "[5:10]1{0_01111_0000000000}");
  three.set_format({4, 3});
  EXPECT_TRUE(three.get_repr() == IEEEFloat::REPR_GENERIC && bits(three) == 0x38);
}

TEST(Values, CopiesAreDeepAndMovesLeaveThePlaceholder) {
  std::vector<IEEEFloat> all = {IEEEFloat(), from(0x3C01), from(0xC0490FDB, single),
                                from(0x8000000000000001UL, twice), IEEEFloat::max_value(quad)};
  all.push_back(generic(twice, IEEEFloat::ROUND_TOWARD_ZERO, 0x8000000000000001UL));
  const auto same = [](const IEEEFloat& a, const IEEEFloat& b) {
    return a.get_format() == b.get_format() && a.get_mode() == b.get_mode() &&
           a.get_repr() == b.get_repr() && a.get_bits() == b.get_bits() &&
           a.get_bits().is_small() == b.get_bits().is_small();
  };
  for (const IEEEFloat& source : all) {
    for (const IEEEFloat& target : all) {
      IEEEFloat x = target;
      x = source;
      EXPECT_TRUE(same(x, source)) << source << " over " << target;
      x.set_sign(!x.get_sign());
      EXPECT_FALSE(same(x, source));
      IEEEFloat y = source;
      IEEEFloat& alias = y;
      y = alias;
      y = std::move(alias);  // NOLINT(bugprone-use-after-move)
      EXPECT_TRUE(same(y, source));
      x = std::move(y);
      EXPECT_TRUE(same(x, source));
      EXPECT_TRUE(same(y, IEEEFloat()));  // NOLINT(bugprone-use-after-move)
      const IEEEFloat z(std::move(x));
      EXPECT_TRUE(same(z, source) && same(x, IEEEFloat()));  // NOLINT(bugprone-use-after-move)
      x = target;
      EXPECT_TRUE(same(x, target));
    }
  }
}

TEST(Values, NamedResults) {
  struct {
    const char* what;
    IEEEFloat value;
    const char* want;
  } const rows[] = {
      {"placeholder", IEEEFloat(), "[0:0]+0{0}"},
      {"1200", from(0x64B0), "[5:10]1200{0_11001_0010110000}"},
      {"-1.5", from(0xBE00), "[5:10]-1.5{1_01111_1000000000}"},
      {"-0", from(0x8000), "[5:10]-0{1_00000_0000000000}"},
      {"0.0625", from(0x2C00), "[5:10]0.0625{0_01011_0000000000}"},
      {"max", IEEEFloat::max_value(half), "[5:10]65504{0_11110_1111111111}"},
      {"1/2^140",
       IEEEFloat::from_number(QNumber(mpz_class(1), mpz_class(1) << 140), single, nearest),
       "[8:23]0{0_00000000_00000000000000000000000}"},
      {"2051/3", IEEEFloat::from_number(QNumber(2051) / 3, half, nearest),
       "[5:10]684{0_11000_0101011000}"},
      {"1/1.5 in (3, 1)", from(6, {3, 1}) / from(7, {3, 1}), "[3:1]0.75{0_010_1}"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.value.to_str(), row.want) << row.what;
    std::ostringstream os;
    os << row.value;
    EXPECT_EQ(os.str(), row.want);
  }
  EXPECT_EQ(IEEEFloat().to_float_str(), "0");
  EXPECT_EQ(bits(IEEEFloat::max_value(single)), 0x7F7FFFFF);
  EXPECT_EQ(bits(IEEEFloat::max_value(twice)), 0x7FEFFFFFFFFFFFFFUL);
  EXPECT_EQ(IEEEFloat::max_value(single).to_integer(0).to_mpq(), ((mpz_class(1) << 24) - 1) << 104);
}

TEST(Values, TextCarriesTheDigitsOfTheDefaultPrecision) {
  const IEEEFloat third = IEEEFloat::from_number(QNumber(1) / 3, {19, 236}, nearest);
  const IEEEFloat large = IEEEFloat::max_value(quad);
  const auto before = mpf_get_default_prec();
  for (const unsigned long precision : {64UL, 512UL}) {
    mpf_set_default_prec(precision);
    for (const IEEEFloat& x : {third, large}) {
      const mpf_class want(x.to_number().to_mpq(), 1000);
      const mpf_class got(x.to_float_str(), 1000);
      const mpf_class error = abs(want - got) / want;
      EXPECT_LT(error.get_d(), std::pow(0.5, static_cast<double>(std::min(precision, 240UL))));
    }
    EXPECT_EQ(third.to_float_str().size() > 60, precision == 512);
    EXPECT_EQ(large.to_float_str().size(), 4933);
    EXPECT_EQ(large.to_float_str().find('.'), std::string::npos);
  }
  mpf_set_default_prec(before);
}

// Thousands separators of the user's locale stay out of messages and values.
TEST(Values, TextIgnoresTheLocale) {
  struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
  const std::string refused = message([] { return from(2143289344, single); });
  const std::string mode = message([] {
    return IEEEFloat::from_number(2049, half, static_cast<IEEEFloat::rounding_mode>(1U << 30));
  });
  std::locale::global(before);
  EXPECT_EQ(refused, "invalid bit pattern for IEEEFloat: 2143289344");
  EXPECT_EQ(mode, "bad rounding mode: 1073741824");
}

TEST(Errors, TextsAndUnchangedValues) {
  const auto tried = [](IEEEFloat x, auto call, const IEEEFloat& unchanged) {
    std::string text = message([&] { return call(x), 0; });
    EXPECT_EQ(x.get_bits(), unchanged.get_bits());
    EXPECT_TRUE(x.get_format() == unchanged.get_format() && x.get_repr() == unchanged.get_repr());
    return text;
  };
  IEEEFloat nan(half, nearest);
  nan.self_nan();
  IEEEFloat inf(twice, nearest);
  inf.self_inf(true);
  EXPECT_EQ(message([&] { return nan.to_number(); }), "can't convert NaN to a Number");
  EXPECT_EQ(message([&] { return inf.to_number(); }), "can't convert infinity to a Number");
  EXPECT_EQ(message([&] { return nan.to_float_str(); }), "can't convert NaN to float str");
  EXPECT_EQ(message([&] { return inf.to_float_str(); }), "can't convert Infinity to float str");
  EXPECT_EQ(inf.to_integer(0), 0);
  for (const QNumber& q : {QNumber(-1), QNumber(1) / 2, QNumber(0x10000), QNumber(0x7C01)}) {
    std::ostringstream os;
    os << "invalid bit pattern for IEEEFloat: " << q;
    EXPECT_EQ(message([&] { return IEEEFloat::from_bits(q, half); }), os.str());
  }

  // Operands that do not match, in every operation and comparison.
  const IEEEFloat one = from(0x3C00);
  const IEEEFloat plain = from(0x3F800000, single);
  const IEEEFloat unpacked = generic(single, nearest, 0x3F800000);
  for (const auto& [a, b, text] : {std::tuple{one, plain, "operands of different formats"},
                                   {plain, from(0, twice), "operands of different formats"},
                                   {plain, unpacked, "operands of different representations"},
                                   {unpacked, plain, "operands of different representations"}}) {
    for (int op = 0; op < 4; ++op) {
      EXPECT_EQ(tried(
                    a, [&, &b = b](IEEEFloat& x) { apply(op, x, b); }, a),
                text);
    }
    EXPECT_EQ(message([&, &a = a, &b = b] { return a < b; }), text);
    EXPECT_EQ(message([&, &a = a, &b = b] { return a <= b; }), text);
    EXPECT_EQ(message([&, &a = a, &b = b] { return a == b; }), text);
  }

  // (64, 4): exponents differ by more than a word holds.
  const IEEEFloat huge = IEEEFloat::max_value({64, 4});
  const IEEEFloat tiny = from(1, {64, 4});
  const std::string limit = "reached limit on float precision";
  EXPECT_EQ(tried(
                huge, [&](IEEEFloat& x) { x += tiny; }, huge),
            limit);
  EXPECT_EQ(tried(
                tiny, [&](IEEEFloat& x) { x -= huge; }, tiny),
            limit);
  EXPECT_EQ(message([&] { return tiny.to_number(); }), limit);
}

// A mode outside 0 to 3 is reported by what has to round, and only then.
TEST(Errors, BadModes) {
  struct {
    int op;
    unsigned long a, b, want;  // want = 0x10000: reported
  } const rows[] = {
      {1, 0x3C00, 0x3C00, 0},
      {0, 0x3C00, 0x3C00, 0x4000},
      {0, 0, 0x8000, 0},
      {0, 0x3C00, 1, 0x10000},
      {2, 0, 0x7BFF, 0},
      {2, 0x3C00, 0x3C01, 0x3C01},
      {2, 0x3C01, 0x3C01, 0x10000},
      {3, 0x4000, 0x3C00, 0x4000},
      {3, 0x3C00, 0, 0x7C00},
      {3, 0, 0x3C00, 0},
      {3, 0x3C00, 0x4200, 0x10000},
      {2, 0x7BFF, 0x4000, 0x7C00},
      {2, 0x7BFF, 0x7BFF, 0x10000},
  };
  for (const auto& row : rows) {
    IEEEFloat x = from(row.a);
    x.set_mode(bad_mode);
    const std::string text = message([&] { return apply(row.op, x, from(row.b)); });
    EXPECT_EQ(text, row.want == 0x10000 ? "bad rounding mode: 7" : "") << name(x);
    EXPECT_EQ(bits(x), row.want == 0x10000 ? row.a : row.want);
  }
  IEEEFloat x = from(0x3C01);
  x.set_mode(bad_mode);
  EXPECT_EQ(message([&] { return x.set_format({4, 3}), 0; }), "bad rounding mode: 7");
  EXPECT_TRUE(x.get_format() == half && bits(x) == 0x3C01);
  EXPECT_EQ(from(0x4100).to_integer(8), 2);
  x = from(0x4380);  // 3.75
  x.set_mode(bad_mode);
  EXPECT_EQ(x.to_integer(8), 3);
  // A packed value rounds to nearest-even, in arithmetic and in narrowing.
  IEEEFloat third = from(0x3FF0000000000000UL, twice);
  third.set_mode(bad_mode);
  third /= from(0x4008000000000000UL, twice);
  EXPECT_EQ(bits(third), 0x3FD5555555555555UL);
  third.set_format(single);
  EXPECT_EQ(bits(third), 0x3EAAAAAB);
  EXPECT_EQ(message([] { return IEEEFloat::from_number(2048, half, bad_mode); }), "");
}

TEST(Values, ResultsTakeTheLeftOperandsModeAndFlagsStayClear) {
  IEEEFloat up = from(0x3C00);
  up.set_mode(IEEEFloat::ROUND_TOWARD_POSITIVE);
  EXPECT_EQ(bits(up + from(1)), 0x3C01);
  EXPECT_EQ(bits(from(0x3C00) + up * from(1)), 0x3C00);
  EXPECT_EQ((up - from(1)).get_mode(), 2);
  for (const Format f : {single, twice}) {
    IEEEFloat zero(f, nearest);
    IEEEFloat nan = zero;
    nan.self_nan();
    zelk::swflt::float_exception_flags = zelk::swflt::flag_inexact;
    EXPECT_TRUE(zero.is_zero() && nan.is_nan() && !nan.is_inf());
    EXPECT_EQ(zelk::swflt::float_exception_flags, zelk::swflt::flag_inexact);
    EXPECT_FALSE(nan < zero || nan <= zero || nan == zero);
    EXPECT_EQ(zelk::swflt::float_exception_flags, 0);
    EXPECT_EQ(bits(zero / zero), bits(nan));
    EXPECT_EQ(zelk::swflt::float_exception_flags, 0);
    nan.set_format(f == single ? twice : single);
    EXPECT_EQ(zelk::swflt::float_exception_flags, 0);
    EXPECT_EQ(bits(nan), f == twice ? 0xFF800001UL : 0xFFF0000000000001UL);
  }
}

TEST(Values, SteppingBackFromInfinityIsAnAssignment) {
  IEEEFloat x(single, IEEEFloat::REPR_GENERIC, IEEEFloat::ROUND_TOWARD_ZERO);
  x.self_inf(true);
  x.next_representable(true);
  EXPECT_TRUE(bits(x) == 0xFF7FFFFF && x.get_mode() == 0 &&
              x.get_repr() == IEEEFloat::REPR_FLOAT32);
  x.packed_next(false);
  EXPECT_TRUE(x.is_inf());
  x = from(0, twice);
  x.next_representable(false);
  EXPECT_EQ(bits(x), 0x8000000000000001UL);
  x.next_representable(true);
  x.packed_next(true);
  EXPECT_EQ(bits(x), 0);
}

}  // namespace
