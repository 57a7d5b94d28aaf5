// Every rounded or exact result in any format against MPFR: of packed words and generic values, of
// patterns in numbers of both forms, and of operands that are one value.
#include "fuzz/input.h"
#include "tests/mpfr_oracle.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static Format format(Input& in) {
  constexpr Format hardware[] = {{5, 10}, {8, 23}, {11, 52}, {15, 112}};
  const unsigned long kind = in.below(8);
  return kind < 4 ? hardware[kind] : Format{2 + in.below(39), 1 + in.below(kind < 7 ? 64 : 600)};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  const unsigned long check = in.below(4), forms = in.byte();
  Mpfr t(format(in)), to(format(in));
  IEEEFloat x = generic(t.f, modes[in.below(4)], in.pattern(t));
  IEEEFloat y = forms < 32 ? x : generic(t.f, modes[0], in.pattern(t));
  if (forms % 4 == 1) x = in_big_form(x);
  if (forms % 8 >= 6) y = in_big_form(y);
  for (const auto repr : {IEEEFloat::REPR_GENERIC, IEEEFloat::get_best_repr(t.f)}) {
    x.self_specialize_repr(repr);
    y.self_specialize_repr(repr);
    if (check == 0) check_pair(t, x, forms < 16 ? x : y);
    if (check == 1) check_conversion(t, to, x);
    if (check == 2) check_number(t, in, x.get_mode());
    if (check == 3 && abs(t.exponent(bits(x))) < 1024) check_value(t, x);
  }
  return 0;
}
