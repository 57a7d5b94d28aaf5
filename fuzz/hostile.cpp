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

static IEEEFloat through_mpfr(const IEEEFloat& x, Format f, IEEEFloat::rounding_mode rm) {
  static Mpfr t({5, 10});
  zelk::to_mpfr(t.r, x);
  return zelk::from_mpfr(t.r, f, rm);
}

static void call(Input& in, IEEEFloat& x, const IEEEFloat& y, QNumber& n) {
  const unsigned long which = in.below(std::size(calls) + 14), argument = in.byte();
  const long other = static_cast<long>(which - std::size(calls));
  const auto rm = static_cast<IEEEFloat::rounding_mode>(argument < 16 ? argument : argument % 4);
  const auto repr = static_cast<IEEEFloat::Repr>(argument / 4);
  const auto width = [&in](unsigned long kind) {
    return kind < 6 ? in.below(70) : kind < 7 ? in.word() : zelk::max_bits - in.byte();
  };
  const auto format = [&] { return Format{width(argument / 8 % 8), width(argument / 32)}; };
  const auto [e, m] = x.get_format();
  if (which + 1 == first_of_g && std::max(e, m) > 999 && argument % 16 != 0) return;  // long texts
  if (other < 0) calls[which](x, y, which < first_of_g ? y.get_format() : format(), n);
  if (other == 0) x.set_mode(rm);
  if (other == 1) x.self_specialize_repr(repr);
  if (other == 2) x = IEEEFloat(format(), repr, rm);
  if (other == 3) x.set_format(format());
  if (other == 4) x = IEEEFloat::from_bits(n, format());
  if (other == 5) n = -QNumber{in.digits(300), in.digits(argument) + 1};
  if (other == 6) x = IEEEFloat::from_scaled(n, static_cast<long>(in.word()), format(), rm);
  if (other == 7) x = IEEEFloat::from_text(text(in), format(), rm);
  if (other == 8) message([&] { return n = QNumber::from_text(text(in)); });
  if (other == 9) x = zelk::from_native(std::bit_cast<double>(in.word() * in.word()));
  if (other == 10) n = zelk::PatternHash()(x) + (zelk::to_native<float>(x) > 0);
  if (other == 11) x = zelk::FormatLimits(format()).epsilon();
  if (other == 12) x = through_mpfr(x, format(), rm);
  if (other == 13) environment_calls[argument % std::size(environment_calls)](x, y, format(), n);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  IEEEFloat all[3];
  QNumber number;
  for (int count = 0; count < 12 && !in.rest.empty(); ++count) {
    IEEEFloat& x = all[in.below(3)];
    const IEEEFloat was = x;
    const std::string text = message([&] { return call(in, x, all[in.below(3)], number), 0; });
    EXPECT_TRUE(text.empty() || (same(x, was) && !text.starts_with("Exception"))) << text;
  }
  return 0;
}
