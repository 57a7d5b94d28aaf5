// Numbers as they are written: integers, fractions, decimals with an exponent, hexadecimal floats.
//
// Included by the sources that read text.
#ifndef ZELK_NUMBERS_NUMBER_TEXT_H_
#define ZELK_NUMBERS_NUMBER_TEXT_H_

#include <optional>
#include <string_view>

#include "zelk/numbers/qnumber.h"

namespace zelk::detail {

/// The number +-magnitude * 10^ten * 2^two that a text stands for. The exponents are integers of
/// any size: what they make of the magnitude is not built.
struct NumberText {
  bool negative = false;
  QNumber magnitude;
  QNumber ten;
  QNumber two;
};

/// \throws Exception "invalid number at position <p>: <text>", p being where the first character
///   stands that does not fit, from 0; "number too large" for more digits than `max_bits` holds,
///   and where a part of the number is sure to have more than `limit` bits.
NumberText read_number(std::string_view text, std::optional<unsigned long> limit = {});

/// base^exponent for a base of 2, 5 or 10.
/// \throws Exception "number too large".
QNumber power(unsigned long base, const QNumber& exponent);

}  // namespace zelk::detail

#endif  // ZELK_NUMBERS_NUMBER_TEXT_H_
