// Values as text.
#ifndef ZELK_FLOAT_TEXT_H_
#define ZELK_FLOAT_TEXT_H_

#include <charconv>

#include "zelk/base/export.h"
#include "zelk/float/environment.h"

namespace zelk {

/// Reads the longest prefix of [first, last) that is a number as `Environment::from_text` takes
/// them, but for fractions and the terms of SMT-LIB, into x's format: x becomes the number rounded
/// once by the environment, with its flags, and keeps its format, mode and representation. `ptr`
/// is the end of the prefix: "1e" reads 1 and leaves "e", "0x" reads 0, "infinit" reads inf. White
/// space is not skipped. Where there is no such prefix, `ec` is `std::errc::invalid_argument` and
/// `ptr` is first; x and the flags are what they were. Overflow and underflow are told by x and the
/// flags alone. Nothing is allocated for up to 800 characters and formats of up to 128 bits with
/// e <= 15.
/// \throws IEEEFloat::error what every member of an environment throws.
ZELK_EXPORT std::from_chars_result from_chars(const char* first, const char* last, IEEEFloat& x,
                                              Environment& env);

}  // namespace zelk

#endif  // ZELK_FLOAT_TEXT_H_
