// Square roots.
#include "zelk/limbs/convert.h"
#include "zelk/limbs/limbs.h"
#include "zelk/limbs/patterns.h"
#include "zelk/limbs/room.h"
#include "zelk/limbs/window.h"

namespace zelk::limbs {

namespace {

// Limbs of a root: m + 3 bits are needed, of which the lowest stands for the remainder too.
constexpr long root_size(Shape s) { return static_cast<long>((s.mant_width + 2) / limb_bits) + 1; }

// root := the root of a radicand of 2 q limbs, one of the highest two bits set.
void take_root(Limb* root, Limb* rest, const Limb* radicand, long q) {
  const bool inexact = mpn_sqrtrem(root, rest, radicand, 2 * q) != 0;
  root[0] |= Limb{inexact};
}

// Any operand.
[[gnu::noinline]] void root_of_any(Shape s, Rounding r, Limb* x) {
  if (settle(rules::root(operand_of(s, x)), s, r, x, x)) {
    return;
  }
  const long n = s.significand_size();
  const long q = root_size(s);
  Room room(n + 3 * q);
  const Number a = unpack(s, n, x);
  Limb* significand = room.limbs();
  Limb* radicand = significand + n;
  Limb* root = radicand + 2 * q;
  const long size = copy_significand(a, n, significand);
  std::int64_t exp = a.exp - s.bias() - static_cast<long>(s.mant_width);
  std::int64_t k = 2 * q * limb_bits - bit_size(significand, size);
  k -= (exp - k) & 1;  // to an even exponent
  exp -= k;
  shift_left(radicand, 2 * q, significand, size, static_cast<std::uint64_t>(k));
  take_root(root, nullptr, radicand, q);
  pack_scaled(s, r, 0, exp / 2, root, q, x);
}

// A positive normal number of a few limbs; false, and nothing done, for others.
template <class S, std::size_t n>
[[gnu::always_inline]] inline bool root_of_few(S shape, Fixed<n> /*size*/, Rounding r, Limb* x) {
  const Shape s = shape;
  const Number a = unpack(s, n, x);
  if (a.sign != 0 || a.exp == s.exp_max() || (a.top & s.hidden_bit()) == 0) [[unlikely]] {
    return false;
  }
  const long q = root_size(s);
  const std::int64_t exp = a.exp - s.bias();
  const std::int64_t odd = exp & 1;
  // The leading bit goes to the highest place but one for an even exponent, else to the highest.
  const std::int64_t k = 2 * q * limb_bits - 2 + odd - static_cast<long>(s.mant_width);
  const auto bits = static_cast<unsigned>(k % limb_bits);
  const long at = k / limb_bits;
  Limb radicand[2 * n + 3];
  Limb root[n + 1];
  Limb rest[2 * n + 2];
  clear(radicand, at);
  Limb below = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const Limb limb = i + 1 < n ? a.low[i] : a.top;
    radicand[at + static_cast<long>(i)] = limb << bits | below >> 1 >> (limb_bits - 1 - bits);
    below = limb;
  }
  radicand[at + static_cast<long>(n)] = below >> 1 >> (limb_bits - 1 - bits);
  take_root(root, rest, radicand, q);
  Window<n> window;
  load(window, s, {root, q, root[q - 1]}, limb_bits - 1);
  round_and_pack(shape, r, 0, (exp - odd) / 2 + s.bias(), window, x);
  return true;
}

template <class S, class N>
[[gnu::noinline]] void take_root_of(S shape, N n, Rounding r, Limb* x) {
  if constexpr (!std::is_same_v<N, long>) {
    if (root_of_few(shape, n, r, x)) [[likely]] {
      return;
    }
  }
  root_of_any(shape, r, x);
}

}  // namespace

void root(Limb* x, rules::Widths f, Rounding r) {
  if (f == binary256::widths) {
    take_root_of(Binary256(), Fixed<Binary256::size>(), r, x);
  } else {
    with_size(Shape{f}, [=](auto s, auto n) { take_root_of(s, n, r, x); });
  }
}

}  // namespace zelk::limbs
