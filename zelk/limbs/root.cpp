// Square roots.
#include "zelk/limbs/convert.h"
#include "zelk/limbs/limbs.h"
#include "zelk/limbs/patterns.h"
#include "zelk/limbs/room.h"

namespace zelk::limbs {

void root(Limb* x, rules::Widths f, Rounding r) {
  const Shape s{f};
  const long n = s.significand_size();
  // A root of 64 q bits, where m + 3 are needed: the lowest of them stands for the remainder too.
  const long q = static_cast<long>((s.mant_width + 2) / limb_bits) + 1;
  Room room(n + 3 * q);
  const Number a = unpack(s, n, x);
  const bool usual = a.sign == 0 && a.exp != s.exp_max() && (a.top & s.hidden_bit()) != 0;
  if (!usual && settle(rules::root(operand_of(s, x)), s, r, x, x)) [[unlikely]] {
    return;
  }
  Limb* significand = room.limbs();
  Limb* radicand = significand + n;
  Limb* root = radicand + 2 * q;
  const long size = copy_significand(a, n, significand);
  // An even exponent, and a radicand that begins in the highest two bits.
  std::int64_t exp = a.exp - s.bias() - static_cast<long>(s.mant_width);
  std::int64_t k = 2 * q * limb_bits - bit_size(significand, size);
  k -= (exp - k) & 1;
  exp -= k;
  shift_left(radicand, 2 * q, significand, size, static_cast<std::uint64_t>(k));
  const bool rest = mpn_sqrtrem(root, nullptr, radicand, 2 * q) != 0;
  root[0] |= Limb{rest};
  pack_scaled(s, r, 0, exp / 2, root, q, x);
}

}  // namespace zelk::limbs
