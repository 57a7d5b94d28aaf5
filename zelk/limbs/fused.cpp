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

// Normal numbers of a few limbs where the addend's last place is in the product, or at most a limb
// above it: the sum is exact. False, and nothing done, for others.
template <class S, std::size_t n>
[[gnu::always_inline]] inline bool fuse_near(S shape, Fixed<n> /*size*/, Rounding r, Limb* x,
                                             const Limb* y, const Limb* z) {
  constexpr std::size_t size = 2 * n + 2;
  const Shape s = shape;
  const Number a = unpack(s, n, x);
  const Number b = unpack(s, n, y);
  const Number c = unpack(s, n, z);
  const auto m = static_cast<std::int64_t>(s.mant_width);
  const auto k = static_cast<std::uint64_t>(c.exp - (a.exp - s.bias() + b.exp - m));
  const std::int64_t end = s.exp_max();
  if ((a.top & b.top & c.top & s.hidden_bit()) == 0 || a.exp == end || b.exp == end ||
      c.exp == end || k >= (n + 1) * limb_bits) [[unlikely]] {
    return false;
  }
  Limb left[n];
  Limb right[n];
  copy_limbs(a, left);
  copy_limbs(b, right);
  Limb product[2 * n];
  multiply_few<n>(product, left, right);

  const Limb minus = limb_mask((a.sign ^ b.sign) != c.sign);
  const auto bits = static_cast<unsigned>(k % limb_bits);
  Limb addend[size] = {};
  Limb below = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const Limb limb = i + 1 < n ? c.low[i] : c.top;
    addend[k / limb_bits + i] = limb << bits | below >> 1 >> (limb_bits - 1 - bits);
    below = limb;
  }
  addend[k / limb_bits + n] = below >> 1 >> (limb_bits - 1 - bits);

  Limb sum[size];
  Carry carry = minus & 1;
  for (std::size_t i = 0; i < size; ++i) {
    sum[i] = add_limb(i < 2 * n ? product[i] : 0, addend[i] ^ minus, carry);
  }
  // A difference below zero is complemented.
  const Limb negative = words::opaque(limb_mask(sum[size - 1] >> (limb_bits - 1) != 0));
  carry = negative & 1;
  for (Limb& limb : sum) {
    limb = add_limb(limb ^ negative, 0, carry);
  }
  std::size_t top = size - 2;
  while (sum[top] == 0 && top > n) {
    --top;
  }
  if (top <= n) [[unlikely]] {
    return false;
  }
  const std::int64_t exp = a.exp - s.bias() + b.exp - 2 * m + static_cast<long>(top) * limb_bits +
                           limb_bits - 1 - std::countl_zero(sum[top]);
  const Limb sign = a.sign ^ b.sign ^ (negative & 1);
  round_and_pack(shape, r, sign, exp, leading_window<S, n>(shape, sum, top), x);
  return true;
}

template <class S, class N>
[[gnu::noinline]] void fuse(S shape, N n, Rounding r, Limb* x, const Limb* y, const Limb* z) {
  if constexpr (!std::is_same_v<N, long>) {
    if (fuse_near(shape, n, r, x, y, z)) [[likely]] {
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
