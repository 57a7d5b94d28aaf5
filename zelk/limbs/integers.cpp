#include "zelk/limbs/integers.h"

#include <algorithm>

namespace zelk::limbs {

Limb shift_right(Limb* out, long n, const Limb* w, long size, std::uint64_t k) {
  const auto bits = static_cast<unsigned>(k % limb_bits);
  const auto limbs = static_cast<long>(k / limb_bits);
  if (limbs > size) {
    clear(out, n);
    return 1;
  }
  const Limb last = limbs > 0 ? w[limbs - 1] : 0;
  const Limb guard = shifted_limb(last, limbs < size ? w[limbs] : 0, bits);
  const bool lost = shifted_limb(0, last, bits) != 0 ||
                    (limbs > 1 && (w[0] != 0 || mpn_zero_p(w, limbs - 1) == 0));
  const long have = std::min(size - limbs, n);
  if (have > 0) {
    shift_down(out, w + limbs, have - 1, bits);
    const Limb above = limbs + have < size ? w[limbs + have] : 0;
    out[have - 1] = shifted_limb(w[limbs + have - 1], above, bits);
  }
  clear(out + have, n - have);
  return guard | Limb{lost};
}

void shift_left(Limb* out, long n, const Limb* w, long size, std::uint64_t k) {
  const auto bits = static_cast<unsigned>(k % limb_bits);
  const auto limbs = static_cast<long>(k / limb_bits);
  clear(out, limbs);
  long have = limbs + size;
  if (bits == 0) {
    std::copy_n(w, size, out + limbs);
  } else if (const Limb carry = mpn_lshift(out + limbs, w, size, bits); carry != 0) {
    out[have++] = carry;
  }
  clear(out + have, n - have);
}

bool divide_integers(Limb* quotient, long q, const Limb* x, long x_size, Limb* y, long y_size,
                     Limb* room) {
  const auto x_zeros = static_cast<unsigned>(std::countl_zero(x[x_size - 1]));
  const auto y_zeros = static_cast<unsigned>(std::countl_zero(y[y_size - 1]));
  const long size = q + y_size;
  Limb* dividend = room;
  Limb* remainder = room + size;
  Limb* high = dividend + (size - x_size);
  std::fill(dividend, high, 0);
  if (x_zeros > 1) {
    mpn_lshift(high, x, x_size, x_zeros - 1);
  } else if (x_zeros == 1) {
    std::copy_n(x, x_size, high);
  } else {
    high[-1] = mpn_rshift(high, x, x_size, 1);
  }
  if (y_zeros > 0) {
    mpn_lshift(y, y, y_size, y_zeros);
  }
  mpn_tdiv_qr(quotient, remainder, 0, dividend, size, y, y_size);
  return mpn_zero_p(remainder, y_size) == 0;
}

}  // namespace zelk::limbs
