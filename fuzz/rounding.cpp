// Every rounded or exact result in any format against MPFR, and those of environments; where
// exponents are short, also against rationals.
#include "fuzz/input.h"
#include "tests/mpfr_oracle.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static Format format(Input& in) {
  constexpr Format hardware[] = {{5, 10}, {8, 23}, {11, 52}, {15, 112}};
  const unsigned long kind = in.below(8);
  return kind < 4 ? hardware[kind] : Format{2 + in.below(39), 1 + in.below(kind < 7 ? 64 : 600)};
}

// Three values of one format.
static std::vector<Operand> operands(const Target& t, Input& in) {
  std::vector<Operand> all;
  all.reserve(3);
  for (int i = 0; i < 3; ++i) all.emplace_back(t, generic(t.f, modes[0], in.pattern(Layout(t.f))));
  return all;
}

// Sums and dots of all, which may cancel.
static void check_sums(const std::vector<Operand>& all, const Target& to, Input& in) {
  const Environment env = any_environment(in);
  Values x, y;
  Operands terms, products;
  for (const Operand& o : all) {
    const Operand& other = all[in.below(all.size())];
    x.push_back(o.x), terms.push_back(o.exact[env.flush_operands]);
    y.push_back(other.x), products.push_back(other.exact[env.flush_operands]);
    products.back() =
        any_nan({terms.back(), products.back()}) ? Exact() : times(terms.back(), products.back());
  }
  check_sum(to, env, sum_of(terms, env.rounding), x, {});
  check_sum(to, env, sum_of(products, env.rounding), x, y);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  Mpfr t(format(in)), to(format(in));
  check_all(t, to, in);
  static const std::vector<Operation> by = mpfr_operations();
  const Target target(t.f), other(to.f);
  std::vector<Operand> all = operands(target, in), others = operands(other, in);
  mpfr_precision = std::max(target.m, other.m) + 9;
  cases = 0;  // what decides settings
  for (const Operation& op : by) {
    std::vector<const Operand*> one, mixed;
    for (std::size_t k = 0; k < op.operands; ++k)
      one.push_back(&all[k]), mixed.push_back(k == 1 ? &others[k] : &all[k]);
    check_operation(op, one, target, false);
    check_operation(op, mixed, other, true);
  }
  if (std::max(t.f.exp_width, to.f.exp_width) > 15) return 0;
  for (const Operation& op : to_integers) check_operation(op, {all.data()}, target, false);
  check_integers(all[0]);
  check_selections(target, all[0], all[1]);
  mpq_class q(in.digits(in.below(90)) - pow2(40),
              in.below(3) == 0 ? mpz_class(1) : in.digits(70) + 1);
  q.canonicalize();
  check_factories(other, any_environment(in), q, static_cast<long>(in.below(500)) - 300);
  std::ranges::copy(all, std::back_inserter(others));
  check_sums(others, target, in);
  return 0;
}
