// Rounded arithmetic on patterns whose significands have a few limbs: their number is a constant,
// loops unroll, and what is computed stays in registers until the result is stored.
//
// The operations on five limbs and more are in many.h.
#ifndef ZELK_LIMBS_FEW_H_
#define ZELK_LIMBS_FEW_H_

#include <cstddef>
#include <utility>

#include "zelk/limbs/few_integers.h"
#include "zelk/limbs/patterns.h"

namespace zelk::limbs {

/// A significand of n limbs above one more, the guard: the value w * 2^(exp - bias - m - 64). The
/// lowest bit is sticky: it also stands for every nonzero digit beneath it.
template <std::size_t n>
struct Window {
  Limb w[n + 1];
};

// A product by a power of two shifts a limb: what stays in it, and what leaves it.

/// The significand of x / 2^k, 0 < k < 64, with nothing lost.
template <std::size_t n>
[[gnu::always_inline]] inline void load_shifted(Window<n>& s, const Number& x, unsigned k) {
  const Limb power = Limb{1} << (limb_bits - k);
  Limb left = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const DoubleLimb shifted = DoubleLimb{i < n - 1 ? x.low[i] : x.top} * power;
    s.w[i] = static_cast<Limb>(shifted) | left;
    left = static_cast<Limb>(shifted >> limb_bits);
  }
  s.w[n] = left;
}

/// The same for k = 1, where shifts are faster.
template <std::size_t n>
[[gnu::always_inline]] inline void load_halved(Window<n>& s, const Number& x) {
  Limb left = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const Limb limb = i < n - 1 ? x.low[i] : x.top;
    s.w[i] = limb << (limb_bits - 1) | left;
    left = limb >> 1;
  }
  s.w[n] = left;
}

template <std::size_t n>
[[gnu::always_inline]] inline void shift_left(Window<n>& s, unsigned k) {
  const Limb power = Limb{1} << k;
  Limb left = 0;
  for (std::size_t i = 0; i <= n; ++i) {
    const DoubleLimb shifted = DoubleLimb{s.w[i]} * power;
    s.w[i] = static_cast<Limb>(shifted) | left;
    left = static_cast<Limb>(shifted >> limb_bits);
  }
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

/// The significand of x / 2^k, k > 0, sticky.
template <std::size_t n>
[[gnu::always_inline]] inline void load_below(Window<n>& s, const Number& x, std::uint64_t k) {
  if (k < limb_bits) [[likely]] {
    load_shifted(s, x, static_cast<unsigned>(k));
  } else if (k >= (n + 1) * limb_bits) {
    s = {};
    s.w[0] = Limb{!is_zero(x, n)};
  } else {
    load_halved(s, x);
    drop_limbs(s, (k - 1) / limb_bits);
    shift_right(s, (k - 1) % limb_bits);
  }
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

/// out := the pattern nearest in direction d to a number whose significand has its leading bit
/// where the hidden bit belongs, or below.
template <std::size_t n>
[[gnu::always_inline]] inline void round_and_pack(Shape shape, Direction d, Limb sign,
                                                  std::int64_t exp, Window<n>& s, Limb* out) {
  Limb leading = leading_limb(shape, s);
  for (; leading == 0 && exp > limb_bits; exp -= limb_bits) {
    for (std::size_t i = n; i > 0; --i) {
      s.w[i] = s.w[i - 1];
    }
    s.w[0] = 0;
    leading = leading_limb(shape, s);
  }
  if (exp < 1) [[unlikely]] {
    const auto places = static_cast<std::uint64_t>(1 - exp);
    drop_limbs(s, places / limb_bits);
    shift_right(s, places % limb_bits);
    exp = 1;
  }
  // A subnormal stays where exponent 1 has it.
  const std::int64_t k = std::min<std::int64_t>(std::countl_zero(leading), exp - 1);
  shift_left(s, static_cast<unsigned>(k));
  exp -= k;

  if (exp >= shape.exp_max()) [[unlikely]] {
    pack_overflow(shape, d, sign, out);
    return;
  }
  Carry carry = rounds_up(d, sign, s.w[1] % 2 != 0, s.w[0]);
  for (std::size_t i = 0; i < n - 1; ++i) {
    out[i] = add_limb(s.w[i + 1], 0, carry);
  }
  const Limb top = add_limb(s.w[n], 0, carry);
  // The hidden bit adds one to the exponent field. What carries into the exponent of infinities is
  // rounded outward and leaves a significand of 0.
  pack_top(shape, n, sign, exp - 1, top, carry, out);
}

template <std::size_t n>
[[gnu::cold, gnu::noinline]] Number normalized(Shape s, const Number& x, Limb* room) {
  const Integer integer = significand_of(x, n);
  Window<n> window;
  load(window, s, integer);
  std::copy_n(window.w + 1, n, room);
  return {x.sign, x.exp + integer.leading_bit() - static_cast<long>(s.mant_width), room,
          window.w[n]};
}
/// A subnormal becomes what it would be if exponents had no end: with its hidden bit in place, in n
/// limbs of room.
template <std::size_t n>
[[gnu::always_inline]] inline void normalize(Shape s, Number& x, Limb* room) {
  if ((x.top & s.hidden_bit()) == 0) {
    x = normalized<n>(s, x, room);
  }
}

// x := x op y, rounded once.

template <class S, std::size_t n>
[[gnu::always_inline]] inline void add_sub(S shape, Fixed<n> /*size*/, Direction d, Limb* left,
                                           const Limb* right, Limb flip) {
  const Shape s = shape;
  Operands operands(s, n, left, right);
  if (!operands.finite(s)) [[unlikely]] {
    apply_table(flip != 0 ? Operation::difference : Operation::sum, s, d, left, right);
    return;
  }
  operands.upper[1] ^= flip << (limb_bits - 1);
  // Whether the signs differ is as good as random to a branch predictor, too: a mask chooses.
  const Order order = compare_magnitudes(s, n, operands);
  operands.swap_if(order.less);
  const Number x = operands.unpack(s, n, 0);
  const Number y = operands.unpack(s, n, 1);
  const bool minus = x.sign != y.sign;
  if ((order.equal & limb_mask(minus)) != 0) [[unlikely]] {
    pack_zero(s, Limb{rules::zero_sum_is_negative(d)}, left);
    return;
  }
  // A place above the hidden bit, for the carry.
  Window<n> sum;
  Window<n> part;
  load_halved(sum, x);
  load_below(part, y, static_cast<std::uint64_t>(x.exp - y.exp) + 1);
  for (Limb& limb : part.w) {
    limb ^= limb_mask(minus);
  }
  Carry carry = minus;
  for (std::size_t i = 0; i <= n; ++i) {
    sum.w[i] = add_limb(sum.w[i], part.w[i], carry);
  }
  round_and_pack(s, d, x.sign, x.exp + 1, sum, left);
}

/// Limbs of a significand whose leading bit is the highest.
template <std::size_t n>
[[gnu::always_inline]] inline void align_up(Shape s, const Number& x, Limb (&out)[n]) {
  const Limb power = Limb{1} << (limb_bits - 1 - s.top_bit());
  Limb left = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const DoubleLimb shifted = DoubleLimb{i < n - 1 ? x.low[i] : x.top} * power;
    out[i] = static_cast<Limb>(shifted) | left;
    left = static_cast<Limb>(shifted >> limb_bits);
  }
}

/// The operands of a product or a quotient, normalized.
template <std::size_t n>
struct Factors {
  Number x;
  Number y;
  Limb room[2][n];

  /// False if the tables know the result.
  [[gnu::always_inline]] bool load(Shape s, const Operands& operands) {
    if (!operands.finite(s)) [[unlikely]] {
      return false;
    }
    x = operands.unpack(s, n, 0);
    y = operands.unpack(s, n, 1);
    if ((x.top & y.top & s.hidden_bit()) == 0) [[unlikely]] {
      if (is_zero(x, n) || is_zero(y, n)) {
        return false;
      }
      normalize<n>(s, x, room[0]);
      normalize<n>(s, y, room[1]);
    }
    return true;
  }
};

template <class S, std::size_t n>
[[gnu::always_inline]] inline void multiply(S shape, Fixed<n> /*size*/, Direction d, Limb* left,
                                            const Limb* right) {
  const Shape s = shape;
  Factors<n> f;
  if (!f.load(s, Operands(s, n, left, right))) [[unlikely]] {
    apply_table(Operation::product, s, d, left, right);
    return;
  }
  Limb factors[2][n];
  std::copy_n(f.x.low, n - 1, factors[0]);
  factors[0][n - 1] = f.x.top;
  align_up(s, f.y, factors[1]);
  Limb product[2 * n];
  multiply_few<n>(product, factors[0], factors[1]);
  Limb lost = 0;
  for (std::size_t i = 0; i < n - 1; ++i) {
    lost |= product[i];
  }
  Window<n> window;
  std::copy_n(product + n - 1, n + 1, window.w);
  window.w[0] |= Limb{lost != 0};
  const std::int64_t exp = f.x.exp - s.bias() + f.y.exp + 1;
  round_and_pack(s, d, f.x.sign ^ f.y.sign, exp, window, left);
}

template <class S, std::size_t n>
[[gnu::always_inline]] inline void divide(S shape, Fixed<n> /*size*/, Direction d, Limb* left,
                                          const Limb* right) {
  const Shape s = shape;
  Factors<n> f;
  if (!f.load(s, Operands(s, n, left, right))) [[unlikely]] {
    apply_table(Operation::quotient, s, d, left, right);
    return;
  }
  Limb rest[n];
  Limb divisor[n];
  align_up(s, f.x, rest);
  align_up(s, f.y, divisor);
  // Halved, the dividend is below the divisor; what leaves its limbs comes back with the first
  // digit.
  Limb low = shifted_limb(0, rest[0], 1);
  for (std::size_t i = 0; i < n; ++i) {
    rest[i] = shifted_limb(rest[i], i + 1 < n ? rest[i + 1] : 0, 1);
  }
  const Divisor highest(divisor[n - 1], n > 1 ? divisor[n - 2] : 0);
  Window<n> quotient;
#pragma GCC unroll 4
  for (std::size_t i = n; i > 0; --i) {
    quotient.w[i] = next_digit(rest, std::exchange(low, 0), divisor, highest);
  }
  // So many bits are mostly enough to round by.
  quotient.w[0] = s.top_bit() < limb_bits - 2 ? 0 : next_digit(rest, 0, divisor, highest);
  Limb left_over = 0;
  for (std::size_t i = 0; i < n; ++i) {
    left_over |= rest[i];
  }
  shift_right(quotient, limb_bits - 1 - s.top_bit());
  quotient.w[0] |= Limb{left_over != 0};
  const std::int64_t exp = f.x.exp - f.y.exp + s.bias();
  round_and_pack(s, d, f.x.sign ^ f.y.sign, exp, quotient, left);
}

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_FEW_H_
