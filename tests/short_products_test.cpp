// Short products and quotients against the exact ones, in no more room than is asked for.
#include <vector>

#include "tests/support.h"
#include "zelk/limbs/short.h"
#include "zelk/words/integers.h"

namespace {
using namespace zelk::limbs;
using zelk_test::from_limbs;
using Limbs = std::vector<Limb>;

/// n limbs with the highest bit set: random ones, or `borders` of 8 at the borders of limbs.
Limbs operand(gmp_randclass& random, std::size_t n, unsigned long borders) {
  constexpr Limb border[] = {0, 1, ~Limb{0}, ~Limb{0} - 1, Limb{1} << 63, (Limb{1} << 63) - 1};
  Limbs limbs(n);
  for (Limb& limb : limbs) {
    const unsigned long choice = mpz_class(random.get_z_range(48)).get_ui();
    limb = choice % 8 < borders ? border[choice / 8] : mpz_class(random.get_z_bits(64)).get_ui();
  }
  limbs.back() |= Limb{1} << 63;
  return limbs;
}

TEST(ShortProducts, BoundsHold) {
  gmp_randclass random(gmp_randinit_mt);
  random.seed(zelk_test::seed());
  for (long n = 2; n < 1700; n += n < 40 ? 1 : 1 + n / 5) {
    const auto size = static_cast<std::size_t>(n);
    for (unsigned long i = 0; i < (n < 40 ? 300 : 40); ++i) {
      const Limbs x = operand(random, size, i % 9);
      Limbs y = i % 7 == 0 ? x : operand(random, size, i / 9 % 9);
      y[0] += i % 2;  // x and y may be the same, or next to each other
      Limbs high(size + 1), quotient(size + 2), room(2 * size), more_room(3 * size + 1);
      multiply_high(high.data(), x.data(), (x == y ? x : y).data(), n, room.data());
      const mpz_class product_lost =
          (from_limbs(x) * from_limbs(y) >> (64 * (size - 1))) - from_limbs(high);
      EXPECT_TRUE(product_lost >= 0 && product_lost < product_error(n)) << n;
      divide_high(quotient.data(), x.data(), y.data(), n, more_room.data());
      const mpz_class lost =
          (from_limbs(x) << (64 * (size + 1))) / from_limbs(y) - from_limbs(quotient);
      EXPECT_TRUE(lost >= 0 && lost < quotient_error) << n;
    }
  }
}

}  // namespace

// Words with their ends in runs, where the estimates of digits are wrong.
TEST(Words, DivisionByHalvesIsDivision) {
  zelk_test::Random random;
  const auto word = [&](std::uint64_t below) {
    const std::uint64_t any = random.digits(64).get_ui();
    const std::uint64_t run = ~std::uint64_t{0} >> random.below(64);
    const std::uint64_t kinds[] = {any, any & run, any | run, ~run, any | run << 32, below - 1};
    return kinds[random.below(6)] % below;
  };
  for (int i = 0; i < 100000; ++i) {
    const std::uint64_t y = 1 + word(~std::uint64_t{0});
    const auto x = zelk::words::double_word(word(y), word(~std::uint64_t{0}));
    const auto [q, rest] = zelk::words::divide_by_halves(x, y);
    ASSERT_TRUE(q == x / y && rest == x % y) << q << " rest " << rest << " by " << y;
  }
}
