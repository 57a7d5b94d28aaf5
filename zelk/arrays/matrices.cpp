// Products of matrices.
//
// Where sums are rounded once, a is cut into slices whose products with b have exact sums in
// doubles, after Ozaki, Ogita, Oishi and Rump, "Error-free transformations of matrix multiplication
// by using fast routines of matrix multiplication and its applications" (2012); two slices are
// added and rounded as all sums are. Chains of fma go row by row. Other sums go one by one.
#include <algorithm>
#include <bit>
#include <functional>
#include <vector>

#include "zelk/arrays/checks.h"
#include "zelk/arrays/control_word.h"
#include "zelk/arrays/element.h"
#include "zelk/arrays/simd/sums.h"
#include "zelk/arrays/steps.h"
#include "zelk/arrays/sums.h"

namespace zelk::arrays::detail {
namespace {

std::size_t rounded_up(std::size_t n, std::size_t unit) { return (n + unit - 1) / unit * unit; }

// A matrix of doubles by rows, padded with zeros.
struct Doubles {
  Doubles(std::size_t row_count, std::size_t column_count)
      : rows(row_count), columns(column_count), x(rounded_up(rows * columns, granule)) {}
  double* row(std::size_t i) { return x.data() + i * columns; }
  const double* row(std::size_t i) const { return x.data() + i * columns; }

  std::size_t rows, columns;
  std::vector<double> x;
};

Doubles read(const Table<Source>& t, Shape f, double least, std::size_t rows, std::size_t columns) {
  Doubles r(rows, columns);
  for (std::size_t i = 0; i < t.rows && t.columns != 0; ++i) {
    Source row = t.array;
    row.data = static_cast<const char*>(row.data) + i * t.stride * size_of(row.type);
    row.size = t.columns;
    Reader reader(row, f, least);
    for_blocks(t.columns, [&](std::size_t begin, std::size_t count) {
      std::copy_n(reader.block(begin, count), count, r.row(i) + begin);
    });
  }
  return r;
}

void put_panels_of_rows(const Doubles& a, std::size_t first, std::size_t rows, double* to) {
  for (std::size_t i = 0; i < rows; ++i) {
    for (std::size_t k = 0; k < a.columns; ++k) {
      to[(i / panel * a.columns + k) * panel + i % panel] = a.row(first + i)[k];
    }
  }
}

std::vector<double> panels_of_columns(const Doubles& b) {
  std::vector<double> r(b.x.size());
  double* to = r.data();
  for (std::size_t j = 0; j < b.columns; j += panel) {
    for (std::size_t i = 0; i < b.rows; ++i, to += panel) {
      std::copy_n(b.row(i) + j, panel, to);
    }
  }
  return r;
}

// n copies of x, by copies of copies.
void fill(double x, double* to, std::size_t n) {
  *to = x;
  for (std::size_t done = 1; done < n; done *= 2) {
    std::copy_n(to, std::min(done, n - done), to + done);
  }
}

// Some rows of a, in panels: a slice, what is left to be cut, and for each slice the sums of its
// products with b. Allocated before anything is written.
struct Slices {
  Slices(std::size_t rows, std::size_t k, std::size_t columns, std::size_t count)
      : rest(rounded_up(rows * k, granule)), slice(rest.size()), sums(count, {rows, columns}) {}

  std::vector<double> rest, slice;
  std::vector<Doubles> sums;
};

// One call: its operands, and how an element of the result is computed alone.
class Product {
 public:
  Product(Environment& env, const Table<Source>& left, const Table<Source>& right, Format f,
          const Accumulation& accumulation, const Table<Target>& result)
      : inner(env),
        flushes(env.flush_operands),
        sum(accumulation),
        c(result),
        k(left.columns),
        a(read(left, Shape(f), least(env, f), rounded_up(left.rows, panel), k)),
        b(read(right, Shape(f), least(env, f), k, rounded_up(right.columns, panel))),
        pairs(room_for_pairs(sum, k)) {}

  void compute() {
    const bool once = sum.block == 0 || sum.block >= k;
    if (k != 0 && once && by_slices()) {
      return;
    }
    if (k != 0 && sum.block == 1 && !sum.pairwise && !sum.stochastic && has_vectors(sum.result)) {
      by_chains();
      return;
    }
    for (std::size_t i = 0; i < c.rows; ++i) {
      for (std::size_t j = 0; j < c.columns; ++j) {
        write_one(i, j);
      }
    }
  }

 private:
  // Slices beyond which sums are added one by one.
  static constexpr std::size_t most_slices = 8;
  // Their slices, and the sums of these, stay in the second cache.
  static constexpr std::size_t rows_at_once = 64;

  static double least(const Environment& env, Format f) {
    return env.flush_operands ? Shape(f).least_normal() : 0;
  }
  Target row(std::size_t i) const {
    Target r = c.array;
    r.data = static_cast<char*>(r.data) + i * c.stride * size_of(r.type);
    r.size = c.columns;
    return r;
  }
  std::uint64_t draw(std::size_t i, std::size_t j) const {
    return sum.stochastic ? sum.stochastic->first + (i * c.columns + j) * roundings(sum, k) : 0;
  }

  void write_one(std::size_t i, std::size_t j) {
    const auto add = [&](ExactSum& s, std::size_t begin, std::size_t count) {
      for (std::size_t n = begin; n < begin + count; ++n) {
        s.add(a.row(i)[n], b.row(n)[j]);
      }
    };
    inner.env.flush_operands = flushes;  // of running sums
    store(row(i), j, Shape(sum.result),
          accumulate(inner.env, std::ref(add), k, sum, draw(i, j), pairs));
    inner.env.flush_operands = false;
  }

  // A slice has so many digits that sums of its products with b fit a double.
  bool by_slices() {
    const Extent x = extent_of(a.x.data(), a.x.size()), y = extent_of(b.x.data(), b.x.size());
    const int digits = 53 - static_cast<int>(std::bit_width(k)) - (y.high - y.low);
    if (!x.usual || !y.usual || digits < 1 ||
        x.high - x.low > digits * static_cast<int>(most_slices)) {
      return false;
    }
    const std::vector<double> right = panels_of_columns(b);
    const int count = std::max(1, (x.high - x.low + digits - 1) / digits);
    Slices slices(std::min(rows_at_once, a.rows), k, b.columns, static_cast<std::size_t>(count));
    const std::vector<Doubles>& sums = slices.sums;
    for (std::size_t first = 0; first < c.rows; first += rows_at_once) {
      const std::size_t rows = std::min(rows_at_once, a.rows - first);
      sum_slices(first, rows, x, digits, right, slices);
      const bool on_vectors = has_vectors(sum.result) && sums.size() <= (sum.stochastic ? 1 : 2);
      for (std::size_t i = first; i < std::min(first + rows, c.rows); ++i) {
        on_vectors ? write_row(sums, first, i) : write_sums(sums, first, i);
      }
    }
    return true;
  }

  void sum_slices(std::size_t first, std::size_t rows, const Extent& x, int digits,
                  const std::vector<double>& right, Slices& s) const {
    put_panels_of_rows(a, first, rows, s.rest.data());
    int high = x.high;
    for (Doubles& sums : s.sums) {
      split(std::max(high - digits, x.low), s.rest.data(), s.slice.data(), s.rest.size());
      std::ranges::fill(sums.x, 0.0);
      multiply_add(s.slice.data(), right.data(), sums.x.data(), rows, k, b.columns);
      high -= digits;
    }
  }

  // One slice or two: the sum of these is rounded to odd, then into the result. Of sums that are 0
  // the terms have to tell the sign.
  void write_row(const std::vector<Doubles>& slices, std::size_t first, std::size_t i) {
    const RoundingPlan plan(inner.env, sum.result, sum.stochastic.has_value(), 52);
    DrawnBlock drawn;
    for_blocks(c.columns, [&](std::size_t begin, std::size_t count) {
      double x[2][block_size]{}, odd[block_size];
      for (std::size_t s = 0; s < slices.size(); ++s) {
        std::copy_n(slices[s].row(i - first) + begin, count, x[s]);
      }
      Declined none;
      ControlWord::set(rules::toward_zero);
      compute_to_odd(Operation::add, {x[0], x[1], x[1]}, false, odd, padded(count), none);
      ControlWord::set(plan.processor);
      const std::uint64_t* const draws =
          sum.stochastic ? drawn({{sum.stochastic->seed, draw(i, 0)}}, begin, count) : nullptr;
      inner.raise(write_rounded(plan, row(i), begin, count, odd, draws));
      for (std::size_t j = 0; j < count; ++j) {
        if (odd[j] == 0) {
          write_one(i, begin + j);
        }
      }
      ControlWord::set(rules::nearest);
    });
  }

  void write_sums(const std::vector<Doubles>& slices, std::size_t first, std::size_t i) {
    for (std::size_t j = 0; j < c.columns; ++j) {
      ExactSum s;
      bool any = false;
      for (const Doubles& slice : slices) {
        any = any || slice.row(i - first)[j] != 0;
        s.add_sum(slice.row(i - first)[j]);
      }
      if (!any) {
        write_one(i, j);
        continue;
      }
      std::optional<std::uint64_t> random;
      if (sum.stochastic) {
        random = Philox::draw(sum.stochastic->seed, draw(i, j));
      }
      store(row(i), j, Shape(sum.result), s.rounded(inner.env, sum.result, random));
    }
  }

  // The running sums of a row are doubles; each is a product at first, then an fma.
  void by_chains() {
    const Format g = sum.result;
    const RoundingPlan plan(inner.env, g, false, 52);
    const double flush_below = flushes ? Shape(g).least_normal() : 0;
    for (std::size_t i = 0; i < c.rows; ++i) {
      for_blocks(c.columns, [&](std::size_t begin, std::size_t count) {
        double left[block_size], right[block_size], running[block_size];
        const std::size_t n = padded(count);
        const Target to{running, n, Type::f64};
        std::fill(left + count, left + n, 1.0);
        for (std::size_t j = 0; j < k; ++j) {
          fill(a.row(i)[j], left, count);
          const double* row_of_b = b.row(j) + begin;
          if (count != n) {
            std::copy_n(row_of_b, count, right);
            // What pads sums is 1 and 0 in turn.
            std::fill(right + count, right + n, j % 2 == 0 ? 1.0 : -1.0);
            row_of_b = right;
          }
          if (j != 0 && flush_below != 0) {
            flush_doubles(flush_below, running, running, n);
          }
          const Operation op = j == 0 ? Operation::multiply : Operation::fma;
          compute_block(inner, plan, op, {left, row_of_b, running}, g, to, 0, n);
        }
        write_values(row(i), Shape(g), begin, count, running);
      });
    }
  }

  Inner inner;
  bool flushes;
  const Accumulation& sum;
  const Table<Target>& c;
  std::size_t k;
  Doubles a, b;
  std::vector<double> pairs;
};

}  // namespace

void matmul(Environment& env, const Table<Source>& a, const Table<Source>& b, Format f,
            const Accumulation& sum, const Table<Target>& c) {
  require_rounding(env);
  require_formats({{f, a.array.type}, {f, b.array.type}, {sum.result, c.array.type}});
  require_matrices(a, b, c);
  if (c.rows == 0 || c.columns == 0) {  // however huge the operands are
    return;
  }
  const ControlWord ours;
  Product(env, a, b, f, sum, c).compute();
}

}  // namespace zelk::arrays::detail
