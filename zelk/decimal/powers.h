// Powers of five as significands of 128 and of 256 bits, for texts in base ten.
//
// A power is normalized: its highest bit is set. Tables hold constants, so that powers can be asked
// for at any time, before main and after it.
#ifndef ZELK_DECIMAL_POWERS_H_
#define ZELK_DECIMAL_POWERS_H_

#include <cstdint>

#include "zelk/words/integers.h"

namespace zelk::decimal {

using words::uint128;

/// floor(q * log2(5)) for |q| <= 20000: the exponent of the leading bit of 5^q.
constexpr long binary_exponent(long q) { return (q * 9972605230L) >> 32; }

/// Powers from 5^-last_power to 5^last_power have 128 bits: enough for 19 digits in formats with
/// exponents of up to 11 bits.
inline constexpr long last_power = 400;
/// Those from 5^-last_wide_power to 5^last_wide_power have 256 bits: enough for 38 digits in
/// formats with exponents of up to 15 bits.
inline constexpr long last_wide_power = 5100;

/// A significand of 256 bits, the lowest limb first.
struct Power256 {
  std::uint64_t limb[4];
};

namespace tables {
inline constexpr long stride = 55;  // 5^55 is the largest power below 2^128
inline constexpr long last_coarse = (last_wide_power + stride - 1) / stride;

struct Powers {
  uint128 from_least[2 * last_power + 1];
};
struct CoarsePowers {
  Power256 from_least[2 * last_coarse + 1];  // each 5^stride times the one before
};
extern const Powers powers;
extern const CoarsePowers coarse_powers;
}  // namespace tables

/// 5^q / 2^(binary_exponent(q) - 127), cut off: less than 1 below the power, and the power itself
/// for 0 <= q <= 55.
inline uint128 power_of_five(long q) { return tables::powers.from_least[q + last_power]; }

/// product := x * y.
inline void multiply(const std::uint64_t (&x)[4], uint128 y, std::uint64_t (&product)[6]) {
  std::uint64_t carry = 0;
  for (int i = 0; i < 4; ++i) {
    const uint128 sum = uint128{x[i]} * words::low_word(y) + carry;
    product[i] = words::low_word(sum);
    carry = words::high_word(sum);
  }
  product[4] = carry;
  carry = 0;
  for (int i = 0; i < 4; ++i) {
    const uint128 sum = uint128{x[i]} * words::high_word(y) + product[i + 1] + carry;
    product[i + 1] = words::low_word(sum);
    carry = words::high_word(sum);
  }
  product[5] = carry;
}

/// 5^q / 2^(binary_exponent(q) - 255), cut off: less than 3 below the power, and the power itself
/// for 0 <= q <= 110.
inline Power256 wide_power_of_five(long q) {
  const long n = q + tables::stride * tables::last_coarse;
  const auto& x = tables::coarse_powers.from_least[n / tables::stride].limb;
  const uint128 y = power_of_five(n % tables::stride);
  std::uint64_t p[6];
  multiply(x, y, p);
  const int zeros = static_cast<int>(~p[5] >> 63);  // 0 or 1
  const auto shifted = [&](int i) { return p[i] << zeros | p[i - 1] >> 1 >> (63 - zeros); };
  return {{shifted(2), shifted(3), shifted(4), shifted(5)}};
}

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_POWERS_H_
