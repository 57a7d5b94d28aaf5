// Values as text: decimal, hexadecimal, the terms of SMT-LIB, patterns; as strings or into a range
// of characters.
//
// Every text but the rounded ones reads back as the value it was made of, in formats with e > 1 and
// m > 0. Infinities and NaNs are "inf", "-inf" and "nan" but for `to_smtlib`; a zero keeps its
// sign. Formats without an exponent, which have no values, are written as zeros. A value's stored
// mode plays no part.
#ifndef ZELK_FLOAT_TEXT_H_
#define ZELK_FLOAT_TEXT_H_

#include <charconv>
#include <string>

#include "zelk/base/export.h"
#include "zelk/float/environment.h"
#include "zelk/float/ieee_float.h"

namespace zelk {

// Everything below throws IEEEFloat::error "reached limit on float precision" for a text of more
// than `max_bits` characters, for a format whose patterns pass that limit, and for digits of a
// number that passes it, as `to_number` does: before anything is built. A rounding that is
// none of the six is "bad rounding mode: <n>", whatever the value.

/// The fewest digits D for which D * 10^p, read to nearest-even in x's format, is x; of those the
/// closest to x, of two as close the even one. Written plain, "0.001", or with an exponent,
/// "1e-05", whichever is shorter, plain when both are as long; a plain integer has the digits of
/// the value, where D has fewer: "65504". The text that `std::to_chars` gives for the numbers of
/// binary32 and binary64.
ZELK_EXPORT std::string to_shortest(const IEEEFloat& x);

/// All digits of x, in the shorter of the two spellings.
ZELK_EXPORT std::string to_exact(const IEEEFloat& x);

/// \{
/// x rounded to `digits` significant digits, "1.50e+00" being three, or to `places` digits after
/// the point, "1.50" being two. Rounded to odd, it is the neighbour whose last written digit is
/// odd. A value that rounds to 0 keeps its sign, "-0.00".
/// \throws IEEEFloat::error "bad number of digits: <n>" for less than one digit, less than no
///   place.
ZELK_EXPORT std::string to_scientific(const IEEEFloat& x, long digits,
                                      Rounding rounding = Rounding::nearest_even);
ZELK_EXPORT std::string to_fixed(const IEEEFloat& x, long places,
                                 Rounding rounding = Rounding::nearest_even);
/// \}

/// x in hexadecimal digits, exactly and with no more than that takes, after a leading 1:
/// "0x1.8p-3"; subnormals too. Zero is "0x0p+0".
ZELK_EXPORT std::string to_hex(const IEEEFloat& x);
/// The same rounded, and padded with zeros.
/// \param x the value
/// \param digits their number, the leading one included: "0x1.80p-3" has three; at least 1
/// \param rounding the direction
/// \throws IEEEFloat::error "bad number of digits: <n>" for less than one.
ZELK_EXPORT std::string to_hex(const IEEEFloat& x, long digits,
                               Rounding rounding = Rounding::nearest_even);

/// x as SMT-LIB writes it, the widths in its count: "(fp #b0 #b01111 #b1000000000)", "(_ NaN 5
/// 11)", "(_ +oo 5 11)", "(_ -zero 5 11)".
ZELK_EXPORT std::string to_smtlib(const IEEEFloat& x);

/// The pattern, "0x3C00", with as many digits as patterns of the format need.
ZELK_EXPORT std::string to_bits_text(const IEEEFloat& x);

/// Writes what `to_shortest` gives, without a 0 at its end; `ptr` is the end of the text. Where
/// there is no room for it, `ec` is `std::errc::value_too_large`, `ptr` is last, and what the room
/// holds is not specified. Nothing is allocated for formats of up to 128 bits with e <= 15, here
/// and below.
/// \param first the beginning of the room, which may be empty, and null
/// \param last its end
/// \param x the value
ZELK_EXPORT std::to_chars_result to_chars(char* first, char* last, const IEEEFloat& x);

/// The same for x rounded to a precision. Hexadecimal is spelled as by `to_hex`.
/// \param first the beginning of the room, which may be empty, and null
/// \param last its end
/// \param x the value
/// \param form `scientific`, `fixed` or `hex`; or `general`, the form that %g chooses
/// \param precision as printf counts it: digits after the point; for `general` significant ones
///   without the zeros at their end, 0 being 1. A negative one is 6, for `hex` all that there are
/// \param rounding the direction
ZELK_EXPORT std::to_chars_result to_chars(char* first, char* last, const IEEEFloat& x,
                                          std::chars_format form, int precision,
                                          Rounding rounding = Rounding::nearest_even);

/// Reads the longest prefix of a text that is a number as `Environment::from_text` takes
/// them, but for fractions and the terms of SMT-LIB, into x's format: x becomes the number rounded
/// once by the environment, with its flags, and keeps its format, mode and representation. `ptr`
/// is the end of the prefix: "1e" reads 1 and leaves "e", "0x" reads 0, "infinit" reads inf. White
/// space is not skipped. Where there is no such prefix, `ec` is `std::errc::invalid_argument` and
/// `ptr` is first; x and the flags are what they were. Overflow and underflow are told by x and the
/// flags alone. Nothing is allocated for up to 800 characters and formats of up to 128 bits with
/// e <= 15.
/// \param first the beginning of the text
/// \param last its end
/// \param x takes the value, in its own format
/// \param env what it is rounded by, and what takes its flags
/// \throws IEEEFloat::error what every member of an environment throws.
ZELK_EXPORT std::from_chars_result from_chars(const char* first, const char* last, IEEEFloat& x,
                                              Environment& env);

}  // namespace zelk

#endif  // ZELK_FLOAT_TEXT_H_
