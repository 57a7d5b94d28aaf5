// The rows of environments.
#ifndef ZELK_BENCH_ENVIRONMENT_ROWS_H_
#define ZELK_BENCH_ENVIRONMENT_ROWS_H_

#include "bench/rows.h"

namespace zelk_bench {

/// The operations of an environment in one format, beside operators and MPFR: `env_add/5.10/zelk`.
void environment_rows(const Operands& o);

/// Conversions into format g, beside `set_format`: `env_convert/5.10-8.7/zelk`.
void convert_rows(const Operands& o, Format g);

/// Products of narrow operands added up in a wider format: one by one, and 1,000 at once.
void dot_rows(const Operands& narrow, const Operands& wide);

}  // namespace zelk_bench

#endif  // ZELK_BENCH_ENVIRONMENT_ROWS_H_
