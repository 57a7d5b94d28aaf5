// Every rounded or exact result in any format against MPFR.
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
  return 0;
}
