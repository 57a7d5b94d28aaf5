// Elements one by one. Every element, pattern or number, is a double exactly, as e <= 11 and
// m <= 52; a NaN is any NaN.
#ifndef ZELK_ARRAYS_ELEMENT_H_
#define ZELK_ARRAYS_ELEMENT_H_

#include "zelk/arrays/shape.h"

namespace zelk::arrays::detail {

/// A pattern of f as a double; what is above it is ignored.
double decoded(std::uint64_t pattern, Shape f);
/// A double that is a value of f as its pattern; a NaN as the canonical one.
std::uint64_t encoded(double x, Shape f);

/// Element i; of patterns, in format f.
double load(const Source& a, std::size_t i, Shape f);
/// a[i] := x, a value of f if the elements are patterns; else of theirs.
void store(const Target& a, std::size_t i, Shape f, double x);

/// A value of any format within binary64, and back.
double to_double(const IEEEFloat& x);
IEEEFloat from_double(double x);

/// x, or the zero of its sign where that is subnormal in f.
inline double flushed(double x, Shape f) {
  return x < f.least_normal() && x > -f.least_normal() ? x * 0 : x;
}

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_ELEMENT_H_
