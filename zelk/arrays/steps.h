// The steps of operations on blocks.
#ifndef ZELK_ARRAYS_STEPS_H_
#define ZELK_ARRAYS_STEPS_H_

#include <algorithm>

#include "zelk/arrays/blocks.h"

namespace zelk::arrays::detail {

/// An environment of the call's own: operands come to it flushed. What it raises is passed on.
class Inner {
 public:
  explicit Inner(Environment& environment) : env(environment), outer(environment) {
    env.flush_operands = false;
  }
  ~Inner() { outer.flags = env.flags; }
  Inner(const Inner&) = delete;
  Inner& operator=(const Inner&) = delete;
  void raise(unsigned flags) { env.flags = static_cast<unsigned char>(env.flags | flags); }

  Environment env;

 private:
  Environment& outer;
};

/// Calls on_block(begin, count) for each block of an array.
template <class OnBlock>
void for_blocks(std::size_t size, OnBlock on_block) {
  for (std::size_t begin = 0; begin < size; begin += block_size) {
    on_block(begin, std::min(block_size, size - begin));
  }
}

/// The draws of a block; odd numbers come second in their pairs.
class DrawnBlock {
 public:
  const std::uint64_t* operator()(const Draws& draws, std::size_t begin, std::size_t count) {
    if (!draws) {
      return nullptr;
    }
    const std::uint64_t first = draws->first + begin;
    draw(draws->seed, first - first % 2, buffer, padded(count) + granule);
    return buffer + first % 2;
  }

 private:
  std::uint64_t buffer[block_size + granule];
};

/// Whether results can be rounded to odd first: exponents are then within doubles', and so are two
/// digits more.
inline bool has_vectors(Format f) { return f.exp_width <= 10 && f.mant_width <= 50; }

/// The operands of a call in blocks; those that there are not are others again.
using Block = const double* [3];

/// An operation but minima and maxima, in a format that has vectors. Elements that are declined are
/// computed while the operands are there, and written last: the block may be one of these. The
/// control word is then any.
void compute_block(Inner& inner, const RoundingPlan& plan, Operation op, const Block& x, Format f,
                   const Target& out, std::size_t begin, std::size_t count);
/// Roots in such a format in one step, which takes three quarters of the time; whether that can be:
/// of whole granules of doubles that have few digits. If not, nothing is done.
bool compute_roots(Inner& inner, const RoundingPlan& plan, const double* x, const Target& out,
                   std::size_t begin, std::size_t count);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_STEPS_H_
