// Significands of a few limbs, in registers, with a limb below to round by.
#ifndef ZELK_LIMBS_WINDOW_H_
#define ZELK_LIMBS_WINDOW_H_

#include <algorithm>
#include <cstddef>

#include "zelk/limbs/few_integers.h"
#include "zelk/limbs/patterns.h"

namespace zelk::limbs {

/// A significand of n limbs above one more, the guard: the value w * 2^(exp - bias - m - 64). The
/// lowest bit is sticky: it also stands for every nonzero digit beneath it.
template <std::size_t n>
struct Window {
  Limb w[n + 1];
};

/// s * 2^k, k < 64, which fits.
template <std::size_t n>
[[gnu::always_inline]] inline void shift_left(Window<n>& s, unsigned k) {
  for (std::size_t i = n; i > 0; --i) {
    s.w[i] = s.w[i] << k | s.w[i - 1] >> 1 >> (limb_bits - 1 - k);
  }
  s.w[0] <<= k;
}

/// s / 2^k, k < 64, sticky.
template <std::size_t n>
[[gnu::always_inline]] inline void shift_right(Window<n>& s, unsigned k) {
  const Limb lost = shifted_limb(0, s.w[0], k);
  for (std::size_t i = 0; i < n; ++i) {
    s.w[i] = shifted_limb(s.w[i], s.w[i + 1], k);
  }
  s.w[n] >>= k;
  s.w[0] |= Limb{lost != 0};
}

/// s / 2^(64 limbs), sticky.
template <std::size_t n>
[[gnu::always_inline]] inline void drop_limbs(Window<n>& s, std::uint64_t limbs) {
  Limb lost = 0;
  for (std::uint64_t dropped = std::min<std::uint64_t>(limbs, n + 1); dropped > 0; --dropped) {
    lost |= s.w[0];
    for (std::size_t i = 0; i < n; ++i) {
      s.w[i] = s.w[i + 1];
    }
    s.w[n] = 0;
  }
  s.w[0] |= Limb{lost != 0};
}

/// The significand of x / 2^k, sticky.
template <std::size_t n>
[[gnu::always_inline]] inline Window<n> load_shifted(const Number& x, unsigned k) {
  Window<n> s;
  for (std::size_t i = 0; i < n - 1; ++i) {
    s.w[i + 1] = shifted_limb(x.low[i], i + 2 < n ? x.low[i + 1] : x.top, k);
  }
  s.w[n] = x.top >> k;
  s.w[0] = shifted_limb(0, n > 1 ? x.low[0] : x.top, k);
  return s;
}

/// The 64 bits of a significand from where its hidden bit belongs down.
template <std::size_t n>
[[gnu::always_inline]] inline Limb leading_limb(Shape shape, const Window<n>& s) {
  const unsigned top_bit = shape.top_bit();
  return s.w[n] << (limb_bits - 1 - top_bit) | s.w[n - 1] >> 1 >> top_bit;
}

/// The significand of a number other than 0, its leading bit, which is bit `leading` of its highest
/// limb, where the hidden bit belongs.
template <std::size_t n>
[[gnu::always_inline]] inline void load(Window<n>& s, Shape shape, const Integer& x,
                                        unsigned leading) {
  // The limbs that the window sees, and one above.
  Limb upper[n + 3];
  upper[n + 2] = 0;
  upper[n + 1] = x.top;
  for (std::size_t i = 0; i <= n; ++i) {
    const long place = x.size - static_cast<long>(n + 2 - i);
    upper[i] = place >= 0 ? x.low[place] : 0;
  }
  const long below = x.size - static_cast<long>(n + 2);
  bool lost = below > 0 && mpn_zero_p(x.low, below) == 0;
  const unsigned k = (leading - shape.top_bit()) % limb_bits;
  const bool left = leading < shape.top_bit();
  const Limb* from = left ? upper : upper + 1;
  lost |= (left ? 0 : upper[0]) != 0 || shifted_limb(0, from[0], k) != 0;
  for (std::size_t i = 0; i <= n; ++i) {
    s.w[i] = shifted_limb(from[i], from[i + 1], k);
  }
  s.w[0] |= Limb{lost};
}
template <std::size_t n>
[[gnu::always_inline]] inline void load(Window<n>& s, Shape shape, const Integer& x) {
  load(s, shape, x, static_cast<unsigned>(limb_bits - 1 - std::countl_zero(x.top)));
}

/// out := the significand rounded, for an exponent from 1 to below exp_max(). It has its leading
/// bit where the hidden bit belongs or, for exp = 1, below.
template <std::size_t n>
[[gnu::always_inline]] inline void pack_rounded(Shape shape, Rounding r, Limb sign,
                                                std::int64_t exp, const Window<n>& s, Limb* out) {
  if (r.is_watched()) {
    if (is_at_border(shape, exp)) [[unlikely]] {
      std::copy_n(s.w + 1, n - 1, out);
      pack_top(shape, n, sign, exp - 1, s.w[n], 0, out);
      round_watched(shape, r, sign, s.w[0], out);
      return;
    }
    r.raise_lost(s.w[0]);
  }
  Carry carry = rounds_up(r, sign, s.w[1] % 2 != 0, s.w[0]);
  for (std::size_t i = 0; i < n - 1; ++i) {
    out[i] = add_limb(s.w[i + 1], 0, carry);
  }
  const Limb top = add_limb(s.w[n], 0, carry);
  // The hidden bit adds one to the exponent field. What carries into the exponent of infinities is
  // rounded outward and leaves a significand of 0.
  pack_top(shape, n, sign, exp - 1, top, carry, out);
}

/// out := the pattern nearest in the direction to a number whose significand has its leading bit
/// where the hidden bit belongs, or below.
template <std::size_t n>
[[gnu::noinline]] void normalize_and_pack(Shape shape, Rounding r, Limb sign, std::int64_t exp,
                                          Window<n> s, Limb* out) {
  Limb leading = leading_limb(shape, s);
  for (; leading == 0 && exp > limb_bits; exp -= limb_bits) {
    for (std::size_t i = n; i > 0; --i) {
      s.w[i] = s.w[i - 1];
    }
    s.w[0] = 0;
    leading = leading_limb(shape, s);
  }
  if (exp < 1) {
    const auto places = static_cast<std::uint64_t>(1 - exp);
    drop_limbs(s, places / limb_bits);
    shift_right(s, places % limb_bits);
    exp = 1;
  }
  // A subnormal stays where exponent 1 has it.
  const std::int64_t k = std::min<std::int64_t>(std::countl_zero(leading), exp - 1);
  shift_left(s, static_cast<unsigned>(k));
  exp -= k;
  if (exp >= shape.exp_max()) {
    pack_overflow(shape, r, sign, out);
  } else {
    pack_rounded(shape, r, sign, exp, s, out);
  }
}

/// The same with the leading bit where the hidden bit belongs.
template <class S, std::size_t n>
[[gnu::always_inline]] inline void round_and_pack(S shape, Rounding r, Limb sign, std::int64_t exp,
                                                  const Window<n>& s, Limb* out) {
  const Shape widths = shape;
  if (static_cast<Limb>(exp - 1) < static_cast<Limb>(widths.exp_max() - 1)) [[likely]] {
    pack_rounded(widths, r, sign, exp, s, out);
  } else {
    normalize_and_pack(widths, r, sign, exp, s, out);
  }
}

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_WINDOW_H_
