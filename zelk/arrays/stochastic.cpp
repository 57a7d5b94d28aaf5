#include "zelk/arrays/stochastic.h"

#include "zelk/arrays/element.h"
#include "zelk/rules/flags.h"

namespace zelk::arrays::detail {

using words::uint128;

std::array<std::uint32_t, 4> Philox::words(std::array<std::uint32_t, 4> c,
                                           std::array<std::uint32_t, 2> key) {
  for (int i = 0; i < rounds; ++i) {
    const std::uint64_t p = std::uint64_t{multiplier[0]} * c[0];
    const std::uint64_t q = std::uint64_t{multiplier[1]} * c[2];
    c = {static_cast<std::uint32_t>(q >> 32) ^ c[1] ^ key[0], static_cast<std::uint32_t>(q),
         static_cast<std::uint32_t>(p >> 32) ^ c[3] ^ key[1], static_cast<std::uint32_t>(p)};
    key = {key[0] + weyl[0], key[1] + weyl[1]};
  }
  return c;
}

std::uint64_t Philox::draw(std::uint64_t seed, std::uint64_t n) {
  const auto low = [](std::uint64_t x) { return static_cast<std::uint32_t>(x); };
  const auto w = words({low(n / 2), low(n >> 33), 0, 0}, {low(seed), low(seed >> 32)});
  const std::size_t i = n % 2 * 2;
  return std::uint64_t{w[i + 1]} << 32 | w[i];
}

Wide wide(double x) {
  const auto bits = std::bit_cast<std::uint64_t>(x);
  const auto field = static_cast<int>(bits >> 52 & 0x7FF);
  const std::uint64_t digits = bits & ((std::uint64_t{1} << 52) - 1);
  return {bits >> 63 != 0, digits | std::uint64_t{field != 0} << 52,
          (field != 0 ? field : 1) - 1075};
}

double round_stochastic(Environment& env, Wide x, Shape f, std::uint64_t draw) {
  const auto raise = [&env](unsigned flags) {
    env.flags = static_cast<unsigned char>(env.flags | flags);
  };
  const auto with_sign = [&x](double y) { return x.negative ? -y : y; };
  if (x.significand == 0) {
    return with_sign(0);
  }
  for (; x.significand >> 127 == 0; --x.exponent) {
    x.significand <<= 1;
  }
  const int exponent = x.exponent + 127;  // of the leading bit
  if (exponent > f.emax()) {
    raise(rules::overflow | rules::inexact);
    return with_sign(infinity);
  }
  const bool tiny = exponent < f.emin();
  if (tiny && env.flush_results) {
    raise(rules::underflow | rules::inexact);
    return with_sign(0);
  }
  // Whole places, 64 digits below them, and whether there are more. At most m + 1 <= 53 bits are
  // whole, so that at least 75 go.
  const int unit = (tiny ? f.emin() : exponent) - f.m;
  const int cut = unit - x.exponent;
  const auto shifted = [&x](int n) { return n < 128 ? x.significand >> n : uint128{0}; };
  const auto digits = static_cast<std::uint64_t>(shifted(cut - 64));
  const bool rest = cut - 64 > 127 || (x.significand & ((uint128{1} << (cut - 64)) - 1)) != 0;
  const bool up = draw < digits || (draw == digits && rest);
  if (digits != 0 || rest) {
    raise(rules::inexact | (tiny ? unsigned{rules::underflow} : 0U));
  }
  const double y = (static_cast<double>(static_cast<std::uint64_t>(shifted(cut))) + (up ? 1 : 0)) *
                   pow2(unit / 2) * pow2(unit - unit / 2);
  if (y > f.largest()) {
    raise(rules::overflow);
    return with_sign(infinity);
  }
  return with_sign(y);
}

}  // namespace zelk::arrays::detail
