#include "zelk/float/kind.h"

#include "zelk/limbs/limbs.h"
#include "zelk/numbers/room.h"
#include "zelk/words/shape.h"

namespace zelk::detail {

namespace {

// The road of generic values that do not have that of one word.
Road road_of(unsigned long e, unsigned long m) {
  if (has_word_road && words::serves_in_two_words(e, m)) {
    return e == 15 && m == 112 ? Road::quad : Road::double_word;
  }
  return has_short_roads && limbs::serves({e, m}) ? Road::limbs : Road::numbers;
}

}  // namespace

Kind Kind::of_other(unsigned long exp_width, unsigned long mant_width, unsigned repr) {
  const std::uint32_t widths = widths_code(exp_width, mant_width);
  if (repr < 2) {
    const Kind best = repr == 0 ? packed32() : packed64();
    const bool huge = (exp_width | mant_width) >> 32 != 0;
    return (best.bits & code_mask) == widths
               ? best
               : Kind(std::uint32_t{huge} << huge_place | (best.bits & ~code_mask));
  }
  const bool wide = has_patterns(exp_width, mant_width) && exp_width + mant_width >= 128;
  const bool huge = (exp_width | mant_width) >> 32 != 0;
  return Kind(std::uint32_t{wide} << 31 | std::uint32_t{huge} << huge_place |
              with(road_of(exp_width, mant_width)) | widths);
}

}  // namespace zelk::detail
