// Environments: every pattern, pair and triple of tiny formats against rationals.
#include "tests/environment_oracle.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// Every value of a format, each with a stored mode, of all NaNs the canonical one and one more.
static std::vector<Operand> all_of(const Target& t) {
  std::vector<Operand> all;
  for (mpz_class p = 0; p < 2 * t.sign; ++p) {
    if (p % t.sign > t.inf + 1) continue;
    all.emplace_back(t, generic(t.f, static_cast<IEEEFloat::rounding_mode>(p.get_ui() % 5), p));
  }
  return all;
}

TEST(TinyFormats, EveryPairAndTriple) {
  for (const Format f : {Format{2, 1}, {2, 2}, {3, 2}, {2, 3}}) {
    const Target t(f);
    const std::vector<Operand> all = all_of(t);
    cases = 0;
    for (const Operand& x : all) {
      for (const Operand& y : all) {
        for (const Operation& op : operations) {
          if (op.operands == 2) check_operation(op, {&x, &y}, t, false);
          if (op.operands != 3) continue;
          for (const Operand& z : all) check_operation(op, {&x, &y, &z}, t, false);
        }
        ASSERT_FALSE(HasFailure());
      }
    }
    std::cout << name(all[0].x) << ": " << cases << " cases\n";
  }
}
