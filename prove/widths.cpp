// All widths: formats with every m up to 300 and e from 2 to 20, and around each multiple of 64 up
// to 1,100, on patterns at their borders, against MPFR: the borders of limbs, words and roads are
// nowhere to be seen.
#include "prove/theorem.h"
#include "tests/mpfr_oracle.h"
#include "tests/text_oracle.h"

namespace prove {

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// Zeros, subnormals of several lengths, powers of two and their neighbours, all ones, one bit, also
// where a limb starts, halves of an ulp of one and theirs, factors of results at both ends of the
// range, the largest, what is not finite; each in both signs; and a few others: 60.
std::vector<Operand> operands(const Target& t) {
  const mpz_class bias = t.inf / t.hidden / 2, one = bias * t.hidden, root = bias / 2 * t.hidden;
  const mpz_class third = t.hidden / 3, last = t.hidden - 1, limb = pow2(t.f.mant_width / 64 * 64);
  const mpz_class ulp = std::max<mpz_class>(one - t.f.mant_width * t.hidden, t.hidden + 3);
  const mpz_class half_ulp = ulp - t.hidden;
  std::vector<Operand> all;
  const auto add = [&](const mpz_class& p) {
    IEEEFloat x = generic(t.f, modes[all.size() % 4], p);
    x.self_specialize_repr(IEEEFloat::get_best_repr(t.f));
    all.emplace_back(t, x);
  };
  const auto add_both = [&](const mpz_class& p) { add(p), add(p + t.sign); };
  for (const mpz_class& start : {mpz_class(0), one}) {
    for (const mpz_class& p : {mpz_class(0), mpz_class(1), pow2(t.f.mant_width / 2), limb,
                               mpz_class(t.hidden / 2), third, last})
      add_both(start + p);
  }
  for (const mpz_class& p :
       {t.hidden, mpz_class(t.hidden + 1), mpz_class(half_ulp - 1), half_ulp,
        mpz_class(half_ulp + 1), ulp, root, mpz_class(root + last), mpz_class(one - 1),
        mpz_class(one + limb - 1), mpz_class(one + root + third), mpz_class(t.inf - t.hidden),
        mpz_class(t.inf - 1), t.inf, mpz_class(t.inf + 1)})
    add_both(p);
  Random random;
  while (all.size() < 60) add(random.pattern(t));
  return all;
}

// All pairs, with a triple each; first operands in all modes. Settings of selections take turns, as
// do other formats.
void check_format(Format f) {
  static const std::vector<Operation> by = mpfr_operations();
  const Target t(f),
      others[] = {Target({f.exp_width + 1, f.mant_width + 1}),
                  Target({std::max(f.exp_width - 1, 2UL), std::max(f.mant_width - 1, 1UL)})};
  mpfr_precision = t.m + 9;
  const std::vector<Operand> all = operands(t);
  for (unsigned i = 0; i < all.size() * all.size(); ++i) {
    const unsigned row = i / 60, column = i % 60;
    const Operand &x = all[row], &y = all[column], &z = all[(7 * row + 13 * column) % 59];
    for (const Operation& op : by) {
      if (op.operands == 1 && &x != &y) continue;
      std::vector<const Operand*> v = {&x, &y, &z};
      v.resize(op.operands);
      check_operation(op, v, t, false);
      if (i % 11 == 0) check_operation(op, v, others[i % 2], true);
    }
    check_selections(t, x, y, i % 5, 5);
    check_orders(t, x, y);
    check_pair(t, by, in_mode(x.x, modes[(row + column) % 4]), y.x), cases += 5;
    if (&x != &y) continue;
    for (const Target& to : others) check_operation(operations[8], {&x}, to, true);
    for (const Operation& op : to_integers) check_operation(op, {&x}, t, false);
    check_functions(t, x), cases += 14;
    if (f.exp_width < 11) check_integers(x), check_value(t, x.x), cases += 41;
    if (f.exp_width < 11 && t.m < 66) check_shortest(t, in_mode(x.x, modes[0])), cases += 2;
  }
  mpfr_free_cache();  // of this thread
}

}  // namespace

std::vector<Theorem> widths() {
  std::vector<Format> formats;
  for (unsigned long e = 2; e <= 20; ++e) {
    for (unsigned long m = 1; m <= 300; ++m) formats.push_back({e, m});
    for (unsigned long limbs = 320; limbs <= 1088; limbs += 64) {
      for (unsigned long m = limbs - 2; m < limbs + 2; ++m) {
        formats.push_back({e, m});
        formats.push_back({e, m - e});  // around the end of a pattern
      }
    }
  }
  return {{"widths", formats.size(), [formats](unsigned long i) { check_format(formats[i]); }}};
}

}  // namespace prove
