// The throwing ends of float code, and the tests of sizes that keep it within `max_bits`.
//
// Called by every private header of this folder and by ieee_float.cpp.
#ifndef ZELK_FLOAT_ERRORS_H_
#define ZELK_FLOAT_ERRORS_H_

#include <string>

#include "zelk/float/ieee_float.h"

namespace zelk {
namespace {

[[noreturn]] inline void throw_precision_limit() {
  throw IEEEFloat::error("reached limit on float precision");
}

/// Throws `text` followed by the value.
template <typename T>
[[noreturn]] void throw_with(const char* text, const T& value) {
  Exception e(text);
  e.msg_stream << value;
  throw IEEEFloat::error(e.get_msg());
}

/// Throws for a number of more than `max_bits` bits, before number code would.
inline void require_bits(unsigned long bits) {
  if (bits > max_bits) {
    throw_precision_limit();
  }
}

/// The index e + m of the sign bit. Every operation that needs the width of a pattern starts
/// here, so that past this call 1 + e + m is below `max_bits`: sums of widths cannot wrap, and the
/// sum of a pattern and one is within the limit.
inline unsigned long sign_bit(IEEEFloat::format f) {
  if (f.exp_width >= max_bits - 1 || f.mant_width >= max_bits - 1 - f.exp_width) {
    throw_precision_limit();
  }
  return f.exp_width + f.mant_width;
}

/// Throws unless exponents of f, which reach e + 4 bits in sums and differences, and numbers of
/// `significand_bits` bits are within the limit.
inline void require_room(IEEEFloat::format f, unsigned long significand_bits) {
  require_bits(f.exp_width + 4);
  require_bits(significand_bits);
}

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_ERRORS_H_
