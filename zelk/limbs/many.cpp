#include "zelk/limbs/many.h"

#include <utility>

#include "zelk/base/machine.h"
#include "zelk/limbs/patterns.h"
#include "zelk/limbs/room.h"
#include "zelk/limbs/short.h"

namespace zelk::limbs {

namespace {

/// What `with_size` has made sure of.
inline void assume_many(long n) {
#ifdef ZELK_EXTENSIONS
  if (n < 5) __builtin_unreachable();
#else
  static_cast<void>(n);
#endif
}

/// out, a significand of n limbs with its hidden bit in place or, for exp = 1, below, becomes the
/// pattern nearest in the direction to it with the guard.
inline void round_and_pack(Shape s, long n, Rounding r, Limb sign, std::int64_t exp, Limb guard,
                           Limb* out) {
  if (exp >= s.exp_max()) [[unlikely]] {
    pack_overflow(s, r, sign, out);
    return;
  }
  pack_top(s, n, sign, exp - 1, out[n - 1], 0, out);
  round_pattern(s, n, r, sign, guard, out);
}

// ---- The operations ----

/// room := y / 2^d, d >= 64, n limbs with the bits of `flip` changed, in n + 1 of room; the guard.
[[gnu::noinline]] inline Limb shift_far(const Number& y, long n, std::uint64_t d, Limb flip,
                                        Limb* room) {
  const long low = n - 1;
  if (d >= limb_bits * static_cast<std::uint64_t>(n + 1)) {
    std::fill_n(room, n, flip);
    return Limb{y.top != 0 || mpn_zero_p(y.low, low) == 0};
  }
  const auto limbs = static_cast<long>(d / limb_bits);
  const auto bits = static_cast<unsigned>(d % limb_bits);
  // The limb that becomes the guard, and those above.
  const long have = n - limbs;
  std::copy_n(y.low + limbs - 1, have, room);
  room[have] = y.top;
  const Limb lost =
      Limb{shifted_limb(0, room[0], bits) != 0 || (limbs > 1 && mpn_zero_p(y.low, limbs - 1) == 0)};
  const Limb guard = shifted_limb(room[0], have > 0 ? room[1] : 0, bits) | lost;
  if (have > 0) {
    shift_down(room, room + 1, have - 1, bits, flip);
    room[have - 1] = (y.top >> bits) ^ flip;
  }
  std::fill(room + have, room + n, flip);
  return guard;
}

/// The same for every d.
inline Limb shift_operand(const Number& y, long n, std::uint64_t d, Limb flip, Limb* room) {
  if (d >= limb_bits) {
    return shift_far(y, n, d, flip, room);
  }
  const auto bits = static_cast<unsigned>(d);
  const long low = n - 1;
  shift_down(room, y.low, low - 1, bits, flip);
  room[low - 1] = shifted_limb(y.low[low - 1], y.top, bits) ^ flip;
  room[low] = (y.top >> bits) ^ flip;
  return shifted_limb(0, y.low[0], bits);
}

/// Moves the leading bit of a difference up to m, or as far as the exponent goes, by k places; the
/// guard that is left, and k.
struct Normalized {
  Limb guard;
  std::int64_t k;
};
[[gnu::noinline]] inline Normalized normalize_difference(Shape s, long n, Limb* out,
                                                         std::int64_t exp, Limb guard) {
  const long used = trimmed(out, n);
  const long leading = used == 0 ? -1 : bit_size(out, used) - 1;  // all of 2^m - (2^m - 1/2)
  const std::int64_t k = std::min(static_cast<long>(s.mant_width) - leading, exp - 1);
  const auto limbs = static_cast<long>(k / limb_bits);
  const auto bits = static_cast<unsigned>(k % limb_bits);
  if (limbs > 0) {
    std::copy_backward(out, out + n - limbs, out + n);
    std::fill_n(out, limbs - 1, 0);
    out[limbs - 1] = std::exchange(guard, 0);
  }
  if (bits != 0) {
    shift_up(out + 1, out + 1, n - 1, bits);
    out[0] = shifted_limb(guard, out[0], limb_bits - bits);
    guard <<= bits;
  }
  return {guard, k};
}

/// out := a sum whose exponent may have moved from the larger pattern's, rounded. `upper` is of
/// that pattern, `minus` all ones in a difference. The sum is overwritten, n + 1 limbs of it, and
/// has its guard in the limb below. Subnormals are in place even if they become normal.
[[gnu::noinline]] inline void round_moved_sum(Shape s, long n, Rounding r, Limb upper, Limb minus,
                                              Limb* sum, Limb* out) {
  const long size = s.pattern_size(n);
  const Limb sign = upper >> (limb_bits - 1);
  const std::int64_t field = exponent_field(s, upper);
  increment(sum, size, minus & Limb{sum[-1] == 0});
  const std::int64_t step = exponent_field(s, upper_limb(s, n, sum)) - field;
  if (step == 0 || field <= static_cast<std::int64_t>(minus & 1)) [[unlikely]] {
    std::copy_n(sum, size, out);
    round_pattern(s, n, r, sign, sum[-1], out);
    return;
  }
  // Below the exponent is the significand of a difference, all of it. That of a sum has two bits
  // more: 10 where the exponent has moved by 1, 11 where it has by 2.
  const unsigned top_bit = s.top_bit();
  sum[n - 1] &= s.hidden_bit() - 1;
  sum[n - 1] |= (~(static_cast<Limb>(step) | minus) & 1) << top_bit;
  sum[n] = 0;
  const Limb leading = sum[n - 1] << (limb_bits - 1 - top_bit) | sum[n - 2] >> 1 >> top_bit;
  const std::int64_t zeros = std::countl_zero(leading);
  if ((minus & (limb_mask(leading == 0) | limb_mask(zeros >= field))) != 0) [[unlikely]] {
    const Normalized moved = normalize_difference(s, n, sum, field, sum[-1]);
    std::copy_n(sum, n, out);
    round_and_pack(s, n, r, sign, field - moved.k, moved.guard, out);
    return;
  }
  // A difference goes up by its zeros; a sum goes down by one, which is up by 63 from a limb below.
  const Limb places = static_cast<Limb>(zeros) & minus;
  const auto k = static_cast<unsigned>(places | (63 & ~minus));
  const Limb* from = sum + 1 + static_cast<long>(minus);
  const Limb guard = from[-1] << k | ((sum[-1] >> 1 | (sum[-1] & 1)) & ~minus);
  shift_up(out, from, n, k);
  out[n - 1] |= s.hidden_bit() & ~minus;
  const auto change = static_cast<std::int64_t>((1 & ~minus) - places);
  round_and_pack(s, n, r, sign, field + change, guard, out);
}

}  // namespace

void normalize_and_pack(Shape s, long n, Rounding r, Limb sign, std::int64_t exp, const Limb* w,
                        long size, bool sticky, Limb* out) {
  const long used = trimmed(w, size);
  std::int64_t shift = bit_size(w, used) - 1 - static_cast<long>(s.mant_width);
  exp += shift;
  if (exp < 1) {
    shift += 1 - exp;
    exp = 1;
  }
  Limb guard = 0;
  if (shift >= 0) {
    guard = shift_right(out, n, w, size, static_cast<std::uint64_t>(shift));
  } else {
    shift_left(out, n, w, used, static_cast<std::uint64_t>(-shift));
  }
  round_and_pack(s, n, r, sign, exp, guard | Limb{sticky}, out);
}

void add_sub(Shape s, long n, Rounding r, Limb* x, const Limb* y, Limb flip) {
  assume_many(n);
  Operands operands(s, n, x, y);
  if (!operands.finite(s)) [[unlikely]] {
    apply_table(flip != 0 ? Operation::difference : Operation::sum, s, r, x, y);
    return;
  }
  Room room(n + 2);
  operands.upper[1] ^= flip << (limb_bits - 1);
  const Order order = compare_magnitudes(s, n, operands);
  operands.swap_if(order.less);
  const Limb upper = operands.upper[0];
  const Limb sign = upper >> (limb_bits - 1);
  const Number smaller = operands.unpack(s, n, 1);
  const Limb minus = limb_mask(sign != smaller.sign);
  if ((order.equal & minus) != 0) [[unlikely]] {
    pack_zero(s, Limb{rules::zero_sum_is_negative(r.direction)}, x);
    return;
  }
  const long size = s.pattern_size(n);
  const std::int64_t field = exponent_field(s, upper);
  const std::int64_t exp = field + std::int64_t{field == 0};
  Limb* part = room.limbs() + 1;
  const Limb lost =
      shift_operand(smaller, n, static_cast<std::uint64_t>(exp - smaller.exp), minus, part);
  part[n] = minus;
  const Limb guard = (lost ^ minus) - minus;

  // The exponent is the upper digits of the number that a pattern's magnitude is. While the sum
  // leaves it as it is, there is nothing more to do than to add and to round. Whether it does is as
  // good as random to a branch predictor, but seen in the upper limbs before the others are added,
  // unless a carry decides.
  const unsigned unused = s.unused_bits();
  const Limb top = part[n - 1];
  const Limb above = s.has_limb_above() ? minus : top;
  const Limb below = s.has_limb_above() ? top : part[n - 2];
  const Limb upper_sum = upper + (above << unused | below >> 1 >> (limb_bits - 1 - unused));
  const Limb moved = limb_mask(exponent_field(s, upper_sum) != field);
  const Limb undecided = limb_mask(~upper_sum << 1 << s.exp_width == 0);
  const Limb elsewhere = words::opaque(moved | undecided);
  Limb* sum = std::bit_cast<Limb*>((std::bit_cast<Limb>(part) & elsewhere) |
                                   (std::bit_cast<Limb>(x) & ~elsewhere));
  mpn_add_n(sum, operands.bits[0], part, size);
  if (flip != 0) {
    const unsigned place = limb_bits - 1 - unused;
    sum[size - 1] = (sum[size - 1] & ~(Limb{1} << place)) | sign << place;
  }
  if (elsewhere != 0) {
    part[-1] = guard;
    round_moved_sum(s, n, r, upper, minus, part, x);
  } else {
    // A complement lacks one if nothing is below, and then there is nothing to round.
    const Limb complement = minus & Limb{guard == 0};
    if (r.is_watched()) {
      increment(sum, size, complement);
      round_watched(s, r, sign, guard, sum);
    } else {
      increment(sum, size, complement | Limb{rounds_up(r, sign, sum[0] % 2 != 0, guard)});
    }
  }
}

// ---- Products and quotients ----

namespace {

/// out := the significand of x, moved up so far that a normal one has the highest bit set.
void align_up(Shape s, long n, const Number& x, Limb* out) {
  const unsigned k = 63 - s.top_bit();
  out[n - 1] = x.top << k | x.low[n - 2] >> 1 >> (limb_bits - 1 - k);
  shift_up(out + 1, x.low + 1, n - 2, k);
  out[0] = x.low[0] << k;
}

/// Whether the result depends on what a guard has lost: less than `error` units of it. Halves
/// matter to the nearest, whole units to other directions and to whoever asks whether a result is
/// exact.
bool is_undecided(Rounding r, Limb guard, Limb error) {
  const bool nearest = r.direction == rules::nearest || r.direction == rules::nearest_away;
  return (nearest && half_limb - guard < error) ||
         ((!nearest || r.is_watched()) && 0 - guard < error);
}

/// What is left of two operands beside their significands: `exp` is the exponent of the result, or
/// one less.
struct Factors {
  Limb sign;
  std::int64_t exp;
  bool normal;

  Factors(Shape s, const Number& x, const Number& y, std::int64_t exponent)
      : sign(x.sign ^ y.sign), exp(exponent), normal((x.top & y.top & s.hidden_bit()) != 0) {}

  /// Whether the operands are normal numbers, and the result surely is one.
  bool is_safe(Shape s) const { return normal && exp > 0 && exp < s.exp_max() - 1; }
};

/// out := x * y, x and y being significands of n limbs, y moved up to the highest bit. Rounds by
/// the upper limbs of the product, n + 1 of them in `product`; false, and nothing done, where those
/// do not decide.
bool multiply_upper(Shape s, long n, Rounding r, const Factors& f, const Limb* x, const Limb* y,
                    Limb* product, Limb* out) {
  multiply_high(product, x, y, n, product + n + 1);
  const auto above = static_cast<unsigned>(product[n] >> s.top_bit() & 1);
  const unsigned k = 1 - above;
  const Limb guard = product[0] << k;
  if (is_undecided(r, guard, product_error(n) << k)) [[unlikely]] {
    return false;
  }
  shift_up(out, product + 1, n, k);
  round_and_pack(s, n, r, f.sign, f.exp + above, guard, out);
  return true;
}

/// out := x / y, x and y being significands of n limbs, both moved up to the highest bit. As above,
/// with n + 3 limbs in `quotient`.
bool divide_upper(Shape s, long n, Rounding r, const Factors& f, const Limb* x, const Limb* y,
                  Limb* quotient, Limb* out) {
  divide_high(quotient, x, y, n, quotient + n + 3);
  quotient[n + 2] = 0;
  const auto above = static_cast<unsigned>(quotient[n + 1]);
  const unsigned places = 63 - s.top_bit() + above;
  const unsigned k = places % limb_bits;
  const Limb* from = quotient + places / limb_bits;
  const Limb guard = shifted_limb(from[0], from[1], k);
  // Less than a unit goes with the limbs that the guard is cut from.
  if (is_undecided(r, guard, quotient_error + 1)) [[unlikely]] {
    return false;
  }
  shift_down(out, from + 1, n, k);
  round_and_pack(s, n, r, f.sign, f.exp + above, guard, out);
  return true;
}

/// out := x * y, x and y being significands of n limbs, y moved up to the highest bit, with room
/// for the product.
void multiply_significands(Shape s, long n, Rounding r, const Factors& f, const Limb* x,
                           const Limb* y, Limb* product, Limb* out) {
  if (f.is_safe(s) && multiply_upper(s, n, r, f, x, y, product, out)) {
    return;
  }
  mpn_mul_n(product, x, y, n);
  const std::int64_t exp = f.exp - static_cast<long>(s.mant_width) - (63 - long{s.top_bit()});
  normalize_and_pack(s, n, r, f.sign, exp, product, 2 * n, false, out);
}

/// out := x * x, x being a significand moved up. As a whole a square is faster.
void square_significand(Shape s, long n, Rounding r, const Factors& f, const Limb* x, Limb* product,
                        Limb* out) {
  mpn_sqr(product, x, n);
  const std::int64_t exp = f.exp - static_cast<long>(s.mant_width) - 2 * (63 - long{s.top_bit()});
  normalize_and_pack(s, n, r, f.sign, exp, product, 2 * n, false, out);
}

}  // namespace

// For large products and quotients GMP allocates, and that may throw.

void multiply(Shape s, long n, Rounding r, Limb* x, const Limb* y) {
  assume_many(n);
  Room room(n + std::max(n + 1 + product_room(n), 2 * n));
  const Operands operands(s, n, x, y);
  const Number left = operands.unpack(s, n, 0);
  const Number right = operands.unpack(s, n, 1);
  if (!operands.finite(s) || is_zero(left, n) || is_zero(right, n)) [[unlikely]] {
    apply_table(Operation::product, s, r, x, y);
    return;
  }
  const Factors f(s, left, right, left.exp - s.bias() + right.exp);
  Limb* factor = room.limbs();
  Limb* product = factor + n;
  align_up(s, n, right, factor);
  if (x == y) {
    square_significand(s, n, r, f, factor, product, x);
    return;
  }
  // Without sign and exponent x is its significand.
  const Limb top = std::exchange(x[n - 1], left.top);
  try {
    multiply_significands(s, n, r, f, x, factor, product, x);
  } catch (...) {
    x[n - 1] = top;
    throw;
  }
}

void divide(Shape s, long n, Rounding r, Limb* x, const Limb* y) {
  assume_many(n);
  // A quotient of 64 q - 1 bits at least, where m + 2 are needed; the remainder is the sticky bit.
  const long q = static_cast<long>((s.mant_width + 2) / limb_bits) + 1;
  Room room(2 * n + std::max(n + 3 + quotient_room(n), 2 * q + 1 + 2 * n));
  const Operands operands(s, n, x, y);
  const Number left = operands.unpack(s, n, 0);
  const Number right = operands.unpack(s, n, 1);
  if (!operands.finite(s) || is_zero(left, n) || is_zero(right, n)) [[unlikely]] {
    apply_table(Operation::quotient, s, r, x, y);
    return;
  }
  const Factors f(s, left, right, left.exp - right.exp + s.bias() - 1);
  Limb* dividend = room.limbs();
  Limb* divisor = dividend + n;
  Limb* quotient = divisor + n;
  align_up(s, n, left, dividend);
  align_up(s, n, right, divisor);
  if (f.is_safe(s) && divide_upper(s, n, r, f, dividend, divisor, quotient, x)) {
    return;
  }
  const long x_size = trimmed(dividend, n);
  const long y_size = trimmed(divisor, n);
  const std::int64_t exp = f.exp + 2 + static_cast<long>(s.mant_width) - q * limb_bits +
                           bit_size(dividend, x_size) - bit_size(divisor, y_size);
  const bool sticky =
      divide_integers(quotient, q, dividend, x_size, divisor, y_size, quotient + q + 1);
  normalize_and_pack(s, n, r, f.sign, exp, quotient, q + 1, sticky, x);
}

}  // namespace zelk::limbs
