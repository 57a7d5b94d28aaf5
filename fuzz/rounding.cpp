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
  for (int i = 0; i < 3; ++i) all.emplace_back(t, generic(t.f, modes[0], in.pattern(t)));
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

// One of the checks for each input: the more inputs, the more new code they find.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  const unsigned long kind = in.below(16);
  if (kind == 0) {
    const Target t(format(in)), to(format(in));
    check_all(t, to, in);
    return 0;
  }
  const Target t(format(in)), to(format(in));
  const std::vector<Operand> all = operands(t, in), others = operands(to, in);
  mpfr_precision = std::max(t.m, to.m) + 9;
  cases = in.byte();  // what decides settings
  if (kind < 10) {
    static const std::vector<Operation> by = mpfr_operations();
    const Operation& op = by[in.below(by.size())];
    std::vector<const Operand*> of = {all.data(), kind < 5 ? &all[1] : &others[1], &all[2]};
    of.resize(op.operands);
    check_operation(op, of, kind < 5 ? t : to, kind >= 5);
  }
  if (std::max(t.f.exp_width, to.f.exp_width) > 15) return 0;
  if (kind == 10) check_selections(t, all[0], all[1]);
  if (kind == 11) check_operation(to_integers[in.below(2)], {all.data()}, t, false);
  if (kind == 12) check_integers(all[0]);
  if (kind == 13) {
    mpq_class q(in.digits(in.below(90)) - pow2(40),
                in.below(3) == 0 ? mpz_class(1) : in.digits(70) + 1);
    q.canonicalize();
    check_factories(to, any_environment(in), q, static_cast<long>(in.below(500)) - 300);
  }
  if (kind == 14) check_sums(all, to, in);
  if (kind == 15) check_sums({all[0], others[0], all[1], others[1], all[2], others[2]}, to, in);
  return 0;
}
