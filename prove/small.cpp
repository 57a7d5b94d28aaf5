// All of the small: every pair of patterns of every format with e from 2 to 5 and m from 1 to 5,
// every triple of those of up to 7 bits, every conversion between two of them, against brute force;
// every operation of one operand on every pattern of every format of up to 16 bits, against
// rationals. Of the NaNs there are the canonical one and one more.
#include <memory>

#include "prove/theorem.h"
#include "tests/environment_oracle.h"
#include "tests/text_oracle.h"
#include "zelk/float/functions.h"

namespace prove {

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// Every value of a format, each with a stored mode.
std::vector<Operand> all_of(const Target& t) {
  std::vector<Operand> all;
  for (mpz_class p = 0; p < 2 * t.sign; ++p) {
    if (p % t.sign > t.inf + 1) continue;
    all.emplace_back(t, generic(t.f, static_cast<IEEEFloat::rounding_mode>(p.get_ui() % 5), p));
  }
  return all;
}

// The same in a packed word of another format.
Operand packed(Operand o) { return o.x.self_specialize_repr(IEEEFloat::REPR_FLOAT32), o; }

// A format by brute force: the list of its values, and rounding as a search in that list.
struct SmallFormat : Target {
  std::vector<mpq_class> values;  // from 0 on; infinity is where it would be if it were finite
  std::vector<mpq_class> finer;   // of one exponent more below, up to the least normal value
  std::vector<Operand> all = all_of(*this);

  explicit SmallFormat(Format format) : Target(format) {
    const long bias = (1L << (f.exp_width - 1)) - 1;
    for (mpz_class p = 0; p <= inf; ++p) {
      const mpz_class field = p / hidden, digits = p % hidden;
      values.push_back(field == 0 ? scaled(digits, 1 - bias - m)
                                  : scaled(hidden + digits, field.get_si() - bias - m));
    }
    for (mpz_class p = 0; p <= 2 * hidden; ++p) finer.emplace_back(p * values[1] / 2);
  }

  static Neighbours search(const std::vector<mpq_class>& list, const mpq_class& v) {
    const auto above = std::upper_bound(list.begin(), list.end(), v), below = above - 1;
    const int middle = above == list.end() ? 1 : cmp(2 * v, *below + *above);
    return {below - list.begin(), *below == v, middle};
  }

  Placed place(const Exact& x) const {
    Placed p{x};
    if (x.kind != Exact::finite || x.q == 0) return p;
    const mpq_class v = scaled(x.q, x.k);
    p.values = search(values, v);
    p.below = p.values.below < hidden;
    if (p.below) p.finer = search(finer, v);
    return p;
  }
};

void check_pairs(const SmallFormat& t, const Operand& x) {
  for (const Operand& y : t.all) {
    for (const Operand& a : {x, packed(x)}) check_selections(t, a, y, 0, 1), check_orders(t, a, y);
    for (const Operation& op : operations) {
      if (op.operands == 2) check_operation(op, {&x, &y}, t, false);
    }
    for (const auto mode : modes) check_pair(t, operations, in_mode(x.x, mode), y.x), cases += 5;
    const IEEEFloat self = in_mode(x.x, modes[0]);
    if (&x == &y) check_pair(t, operations, self, self);
  }
}

void check_triples(const SmallFormat& t, const Operand& x) {
  for (const Operand& y : t.all) {
    for (const Operand& z : t.all) check_operation(operations[6], {&x, &y, &z}, t, false);
  }
}

void check_conversions(const SmallFormat& from, const SmallFormat& to) {
  for (const Operand& x : from.all) {
    check_operation(operations[8], {&x}, to, true);
    for (const auto mode : modes) check_conversion(from, to, in_mode(x.x, mode)), cases += 2;
  }
}

// Small ratios times powers of two.
void check_ratios(const SmallFormat& t) {
  for (int i = 0; i < 81 * 40 * 4 * 6; ++i) {
    const int n = i / 960 - 40, d = i / 24 % 40 + 1, k = i / 6 % 4 * 3 - 5;
    mpq_class q(n, d);
    q.canonicalize();
    const Environment env{Rounding(i % 6), Tininess(i / 6 % 2), i % 5 == 0, false, other_bits};
    check_factories(t, env, q, k);
    if (i % 6 > 3) continue;
    const Exact exact{Exact::finite, n < 0, abs(q), k};
    const mpz_class want = t.place(exact).round(t, {env.rounding}).bits;
    const QNumber ratio(q);
    ASSERT_BITS(IEEEFloat::from_scaled(ratio, k, t.f, modes[i % 6]), want) << q << " 2^" << k;
    ASSERT_BITS(IEEEFloat::from_ratio(ratio * QNumber::scaled(1, k), t.f, modes[i % 6]), want) << q;
  }
}

void check_pattern(const Target& t, const mpz_class& p) {
  static const std::vector<Target> others = {Target({3, 2}), Target({2, 9}), Target({8, 23}),
                                             Target({11, 52})};
  const Operand x(t, generic(t.f, static_cast<IEEEFloat::rounding_mode>(p.get_ui() % 5), p));
  for (const Operation& op : operations) {
    if (op.operands == 1) check_operation(op, {&x}, t, false);
  }
  for (const Operation& op : to_integers) check_operation(op, {&x}, t, false);
  for (const Target& u : others) check_operation(operations[8], {&x}, u, true);
  check_operation(operations[7], {&x}, others[t.f.exp_width % 2], true);
  check_integers(x);
  check_functions(t, x), check_functions(t, packed(x)), cases += 28;
  for (const auto mode : modes) check_value(t, in_mode(x.x, mode)), cases += 41;
  check_shortest(t, in_mode(x.x, modes[0])), cases += 2;
}

// ---- The theorems ----

using Formats = std::vector<std::shared_ptr<const SmallFormat>>;

Formats formats_of(unsigned long bits) {
  Formats all;
  for (unsigned long e = 2; e <= 5; ++e) {
    for (unsigned long m = 1; m <= 5 && e + m < bits; ++m) {
      all.push_back(std::make_shared<SmallFormat>(Format{e, m}));
    }
  }
  return all;
}

// Of each format the value that has this place, as the first operand of what is tried.
auto of_first(const Formats& formats, void (*check)(const SmallFormat& t, const Operand& x)) {
  return [=](unsigned long i) {
    for (const auto& t : formats) {
      if (i < t->all.size()) check(*t, t->all[i]);
    }
  };
}

}  // namespace

std::vector<Theorem> small(unsigned long bits) {
  const Formats all = formats_of(bits);
  const auto conversions = [=](unsigned long i) {
    const SmallFormat &from = *all[i / all.size()], &to = *all[i % all.size()];
    check_conversions(from, to);
    if (&from == &to) check_ratios(to);
  };
  const auto unary = [=](unsigned long i) {  // 64 patterns of each format that has as many
    for (unsigned long width = 4; width <= bits; ++width) {
      for (unsigned long e = 2; e < width - 1; ++e) {
        const Target t({e, width - 1 - e});
        for (mpz_class p = 64 * i; p < 64 * (i + 1) && p < 2 * t.sign; ++p) {
          if (p % t.sign <= t.inf + 1) check_pattern(t, p);
        }
      }
    }
  };
  return {{"small.pairs", 1UL << 11, of_first(all, check_pairs)},
          {"small.triples", 1UL << 7, of_first(formats_of(std::min(bits, 7UL)), check_triples)},
          {"small.conversions", all.size() * all.size(), conversions},
          {"small.unary", (1UL << bits) / 64, unary}};
}

}  // namespace prove
