// How code below `IEEEFloat` reports what only `IEEEFloat::error` says.
//
// Defined beside that class: a road throws and does not know the value that it computes for.
// Included by formats.h, mpfr.h and native.h, whose inline functions need it; not for users.
#ifndef ZELK_BASE_FLOAT_ERRORS_H_
#define ZELK_BASE_FLOAT_ERRORS_H_

#include <string>

#include "zelk/base/export.h"

namespace zelk::detail {

/// Throws `IEEEFloat::error` with this text.
[[noreturn]] void throw_error(const std::string& text);

/// Throws "reached limit on float precision".
[[noreturn]] void throw_precision_limit();

/// Throws "bad rounding mode: <mode>".
[[noreturn]] ZELK_EXPORT void throw_bad_mode(unsigned mode);

/// Throws "format without arithmetic: (<e>, <m>)", but for a mode that is none of the four the same
/// as `throw_bad_mode`.
[[noreturn]] ZELK_EXPORT void throw_without_arithmetic(unsigned long exp_width,
                                                       unsigned long mant_width, unsigned mode);

/// Throws so for formats that have no arithmetic: e < 2, m < 1, or a width from 2^63 on, which is a
/// negative number that was cast.
constexpr void require_arithmetic(unsigned long exp_width, unsigned long mant_width,
                                  unsigned mode = 0) {
  constexpr unsigned long negative = 1UL << 63;
  if (exp_width < 2 || exp_width >= negative || mant_width < 1 || mant_width >= negative) {
    throw_without_arithmetic(exp_width, mant_width, mode);
  }
}

}  // namespace zelk::detail

#endif  // ZELK_BASE_FLOAT_ERRORS_H_
