// x * y + z, rounded once.
#include <utility>

#include "zelk/limbs/convert.h"
#include "zelk/limbs/few.h"
#include "zelk/limbs/limbs.h"
#include "zelk/limbs/patterns.h"
#include "zelk/limbs/room.h"

namespace zelk::limbs {

namespace {

// The value +-w * 2^exp, w of `size` limbs; of no limbs: 0.
struct Term {
  Limb sign;
  std::int64_t exp;
  const Limb* w;
  long size;

  // The exponent of the power of two above.
  std::int64_t top() const { return exp + bit_size(w, size); }
};

// out := the term in units of 2^unit, in n limbs, which it fits. What is below is one bit.
void align(const Term& t, std::int64_t unit, Limb* out, long n) {
  if (t.exp >= unit) {
    shift_left(out, n, t.w, t.size, static_cast<std::uint64_t>(t.exp - unit));
  } else {
    const auto k = static_cast<std::uint64_t>(unit - t.exp);
    const Limb guard = shift_right(out, n, t.w, t.size, k);
    out[0] |= Limb{guard != 0};
  }
}

constexpr long sum_size(long n) { return 2 * n + 2; }

// out := the sum of a product of 2 n limbs and a number of n. Two numbers of `sum_size` limbs begin
// at the higher of their leading bits, with a limb above. Where digits cancel, these are no more
// than one place apart, and all are there; else what is cut off is far below the last place.
void pack_sum(Shape s, long n, Rounding r, Term x, Term y, Limb* room, Limb* out) {
  if (x.top() < y.top()) {
    std::swap(x, y);
  }
  const long size = sum_size(n);
  const std::int64_t unit = x.top() - (size - 1) * limb_bits;
  Limb* sum = room;
  Limb* part = sum + size;
  align(x, unit, sum, size);
  align(y, unit, part, size);
  if (x.sign == y.sign) {
    mpn_add_n(sum, sum, part, size);
  } else if (mpn_cmp(sum, part, size) >= 0) {
    mpn_sub_n(sum, sum, part, size);
  } else {
    mpn_sub_n(sum, part, sum, size);
    x.sign = y.sign;
  }
  if (const long used = trimmed(sum, size); used > 0) {
    pack_scaled(s, r, x.sign, unit, sum, used, out);
  } else {
    pack_zero(s, Limb{rules::zero_sum_is_negative(r.direction)}, out);
  }
}

// The same where an operand is zero, infinite or a NaN; false, and nothing done, where there is a
// product to compute.
[[gnu::cold]] bool settle_fused(Shape s, Rounding r, Limb* x, const Limb* y, const Limb* z) {
  const rules::Operand a = operand_of(s, x);
  const rules::Operand b = operand_of(s, y);
  const rules::Operand c = operand_of(s, z);
  if (settle(rules::fused(a, b, c, r.direction), s, r, x, z)) {
    return true;
  }
  if (!a.is(rules::Class::zero) && !b.is(rules::Class::zero)) {
    return false;
  }
  std::copy_n(z, s.pattern_size(), x);
  round_pattern(s, s.significand_size(), r, Limb{c.negative}, 0, x);
  return true;
}

// Any operands.
[[gnu::noinline]] void fuse_any(Shape s, Rounding r, Limb* x, const Limb* y, const Limb* z) {
  if (settle_fused(s, r, x, y, z)) {
    return;
  }
  const long n = s.significand_size();
  Room room(5 * n + 2 * sum_size(n));
  const Number a = unpack(s, n, x);
  const Number b = unpack(s, n, y);
  const Number c = unpack(s, n, z);
  Limb* left = room.limbs();
  Limb* right = left + n;
  Limb* addend = right + n;
  Limb* product = addend + n;
  copy_significand(a, n, left);
  copy_significand(b, n, right);
  const long addend_size = copy_significand(c, n, addend);
  mpn_mul_n(product, left, right, n);
  const std::int64_t unit = s.bias() + static_cast<long>(s.mant_width);
  const Term p{a.sign ^ b.sign, a.exp - unit + b.exp - unit, product, trimmed(product, 2 * n)};
  const Term t{c.sign, c.exp - unit, addend, addend_size};
  if (t.size == 0) {
    pack_scaled(s, r, p.sign, p.exp, p.w, p.size, x);
  } else {
    pack_sum(s, n, r, p, t, product + 2 * n, x);
  }
}

// The window that begins at the leading bit, in limb `top`, of the sum. There are n + 1 limbs below
// that one, and a limb of 0 above.
template <class S, std::size_t n>
[[gnu::always_inline]] inline Window<n> leading_window(S shape, const Limb* sum, std::size_t top) {
  const unsigned top_bit = Shape(shape).top_bit();
  const auto leading = static_cast<unsigned>(limb_bits - 1 - std::countl_zero(sum[top]));
  const unsigned k = (leading - top_bit) % limb_bits;
  const std::size_t first = top - n - std::size_t{leading < top_bit};
  Limb lost = shifted_limb(0, sum[first], k);
  for (std::size_t i = 0; i < first; ++i) {
    lost |= sum[i];
  }
  Window<n> window;
  for (std::size_t i = 0; i <= n; ++i) {
    window.w[i] = shifted_limb(sum[first + i], sum[first + i + 1], k);
  }
  window.w[0] |= Limb{lost != 0};
  return window;
}

// The limbs of a sum of a few: the product is above one limb, an addend begins in one of n + 1
// limbs, and above both are a carry and a 0.
template <std::size_t n>
using Sum = Limb[2 * n + 3];

// x := x / 2^k; what is lost is one bit.
template <std::size_t size>
[[gnu::noinline]] void shift_sticky(Limb (&x)[size], std::uint64_t k) {
  const auto bits = static_cast<unsigned>(k % limb_bits);
  const auto limbs = static_cast<std::size_t>(std::min<std::uint64_t>(k / limb_bits, size));
  Limb lost = limbs < size ? shifted_limb(0, x[limbs], bits) : 0;
  for (std::size_t i = 0; i < limbs; ++i) {
    lost |= x[i];
  }
  const auto limb = [&](std::size_t i) { return i < size ? x[i] : 0; };
  for (std::size_t i = 0; i < size; ++i) {
    x[i] = shifted_limb(limb(i + limbs), limb(i + limbs + 1), bits);
  }
  x[0] |= Limb{lost != 0};
}

// sum := sum + part * 2^(64 at), or less that if `minus` is all ones, at <= n.
template <std::size_t n>
[[gnu::always_inline]] inline void add_part(Sum<n>& sum, const Limb (&part)[n + 1], std::size_t at,
                                            Limb minus) {
  Carry carry = minus & 1;
  for (std::size_t i = 0; i <= n; ++i) {
    sum[at + i] = add_limb(sum[at + i], part[i] ^ minus, carry);
  }
  for (std::size_t i = at + n + 1; i < 2 * n + 3; ++i) {
    sum[i] = add_limb(sum[i], minus, carry);
  }
}

// Finite numbers of a few limbs. False, and nothing done, for others, for a product of zero, and
// where the leading digit of the sum does not have n + 1 limbs below.
//
// The last place of the addend is 2^k units. In reach, the sum is exact; beyond, one of the terms
// is moved down. The lowest limb has room for the bit that stands for what is lost.
template <class S, std::size_t n>
[[gnu::always_inline]] inline bool fuse_few(S shape, Fixed<n> /*size*/, Rounding r, Limb* x,
                                            const Limb* y, const Limb* z) {
  constexpr std::int64_t reach = (n + 1) * limb_bits;
  const Shape s = shape;
  const Number a = unpack(s, n, x);
  const Number b = unpack(s, n, y);
  const Number c = unpack(s, n, z);
  const std::int64_t end = s.exp_max();
  if (a.exp == end || b.exp == end || c.exp == end) [[unlikely]] {
    return false;
  }
  const auto m = static_cast<std::int64_t>(s.mant_width);
  std::int64_t unit = a.exp - s.bias() + b.exp - m - limb_bits;
  const std::int64_t k = c.exp - unit;
  const bool normal = (a.top & b.top & s.hidden_bit()) != 0;
  if (!normal && (is_zero(a, n) || is_zero(b, n))) [[unlikely]] {
    return false;
  }
  Limb left[n];
  Limb right[n];
  copy_limbs(a, left);
  copy_limbs(b, right);
  Limb product[2 * n];
  multiply_few<n>(product, left, right);

  Sum<n> sum;
  sum[0] = 0;
  for (std::size_t i = 0; i < 2 * n; ++i) {
    sum[i + 1] = product[i];
  }
  sum[2 * n + 1] = 0;
  sum[2 * n + 2] = 0;
  constexpr std::int64_t highest = reach - limb_bits;
  const auto bits = static_cast<unsigned>(k % limb_bits);
  auto at = static_cast<std::size_t>(k / limb_bits);
  Limb part[n + 1];
  if (k >= 0 && k < reach) [[likely]] {
    Limb below = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const Limb limb = i + 1 < n ? c.low[i] : c.top;
      part[i] = limb << bits | below >> 1 >> (limb_bits - 1 - bits);
      below = limb;
    }
    part[n] = below >> 1 >> (limb_bits - 1 - bits);
  } else {
    std::copy_n(c.low, n - 1, part);
    part[n - 1] = c.top;
    part[n] = 0;
    at = k < 0 ? 0 : n;
    if (k < 0) {
      shift_sticky(part, static_cast<std::uint64_t>(-k));
    } else {
      shift_sticky(sum, static_cast<std::uint64_t>(k - highest));
      unit += k - highest;
    }
  }
  add_part<n>(sum, part, at, limb_mask((a.sign ^ b.sign) != c.sign));
  const Limb negative = sum[2 * n + 2] >> (limb_bits - 1);
  if (negative != 0) {
    mpn_neg(sum, sum, 2 * n + 3);
  }
  std::size_t top = 2 * n + 1;
  while (sum[top] == 0 && top > n) {
    --top;
  }
  if (top <= n) [[unlikely]] {
    return false;
  }
  const std::int64_t leading =
      static_cast<std::int64_t>(top + 1) * limb_bits - 1 - std::countl_zero(sum[top]);
  round_and_pack(shape, r, a.sign ^ b.sign ^ negative, unit - m + leading,
                 leading_window<S, n>(shape, sum, top), x);
  return true;
}

template <class S, class N>
[[gnu::noinline]] void fuse(S shape, N n, Rounding r, Limb* x, const Limb* y, const Limb* z) {
  if constexpr (!std::is_same_v<N, long>) {
    if (fuse_few(shape, n, r, x, y, z)) [[likely]] {
      return;
    }
  }
  fuse_any(shape, r, x, y, z);
}

}  // namespace

void fused(Limb* x, const Limb* y, const Limb* z, rules::Widths f, Rounding r) {
  if (f == binary256::widths) {
    fuse(Binary256(), Fixed<Binary256::size>(), r, x, y, z);
  } else {
    with_size(Shape{f}, [=](auto s, auto n) { fuse(s, n, r, x, y, z); });
  }
}

}  // namespace zelk::limbs
