// Exact sums of products on vectors.
#ifndef ZELK_ARRAYS_SIMD_SUMS_H_
#define ZELK_ARRAYS_SIMD_SUMS_H_

#include "zelk/arrays/simd/kernels.h"

namespace zelk::arrays::detail {

/// Doubles whose exact sum is that of the products of a block.
struct Parts {
  static constexpr std::size_t most = 64;
  std::size_t size = 0;
  double part[most];
};

/// The sum of n <= block_size products, rounding to nearest. Returns false where a product is not
/// exact, where one is far from 1, or where all are 0.
bool sum_products(const double* x, const double* y, std::size_t n, Parts& parts);
/// The same of patterns of a format whose products have few digits, in all; never false but for
/// infinities, NaNs and zeros.
bool sum_narrow_products(const double* x, const double* y, std::size_t n, Shape f, Parts& parts);
/// Whether a format's products have few digits.
bool has_narrow_products(Shape f);

/// Bounds of numbers that are not 0: each is a multiple of 2^low and less than 2^high in magnitude.
/// Of zeros alone low = high = 0; `usual` are numbers all of which are finite and not far from 1.
struct Extent {
  int low, high;
  bool usual;
};
Extent extent_of(const double* x, std::size_t n);

/// x := x - q, where q is x rounded to multiples of a power of two, to nearest.
void split(int place, double* x, double* q, std::size_t n);

/// The rows of a left matrix and the columns of a right one are in panels of so many: for each k,
/// an element of each.
inline constexpr std::size_t panel = 8;
/// c += a * b, a and b in panels, c by rows.
void multiply_add(const double* a, const double* b, double* c, std::size_t rows, std::size_t k,
                  std::size_t columns);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_SIMD_SUMS_H_
