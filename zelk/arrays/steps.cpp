#include "zelk/arrays/steps.h"

#include "zelk/arrays/control_word.h"
#include "zelk/arrays/element.h"
#include "zelk/arrays/single.h"

namespace zelk::arrays::detail {

void compute_block(Inner& inner, const RoundingPlan& plan, Operation op, const Block& x, Format f,
                   const Target& out, std::size_t begin, std::size_t count) {
  double odd[block_size], single[block_size];
  Declined declined;
  ControlWord::set(rules::toward_zero);
  const bool toward_negative = inner.env.rounding == Rounding::toward_negative;
  inner.raise(compute_to_odd(op, x, toward_negative, odd, padded(count), declined));
  for (std::size_t k = 0; k < declined.size; ++k) {
    const std::size_t i = declined.place[k];
    single[k] = compute_one(inner.env, op, {x[0][i], x[1][i], x[2][i]}, f);
  }
  ControlWord::set(plan.processor);
  inner.raise(write_rounded(plan, out, begin, count, odd, nullptr));
  for (std::size_t k = 0; k < declined.size; ++k) {
    store(out, begin + declined.place[k], Shape(f), single[k]);
  }
}

bool compute_roots(Inner& inner, const RoundingPlan& plan, const double* x, const Target& out,
                   std::size_t begin, std::size_t count) {
  if (out.type != Type::f64 || plan.m >= 24 || count % granule != 0 || !have_51_digits(x, count)) {
    return false;
  }
  ControlWord::set(plan.processor);
  inner.raise(round_roots(plan, x, static_cast<double*>(out.data) + begin, count));
  return true;
}

}  // namespace zelk::arrays::detail
