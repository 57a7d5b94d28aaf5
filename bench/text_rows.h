// The rows of numbers that come from text and rationals, and leave as them.
#ifndef ZELK_BENCH_TEXT_ROWS_H_
#define ZELK_BENCH_TEXT_ROWS_H_

#include "bench/rows.h"

namespace zelk_bench {

/// The same operands with `a` at random among all finite patterns: far from one, mostly.
Operands anywhere(Operands o);

/// The shortest texts of values, read and written: `from_text/5.10/zelk`. Beside them is what the
/// standard libraries have for `float` and `double`, which narrower formats take too, or MPFR.
void text_rows(const Operands& o);

/// Fractions whose parts have so many bits: `from_ratio/5.10_31_bits/zelk`.
void ratio_rows(const Operands& o, unsigned bits);

}  // namespace zelk_bench

#endif  // ZELK_BENCH_TEXT_ROWS_H_
