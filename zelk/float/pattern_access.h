// The words of a value's pattern, for the parts of the library that read and make values.
//
// Included by native.h and mpfr.h, whose templates and inline functions need it; not for users.
#ifndef ZELK_FLOAT_PATTERN_ACCESS_H_
#define ZELK_FLOAT_PATTERN_ACCESS_H_

#include <cstdint>
#include <span>

#include "zelk/float/ieee_float.h"

namespace zelk::detail {

struct PatternAccess {
  /// The words of the pattern, the lowest first, without the zeros on top: however many the value
  /// has room for. One at least.
  static std::span<const std::uint64_t> words(const IEEEFloat& x) {
    auto all = x.all_words();
    while (all.size() > 1 && all.back() == 0) {
      all = all.first(all.size() - 1);
    }
    return all;
  }
  /// The value of a format of at most 128 bits with this pattern.
  static IEEEFloat make(IEEEFloat::format f, IEEEFloat::rounding_mode rm, std::uint64_t low,
                        std::uint64_t high) {
    IEEEFloat x(f, rm);
    x.pattern.words[0] = low;
    x.pattern.words[1] = high;
    return x;
  }
};

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_PATTERN_ACCESS_H_
