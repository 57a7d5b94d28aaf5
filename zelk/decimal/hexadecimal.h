// Binary numbers as hexadecimal digits after a leading 1.
#ifndef ZELK_DECIMAL_HEXADECIMAL_H_
#define ZELK_DECIMAL_HEXADECIMAL_H_

#include "zelk/decimal/digits.h"
#include "zelk/rules/rounding.h"

namespace zelk::decimal {

/// The digits after the point of 1.ddd * 2^exponent, `exponent` counted from the highest bit.
struct Hexadecimal {
  long count;
  bool carried;  // rounded to the next power of two: the exponent is one more
};

/// The places that all of x takes.
inline long hexadecimal_places(const Binary& x) {
  return (limbs::bit_size(x.limbs, x.size) + 2) / 4;
}

/// Writes x rounded to so many places, `hexadecimal_places` at most, in lower case.
/// \throws std::bad_alloc
Hexadecimal hexadecimal(const Binary& x, long places, rules::Direction d, bool negative, char* out);

/// Writes the low 4 * count bits of an integer as digits.
void write_hexadecimal(const Limb* a, long count, const char* letters, char* out);

inline constexpr const char* small_letters = "0123456789abcdef";
inline constexpr const char* capital_letters = "0123456789ABCDEF";

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_HEXADECIMAL_H_
