#include "zelk/arrays/single.h"

#include <cmath>

#include "zelk/arrays/element.h"

namespace zelk::arrays::detail {

double round_one(Environment& env, double x, Format f) {
  return to_double(env.convert(from_double(x), f));
}

double round_one(Environment& env, double x, Format f, const Stochastic& draws, std::uint64_t n) {
  if (!std::isfinite(x)) {
    return x;
  }
  return round_stochastic(env, wide(x), Shape(f), Philox::draw(draws.seed, draws.first + n));
}

double compute_one(Environment& env, Operation op, const double (&x)[3], Format f) {
  const IEEEFloat a = from_double(x[0]);
  switch (op) {
    case Operation::add:
      return to_double(env.add(a, from_double(x[1]), f));
    case Operation::subtract:
      return to_double(env.subtract(a, from_double(x[1]), f));
    case Operation::multiply:
      return to_double(env.multiply(a, from_double(x[1]), f));
    case Operation::divide:
      return to_double(env.divide(a, from_double(x[1]), f));
    case Operation::minimum:
      return to_double(env.minimum(a, from_double(x[1])));
    case Operation::maximum:
      return to_double(env.maximum(a, from_double(x[1])));
    case Operation::sqrt:
      return to_double(env.sqrt(a, f));
    default:
      return to_double(env.fma(a, from_double(x[1]), from_double(x[2]), f));
  }
}

}  // namespace zelk::arrays::detail
