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

static Operand operand(const Target& t, Input& in) {
  return {t, generic(t.f, modes[0], in.pattern(t))};
}

// In one environment of all.
static void check_once(const Operation& op, const std::vector<Operand>& all, const Target& to,
                       bool into, Input& in) {
  const Environment env = any_environment(in);
  Values v;
  Operands numbers;
  for (const Operand& o : all) v.push_back(o.x), numbers.push_back(o.exact[env.flush_operands]);
  const Answer want = to.round(op.exact(numbers, env.rounding), env);
  const IEEEFloat like = to.f == v[0].get_format() ? v[0] : IEEEFloat(to.f, modes[0]);
  check_answer([&](auto& e) { return into ? op.into(e, v, to.f) : op.call(e, v); }, env, want, like,
               [&] { return op.name + (" of " + name(v)); });
}

// One of the checks for each input: the more inputs, the more new code they find.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  const unsigned long kind = in.below(64);
  const Target t(format(in)), to(format(in));
  if (kind == 0) {
    check_all(t, to, in);
  } else if (kind >= 24 || std::max(t.f.exp_width, to.f.exp_width) > 15) {
    static const std::vector<Operation> by = mpfr_operations();
    const Operation& op = by[in.below(by.size())];
    const bool into = kind % 2 == 0;
    std::vector<Operand> all;
    while (all.size() < op.operands) all.push_back(operand(into && all.size() == 1 ? to : t, in));
    mpfr_precision = std::max(t.m, to.m) + 9;
    check_once(op, all, into ? to : t, into, in);
  } else if (kind == 1) {
    check_integers(operand(t, in));
  } else if (kind < 5) {
    const Operand x = operand(t, in), y = operand(t, in);
    check_selections(t, x, y, static_cast<unsigned>(in.below(12)), 12);
  } else if (kind < 9) {
    check_once(to_integers[in.below(2)], {operand(t, in)}, t, false, in);
  } else if (kind < 14) {
    mpq_class q(in.digits(in.below(90)) - pow2(40),
                in.below(3) == 0 ? mpz_class(1) : in.digits(70) + 1);
    q.canonicalize();
    check_factories(to, any_environment(in), q, static_cast<long>(in.below(500)) - 300);
  } else {
    std::vector<Operand> all;
    while (all.size() < 3 + kind % 3)
      all.push_back(operand(kind < 20 || all.size() % 2 != 0 ? t : to, in));
    const Environment env = any_environment(in);
    std::vector<Operand> factors;
    while (factors.size() < all.size()) factors.push_back(all[in.below(all.size())]);
    check_sums(to, env, all, factors);  // which may cancel
  }
  return 0;
}
