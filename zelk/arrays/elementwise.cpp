// Calls that compute each element on its own: block by block on vectors, in formats where that is
// right, else one by one.
#include <utility>

#include "zelk/arrays/blocks.h"
#include "zelk/arrays/checks.h"
#include "zelk/arrays/control_word.h"
#include "zelk/arrays/element.h"
#include "zelk/arrays/single.h"
#include "zelk/arrays/steps.h"

namespace zelk::arrays::detail {
namespace {

// The format that flushing of numbers that are rounded goes by.
Format own_format(Type t) { return t == Type::f32 ? binary32 : binary64; }

// x, of format f if it has patterns, rounded into g.
void round_each(Environment& env, const Source& x, Format f, const Target& out, Format g,
                const Draws& draws) {
  const ControlWord ours;
  const double least = env.flush_operands ? Shape(f).least_normal() : 0;
  Inner inner(env);
  if (x.type == Type::f32 && out.type == Type::f32 && !draws && least == 0 &&
      RoundingPlan::serves(g, 23)) {
    const RoundingPlan plan(env, g, false, 23);
    const std::size_t whole = out.size - out.size % granule;
    ControlWord::set(plan.processor);
    inner.raise(round_floats(plan, static_cast<const float*>(x.data), static_cast<float*>(out.data),
                             whole));
    for (std::size_t i = whole; i < out.size; ++i) {
      store(out, i, Shape(g), round_one(inner.env, load(x, i, Shape(f)), g));
    }
    return;
  }
  Reader reader(x, Shape(f), least);
  const RoundingPlan plan(env, g, draws.has_value(), 52);
  DrawnBlock drawn;
  ControlWord::set(plan.processor);
  for_blocks(out.size, [&](std::size_t begin, std::size_t count) {
    const double* const a = reader.block(begin, count);
    if (RoundingPlan::serves(g, 52)) {
      inner.raise(write_rounded(plan, out, begin, count, a, drawn(draws, begin, count)));
      return;
    }
    for (std::size_t i = 0; i < count; ++i) {
      store(
          out, begin + i, Shape(g),
          draws ? round_one(inner.env, a[i], g, *draws, begin + i) : round_one(inner.env, a[i], g));
    }
  });
}

bool selects(Operation op) { return op == Operation::minimum || op == Operation::maximum; }

void select_block(Operation op, const Block& x, Format f, const Target& out, std::size_t begin,
                  std::size_t count) {
  double selected[block_size];
  select_doubles(op, x[0], x[1], selected, padded(count));
  if (is_number(out.type)) {
    write(out, begin, count, selected);
  } else {
    const RoundingPlan plan({}, f, false, 52);
    write_rounded(plan, out, begin, count, selected, nullptr);
  }
}

void compute_each(Environment& env, Operation op, const Source& x, const Source& y, const Source& z,
                  int operands, Format f, const Target& out) {
  const ControlWord ours;
  const Shape s(f);
  const double least = env.flush_operands ? s.least_normal() : 0;
  Inner inner(env);
  Reader a(x, s, least), b(y, s, least), c(z, s, least);
  const RoundingPlan plan(env, f, false, 52);
  for_blocks(out.size, [&](std::size_t begin, std::size_t count) {
    const double* const first = a.block(begin, count);
    const double* const second = operands > 1 ? b.block(begin, count) : first;
    const Block block{first, second, operands > 2 ? c.block(begin, count) : first};
    if (selects(op) && (is_number(out.type) || RoundingPlan::serves(f, 52))) {
      select_block(op, block, f, out, begin, count);
    } else if (!selects(op) && has_vectors(f)) {
      if (op != Operation::sqrt || !compute_roots(inner, plan, first, out, begin, count)) {
        compute_block(inner, plan, op, block, f, out, begin, count);
      }
    } else {
      for (std::size_t i = 0; i < count; ++i) {
        store(out, begin + i, s,
              compute_one(inner.env, op, {block[0][i], block[1][i], block[2][i]}, f));
      }
    }
  });
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
  if (out.type == Type::f64) {  // where they belong at once
    const std::size_t whole = out.size - out.size % granule;
    decode_to_doubles(x.data, x.type, Shape(f), static_cast<double*>(out.data), whole);
    for (std::size_t i = whole; i < out.size; ++i) {
      store(out, i, Shape(f), load(x, i, Shape(f)));
    }
    return;
  }
  Reader reader(x, Shape(f), 0);
  for_blocks(out.size, [&](std::size_t begin, std::size_t count) {
    write(out, begin, count, reader.block(begin, count));
  });
}

void compute(Environment& env, Operation op, const Source& x, Format f, const Target& out) {
  require_rounding(env);
  require_formats({{f, out.type}});
  require_arrays({x}, out);
  compute_each(env, op, x, x, x, 1, f, out);
}

void compute(Environment& env, Operation op, const Source& x, const Source& y, Format f,
             const Target& out) {
  require_rounding(env);
  require_formats({{f, out.type}});
  require_arrays({x, y}, out);
  compute_each(env, op, x, y, y, 2, f, out);
}

void compute(Environment& env, Operation op, const Source& x, const Source& y, const Source& z,
             Format f, const Target& out) {
  require_rounding(env);
  require_formats({{f, out.type}});
  require_arrays({x, y, z}, out);
  compute_each(env, op, x, y, z, 3, f, out);
}

}  // namespace zelk::arrays::detail
