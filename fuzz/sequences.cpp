// Sequences of steps over several values, formats and environments: values are made, copied,
// converted in place and take results of wider and narrower operands, flags gather; after each step
// all of them are what rationals say. Inputs change by whole steps and by single bytes of one.
#include <random>

#include "fuzz/input.h"
#include "tests/environment_oracle.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static constexpr std::size_t step_size = 16;

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
  std::minstd_rand random(seed);
  const auto below = [&](std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
  };
  std::vector<std::array<std::uint8_t, step_size>> steps(size / step_size);
  for (std::size_t i = 0; i < steps.size(); ++i)
    std::copy_n(data + i * step_size, step_size, steps[i].data());
  const std::size_t room = max_size / step_size;
  do {
    const std::size_t kind = steps.empty() ? 0 : below(8);
    if (kind == 0 && steps.size() < room) {
      auto& step = *steps.emplace(steps.begin() + static_cast<long>(below(steps.size() + 1)));
      for (std::uint8_t& byte : step) byte = static_cast<std::uint8_t>(below(256));
    }
    if (steps.empty()) break;
    auto &one = steps[below(steps.size())], &other = steps[below(steps.size())];
    if (kind == 1) std::swap(one, other);
    if (kind == 2) one = other;
    if (kind == 3) steps.erase(steps.begin() + static_cast<long>(below(steps.size())));
    if (kind == 4) one[below(step_size)] = other[below(step_size)];
    if (kind > 4) one[below(kind == 5 ? step_size : 8)] = static_cast<std::uint8_t>(below(256));
  } while (below(3) == 0);
  for (const auto& step : steps) data = std::ranges::copy(step, data).out;
  return steps.size() * step_size;
}

namespace {

struct State {
  std::vector<IEEEFloat> values = std::vector<IEEEFloat>(4, IEEEFloat({5, 10}, modes[0]));
  std::vector<IEEEFloat> shadows = values;  // made anew from patterns
  Environment environments[2];
  unsigned flags[2] = {0, 0};

  void expect(std::size_t i, const mpz_class& pattern, const IEEEFloat& like, Format f) {
    IEEEFloat made = generic(f, like.get_mode(), pattern);
    made.self_specialize_repr(like.get_repr());
    shadows[i] = made;
  }

  // One of the operations, and where its result goes.
  void operate(Input& in) {
    const Operation& op = operations[in.below(std::size(operations))];
    const std::size_t target = in.below(4), e = in.below(2);
    const bool wants_format = in.below(2) == 0;
    const Format g = format(in);
    Environment& env = environments[e];
    Values v;
    Operands numbers;
    bool mixed = wants_format;
    for (std::size_t k = 0; k < op.operands; ++k) {
      const IEEEFloat& x = values[in.below(4)];
      v.push_back(x);
      numbers.push_back(Target(x.get_format()).decode(bits(x), env.flush_operands));
      mixed = mixed || x.get_format() != v[0].get_format();
    }
    const Target to(mixed ? g : v[0].get_format());
    const Answer want = to.round(op.exact(numbers, env.rounding), env);
    values[target] = mixed ? op.into(env, v, g) : op.call(env, v);
    flags[e] |= want.flags;
    IEEEFloat like = v[0];
    if (to.f != v[0].get_format()) like = IEEEFloat(to.f, v[0].get_mode());
    expect(target, want.bits, like, to.f);
  }

  void step(Input& in) {
    const unsigned long kind = in.below(12), i = in.below(4), k = in.below(4);
    IEEEFloat &x = values[i], &shadow = shadows[i];
    if (kind == 0) {
      const Format f = format(in);
      x = shadow = generic(f, modes[in.below(4)], in.pattern(Layout(f)));
    } else if (kind == 1) {
      const std::uint8_t kept = environments[k % 2].flags;
      environments[k % 2] = any_environment(in);
      environments[k % 2].flags = kept;
    } else if (kind == 2) {
      x = values[k], shadow = IEEEFloat(shadows[k]);
    } else if (kind == 3) {
      std::swap(x, values[k]), std::swap(shadow, shadows[k]);
    } else if (kind == 4) {
      x.self_specialize_repr(k == 0 ? IEEEFloat::REPR_GENERIC
                                    : IEEEFloat::get_best_repr(x.get_format()));
      expect(i, bits(shadow), x, x.get_format());
    } else if (kind == 5) {
      const Target from(x.get_format()), to(format(in));
      constexpr Rounding by_mode[] = {Rounding::nearest_even, Rounding::toward_zero,
                                      Rounding::toward_positive, Rounding::toward_negative};
      x.set_format(to.f);
      if (from.f == to.f) return;
      const Environment env{.rounding = by_mode[x.get_mode()]};
      expect(i, to.round(from.decode(bits(shadow)), env).bits, IEEEFloat(to.f, x.get_mode()), to.f);
    } else {
      operate(in);
    }
  }

  static Format format(Input& in) {
    constexpr Format usual[] = {{5, 10}, {8, 7}, {8, 23}, {11, 52}, {15, 112}, {9, 236}, {4, 3}};
    const unsigned long kind = in.below(10);
    return kind < 7 ? usual[kind] : Format{2 + in.below(14), 1 + in.below(kind < 9 ? 130 : 400)};
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  State state;
  for (std::size_t at = 0; at + step_size <= size; at += step_size) {
    Input in(data + at, step_size);
    state.step(in);
    for (std::size_t i = 0; i < 4; ++i)
      EXPECT_TRUE(same(state.values[i], state.shadows[i]))
          << name(state.values[i]) << ", wanted " << name(state.shadows[i]) << " after step "
          << at / step_size;
    for (std::size_t i = 0; i < 2; ++i)
      EXPECT_EQ(unsigned{state.environments[i].flags}, state.flags[i]);
  }
  return 0;
}
