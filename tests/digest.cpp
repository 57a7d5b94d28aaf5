// Prints a digest of the results of every operation for each of a spread of formats: builds with
// and without the short roads must print the same. Values count, not the forms of numbers. The
// packed formats come twice, as words and as generic values, which must agree.
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support.h"

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

unsigned long results = 0;
unsigned long digest = 0;

void add(unsigned long word) { digest = (digest ^ word) * 0x9E3779B97F4A7C15 + (digest >> 29); }

void add(const QNumber& q) {
  for (QNumber part : {q.get_num(), q.get_den()}) {
    for (add(part.sign() < 0 ? 1 : 0); !part.is_zero() && !(part == -1);) {
      add(zelk::BVNumber::low_word(part));
      zelk::BVNumber::bit_right_shift(part, 64, &part);
    }
  }
}

void add(const IEEEFloat& x) { add(x.get_bits()); }

// What the call gives, or the text that it throws.
template <typename Call>
void add_result(Call call) {
  ++results;
  try {
    add(call());
  } catch (const IEEEFloat::error& e) {
    for (const char c : std::string(e.what())) add(static_cast<unsigned long>(c));
  }
}

// One NaN only, the canonical one: on others packed and generic values differ.
IEEEFloat value(Random& random, const Layout& t) {
  const mpz_class p = random.pattern(t);
  return IEEEFloat::from_bits(QNumber(p % t.sign > t.inf ? t.nan : p, 1), t.f);
}

void run(Format f, IEEEFloat::Repr repr, const std::vector<Format>& targets) {
  const Layout t(f);
  Random random;
  digest = results = 0;
  for (unsigned long i = 0; i < 12000; ++i) {
    IEEEFloat x = value(random, t);
    IEEEFloat y = i % 7 == 0 ? x : value(random, t);
    x.set_mode(modes[i % 4]);
    for (IEEEFloat* v : {&x, &y}) v->self_specialize_repr(repr);
    if (repr == IEEEFloat::REPR_GENERIC && i % 3 == 0) x = in_big_form(x);
    if (repr == IEEEFloat::REPR_GENERIC && i % 31 == 0 && repr == IEEEFloat::get_best_repr(f)) {
      x.set_mode(static_cast<IEEEFloat::rounding_mode>(7));
    }
    for (int op = 0; op < 4; ++op) {
      add_result([&, r = x]() mutable { return apply(op, r, i % 9 == 0 ? r : y); });
    }
    for (const auto step : {&IEEEFloat::next_representable, &IEEEFloat::packed_next}) {
      add_result([&, r = x]() mutable { return (r.*step)(i % 2 == 0), r.self_neg(), r; });
    }
    add(IEEEFloat::from_number(ieee_cmp(x, y), {5, 10}, modes[0]));
    add(QNumber(x <= y ? 1 : 2) / (x.is_subnormal() ? 3 : 5));
    add_result([&, r = x]() mutable { return r.set_format(targets[i % targets.size()]), r; });
    for (const unsigned long w : {1UL, 8UL, 32UL, 63UL, 64UL, 70UL}) {
      add_result([&] { return x.to_integer(w); });
    }
    if (f.exp_width <= 20 || f.exp_width >= 40) {  // between them values can be huge, not refused
      add_result([&] { return x.to_integer(0); });
      add_result([&] { return x.to_number(); });
    }
    const mpz_class n = random.get_z_bits(random.below(70)) - random.get_z_bits(8);
    const QNumber q(n, random.get_z_bits(random.below(70)) + 1);
    add_result([&] { return IEEEFloat::from_number(q, f, x.get_mode()); });
  }
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
    unsigned long packed = 0;
    for (const auto repr : {IEEEFloat::get_best_repr(f), IEEEFloat::REPR_GENERIC}) {
      run(f, repr, formats);
      agree = agree && (packed == 0 || packed == digest);
      packed = repr == IEEEFloat::REPR_GENERIC ? 0 : digest;
      total += results;
      std::printf("(%lu, %lu) %016lx %lu\n", f.exp_width, f.mant_width, digest, results);
      if (repr == IEEEFloat::REPR_GENERIC) break;
    }
  }
  std::printf("%lu results%s\n", total, agree ? "" : "; packed and generic values disagree");
  return agree ? 0 : 1;
}
