// Prints a digest of the results of every call for each of a spread of formats: builds with and
// without the short roads must print the same. Values count, not the forms of numbers. The packed
// formats come twice, as words and as generic values, which must agree.
#include <cstdio>
#include <vector>

#include "tests/support.h"

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

struct Digest {
  unsigned long results = 0;
  unsigned long hash = 0;

  void add(unsigned long word) { hash = (hash ^ word) * 0x9E3779B97F4A7C15 + (hash >> 29); }
  void add(const QNumber& q) {
    for (QNumber part : {q.get_num(), q.get_den()}) {
      for (add(part.sign() < 0 ? 1 : 0); !part.is_zero() && !(part == -1);) {
        add(zelk::BVNumber::low_word(part));
        zelk::BVNumber::bit_right_shift(part, 64, &part);
      }
    }
  }
};

// One NaN only, the canonical one: on others packed and generic values differ.
IEEEFloat value(Random& random, const Layout& t) {
  const mpz_class p = random.pattern(t);
  return IEEEFloat::from_bits(QNumber(p % t.sign > t.inf ? t.nan : p, 1), t.f);
}

// What every call leaves, and the text that it throws.
Digest run(Format f, IEEEFloat::Repr repr, const std::vector<Format>& targets) {
  const Layout t(f);
  Random random;
  Digest digest;
  const bool huge = f.exp_width > 20 && f.exp_width < 40;  // exact values are, and not refused
  for (unsigned long i = 0; i < 12000; ++i) {
    IEEEFloat x = value(random, t), y = i % 7 == 0 ? x : value(random, t);
    x.set_mode(modes[i % 4]);
    for (IEEEFloat* v : {&x, &y}) v->self_specialize_repr(repr);
    if (repr == IEEEFloat::REPR_GENERIC && i % 3 == 0) x = in_big_form(x);
    if (IEEEFloat::get_best_repr(f) == IEEEFloat::REPR_GENERIC && i % 31 == 0) {
      x.set_mode(static_cast<IEEEFloat::rounding_mode>(7));
    }
    const mpz_class n = random.get_z_bits(random.below(70)) - random.get_z_bits(8);
    const QNumber q(n, random.get_z_bits(random.below(70)) + 1);
    for (std::size_t k = 0; k < std::size(calls); ++k) {
      if (huge && k >= first_exact && k < first_of_g) continue;
      IEEEFloat r = x;
      QNumber number = q;
      const auto call = [&] {
        return calls[k](r, i % 9 == 0 ? r : y, targets[i % targets.size()], number), 0;
      };
      for (const char c : message(call)) digest.add(static_cast<unsigned long>(c));
      digest.add(r.get_bits());
      digest.add(number);
      ++digest.results;
    }
  }
  return digest;
}

}  // namespace

int main() {
  const std::vector<Format> formats = {
      {2, 1},    {3, 2},   {4, 3},    {5, 2},    {5, 10},   {8, 7},    {8, 10},   {8, 23},
      {11, 52},  {10, 51}, {10, 52},  {10, 53},  {10, 54},  {8, 55},   {62, 1},   {61, 2},
      {63, 1},   {32, 30}, {33, 29},  {3, 59},   {3, 60},   {2, 61},   {4, 59},   {15, 48},
      {15, 49},  {15, 63}, {15, 112}, {2, 100},  {15, 125}, {15, 126}, {15, 127}, {62, 128},
      {19, 236}, {9, 255}, {13, 319}, {15, 480}, {30, 500}};
  unsigned long total = 0;
  bool agree = true;
  for (const Format f : formats) {
    const auto best = IEEEFloat::get_best_repr(f);
    const Digest digest = run(f, best, formats);
    agree = agree && (best == IEEEFloat::REPR_GENERIC ||
                      run(f, IEEEFloat::REPR_GENERIC, formats).hash == digest.hash);
    total += digest.results;
    std::printf("(%lu, %lu) %016lx %lu\n", f.exp_width, f.mant_width, digest.hash, digest.results);
  }
  std::printf("%lu results%s\n", total, agree ? "" : "; packed and generic values disagree");
  return agree ? 0 : 1;
}
