#include "zelk/decimal/powers.h"

#include <bit>
#include <cstddef>

namespace zelk::decimal {

namespace {

// A number in [1/2, 1) in n limbs, the lowest first.
template <std::size_t n>
struct Fraction {
  std::uint64_t limb[n]{};
};

template <std::size_t n>
constexpr Fraction<n> one_half() {
  Fraction<n> x;
  x.limb[n - 1] = std::uint64_t{1} << 63;
  return x;
}

// The n leading limbs of a number in more, moved up to the highest bit and cut off.
template <std::size_t n, std::size_t size>
constexpr Fraction<n> leading(const std::uint64_t (&x)[size]) {
  const int zeros = std::countl_zero(x[size - 1]);
  Fraction<n> y;
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t place = size - n + i;
    y.limb[i] = x[place] << zeros | x[place - 1] >> 1 >> (63 - zeros);
  }
  return y;
}

template <std::size_t n>
constexpr Fraction<n> times_five(const Fraction<n>& x) {
  std::uint64_t product[n + 1]{};
  std::uint64_t carry = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const uint128 p = uint128{x.limb[i]} * 5 + carry;
    product[i] = words::low_word(p);
    carry = words::high_word(p);
  }
  product[n] = carry;
  return leading<n>(product);
}

template <std::size_t n>
constexpr Fraction<n> over_five(const Fraction<n>& x) {
  std::uint64_t quotient[n + 1]{};
  std::uint64_t rest = 0;
  for (std::size_t i = n + 1; i-- > 0;) {
    const uint128 digits = words::double_word(rest, i > 0 ? x.limb[i - 1] : 0);
    quotient[i] = words::low_word(digits / 5);
    rest = words::low_word(digits % 5);
  }
  return leading<n>(quotient);
}

template <std::size_t n>
constexpr Fraction<n> times(const Fraction<n>& x, const Fraction<n>& y) {
  std::uint64_t product[2 * n]{};
  for (std::size_t i = 0; i < n; ++i) {
    std::uint64_t carry = 0;
    for (std::size_t j = 0; j < n; ++j) {
      const uint128 sum = uint128{x.limb[i]} * y.limb[j] + product[i + j] + carry;
      product[i + j] = words::low_word(sum);
      carry = words::high_word(sum);
    }
    product[i + n] = carry;
  }
  return leading<n>(product);
}

// Each step cuts off, and errors add up to far less than the limb that entries leave out.

constexpr tables::Powers make_powers() {
  tables::Powers all{};
  Fraction<3> up = one_half<3>();
  Fraction<3> down = up;
  for (long q = 0; q <= last_power; ++q) {
    all.from_least[last_power + q] = words::double_word(up.limb[2], up.limb[1]);
    all.from_least[last_power - q] = words::double_word(down.limb[2], down.limb[1]);
    up = times_five(up);
    down = over_five(down);
  }
  return all;
}

constexpr Power256 upper_limbs(const Fraction<5>& x) {
  return {{x.limb[1], x.limb[2], x.limb[3], x.limb[4]}};
}

constexpr tables::CoarsePowers make_coarse_powers() {
  tables::CoarsePowers all{};
  Fraction<5> step_up = one_half<5>();
  Fraction<5> step_down = step_up;
  Fraction<5> up = step_up;
  Fraction<5> down = step_up;
  for (long q = 0; q < tables::stride; ++q) {
    step_up = times_five(step_up);
    step_down = over_five(step_down);
  }
  for (long k = 0; k <= tables::last_coarse; ++k) {
    all.from_least[tables::last_coarse + k] = upper_limbs(up);
    all.from_least[tables::last_coarse - k] = upper_limbs(down);
    up = times(up, step_up);
    down = times(down, step_down);
  }
  return all;
}

}  // namespace

constinit const tables::Powers tables::powers = make_powers();
constinit const tables::CoarsePowers tables::coarse_powers = make_coarse_powers();

}  // namespace zelk::decimal
