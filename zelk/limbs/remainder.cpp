// What a division leaves, exactly.
#include <utility>

#include "zelk/limbs/convert.h"
#include "zelk/limbs/limbs.h"
#include "zelk/limbs/patterns.h"
#include "zelk/limbs/room.h"

namespace zelk::limbs {

namespace {

// A modulus of `size` limbs, and room for what is reduced by it.
struct Modulus {
  const Limb* w;
  long size;
  Limb* quotient;

  // out := x modulo this, x of n limbs; out has `size` and may begin where x does.
  void reduce(const Limb* x, long n, Limb* out) const {
    if (n >= size) {
      mpn_tdiv_qr(quotient, out, 0, x, n, w, size);
    } else {
      std::copy_n(x, n, out);
      std::fill(out + n, out + size, 0);
    }
  }
};

// Digits that a dividend is moved up at once: beyond, it is faster to square.
constexpr std::uint64_t near_limit(long n) {
  return static_cast<std::uint64_t>(limb_bits * (4 * n + 28));
}
constexpr long dividend_size(long n) { return 5 * n + 32; }

// out := 2^k modulo m, by squaring; `power` has room for two such numbers and a limb.
void power_of_two(std::uint64_t k, const Modulus& m, Limb* power, Limb* out) {
  const auto limit = static_cast<std::uint64_t>(m.size * 2 * limb_bits);
  int rest = 0;
  while (k >> rest >= limit) {
    ++rest;
  }
  const Limb one = 1;
  shift_left(power, 2 * m.size, &one, 1, k >> rest);
  m.reduce(power, 2 * m.size, out);
  while (rest > 0) {
    --rest;
    mpn_sqr(power, out, m.size);
    power[2 * m.size] = (k >> rest & 1) != 0 ? mpn_lshift(power, power, 2 * m.size, 1) : 0;
    m.reduce(power, 2 * m.size + 1, out);
  }
}

// x := what x / y leaves.
void leave(Limb* x, const Limb* y, Shape s, bool nearest, Rounding r) {
  const long n = s.significand_size();
  // An aligned divisor has one digit more than a dividend at most, and its double another.
  const long size = n + 1;
  Room room(n + 3 * size + 2 * dividend_size(size));
  const Number a = unpack(s, n, x);
  const Number b = unpack(s, n, y);
  const bool finite = a.exp != s.exp_max() && b.exp != s.exp_max();
  if ((!finite || (a.top & b.top & s.hidden_bit()) == 0) &&
      settle(rules::remainder(operand_of(s, x), operand_of(s, y)), s, r, x, y)) [[unlikely]] {
    return;
  }
  Limb* significand = room.limbs();
  Limb* divisor = significand + n;
  Limb* modulus = divisor + size;
  Limb* rest = modulus + size;
  Limb* dividend = rest + size;
  const long b_size = copy_significand(b, n, significand);
  const std::int64_t b_top = b.exp + bit_size(significand, b_size);  // y is not 0
  const long a_size = copy_significand(a, n, dividend);
  if (b.exp == s.exp_max() || a.exp + bit_size(dividend, a_size) + 1 < b_top) {
    round_pattern(s, n, r, a.sign, 0, x);  // less than half of y
    return;
  }
  // In units of the lower exponent; the quotient modulo 2 is whether twice the divisor leaves as
  // much as it.
  const std::int64_t unit = std::min(a.exp, b.exp);
  shift_left(divisor, size, significand, b_size, static_cast<std::uint64_t>(b.exp - unit));
  mpn_lshift(modulus, divisor, size, 1);
  const Modulus m{modulus, trimmed(modulus, size), dividend + dividend_size(size)};
  std::fill(rest + m.size, rest + size, 0);
  const auto k = static_cast<std::uint64_t>(a.exp - unit);
  if (k <= near_limit(n)) {
    const long dividend_limbs = n + static_cast<long>(k / limb_bits) + 1;
    std::copy_n(dividend, a_size, significand);
    shift_left(dividend, dividend_limbs, significand, a_size, k);
    m.reduce(dividend, trimmed(dividend, dividend_limbs), rest);
  } else {
    std::copy_n(dividend, a_size, significand);
    power_of_two(k, m, dividend, rest);
    if (a_size >= m.size) {
      mpn_mul(dividend, significand, a_size, rest, m.size);
    } else {
      mpn_mul(dividend, rest, m.size, significand, a_size);
    }
    m.reduce(dividend, a_size + m.size, rest);
  }
  const bool odd = mpn_cmp(rest, divisor, size) >= 0;
  if (odd) {
    mpn_sub_n(rest, rest, divisor, size);
  }
  Limb sign = a.sign;
  if (nearest) {
    mpn_sub_n(divisor, divisor, rest, size);
    const int order = mpn_cmp(rest, divisor, size);
    if (order > 0 || (order == 0 && odd)) {
      std::swap(rest, divisor);
      sign ^= 1;
    }
  }
  if (const long used = trimmed(rest, size); used > 0) {
    const std::int64_t exp = unit - s.bias() - static_cast<long>(s.mant_width);
    pack_scaled(s, r, sign, exp, rest, used, x);
  } else {
    pack_zero(s, a.sign, x);
  }
}

}  // namespace

void remainder(Limb* x, const Limb* y, rules::Widths f, Rounding r) {
  leave(x, y, Shape{f}, true, r);
}

void modulo(Limb* x, const Limb* y, rules::Widths f, Rounding r) {
  leave(x, y, Shape{f}, false, r);
}

}  // namespace zelk::limbs
