// Powers of five against GMP.
#include "tests/support.h"
#include "zelk/decimal/powers.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)
namespace decimal = zelk::decimal;

// Whether 5^q / 2^exponent is from n to below n + units.
static bool is_cut_off(long q, long exponent, const mpz_class& n, long units) {
  mpz_class power, left = n, right = n + units;
  mpz_ui_pow_ui(power.get_mpz_t(), 5, static_cast<unsigned long>(std::abs(q)));
  if (q < 0) {
    left *= power, right *= power, power = 1;
  }
  mpz_class& scaled = exponent < 0 ? power : left;
  scaled <<= static_cast<unsigned long>(std::abs(exponent));
  if (exponent > 0) right <<= static_cast<unsigned long>(exponent);
  return left <= power && power < right;
}

TEST(PowersOfFive, AreWithinTheirBounds) {
  for (long q = -decimal::last_wide_power; q <= decimal::last_wide_power; ++q) {
    const decimal::Power256 wide = decimal::wide_power_of_five(q);
    const mpz_class n = from_limbs(wide.limb);
    ASSERT_EQ(mpz_sizeinbase(n.get_mpz_t(), 2), 256) << q;
    const long exponent = decimal::binary_exponent(q);
    ASSERT_TRUE(is_cut_off(q, exponent - 255, n, q < 0 || q > 110 ? 3 : 1)) << q;
  }
  for (long q = -decimal::last_power; q <= decimal::last_power; ++q) {
    const std::uint64_t words[] = {zelk::words::low_word(decimal::power_of_five(q)),
                                   zelk::words::high_word(decimal::power_of_five(q))};
    const mpz_class n = from_limbs(words);
    ASSERT_TRUE(n >= pow2(127) && is_cut_off(q, decimal::binary_exponent(q) - 127, n, 1)) << q;
  }
}
