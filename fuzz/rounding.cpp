// Every rounded or exact result in any format against MPFR, and those of environments.
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
  Mpfr t(format(in)), to(format(in));
  check_all(t, to, in);
  static const std::vector<Operation> by = mpfr_operations();
  const Target target(t.f);
  mpfr_precision = target.m + 9;
  std::vector<Operand> all;
  all.reserve(3);
  for (int i = 0; i < 3; ++i) all.emplace_back(target, generic(t.f, modes[0], in.pattern(t)));
  cases = 0;  // what decides settings
  for (const Operation& op : by) {
    std::vector<const Operand*> v;
    for (std::size_t k = 0; k < op.operands; ++k) v.push_back(&all[k]);
    check_operation(op, v, target, false);
  }
  return 0;
}
