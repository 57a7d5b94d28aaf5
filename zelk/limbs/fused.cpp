// x * y + z, rounded once.
#include <utility>

#include "zelk/limbs/convert.h"
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

}  // namespace

void fused(Limb* x, const Limb* y, const Limb* z, rules::Widths f, Rounding r) {
  const Shape s{f};
  const long n = s.significand_size();
  Room room(5 * n + 2 * sum_size(n));
  const Number a = unpack(s, n, x);
  const Number b = unpack(s, n, y);
  const Number c = unpack(s, n, z);
  const bool finite = a.exp != s.exp_max() && b.exp != s.exp_max() && c.exp != s.exp_max();
  const bool normal = (a.top & b.top & c.top & s.hidden_bit()) != 0;
  if (!(finite && normal) && settle_fused(s, r, x, y, z)) [[unlikely]] {
    return;
  }
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

}  // namespace zelk::limbs
