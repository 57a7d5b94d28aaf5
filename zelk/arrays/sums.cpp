#include "zelk/arrays/sums.h"

#include <algorithm>
#include <vector>

#include "zelk/arrays/checks.h"
#include "zelk/arrays/control_word.h"
#include "zelk/arrays/element.h"
#include "zelk/arrays/exact_sum.h"

namespace zelk::arrays::detail {
namespace {

std::size_t blocks_of(const Accumulation& sum, std::size_t n) {
  return n == 0 ? 0 : sum.block == 0 ? 1 : (n - 1) / sum.block + 1;
}

// The roundings of one sum, in their order.
class Rounder {
 public:
  Rounder(Environment& environment, const Accumulation& accumulation, std::uint64_t first)
      : env(environment), sum(accumulation), next(first) {}

  double operator()(ExactSum& s) {
    std::optional<std::uint64_t> draw;
    if (sum.stochastic) {
      draw = Philox::draw(sum.stochastic->seed, next++);
    }
    return s.rounded(env, sum.result, draw);
  }
  // A sum that becomes a term.
  double term(double s) const { return env.flush_operands ? flushed(s, Shape(sum.result)) : s; }

 private:
  Environment& env;
  const Accumulation& sum;
  std::uint64_t next;
};

// Neighbours are added until one is left; an odd last one moves up as it is.
double add_pairs(std::vector<double>& s, Rounder& round) {
  for (std::size_t size = s.size(); size > 1; size = size / 2 + size % 2) {
    for (std::size_t i = 0; i + 1 < size; i += 2) {
      ExactSum pair;
      pair.add(round.term(s[i]), 1);
      pair.add(round.term(s[i + 1]), 1);
      s[i / 2] = round(pair);
    }
    if (size % 2 != 0) {
      s[size / 2] = s[size - 1];
    }
  }
  return s.empty() ? 0 : s[0];
}

}  // namespace

double Row::operator[](std::size_t k) const {
  const double x = load(array, first + k * step, f);
  return flush ? flushed(x, f) : x;
}

std::size_t roundings(const Accumulation& sum, std::size_t n) {
  const std::size_t blocks = blocks_of(sum, n);
  return sum.pairwise && blocks != 0 ? 2 * blocks - 1 : blocks;
}

double accumulate(Environment& env, const Row& x, const Row& y, std::size_t n,
                  const Accumulation& sum, std::uint64_t draw) {
  Rounder round(env, sum, draw);
  const std::size_t blocks = blocks_of(sum, n);
  const std::size_t block = sum.block == 0 ? n : sum.block;
  std::vector<double> apart(sum.pairwise ? blocks : 0);
  double running = 0;
  for (std::size_t b = 0; b < blocks; ++b) {
    ExactSum s;
    if (b != 0 && !sum.pairwise) {
      s.add(round.term(running), 1);
    }
    for (std::size_t k = b * block; k < b * block + std::min(block, n - b * block); ++k) {
      s.add(x[k], y[k]);
    }
    running = round(s);
    if (sum.pairwise) {
      apart[b] = running;
    }
  }
  return sum.pairwise ? add_pairs(apart, round) : running;
}

IEEEFloat dot(Environment& env, const Source& x, const Source& y, Format f,
              const Accumulation& sum) {
  require_rounding(env);
  require_formats({{f, x.type}, {sum.result, std::nullopt}});
  require_lengths({y}, x.size);
  const ControlWord ours;
  const Row a{x, 0, 1, Shape(f), env.flush_operands}, b{y, 0, 1, Shape(f), env.flush_operands};
  const double r = accumulate(env, a, b, x.size, sum, sum.stochastic ? sum.stochastic->first : 0);
  return Environment{}.convert(from_double(r), sum.result);
}

void matmul(Environment& env, const Table<Source>& a, const Table<Source>& b, Format f,
            const Accumulation& sum, const Table<Target>& c) {
  require_rounding(env);
  require_formats({{f, a.array.type}, {f, b.array.type}, {sum.result, c.array.type}});
  require_matrices(a, b, c);
  const ControlWord ours;
  const std::size_t each = roundings(sum, a.columns);
  std::uint64_t draw = sum.stochastic ? sum.stochastic->first : 0;
  for (std::size_t i = 0; i < c.rows; ++i) {
    for (std::size_t j = 0; j < c.columns; ++j, draw += each) {
      const Row x{a.array, i * a.stride, 1, Shape(f), env.flush_operands};
      const Row y{b.array, j, b.stride, Shape(f), env.flush_operands};
      store(c.array, i * c.stride + j, Shape(sum.result),
            accumulate(env, x, y, a.columns, sum, draw));
    }
  }
}

}  // namespace zelk::arrays::detail
