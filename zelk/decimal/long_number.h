// Decimal and hexadecimal numbers of any length as binary significands, in limbs.
#ifndef ZELK_DECIMAL_LONG_NUMBER_H_
#define ZELK_DECIMAL_LONG_NUMBER_H_

#include <optional>

#include "zelk/decimal/room.h"
#include "zelk/decimal/scan.h"
#include "zelk/limbs/integers.h"
#include "zelk/rules/rounding.h"

namespace zelk::decimal {

using limbs::Limb;

/// Limbs to compute in: enough on the stack for texts of 800 characters and exponents of 15 bits.
using Workspace = std::optional<Room<Limb, 1024>>;

/// The number limbs * 2^exponent, its highest limb not 0.
struct Significand {
  const Limb* limbs;
  long size;
  std::int64_t exponent;
};

/// What rounds to the format f as the digits of a literal do, which are not all 0: the number
/// itself, or another one of at least m + 3 bits between the same values and middles. The cost
/// grows with the digits, and with the logarithm of the exponent.
/// Where f has more than 62 bits of exponent, the literal's exponent is within +-2^60.
/// \throws IEEEFloat::error "reached limit on float precision" for a number so close to a middle of
///   two values that digits and powers of five decide that pass `max_bits`; std::bad_alloc.
Significand significand_of(const Literal& literal, rules::Widths f, Workspace& space);

// ---- Digits ----

/// Decimal digits that are read one word after the other.
class DigitReader {
 public:
  explicit DigitReader(const Literal& x);

  /// The next n digits, at most 19, as an integer. There are that many.
  std::uint64_t take(long n);
  /// Whether any of those that are left is not 0.
  bool any_left() const;

 private:
  const char* p;
  const char* last;
  const char* rest;  // behind the point, if that is still ahead
  const char* rest_last;
};

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_LONG_NUMBER_H_
