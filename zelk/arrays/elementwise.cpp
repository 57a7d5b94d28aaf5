// Calls that compute each element on its own.
#include <utility>

#include "zelk/arrays/checks.h"
#include "zelk/arrays/control_word.h"
#include "zelk/arrays/element.h"
#include "zelk/arrays/single.h"

namespace zelk::arrays::detail {
namespace {

// The format that flushing of numbers that are rounded goes by.
Format own_format(Type t) { return t == Type::f32 ? binary32 : binary64; }

void round_each(Environment& env, const Source& x, Format f, const Target& out, Format g,
                const Draws& draws) {
  const ControlWord ours;
  const bool flush = std::exchange(env.flush_operands, false);
  for (std::size_t i = 0; i < out.size; ++i) {
    double a = load(x, i, Shape(f));
    a = flush ? flushed(a, Shape(f)) : a;
    store(out, i, Shape(g), draws ? round_one(env, a, g, *draws, i) : round_one(env, a, g));
  }
  env.flush_operands = flush;
}

void compute_each(Environment& env, Operation op, const Source* const (&x)[3], Format f,
                  const Target& out) {
  const ControlWord ours;
  const bool flush = std::exchange(env.flush_operands, false);
  for (std::size_t i = 0; i < out.size; ++i) {
    double a[3]{};
    for (int k = 0; k < 3 && x[k] != nullptr; ++k) {
      a[k] = load(*x[k], i, Shape(f));
      a[k] = flush ? flushed(a[k], Shape(f)) : a[k];
    }
    store(out, i, Shape(f), compute_one(env, op, a, f));
  }
  env.flush_operands = flush;
}

}  // namespace

void round(Environment& env, const Source& x, Format f, const Target& out, const Draws& draws) {
  require_rounding(env);
  require_formats({{f, out.type}});
  require_arrays({x}, out);
  round_each(env, x, own_format(x.type), out, f, draws);
}

void convert(Environment& env, const Source& x, Format f, const Target& out, Format g,
             const Draws& draws) {
  require_rounding(env);
  require_formats({{f, x.type}, {g, out.type}});
  require_arrays({x}, out);
  round_each(env, x, f, out, g, draws);
}

void decode(const Source& x, Format f, const Target& out) {
  require_formats({{f, x.type}, {f, out.type}});
  require_arrays({x}, out);
  const ControlWord ours;
  for (std::size_t i = 0; i < out.size; ++i) {
    store(out, i, Shape(f), load(x, i, Shape(f)));
  }
}

void compute(Environment& env, Operation op, const Source& x, Format f, const Target& out) {
  require_rounding(env);
  require_formats({{f, out.type}});
  require_arrays({x}, out);
  compute_each(env, op, {&x, nullptr, nullptr}, f, out);
}

void compute(Environment& env, Operation op, const Source& x, const Source& y, Format f,
             const Target& out) {
  require_rounding(env);
  require_formats({{f, out.type}});
  require_arrays({x, y}, out);
  compute_each(env, op, {&x, &y, nullptr}, f, out);
}

void compute(Environment& env, Operation op, const Source& x, const Source& y, const Source& z,
             Format f, const Target& out) {
  require_rounding(env);
  require_formats({{f, out.type}});
  require_arrays({x, y, z}, out);
  compute_each(env, op, {&x, &y, &z}, f, out);
}

}  // namespace zelk::arrays::detail
