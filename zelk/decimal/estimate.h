// Decimal numbers as binary significands of one and of two words, by powers of five that are cut
// off, with a bound of the error (D. Lemire, Number parsing at a gigabyte per second, Software:
// Practice and Experience 51, 2021).
#ifndef ZELK_DECIMAL_ESTIMATE_H_
#define ZELK_DECIMAL_ESTIMATE_H_

#include <bit>
#include <cstdint>

#include "zelk/decimal/powers.h"

namespace zelk::decimal {

/// A number from 2^exponent to below twice that: above sig and below sig + error units, its highest
/// bit being set. With an error of 0 it is sig, in which digits beneath are jammed into the lowest
/// bit.
template <class W>
struct Estimate {
  W sig;
  W error;
  std::int64_t exponent;
};

/// Jams what is below an estimate's significand into its lowest bit, where that is enough to round
/// to m + 1 bits; m is at least four less than the bits of a word. Below them and the digit that
/// makes the half, no value and no middle of two may be within the error.
template <class W>
inline bool settle(Estimate<W>& x, std::int64_t m) {
  if (x.error == 0) return true;
  const W above = x.error - 1;
  if (above != 0) [[unlikely]] {
    const std::int64_t kept = m + 2;
    const std::int64_t below = std::int64_t{8 * sizeof(W)} - kept;
    const W low = x.sig << kept;
    if (above >> below != 0 || low + (above << kept) < low) return false;
  }
  x.sig |= 1;
  return true;
}

inline int leading_zeros(std::uint64_t w) { return std::countl_zero(w); }
inline int leading_zeros(uint128 w) {
  const std::uint64_t high = words::high_word(w);
  return high != 0 ? std::countl_zero(high) : 64 + std::countl_zero(words::low_word(w));
}

/// The integer w times 2^scale.
template <class W>
inline Estimate<W> exactly(W w, std::int64_t scale) {
  const int zeros = leading_zeros(w);
  return {w << zeros, 0, std::int64_t{8 * sizeof(W)} - 1 - zeros + scale};
}

/// The upper bits of a product, moved up by one bit or none to set the highest one; `rest` tells
/// whether there is more below.
template <class W>
struct Product {
  W high;
  W low;
  bool rest;
  int moved;
};

inline Product<std::uint64_t> times_power(std::uint64_t w, long q) {
  const uint128 power = power_of_five(q);
  const uint128 lower = uint128{w} * words::low_word(power);
  const uint128 upper = uint128{w} * words::high_word(power) + words::high_word(lower);
  const std::uint64_t rest = words::low_word(lower);
  const std::uint64_t low = words::low_word(upper);
  const std::uint64_t high = words::high_word(upper);
  const std::uint64_t zeros = ~high >> 63;  // 0 or 1
  return {high << zeros | (low >> 63 & zeros), low << zeros | (rest >> 63 & zeros),
          rest << zeros != 0, static_cast<int>(zeros)};
}

inline Product<uint128> times_power(uint128 w, long q) {
  std::uint64_t p[6];
  multiply(wide_power_of_five(q).limb, w, p);
  const int zeros = static_cast<int>(~p[5] >> 63);
  const auto shifted = [&](int i) { return p[i] << zeros | p[i - 1] >> 1 >> (63 - zeros); };
  return {words::double_word(shifted(5), shifted(4)), words::double_word(shifted(3), shifted(2)),
          (shifted(1) | p[0] << zeros) != 0, zeros};
}

/// The largest power of five that fits a word is this one, and the largest that tables have in
/// full.
template <class W>
inline constexpr long largest_power = sizeof(W) == 8 ? 27 : 55;

/// In units of the word below an estimate's significand: more than what is lost of a product by an
/// error of its power of less than 3, and by cutting off.
inline constexpr int lost_units = 8;

/// Whether a product says that the number is above its upper word and below the next one.
template <class W>
inline bool is_within_unit(const Product<W>& p) {
  return p.low - 1 < 0 - W{lost_units} - 1;
}

/// Whether 5^q is in the table in full.
template <class W>
inline bool is_exact_power(long q) {
  return q >= 0 && q <= 2 * largest_power<W>;
}
/// The upper word of a product, with what is below jammed into it.
template <class W>
inline W jammed(const Product<W>& p) {
  return p.high | W{p.low != 0 || p.rest};
}

/// The exponent of w * 10^q by its product.
template <class W>
inline std::int64_t exponent_of(W w, long q, const Product<W>& p) {
  return binary_exponent(q) + q + std::int64_t{8 * sizeof(W)} - leading_zeros(w) - p.moved;
}

/// The product of w, moved up, and 5^q.
template <class W>
inline Product<W> product(W w, long q) {
  return times_power(w << leading_zeros(w), q);
}

/// The number w * 10^q; or, with `more`, one above that and below (w + 1) * 10^q. |q| is no more
/// than `last_power` for one word, and `last_wide_power` for two.
template <class W>
Estimate<W> estimate(W w, long q, bool more) {
  const Product<W> p = product(w, q);
  const std::int64_t exponent = exponent_of(w, q, p);
  if (!more) {
    if (is_within_unit(p)) return {p.high, 1, exponent};
    if (is_exact_power<W>(q)) return {jammed(p), 0, exponent};
    if (q < 0 && q >= -largest_power<W>) {
      const W divisor = static_cast<W>(power_of_five(-q) >> (127 - binary_exponent(-q)));
      if (w % divisor == 0) return exactly(w / divisor, q);
    }
  }
  // Any other number is no multiple of a power of two that rounding looks at.
  const W over{p.low > 0 - W{lost_units}};
  const W step = more ? W{2} << leading_zeros(w) : W{0};  // more than a unit of w adds
  return {p.high, 1 + over + step, exponent};
}

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_ESTIMATE_H_
