// Sums of products: the order of their roundings.
#ifndef ZELK_ARRAYS_SUMS_H_
#define ZELK_ARRAYS_SUMS_H_

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

#include "zelk/arrays/exact_sum.h"

namespace zelk::arrays::detail {

/// The roundings in a sum of n products.
std::size_t roundings(const Accumulation& sum, std::size_t n);

/// Adds the products [begin, begin + count) to a sum.
using AddProducts = std::function<void(ExactSum&, std::size_t begin, std::size_t count)>;

/// Room for the sums that are added pairwise.
std::vector<double> room_for_pairs(const Accumulation& sum, std::size_t n);

/// The sum of n products, a value of sum.result, drawing from `draw` on if at all; in the room for
/// n. Allocates nothing.
double accumulate(Environment& env, const AddProducts& add, std::size_t n, const Accumulation& sum,
                  std::uint64_t draw, std::span<double> apart);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_SUMS_H_
