// Sums of products: the order of their roundings.
#ifndef ZELK_ARRAYS_SUMS_H_
#define ZELK_ARRAYS_SUMS_H_

#include <cstddef>

#include "zelk/arrays/shape.h"

namespace zelk::arrays::detail {

/// Elements from `first` on, `step` apart, of an array whose patterns have format f.
struct Row {
  Source array;
  std::size_t first, step;
  Shape f;
  bool flush;

  double operator[](std::size_t k) const;
};

/// The roundings in a sum of n products.
std::size_t roundings(const Accumulation& sum, std::size_t n);

/// The sum of n products, a value of sum.result, drawing from `draw` on if at all.
double accumulate(Environment& env, const Row& x, const Row& y, std::size_t n,
                  const Accumulation& sum, std::uint64_t draw);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_SUMS_H_
