#include "zelk/arrays/sums.h"

#include <algorithm>
#include <vector>

#include "zelk/arrays/blocks.h"
#include "zelk/arrays/checks.h"
#include "zelk/arrays/control_word.h"
#include "zelk/arrays/element.h"
#include "zelk/arrays/simd/sums.h"

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
double add_pairs(std::span<double> s, Rounder& round) {
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

std::size_t roundings(const Accumulation& sum, std::size_t n) {
  const std::size_t blocks = blocks_of(sum, n);
  return sum.pairwise && blocks != 0 ? 2 * blocks - 1 : blocks;
}

std::vector<double> room_for_pairs(const Accumulation& sum, std::size_t n) {
  return std::vector<double>(sum.pairwise ? blocks_of(sum, n) : 0);
}

double accumulate(Environment& env, const AddProducts& add, std::size_t n, const Accumulation& sum,
                  std::uint64_t draw, std::span<double> apart) {
  Rounder round(env, sum, draw);
  const std::size_t blocks = blocks_of(sum, n);
  const std::size_t block = sum.block == 0 ? n : sum.block;
  double running = 0;
  for (std::size_t b = 0; b < blocks; ++b) {
    ExactSum s;
    if (b != 0 && !sum.pairwise) {
      s.add(round.term(running), 1);
    }
    add(s, b * block, std::min(block, n - b * block));
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
  const Shape s(f);
  const double least = env.flush_operands ? s.least_normal() : 0;
  Reader left(x, s, least), right(y, s, least);
  const bool narrow = !is_number(x.type) && has_narrow_products(s);
  const auto add_block = [&](ExactSum& to, std::size_t begin, std::size_t count) {
    const double* const a = left.block(begin, count);
    const double* const b = right.block(begin, count);
    const std::size_t whole = count - count % granule;
    Parts parts;
    const bool quick = whole != 0 && (narrow ? sum_narrow_products(a, b, whole, s, parts)
                                             : sum_products(a, b, whole, parts));
    for (std::size_t i = 0; quick && i < parts.size; ++i) {
      to.add_sum(parts.part[i]);
    }
    for (std::size_t i = quick ? whole : 0; i < count; ++i) {
      to.add(a[i], b[i]);
    }
  };
  const auto add = [&](ExactSum& to, std::size_t begin, std::size_t count) {
    for (std::size_t i = 0; i < count; i += block_size) {
      add_block(to, begin + i, std::min(block_size, count - i));
    }
  };
  std::vector<double> room = room_for_pairs(sum, x.size);
  const std::uint64_t draw = sum.stochastic ? sum.stochastic->first : 0;
  const double r = accumulate(env, add, x.size, sum, draw, room);
  return Environment{}.convert(from_double(r), sum.result);
}

}  // namespace zelk::arrays::detail
