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
#include "zelk/limbs/window.h"

namespace zelk::limbs {

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

/// A sum whose terms are ready: a pattern, `larger`, whose sign may have to be changed, and the
/// significand of the other in the place where the sum has it. In a difference the bits of that are
/// changed, and `minus` is all ones.
struct Terms {
  Limb sign;
  std::int64_t field;
  Limb minus;
  Limb flip_sign;
  const Limb* larger;
};

/// out := a sum that has left the exponent of its larger term, rounded. The guard is in sum[0].
template <class S, std::size_t n>
[[gnu::always_inline]] inline void pack_moved_sum(S shape, Rounding r, const Terms& t, Limb upper,
                                                  const Limb (&sum)[n + 2], Limb* out) {
  const Shape s = shape;
  // Below the exponent is the significand of a difference, all of it. That of a sum has two bits
  // more: 10 where the exponent has moved by 1, 11 where it has by 2.
  Window<n> window;
  for (std::size_t i = 0; i < n; ++i) {
    window.w[i] = sum[i];
  }
  window.w[n] = sum[n] & (s.hidden_bit() - 1);
  if (t.minus == 0) {
    const std::int64_t step = exponent_field(s, upper) - t.field;
    window.w[n] |= (~static_cast<Limb>(step) & 1) << s.top_bit();
    shift_right(window, 1);
    window.w[n] |= s.hidden_bit();
    round_and_pack(shape, r, t.sign, t.field + 1, window, out);
    return;
  }
  const Limb leading = leading_limb(s, window);
  const std::int64_t zeros = std::countl_zero(leading);
  if (leading == 0 || zeros >= t.field) [[unlikely]] {
    normalize_and_pack(s, r, t.sign, t.field, window, out);
    return;
  }
  shift_left(window, static_cast<unsigned>(zeros));
  pack_rounded(s, r, t.sign, t.field - zeros, window, out);
}

/// out := a sum, rounded.
template <class S, std::size_t n>
[[gnu::always_inline]] inline void pack_sum(S shape, Rounding r, const Terms& t,
                                            const Window<n>& part, Limb* out) {
  const Shape s = shape;
  // The exponent is the upper digits of the number that a pattern's magnitude is. While the sum
  // leaves it as it is, there is nothing more to do than to round.
  Limb sum[n + 2];
  Carry carry = t.minus & 1;
  sum[0] = add_limb(part.w[0], 0, carry);
  for (std::size_t i = 1; i <= n; ++i) {
    sum[i] = add_limb(part.w[i], t.larger[i - 1], carry);
  }
  sum[n + 1] = s.has_limb_above() ? t.larger[n] + t.minus + carry : 0;
  const Limb upper = upper_limb(s, n, sum + 1);
  // Subnormals are in place even if they become normal.
  if (exponent_field(s, upper) != t.field && t.field > 0) {
    pack_moved_sum<S, n>(shape, r, t, upper, sum, out);
    return;
  }
  if (r.is_watched()) {
    if (is_at_border(s, t.field)) [[unlikely]] {
      sum[s.pattern_size(n)] ^= t.flip_sign >> s.unused_bits();
      std::copy_n(sum + 1, s.pattern_size(n), out);
      round_watched(s, r, t.sign, sum[0], out);
      return;
    }
    r.raise_lost(sum[0]);
  }
  carry = rounds_up(r, t.sign, sum[1] % 2 != 0, sum[0]);
  sum[s.pattern_size(n)] ^= t.flip_sign >> s.unused_bits();
  for (std::size_t i = 0; i < n; ++i) {
    out[i] = add_limb(sum[i + 1], 0, carry);
  }
  if (s.has_limb_above()) {
    out[n] = sum[n + 1] + carry;
  }
}

/// The same where the smaller term is that of 2^k, k >= 64.
template <class S, std::size_t n, class R>
[[gnu::noinline]] void pack_far_sum(S shape, Fixed<n> /*size*/, R rounding, Terms t, Number smaller,
                                    std::uint64_t k, Limb* out) {
  const Rounding r = rounding;
  const Shape s = shape;
  if (k > s.mant_width + 2 && r.direction == rules::nearest) {
    // Less than a quarter of a unit in the last place, also below a power of two.
    r.raise_lost(Limb{!is_zero(smaller, n)});
    for (std::size_t i = 0; i < n; ++i) {
      out[i] = t.larger[i];
    }
    if (s.has_limb_above()) {
      out[n] = t.larger[n];
    }
    out[s.pattern_size(n) - 1] ^= t.flip_sign >> s.unused_bits();
    return;
  }
  Window<n> part{};
  if (k >= (n + 1) * limb_bits) {
    part.w[0] = Limb{!is_zero(smaller, n)};
  } else {
    part = load_shifted<n>(smaller, 0);
    drop_limbs(part, k / limb_bits);
    shift_right(part, k % limb_bits);
  }
  for (Limb& limb : part.w) {
    limb = words::opaque(limb ^ t.minus);
  }
  pack_sum(shape, r, t, part, out);
}

template <class S, std::size_t n, class R>
[[gnu::always_inline]] inline void add_sub(S shape, Fixed<n> size, R rounding, Limb* left,
                                           const Limb* right, Limb flip) {
  const Shape s = shape;
  const Rounding r = rounding;
  Operands operands(s, n, left, right);
  if (!operands.finite(s)) [[unlikely]] {
    apply_table(flip != 0 ? Operation::difference : Operation::sum, s, r, left, right);
    return;
  }
  // Which operand is larger and whether the signs differ is as good as random to a branch
  // predictor: masks choose.
  const Order order = compare_magnitudes(s, n, operands);
  const Limb flip_sign = flip << (limb_bits - 1);
  Terms t;
  t.minus = 0 - ((operands.upper[0] ^ operands.upper[1] ^ flip_sign) >> (limb_bits - 1));
  if ((order.equal & t.minus) != 0) [[unlikely]] {
    pack_zero(s, Limb{rules::zero_sum_is_negative(r.direction)}, left);
    return;
  }
  operands.swap_if(order.less);
  t.flip_sign = flip_sign & order.less;
  t.sign = (operands.upper[0] ^ t.flip_sign) >> (limb_bits - 1);
  t.field = exponent_field(s, operands.upper[0]);
  t.larger = operands.bits[0];
  const Number smaller = operands.unpack(s, n, 1);
  const std::int64_t exp = t.field + std::int64_t{t.field == 0};
  const auto k = static_cast<std::uint64_t>(exp - smaller.exp);
  if (k >= limb_bits) [[unlikely]] {
    pack_far_sum(shape, size, rounding, t, smaller, k, left);
    return;
  }
  Window<n> part = load_shifted<n>(smaller, static_cast<unsigned>(k));
  for (Limb& limb : part.w) {
    limb = words::opaque(limb ^ t.minus);  // no carry between these and the sum
  }
  pack_sum(shape, r, t, part, left);
}

/// Two factors, or a dividend and its divisor.
template <std::size_t n>
struct Factors {
  Number x;
  Number y;
};

/// x := x op y by way of compute(factors), whose factors are normalized.
template <std::size_t n, class Compute>
[[gnu::always_inline]] inline void with_factors(Operation op, Shape s, Rounding r, Limb* left,
                                                const Limb* right, Compute compute) {
  const Operands operands(s, n, left, right);
  if (operands.finite(s)) [[likely]] {
    const Factors<n> f{operands.unpack(s, n, 0), operands.unpack(s, n, 1)};
    if ((f.x.top & f.y.top & s.hidden_bit()) != 0) [[likely]] {
      compute(f);
      return;
    }
    if (!is_zero(f.x, n) && !is_zero(f.y, n)) {
      [&]() __attribute__((noinline)) {
        Limb room[2][n];
        Factors<n> normal = f;
        normalize<n>(s, normal.x, room[0]);
        normalize<n>(s, normal.y, room[1]);
        compute(normal);
      }
      ();
      return;
    }
  }
  apply_table(op, s, r, left, right);
}

template <std::size_t n>
[[gnu::always_inline]] inline void copy_limbs(const Number& x, Limb (&out)[n]) {
  for (std::size_t i = 0; i < n - 1; ++i) {
    out[i] = x.low[i];
  }
  out[n - 1] = x.top;
}

/// The lower limb of high:low / 2^(k + more), more being 0 or 1.
template <class S>
[[gnu::always_inline]] inline Limb shifted_limb(S /*shape*/, Limb low, Limb high, unsigned k,
                                                unsigned more) {
  return low >> k >> more | high << (limb_bits - 1 - k) << (1 - more);
}
template <unsigned long e, unsigned long m>
[[gnu::always_inline]] inline Limb shifted_limb(FixedShape<e, m> /*shape*/, Limb low, Limb high,
                                                unsigned k, unsigned more) {
  static_assert(m % limb_bits != 0 && m % limb_bits != limb_bits - 1);
  return low >> (k + more) | high << (limb_bits - k - more);
}

/// left := left * right, of normalized significands.
template <class S, std::size_t n>
[[gnu::always_inline]] inline void multiply_normal(S shape, Rounding r, const Factors<n>& f,
                                                   Limb* left) {
  const Shape s = shape;
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
  Window<n> window;
  for (std::size_t i = 0; i < n; ++i) {
    window.w[i + 1] = shifted_limb(shape, product[n - 1 + i], product[n + i], top_bit, above);
  }
  const Limb below = n > 1 ? product[n - 2] : 0;
  Limb lost = shifted_limb(shape, 0, below, top_bit, above);
  for (std::size_t i = 0; i + 2 < n; ++i) {
    lost |= product[i];
  }
  window.w[0] = shifted_limb(shape, below, product[n - 1], top_bit, above) | Limb{lost != 0};
  const std::int64_t exp = f.x.exp - s.bias() + f.y.exp + above;
  round_and_pack(shape, r, f.x.sign ^ f.y.sign, exp, window, left);
}

template <class S, std::size_t n>
[[gnu::always_inline]] inline void multiply(S shape, Fixed<n> /*size*/, Rounding r, Limb* left,
                                            const Limb* right) {
  const auto compute = [=](const Factors<n>& f) __attribute__((always_inline)) {
    multiply_normal(shape, r, f, left);
  };
  with_factors<n>(Operation::product, shape, r, left, right, compute);
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

/// left := left / right, of normalized significands.
template <class S, std::size_t n>
[[gnu::always_inline]] inline void divide_normal(S shape, Rounding r, const Factors<n>& f,
                                                 Limb* left) {
  const Shape s = shape;
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
  round_and_pack(shape, r, f.x.sign ^ f.y.sign, exp, quotient, left);
}

template <class S, std::size_t n>
[[gnu::always_inline]] inline void divide(S shape, Fixed<n> /*size*/, Rounding r, Limb* left,
                                          const Limb* right) {
  const auto compute = [=](const Factors<n>& f) __attribute__((always_inline)) {
    divide_normal(shape, r, f, left);
  };
  with_factors<n>(Operation::quotient, shape, r, left, right, compute);
}

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_FEW_H_
