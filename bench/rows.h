// Operands, and the row of an operation on them.
#ifndef ZELK_BENCH_ROWS_H_
#define ZELK_BENCH_ROWS_H_

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/peers.h"
#include "bench/report.h"
#include "zelk/zelk.h"

namespace zelk_bench {

inline constexpr auto nearest = IEEEFloat::ROUND_NEAREST_EVEN;

inline std::mt19937_64 random_bits(20240229);

inline std::string name(Format f) {
  return std::to_string(f.exp_width) + '.' + std::to_string(f.mant_width);
}

inline void require(bool same, const std::string& row, std::size_t i) {
  if (!same) {
    std::fprintf(stderr, "bench: %s differs at operand %zu\n", row.c_str(), i);
    std::exit(1);
  }
}

// ---- Operands ----

// A finite value whose exponent is `distance` binades above one's, as far as the format goes.
inline IEEEFloat make_value(Format f, long distance) {
  QNumber exponent = f.bias() + distance;
  if (exponent < 0 || exponent >= f.max_exponent()) {
    exponent = exponent < 0 ? 0 : f.max_exponent() - 1;
  }
  QNumber bits = exponent + (random_bits() % 2 == 0 ? QNumber(0) : f.max_exponent() + 1);
  for (unsigned long i = 0; i < f.mant_width; ++i) {
    bits = bits + bits + random_bits() % 2;
  }
  return IEEEFloat::from_bits(bits, f);
}

// Mostly normals within a few binades of one, a tenth far apart, some subnormal.
inline std::vector<IEEEFloat> mixed(Format f) {
  std::vector<IEEEFloat> values;
  for (std::size_t i = 0; i < count; ++i) {
    const auto kind = random_bits() % 20;
    const long range = f.bias().to_long();
    long distance = static_cast<long>(random_bits() % 7) - 3;
    if (kind < 2) {
      distance = static_cast<long>(random_bits() % static_cast<unsigned long>(2 * range)) - range;
    } else if (kind == 2) {
      distance = -range;
    }
    values.push_back(make_value(f, distance));
  }
  return values;
}

// Factors for a chain that neither overflows nor underflows: each undone, nearly, by the next.
inline std::vector<IEEEFloat> near_one(Format f) {
  std::vector<IEEEFloat> values;
  for (std::size_t i = 0; i < count; i += 2) {
    values.push_back(make_value(f, 0));
    IEEEFloat inverse = IEEEFloat::from_number(1, f, nearest);
    values.push_back(inverse /= values.back());
  }
  return values;
}

struct Operands {
  Format f;
  std::string label;
  std::vector<IEEEFloat> a, b, factors, terms;
  explicit Operands(Format format, const std::string& suffix = "")
      : f(format), label(name(format) + suffix), a(mixed(f)), b(mixed(f)), factors(near_one(f)) {
    for (std::size_t i = 0; i < count; ++i) {
      terms.push_back(make_value(f, i % 5 == 0 ? 1 : 0));
      terms.back().set_sign(i % 2 == 0);
    }
    if (!suffix.empty()) {
      for (auto* values : {&a, &b, &factors, &terms}) {
        for (IEEEFloat& x : *values) {
          x.self_specialize_repr(IEEEFloat::REPR_GENERIC);
        }
      }
    }
  }
};

template <typename P>
auto load(const std::vector<IEEEFloat>& values) {
  auto loaded = std::make_shared<std::vector<typename P::Value>>();
  loaded->reserve(values.size());
  for (const IEEEFloat& x : values) {
    loaded->push_back(P::load(x));
  }
  return loaded;
}

// ---- Rows on values ----

// Boost's float has no subnormals, and its subtraction does not always round correctly: its
// results are held against ours all the same, and more than a few differences end the program.
template <typename P>
bool is_ieee() {
  return !std::string(P::name).starts_with("cpp_");
}

// r := a op b on independent operands.
template <typename P, auto operation, auto ours>
void operation_row(const char* op, const Operands& o) {
  const std::string row = std::string(op) + '/' + o.label + '/' + P::name;
  if (!wanted(row)) {
    return;
  }
  const auto a = load<P>(o.a);
  const auto b = load<P>(o.b);
  const auto r = std::make_shared<typename P::Value>((*a)[0]);
  std::size_t differences = 0;
  P::enter(o.f);
  for (std::size_t i = 0; i < count; ++i) {
    IEEEFloat want;
    ours(want, o.a[i], o.b[i]);
    operation(*r, (*a)[i], (*b)[i]);
    const bool tiny =
        o.a[i].is_subnormal() || o.b[i].is_subnormal() || want.is_subnormal() || want.is_zero();
    if (!P::equals(*r, want) && (is_ieee<P>() || !tiny)) {
      require(!is_ieee<P>() && ++differences <= count / 100, row, i);
    }
  }
  if (differences > 0) {
    std::printf("note: %s rounds %zu of %zu results wrongly\n", row.c_str(), differences, count);
  }
  add_row(
      row, [f = o.f] { P::enter(f); },
      [=](std::size_t i, std::size_t j) {
        operation(*r, (*a)[i], (*b)[j]);
        benchmark::DoNotOptimize(*r);
      });
}

}  // namespace zelk_bench

#endif  // ZELK_BENCH_ROWS_H_
