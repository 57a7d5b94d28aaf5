// Binary numbers as decimal digits: the fewest that tell a value apart, all of them, or those above
// a place.
//
// This is the exact way, on integers of any size.
#ifndef ZELK_DECIMAL_DIGITS_H_
#define ZELK_DECIMAL_DIGITS_H_

#include <cstdint>

#include "zelk/decimal/scaling.h"
#include "zelk/rules/rounding.h"

namespace zelk::decimal {

/// A finite magnitude other than 0, significand * 2^exponent, as a value of a format. What lies
/// between the midpoints to its neighbours reads back as it, the midpoints too if the significand
/// is even.
struct Binary {
  const Limb* limbs;  // of the significand, the highest not 0
  long size;
  std::int64_t exponent;
  bool closer_below;  // the next value below is half as far as the one above

  bool is_even() const { return (limbs[0] & 1) == 0; }
  /// floor(log2) of the value.
  std::int64_t top() const { return exponent + limbs::bit_size(limbs, size) - 1; }
};

/// A number D * 10^exponent: D in ASCII without zeros before it, none for 0, and what lies beyond.
struct Decimal {
  char* digits;
  long count;
  std::int64_t exponent;
  Rest rest = Rest::none;

  /// The digits are cut to n at most, what goes counts as rest.
  void cut(long n);
  /// The digits are rounded at their last place; nothing is left. May need one digit more.
  void round(rules::Direction d, bool negative);
  /// The zeros at the end of D go to the exponent.
  void strip();
};

/// Where digits are: those of the formats of up to 128 bits with e <= 15 need no heap.
using DigitRoom = Room<char, 11600>;

/// The multiples of 10^p in x, p <= 0 or not, into a room made by `digits_room`; what is left of x
/// is the rest.
Decimal digits_above(const Binary& x, std::int64_t p, char* room);
/// The characters that takes, and one for a carry.
long digits_room(const Binary& x, std::int64_t p);

/// The p of `digits_above` that gives n digits of x or one or two more, all of x if that has fewer.
std::int64_t place_of_digits(const Binary& x, long n);
/// That which gives the whole of x.
inline std::int64_t last_place(const Binary& x) { return x.exponent < 0 ? x.exponent : 0; }

/// The fewest digits of which D * 10^exponent reads back as x; of those the closest to x, of two as
/// close the even one. Needs room for `shortest_room(x)`.
Decimal shortest(const Binary& x, char* room);
long shortest_room(const Binary& x);

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_DIGITS_H_
