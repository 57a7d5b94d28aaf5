// Sequences of calls on a few exact numbers, targets and operands often being one. Checks are what
// takes time: few calls have one, the last among them.
#include "fuzz/input.h"
#include "tests/number_calls.h"

using zelk_test::Numbers;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  Numbers all;
  while (!in.rest.empty()) {
    const unsigned long call = in.below(Numbers::calls + 2), where = in.byte(), i = where % 16;
    mpq_class& v = all.values[i % 4];
    if (call < Numbers::calls) {
      const bool checked = where < 16 || in.rest.size() <= 2;
      const unsigned long word = in.word();
      checked ? all.check(call, i, word) : static_cast<void>(all.call(call, i, word));
    } else {
      v.get_num() = in.digits(130), v.get_den() = in.digits(130) - v.get_num();
    }
    if (v.get_den() == 0 || mpz_size(v.get_num_mpz_t()) + mpz_size(v.get_den_mpz_t()) > 40) v = 1;
    if (call >= Numbers::calls || v == 1) all.numbers[i % 4] = zelk::QNumber(v), v.canonicalize();
  }
  for (int i = 0; i < 4; ++i) EXPECT_EQ(all.numbers[i].to_mpq(), all.values[i]);
  return 0;
}
