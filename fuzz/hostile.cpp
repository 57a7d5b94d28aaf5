// Any call on values of any format, representation, mode and pattern: an answer, or an error that
// leaves the value as it was. Linked with a low limit, to be quick.
#include "fuzz/input.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static void call(Input& in, IEEEFloat& x, const IEEEFloat& y, QNumber& n) {
  const unsigned long which = in.below(std::size(calls) + 6), argument = in.byte();
  const auto rm = static_cast<IEEEFloat::rounding_mode>(argument < 16 ? argument : argument % 4);
  const auto repr = static_cast<IEEEFloat::Repr>(argument / 4);
  const auto width = [&in](unsigned long kind) {
    return kind < 6 ? in.below(70) : kind < 7 ? in.word() : zelk::max_bits - in.byte();
  };
  const auto format = [&] { return Format{width(argument / 8 % 8), width(argument / 32)}; };
  if (which < std::size(calls))
    calls[which](x, y, which < first_of_g ? y.get_format() : format(), n);
  if (which == std::size(calls)) x.set_mode(rm);
  if (which == std::size(calls) + 1) x.self_specialize_repr(repr);
  if (which == std::size(calls) + 2) x = IEEEFloat(format(), repr, rm);
  if (which == std::size(calls) + 3) x.set_format(format());
  if (which == std::size(calls) + 4) x = IEEEFloat::from_bits(n, format());
  if (which == std::size(calls) + 5) n = -QNumber{in.digits(300), in.digits(argument) + 1};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  IEEEFloat all[3];
  QNumber number;
  while (!in.rest.empty()) {
    IEEEFloat& x = all[in.below(3)];
    const IEEEFloat was = x;
    const std::string text = message([&] { return call(in, x, all[in.below(3)], number), 0; });
    EXPECT_TRUE(text.empty() || (same(x, was) && !text.starts_with("Exception"))) << text;
  }
  return 0;
}
