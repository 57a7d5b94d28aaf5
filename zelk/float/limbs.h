// Rounded arithmetic on patterns past one word: the limbs of a number's GMP integer, computed on
// at a cost that does not depend on the exponents.
//
// Serves generic formats with e <= 62. What these routines refuse, NaNs and infinities above all,
// goes to the algorithms on numbers. Called by ieee_float.cpp.
#ifndef ZELK_FLOAT_LIMBS_H_
#define ZELK_FLOAT_LIMBS_H_

#include "zelk/float/few_limbs.h"

namespace zelk {
namespace {

/// Calls `serve` with the widths, as constants for binary256, and with the number of limbs of a
/// significand, as a constant when they are few.
template <class Serve>
[[gnu::always_inline]] inline decltype(auto) with_size(LimbShape s, Serve serve) {
  switch (const long n = s.significand_size()) {
    case 1:
      return serve(s, Fixed<1>());
    case 2:
      return serve(s, Fixed<2>());
    case 3:
      return serve(s, Fixed<3>());
    case 4:
      return Binary256::is(s) ? serve(Binary256(), Fixed<4>()) : serve(s, Fixed<4>());
    default:
      return serve(s, n);
  }
}

/// What `with_size` has made sure of.
inline void assume_many(long n) {
  if (n < 5) {
    __builtin_unreachable();
  }
}

/// out := the significand of x; the limbs up to the highest that is not 0.
inline long copy_significand(const LimbNumber& x, long n, Limb* out) {
  std::copy_n(x.low, n - 1, out);
  out[n - 1] = x.top;
  return trimmed(out, n);
}

/// Rounds the magnitude of a pattern of `size` limbs that has `guard` below. What carries into the
/// exponent of infinities is rounded outward and leaves a significand of 0.
inline void round_pattern(Direction mode, Limb sign, Limb guard, Limb* out, long size) {
  increment(out, size, Limb{rounds_up(mode, sign, out[0] % 2 != 0, guard)});
}

/// out, a significand of n limbs with its hidden bit in place or, for exp = 1, below, becomes the
/// pattern nearest in direction `mode` to it with the guard.
inline void round_and_pack_limbs(LimbShape s, long n, Direction mode, Limb sign, std::int64_t exp,
                                 Limb guard, Limb* out) {
  if (exp >= s.exp_max()) [[unlikely]] {
    pack_overflow_limbs(s, mode, sign, out);
    return;
  }
  pack_top(s, n, sign, exp - 1, out[n - 1], 0, out);
  round_pattern(mode, sign, guard, out, s.pattern_size(n));
}

/// The same for w * 2^(exp - bias - m), plus less than one unit of w if `sticky`, w of `size` limbs
/// and not 0.
inline void normalize_and_pack_limbs(LimbShape s, long n, Direction mode, Limb sign,
                                     std::int64_t exp, const Limb* w, long size, bool sticky,
                                     Limb* out) {
  const long used = trimmed(w, size);
  std::int64_t shift = bit_size(w, used) - 1 - static_cast<long>(s.mant_width);
  exp += shift;
  if (exp < 1) {
    shift += 1 - exp;
    exp = 1;
  }
  Limb guard = 0;
  if (shift >= 0) {
    guard = shift_many_right(out, n, w, size, static_cast<std::uint64_t>(shift));
  } else {
    shift_left(out, n, w, used, static_cast<std::uint64_t>(-shift));
  }
  round_and_pack_limbs(s, n, mode, sign, exp, guard | Limb{sticky}, out);
}

// ---- The operations ----

/// room := y / 2^d, d >= 64, n limbs with the bits of `flip` changed, in n + 1 of room; the guard.
[[gnu::noinline]] inline Limb shift_far(const LimbNumber& y, long n, std::uint64_t d, Limb flip,
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
inline Limb shift_down(const LimbNumber& y, long n, std::uint64_t d, Limb flip, Limb* room) {
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
[[gnu::noinline]] inline Normalized normalize_difference(LimbShape s, long n, Limb* out,
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
[[gnu::noinline]] inline void round_moved_sum(LimbShape s, long n, Direction mode, Limb upper,
                                              Limb minus, Limb* sum, Limb* out) {
  const long size = s.pattern_size(n);
  const Limb sign = upper >> (limb_bits - 1);
  const std::int64_t field = exponent_field(s, upper);
  increment(sum, size, minus & Limb{sum[-1] == 0});
  const std::int64_t step = exponent_field(s, upper_limb(s, n, sum)) - field;
  if (step == 0 || field <= static_cast<std::int64_t>(minus & 1)) [[unlikely]] {
    std::copy_n(sum, size, out);
    round_pattern(mode, sign, sum[-1], out, size);
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
    round_and_pack_limbs(s, n, mode, sign, field - moved.k, moved.guard, out);
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
  round_and_pack_limbs(s, n, mode, sign, field + change, guard, out);
}

// left := left op right, rounded once. False, and nothing changed, where an operand is an infinity
// or a NaN, or the divisor is 0.

[[gnu::always_inline]] inline bool add_sub_limbs(LimbShape s, long n, Direction mode, QNumber& left,
                                                 const QNumber& right, Limb flip) {
  assume_many(n);
  LimbRoom room(4 * (n + 1) + 1);
  LimbOperands operands(s, n, left, right, room.limbs());
  if (!operands.finite(s)) {
    return false;
  }
  operands.upper[1] ^= flip << (limb_bits - 1);
  const Order order = compare_magnitudes(s, n, operands);
  operands.swap_if(order.less);
  const Limb upper = operands.upper[0];
  const Limb sign = upper >> (limb_bits - 1);
  const LimbNumber y = operands.unpack(s, n, 1);
  const Limb minus = limb_mask(sign != y.sign);
  Limb* spare = room.limbs() + 2 * (n + 1);
  if ((order.equal & minus) != 0) [[unlikely]] {
    return store_zero(s, n, Limb{mode == Direction::downward}, left, spare);
  }
  LimbResult result(s, n, left, spare);
  const std::int64_t field = exponent_field(s, upper);
  const std::int64_t exp = field + std::int64_t{field == 0};
  Limb* part = spare + n + 2;
  const Limb lost = shift_down(y, n, static_cast<std::uint64_t>(exp - y.exp), minus, part);
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
  const Limb elsewhere = swflt::detail::opaque(moved | undecided);
  Limb* sum = std::bit_cast<Limb*>((std::bit_cast<Limb>(part) & elsewhere) |
                                   (std::bit_cast<Limb>(result.limbs) & ~elsewhere));
  mpn_add_n(sum, operands.bits[0], part, result.size);
  if (flip != 0) {
    const unsigned place = limb_bits - 1 - unused;
    sum[result.size - 1] = (sum[result.size - 1] & ~(Limb{1} << place)) | sign << place;
  }
  if (elsewhere != 0) {
    part[-1] = guard;
    round_moved_sum(s, n, mode, upper, minus, part, result.limbs);
  } else {
    // A complement lacks one if nothing is below, and then there is nothing to round.
    const Limb complement = minus & Limb{guard == 0};
    increment(sum, result.size, complement | Limb{rounds_up(mode, sign, sum[0] % 2 != 0, guard)});
  }
  return result.finish();
}

[[gnu::always_inline]] inline bool multiply_limbs(LimbShape s, long n, Direction mode,
                                                  QNumber& left, const QNumber& right) {
  assume_many(n);
  LimbRoom room(7 * (n + 1));
  const LimbOperands patterns(s, n, left, right, room.limbs());
  if (!patterns.finite(s)) {
    return false;
  }
  const LimbNumber operands[] = {patterns.unpack(s, n, 0), patterns.unpack(s, n, 1)};
  Limb* x = room.limbs() + 2 * (n + 1);
  Limb* y = x + n;
  Limb* product = y + n;
  Limb* spare = product + 2 * n;
  const Limb sign = operands[0].sign ^ operands[1].sign;
  const bool zero =
      copy_significand(operands[0], n, x) == 0 || copy_significand(operands[1], n, y) == 0;
  if (zero) [[unlikely]] {
    return store_zero(s, n, sign, left, spare);
  }
  multiply(product, x, &left == &right ? x : y, n);
  const std::int64_t exp =
      operands[0].exp - s.bias() + operands[1].exp - static_cast<long>(s.mant_width);
  LimbResult result(s, n, left, spare);
  normalize_and_pack_limbs(s, n, mode, sign, exp, product, 2 * n, false, result.limbs);
  return result.finish();
}

[[gnu::always_inline]] inline bool divide_limbs(LimbShape s, long n, Direction mode, QNumber& left,
                                                const QNumber& right) {
  assume_many(n);
  LimbRoom room(9 * (n + 1));
  const LimbOperands patterns(s, n, left, right, room.limbs());
  if (!patterns.finite(s)) {
    return false;
  }
  const LimbNumber operands[] = {patterns.unpack(s, n, 0), patterns.unpack(s, n, 1)};
  Limb* x = room.limbs() + 2 * (n + 1);
  Limb* y = x + n;
  const Limb sign = operands[0].sign ^ operands[1].sign;
  const long x_size = copy_significand(operands[0], n, x);
  const long y_size = copy_significand(operands[1], n, y);
  if (y_size == 0) {
    return false;
  }
  // A quotient of 64 q - 1 bits at least, where m + 2 are needed; the remainder is the sticky bit.
  const long q = static_cast<long>((s.mant_width + 2) / limb_bits) + 1;
  Limb* quotient = y + n;
  Limb* spare = quotient + q + 1;
  if (x_size == 0) [[unlikely]] {
    return store_zero(s, n, sign, left, spare);
  }
  std::int64_t exp = operands[0].exp - operands[1].exp + s.bias() +
                     static_cast<long>(s.mant_width) + 1 - (q - x_size + y_size) * long{limb_bits} -
                     std::countl_zero(x[x_size - 1]) + std::countl_zero(y[y_size - 1]);
  LimbResult result(s, n, left, spare);
  const bool sticky = divide(quotient, q, x, x_size, y, y_size, spare + n + 1);
  normalize_and_pack_limbs(s, n, mode, sign, exp, quotient, q + 1, sticky, result.limbs);
  return result.finish();
}

// ---- Conversions ----

/// As `pack_integer` of few limbs, for many, in x.size limbs of room.
[[gnu::noinline]] inline void pack_integer(LimbShape s, long n, Direction mode, Limb sign,
                                           std::int64_t exp, const LimbInteger& x, Limb* out,
                                           Limb* room) {
  std::copy_n(x.low, x.size - 1, room);
  room[x.size - 1] = x.top;
  normalize_and_pack_limbs(s, n, mode, sign,
                           exp - x.leading_bit() + static_cast<long>(s.mant_width), room, x.size,
                           false, out);
}

/// A pattern that was computed, in limbs that it owns, and room for another number of n limbs.
struct LimbPattern {
  long size;
  LimbRoom room;
  Limb* limbs;
  Limb* more;

  explicit LimbPattern(LimbShape s, long n = 0)
      : size(s.pattern_size(s.significand_size())),
        room(size + 2 * n + 1),
        limbs(room.limbs()),
        more(limbs + size) {}
};

/// out := the pattern of a normal number in a format that has all values of its own: zeros behind
/// the significand, and another bias. out may be where the limbs of x are.
[[gnu::always_inline]] inline void widen(LimbShape from, LimbShape to, const LimbNumber& x,
                                         Limb* out) {
  const long n = from.significand_size();
  const long size = to.significand_size();
  const unsigned long distance = to.mant_width - from.mant_width;
  const auto zeros = static_cast<long>(distance / limb_bits);
  const auto k = static_cast<unsigned>(distance % limb_bits);
  const auto shifted = [k](Limb high, Limb low) {
    return high << k | low >> 1 >> (limb_bits - 1 - k);
  };
  Limb top = shifted(x.top, n > 1 ? x.low[n - 2] : 0);
  if (size - zeros > n) {
    out[size - 2] = std::exchange(top, shifted(0, x.top));
  }
  if (n > 1) {
    shift_up(out + zeros + 1, x.low + 1, n - 2, k);
    out[zeros] = x.low[0] << k;
  }
  std::fill_n(out, zeros, 0);
  pack_top(to, size, x.sign, x.exp - from.bias() + to.bias() - 1, top, 0, out);
}

/// Whether the values of one format are all values of another.
[[gnu::always_inline]] inline bool widens(LimbShape from, LimbShape to) {
  return from.exp_width <= to.exp_width && from.mant_width <= to.mant_width;
}

/// Whether a number is neither subnormal nor zero, an infinity or a NaN.
[[gnu::always_inline]] inline bool is_normal(LimbShape s, const LimbNumber& x) {
  return (x.top & s.hidden_bit()) != 0 && x.exp != s.exp_max();
}

/// out := the pattern `bits`, of pattern_size() limbs, rounded to another format of few limbs;
/// false, and nothing done, if it is not normal. out may be where the pattern is.
template <class From, class To>
[[gnu::always_inline]] inline bool convert_normal(From from_shape, To to_shape, Direction mode,
                                                  const Limb* bits, Limb* out) {
  const LimbShape from = from_shape;
  const LimbShape to = to_shape;
  const LimbNumber x = unpack_limbs(from, From::size, bits);
  if (!is_normal(from, x)) [[unlikely]] {
    return false;
  }
  if (widens(from, to)) {
    widen(from, to, x, out);
  } else {
    Window<To::size> window;
    load(window, to, {x.low, From::size, x.top}, from.top_bit());
    round_and_pack(to, mode, x.sign, x.exp - from.bias() + to.bias(), window, out);
  }
  return true;
}

/// out := the pattern `bits` of format `from` rounded to `to`, for which there are pattern_size()
/// limbs that `bits` may share, and room for two patterns of `from`; false for infinities and NaNs.
inline bool convert_limbs(LimbShape from, LimbShape to, Direction mode, Limbs bits, Limb* out,
                          Limb* room) {
  const long n = from.significand_size();
  const LimbNumber x = unpack_limbs(from, n, pattern_limbs(from, n, bits, room));
  if (x.exp == from.exp_max()) [[unlikely]] {
    return false;
  }
  if (is_zero(x, n)) [[unlikely]] {
    pack_zero_limbs(to, x.sign, out);
    return true;
  }
  if (widens(from, to) && is_normal(from, x)) [[likely]] {
    widen(from, to, x, out);
    return true;
  }
  const LimbInteger w = significand_of(x, n);
  const std::int64_t exp =
      x.exp - from.bias() - static_cast<long>(from.mant_width) + to.bias() + w.leading_bit();
  with_size(to, [&](auto /*shape*/, auto size) {
    pack_integer(to, size, mode, x.sign, exp, w, out, room + n + 1);
  });
  return true;
}

/// The integer n rounded; false for 0.
inline bool round_integer_limbs(LimbShape to, Direction mode, const QNumber& n, LimbPattern& out) {
  Limb word = 0;
  const Limbs limbs = limbs_of(n, word);
  if (n.is_zero()) {
    return false;
  }
  const LimbInteger w{limbs.data, limbs.size, limbs[limbs.size - 1]};
  with_size(to, [&](auto /*shape*/, auto size) {
    pack_integer(to, size, mode, Limb{n.sign() < 0}, to.bias() + w.leading_bit(), w, out.limbs,
                 out.more);
  });
  return true;
}

/// The exact value of a finite pattern other than zero; false for the rest.
inline bool exact_value_of_limbs(LimbShape s, Limbs bits, QNumber& out) {
  const long n = s.significand_size();
  LimbRoom room(2 * (n + 1));
  const LimbNumber x = unpack_limbs(s, n, pattern_limbs(s, n, bits, room.limbs()));
  if (x.exp == s.exp_max()) {
    return false;
  }
  Limb* sig = room.limbs() + n + 1;
  const long size = copy_significand(x, n, sig);
  if (size == 0) {
    return false;
  }
  const long k = x.exp - s.bias() - static_cast<long>(s.mant_width);
  require_room_for_value(k, s.mant_width);
  out = QNumber::scaled(sig, size, x.sign != 0, k);
  return true;
}

/// to_integer(w): infinities and NaNs count as finite values of their exponent, but for w = 0.
inline QNumber integer_of_limbs(LimbShape s, Direction mode, Limbs bits, unsigned long w) {
  const long n = s.significand_size();
  LimbRoom room(2 * (n + 1));
  const LimbNumber x = unpack_limbs(s, n, pattern_limbs(s, n, bits, room.limbs()));
  const bool finite = x.exp != s.exp_max();
  if ((x.top & s.hidden_bit()) == 0 || (w == 0 && !finite)) {
    return 0;
  }
  Limb* sig = room.limbs() + n + 1;
  long size = copy_significand(x, n, sig);
  const std::int64_t right = s.bias() + static_cast<long>(s.mant_width) - x.exp;
  if (right > 0) {
    const Limb guard = shift_many_right(sig, n, sig, size, static_cast<std::uint64_t>(right));
    if (w > 0 && rounds_up(mode, x.sign, sig[0] % 2 != 0, guard)) {
      mpn_add_1(sig, sig, n, 1);
    }
    size = trimmed(sig, n);
  }
  const auto left = static_cast<unsigned long>(right < 0 ? -right : 0);
  if (w == 0) {
    require_room_for_value(static_cast<long>(left), s.mant_width);
  } else if (left >= w) {
    return 0;
  } else if (const unsigned long kept = w - left;
             kept < static_cast<unsigned long>(size * limb_bits)) {
    const auto limb = static_cast<long>(kept / limb_bits);
    sig[limb] &= (Limb{1} << kept % limb_bits) - 1;
    size = trimmed(sig, limb + 1);
  }
  if (size == 0) {
    return 0;
  }
  require_bits(static_cast<unsigned long>(bit_size(sig, size)) + left);
  return QNumber::scaled(sig, size, x.sign != 0, static_cast<long>(left));
}

/// -1, 0 or 1 as a < b, a = b or a > b, for patterns of a word at least; no answer where an
/// infinity or a NaN is among them, or two values so small that both may be zeros.
constexpr int no_answer = 2;

inline int compare_limbs(LimbShape s, Limbs a, Limbs b) {
  // The upper 64 bits, which hold sign and exponent, are mostly enough; as binary64 patterns are,
  // they are ordered without a look at the single fields.
  const swflt::detail::RuntimeShape upper{static_cast<long>(s.exp_width),
                                          63 - static_cast<long>(s.exp_width)};
  const unsigned long below = s.exp_width + s.mant_width - 63;
  const auto upper_of = [limb = static_cast<long>(below / limb_bits),
                         bit = static_cast<unsigned>(below % limb_bits)](Limbs x) {
    return shifted_limb(x[limb], x[limb + 1], bit);
  };
  const Limb upper_a = upper_of(a);
  const Limb upper_b = upper_of(b);
  if (swflt::detail::magnitude(upper, upper_a) >= swflt::detail::infinity(upper) ||
      swflt::detail::magnitude(upper, upper_b) >= swflt::detail::infinity(upper)) {
    return no_answer;
  }
  const std::int64_t key_a = swflt::detail::order_key(upper, upper_a);
  const std::int64_t key_b = swflt::detail::order_key(upper, upper_b);
  if (key_a != key_b) [[likely]] {
    return key_a < key_b ? -1 : 1;
  }
  if (key_a == 0) {
    return no_answer;
  }
  const int order = key_a > 0 ? mpn_cmp(a.data, b.data, a.size) : mpn_cmp(b.data, a.data, a.size);
  return (order > 0) - (order < 0);
}

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_LIMBS_H_
