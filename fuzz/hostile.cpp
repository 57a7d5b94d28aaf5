// Any call on values of any format, representation, mode and pattern: an answer, or an error that
// leaves the value as it was. Linked with a low limit, to be quick.
#include "fuzz/input.h"
#include "tests/mpfr_oracle.h"
#include "zelk/float/mpfr.h"
#include "zelk/float/native.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// Mostly digits.
static std::string text(Input& in) {
  std::string s(in.below(12), '0');
  for (char& c : s) c = "0123456789012345678901.-/eEpPxinfa#"[in.below(35)];
  return s;
}

static QNumber number(const std::string& text) {
  try {
    return QNumber::from_text(text);
  } catch (const zelk::Exception&) {
    return 0;
  }
}

static IEEEFloat through_mpfr(const IEEEFloat& x, Format f, IEEEFloat::rounding_mode rm) {
  static Mpfr t({5, 10});
  zelk::to_mpfr(t.r, x);
  return zelk::from_mpfr(t.r, f, rm);
}

static void call(Input& in, IEEEFloat& x, const IEEEFloat& y, QNumber& n) {
  const unsigned long which = in.below(32), argument = in.byte();
  const bool flag = argument % 2 != 0;
  const auto rm = static_cast<IEEEFloat::rounding_mode>(argument < 16 ? argument : argument % 4);
  const auto repr = static_cast<IEEEFloat::Repr>(argument / 4);
  const auto width = [&in](unsigned long kind) {
    return kind < 6 ? in.below(70) : kind < 7 ? in.word() : zelk::max_bits - in.byte();
  };
  const auto format = [&] { return Format{width(argument / 8 % 8), width(argument / 32)}; };
  static_cast<void>(x.is_nan() || x.is_inf() || x.is_subnormal() || x.is_zero());
  if (which < 4) apply(static_cast<int>(which), x, y);
  if (which == 4) x.set_format(format());
  if (which == 5) x.set_sign(flag);
  if (which == 6) x.set_mode(rm);
  if (which == 7) x.self_specialize_repr(repr);
  if (which == 8) x.self_neg();
  if (which == 9) x.self_nan();
  if (which == 10) x.self_inf(flag);
  if (which == 11) x.self_zero(flag);
  if (which == 12) x.next_representable(flag);
  if (which == 13) x.packed_next(flag);
  if (which == 14) x = IEEEFloat(format(), repr, rm);
  if (which == 15) x = IEEEFloat::from_bits(n, format());
  if (which == 16) x = IEEEFloat::from_number(n, format(), rm);
  if (which == 17) x = IEEEFloat::max_value(format());
  if (which == 18) x = y;
  if (which == 19) n = -QNumber{in.digits(300), in.digits(argument) + 1};
  if (which == 20) n = x.get_bits();
  if (which == 21) n = x.to_number();
  if (which == 22) n = x.to_integer(width(argument % 8));
  if (which == 23) static_cast<void>(x.to_str().size() + (x < y) + (x <= y) + (x == y));
  if (which == 24) x = IEEEFloat::from_scaled(n, static_cast<long>(in.word()), format(), rm);
  if (which == 25) x = IEEEFloat::from_ratio(n, format(), rm);
  if (which == 26) x = IEEEFloat::from_text(text(in), format(), rm);
  if (which == 27) n = number(text(in));
  if (which == 28) x = zelk::from_native(std::bit_cast<double>(in.word() * in.word()));
  if (which == 29) static_cast<void>(zelk::PatternHash()(x) + (zelk::to_native<float>(x) > 0));
  if (which == 30) x = zelk::FormatLimits(format()).epsilon();
  if (which == 31) x = through_mpfr(x, format(), rm);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  IEEEFloat all[3];
  QNumber number;
  while (!in.rest.empty()) {
    IEEEFloat& x = all[in.below(3)];
    const IEEEFloat was = x;
    try {
      call(in, x, all[in.below(3)], number);
    } catch (const IEEEFloat::error& e) {
      EXPECT_TRUE(name(x) == name(was) && x.get_repr() == was.get_repr()) << e.what();
    }
  }
  return 0;
}
