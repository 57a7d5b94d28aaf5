// How code below `IEEEFloat` reports what only `IEEEFloat::error` says.
//
// Defined beside that class: a road throws and does not know the value that it computes for.
#ifndef ZELK_BASE_FLOAT_ERRORS_H_
#define ZELK_BASE_FLOAT_ERRORS_H_

#include <string>

namespace zelk::detail {

/// Throws `IEEEFloat::error` with this text.
[[noreturn]] void throw_error(const std::string& text);

/// Throws "reached limit on float precision".
[[noreturn]] void throw_precision_limit();

/// Throws "bad rounding mode: <mode>".
[[noreturn]] void throw_bad_mode(unsigned mode);

}  // namespace zelk::detail

#endif  // ZELK_BASE_FLOAT_ERRORS_H_
