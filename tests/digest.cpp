// Prints a digest of the results of every call for each of a spread of formats: builds with and
// without the short roads must print the same. Values count, not the forms of numbers. The packed
// formats come twice, as words and as generic values, which must agree.
#include <cstdio>

#include "tests/support.h"

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

unsigned long results = 0;

// One NaN only, the canonical one: on others packed and generic values differ.
IEEEFloat value(Random& random, const Layout& t) {
  const mpz_class p = random.pattern(t);
  return IEEEFloat::from_bits(QNumber(p % t.sign > t.inf ? t.nan : p, 1), t.f);
}

// A digest of what every call leaves, and of the text that it throws: FNV-1a, the same everywhere.
std::uint64_t run(Format f, IEEEFloat::Repr repr) {
  const Layout t(f);
  Random random;
  static const unsigned long count = setting("ZELK_ROUNDS", 8000);
  std::uint64_t digest = 0xCBF29CE484222325;
  const bool huge = f.exp_width > 20 && f.exp_width < 40;  // exact values are, and not refused
  for (unsigned long i = 0; i < count; ++i) {
    IEEEFloat x = value(random, t), y = i % 7 == 0 ? x : value(random, t);
    x.set_mode(modes[i % 4]);
    for (IEEEFloat* v : {&x, &y}) v->self_specialize_repr(repr);
    if (IEEEFloat::get_best_repr(f) == IEEEFloat::REPR_GENERIC && i % 31 == 0) {
      x.set_mode(static_cast<IEEEFloat::rounding_mode>(7));
    }
    const mpz_class n = random.get_z_bits(random.below(70)) - random.get_z_bits(8);
    const QNumber q(n, random.get_z_bits(random.below(70)) + 1);
    const Format g = wide_formats[i % std::size(wide_formats)];
    const auto add = [&](Call call) {
      for (const char c : outcome(call, x, i % 9 == 0 ? nullptr : &y, g, q)) {
        digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001B3;
      }
      ++results;
    };
    for (std::size_t k = 0; k < std::size(calls); ++k) {
      if (!huge || k < first_exact || k >= first_of_g) add(calls[k]);
    }
    for (std::size_t k = 0; i % 4 == 0 && k < last_exact + (huge ? 0 : 1); ++k) {
      add(environment_calls[k]);
    }
  }
  return digest;
}

}  // namespace

int main() {
  bool agree = true;
  for (const Format f : wide_formats) {
    const auto best = IEEEFloat::get_best_repr(f);
    const std::uint64_t digest = run(f, best);
    std::printf("(%lu, %lu) %016lx\n", f.exp_width, f.mant_width, digest);
    agree = agree && (best == IEEEFloat::REPR_GENERIC || run(f, IEEEFloat::REPR_GENERIC) == digest);
  }
  std::printf("%lu results%s\n", results, agree ? "" : "; packed and generic values disagree");
  return agree ? 0 : 1;
}
