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
template <std::size_t n>
[[gnu::noinline]] Window<n> load_far(Number x, std::uint64_t k) {
  Window<n> s = load_shifted<n>(x, 0);
  drop_limbs(s, k / limb_bits);
  shift_right(s, k % limb_bits);
  return s;
}
template <std::size_t n>
[[gnu::always_inline]] inline Window<n> load_below(const Number& x, std::uint64_t k) {
  if (k < limb_bits) [[likely]] {
    return load_shifted<n>(x, static_cast<unsigned>(k));
  }
  return load_far<n>(x, k);
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
[[gnu::always_inline]] inline void pack_rounded(Shape shape, Direction d, Limb sign,
                                                std::int64_t exp, const Window<n>& s, Limb* out) {
  Carry carry = rounds_up(d, sign, s.w[1] % 2 != 0, s.w[0]);
  for (std::size_t i = 0; i < n - 1; ++i) {
    out[i] = add_limb(s.w[i + 1], 0, carry);
  }
  const Limb top = add_limb(s.w[n], 0, carry);
  // The hidden bit adds one to the exponent field. What carries into the exponent of infinities is
  // rounded outward and leaves a significand of 0.
  pack_top(shape, n, sign, exp - 1, top, carry, out);
}

/// out := the pattern nearest in direction d to a number whose significand has its leading bit
/// where the hidden bit belongs, or below.
template <std::size_t n>
[[gnu::noinline]] void normalize_and_pack(Shape shape, Direction d, Limb sign, std::int64_t exp,
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
    pack_overflow(shape, d, sign, out);
  } else {
    pack_rounded(shape, d, sign, exp, s, out);
  }
}

/// The same with the leading bit where the hidden bit belongs.
template <class S, std::size_t n>
[[gnu::always_inline]] inline void round_and_pack(S shape, Direction d, Limb sign, std::int64_t exp,
                                                  const Window<n>& s, Limb* out) {
  const Shape widths = shape;
  if (static_cast<Limb>(exp - 1) < static_cast<Limb>(widths.exp_max() - 1)) [[likely]] {
    pack_rounded(widths, d, sign, exp, s, out);
  } else {
    normalize_and_pack(widths, d, sign, exp, s, out);
  }
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

/// left := a sum that has left the exponent of the larger operand, `field`, rounded. `sum` is that
/// pattern plus or, with all ones in `minus`, less the other significand; the guard is below, and
/// the limb above has room.
template <std::size_t n>
[[gnu::always_inline]] inline void pack_moved_sum(Shape s, Direction d, Limb sign,
                                                  std::int64_t field, Limb minus, Limb upper,
                                                  Limb (&sum)[n + 2], Limb* out) {
  Window<n> window;
  const std::int64_t step = exponent_field(s, upper) - field;
  // Below the exponent is the significand of a difference, all of it. That of a sum has two bits
  // more: 10 where the exponent has moved by 1, 11 where it has by 2.
  sum[n] &= s.hidden_bit() - 1;
  sum[n] |= (~(static_cast<Limb>(step) | minus) & 1) << s.top_bit();
  sum[n + 1] = 0;
  std::copy_n(sum, n + 1, window.w);
  const Limb leading = leading_limb(s, window);
  const std::int64_t zeros = std::countl_zero(leading);
  if ((minus & (limb_mask(leading == 0) | limb_mask(zeros >= field))) != 0) [[unlikely]] {
    normalize_and_pack(s, d, sign, field, window, out);
    return;
  }
  // A difference goes up by its zeros; a sum goes down by one, which is up by 63 from a limb below.
  const Limb places = static_cast<Limb>(zeros) & minus;
  const auto k = static_cast<unsigned>(places | (63 & ~minus));
  const Limb* from = sum + 1 + static_cast<long>(minus);
  for (std::size_t i = n; i > 0; --i) {
    window.w[i] = from[i] << k | from[i - 1] >> 1 >> (limb_bits - 1 - k);
  }
  window.w[0] = from[0] << k | ((sum[0] >> 1 | (sum[0] & 1)) & ~minus);
  window.w[n] |= s.hidden_bit() & ~minus;
  const auto change = static_cast<std::int64_t>((1 & ~minus) - places);
  round_and_pack(s, d, sign, field + change, window, out);
}

template <class S, std::size_t n>
[[gnu::always_inline]] inline void add_sub(S shape, Fixed<n> /*size*/, Direction d, Limb* left,
                                           const Limb* right, Limb flip) {
  const Shape s = shape;
  Operands operands(s, n, left, right);
  if (!operands.finite(s)) [[unlikely]] {
    apply_table(flip != 0 ? Operation::difference : Operation::sum, s, d, left, right);
    return;
  }
  // Which operand is larger and whether the signs differ is as good as random to a branch
  // predictor: masks choose.
  const Order order = compare_magnitudes(s, n, operands);
  const Limb flip_sign = flip << (limb_bits - 1);
  const Limb minus = 0 - ((operands.upper[0] ^ operands.upper[1] ^ flip_sign) >> (limb_bits - 1));
  if ((order.equal & minus) != 0) [[unlikely]] {
    pack_zero(s, Limb{rules::zero_sum_is_negative(d)}, left);
    return;
  }
  operands.swap_if(order.less);
  const Limb upper = operands.upper[0] ^ (flip_sign & order.less);
  const Limb sign = upper >> (limb_bits - 1);
  const std::int64_t field = exponent_field(s, upper);
  const Limb* larger = operands.bits[0];
  const Number smaller = operands.unpack(s, n, 1);
  const std::int64_t exp = field + std::int64_t{field == 0};
  const Window<n> part = load_below<n>(smaller, static_cast<std::uint64_t>(exp - smaller.exp));

  // The exponent is the upper digits of the number that a pattern's magnitude is. While the sum
  // leaves it as it is, there is nothing more to do than to round.
  Limb sum[n + 2];
  Carry carry = minus & 1;
  sum[0] = add_limb(part.w[0] ^ minus, 0, carry);
  for (std::size_t i = 1; i <= n; ++i) {
    sum[i] = add_limb(larger[i - 1], part.w[i] ^ minus, carry);
  }
  sum[n + 1] = s.has_limb_above() ? larger[n] + minus + carry : 0;
  const Limb sum_upper = upper_limb(s, n, sum + 1);
  // Subnormals are in place even if they become normal.
  if (exponent_field(s, sum_upper) != field && field > static_cast<std::int64_t>(minus & 1)) {
    pack_moved_sum<n>(s, d, sign, field, minus, sum_upper, sum, left);
    return;
  }
  carry = rounds_up(d, sign, sum[1] % 2 != 0, sum[0]);
  const long size = s.pattern_size(n);
  sum[size] ^= (flip & order.less) << (limb_bits - 1 - s.unused_bits());
  for (std::size_t i = 0; i < n; ++i) {
    left[i] = add_limb(sum[i + 1], 0, carry);
  }
  if (s.has_limb_above()) {
    left[n] = sum[n + 1] + carry;
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

template <std::size_t n>
[[gnu::always_inline]] inline void copy_limbs(const Number& x, Limb (&out)[n]) {
  std::copy_n(x.low, n - 1, out);
  out[n - 1] = x.top;
}

template <class S, std::size_t n>
[[gnu::always_inline]] inline void multiply(S shape, Fixed<n> /*size*/, Direction d, Limb* left,
                                            const Limb* right) {
  const Shape s = shape;
  Factors<n> f;
  if (!f.load(s, Operands(s, n, left, right))) [[unlikely]] {
    apply_table(Operation::product, s, d, left, right);
    return;
  }
  Limb x[n];
  Limb y[n];
  copy_limbs(f.x, x);
  copy_limbs(f.y, y);
  Limb product[2 * n];
  multiply_few<n>(product, x, y);
  // The leading bit is bit 2m or the one above. Divided by 2^m or twice that, a limb at a time.
  const unsigned top_bit = s.top_bit();
  const auto above = static_cast<unsigned>(double_limb(product[2 * n - 1], product[2 * n - 2]) >>
                                           top_bit >> top_bit >> 1);
  const auto shifted = [=](Limb low, Limb high) {
    return low >> top_bit >> above | high << (limb_bits - 1 - top_bit) << (1 - above);
  };
  Window<n> window;
  for (std::size_t i = 0; i < n; ++i) {
    window.w[i + 1] = shifted(product[n - 1 + i], product[n + i]);
  }
  const Limb below = n > 1 ? product[n - 2] : 0;
  Limb lost = shifted(0, below);
  for (std::size_t i = 0; i + 2 < n; ++i) {
    lost |= product[i];
  }
  window.w[0] = shifted(below, product[n - 1]) | Limb{lost != 0};
  const std::int64_t exp = f.x.exp - s.bias() + f.y.exp + above;
  round_and_pack(shape, d, f.x.sign ^ f.y.sign, exp, window, left);
}

/// Whether x < y.
template <std::size_t n>
[[gnu::always_inline]] inline bool is_less(const Limb (&x)[n], const Limb (&y)[n]) {
  Carry borrow = 0;
  for (std::size_t i = 0; i < n; ++i) {
    subtract_limb(x[i], y[i], borrow);
  }
  return borrow != 0;
}

/// x := x * 2^(63 - k).
template <std::size_t n>
[[gnu::always_inline]] inline void align_up(Limb (&x)[n], unsigned k) {
  for (std::size_t i = n - 1; i > 0; --i) {
    x[i] = x[i] << (limb_bits - 1 - k) | x[i - 1] >> 1 >> k;
  }
  x[0] <<= limb_bits - 1 - k;
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
  copy_limbs(f.x, rest);
  copy_limbs(f.y, divisor);
  // The divisor has its leading bit in the highest place. The dividend is less and more than half
  // of it: so has the quotient.
  const auto halved = static_cast<unsigned>(!is_less(rest, divisor));
  const unsigned top_bit = s.top_bit();
  align_up(divisor, top_bit);
  Limb low = 0;
  if (const unsigned k = top_bit + halved; k < limb_bits) [[likely]] {
    align_up(rest, k);
  } else {
    low = rest[0] << (limb_bits - 1);
    for (std::size_t i = 0; i < n; ++i) {
      rest[i] = shifted_limb(rest[i], i + 1 < n ? rest[i + 1] : 0, 1);
    }
  }
  const Divisor highest(divisor[n - 1], n > 1 ? divisor[n - 2] : 0);
  Window<n> quotient;
#pragma GCC unroll 4
  for (std::size_t i = n; i > 0; --i) {
    quotient.w[i] = next_digit(rest, std::exchange(low, 0), divisor, highest);
  }
  // Any bit below the last place is enough to round by.
  quotient.w[0] = top_bit < limb_bits - 1 ? 0 : next_digit(rest, 0, divisor, highest);
  Limb left_over = 0;
  for (std::size_t i = 0; i < n; ++i) {
    left_over |= rest[i];
  }
  shift_right(quotient, limb_bits - 1 - top_bit);
  quotient.w[0] |= Limb{left_over != 0};
  const std::int64_t exp = f.x.exp - f.y.exp + s.bias() - 1 + halved;
  round_and_pack(shape, d, f.x.sign ^ f.y.sign, exp, quotient, left);
}

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_FEW_H_
