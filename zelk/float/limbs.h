// Rounded arithmetic on patterns past one word: the limbs of a number's GMP integer, computed on
// at a cost that does not depend on the exponents.
//
// Serves generic formats with e <= 62. What these routines refuse, NaNs and infinities above all,
// goes to the algorithms on numbers. Called by ieee_float.cpp.
#ifndef ZELK_FLOAT_LIMBS_H_
#define ZELK_FLOAT_LIMBS_H_

#include "zelk/float/convert.h"
#include "zelk/float/limb_integers.h"

namespace zelk {
namespace {

using Direction = swflt::detail::Direction;

/// The widths of a format: exponents fit a word, and all that an operation builds is well within
/// `max_bits`. Passed by value: limbs are written between its uses.
struct LimbShape {
  unsigned long exp_width;
  unsigned long mant_width;

  static bool serves(const IEEEFloat::format& f) {
    return f.exp_width - 2 <= 60 && f.mant_width - 1 < max_bits / 4 - 64;
  }
  std::int64_t exp_max() const { return (std::int64_t{1} << exp_width) - 1; }
  std::int64_t bias() const { return exp_max() >> 1; }
  /// Where the hidden bit is in the highest limb of a significand, and the exponent field starts.
  unsigned top_bit() const { return static_cast<unsigned>(mant_width % limb_bits); }
  Limb hidden_bit() const { return Limb{1} << top_bit(); }
  /// Limbs of a significand with its hidden bit, and of a pattern: as many, or one more.
  long significand_size() const { return static_cast<long>(mant_width / limb_bits) + 1; }
  bool has_limb_above() const { return exp_width + top_bit() >= limb_bits; }
  long pattern_size(long n) const { return n + long{has_limb_above()}; }
};

/// Calls `serve` with the number of limbs of a significand, as a constant when they are few.
template <class Serve>
[[gnu::always_inline]] inline auto with_size(LimbShape s, Serve serve) {
  switch (const long n = s.significand_size()) {
    case 1:
      return serve(Fixed<1>());
    case 2:
      return serve(Fixed<2>());
    case 3:
      return serve(Fixed<3>());
    case 4:
      return serve(Fixed<4>());
    default:
      return serve(n);
  }
}

/// The limbs of an integer's magnitude; `word` is where those of the small form go.
inline Limbs limbs_of(const QNumber& q, Limb& word) {
  if (q.is_small()) {
    word = static_cast<Limb>(detail::magnitude(q.to_small()));
    return {&word, word == 0 ? 0 : 1};
  }
  return {q.big_limbs(), q.big_size()};
}

// ---- Patterns and significands ----

/// The value +-sig * 2^(exp - bias - m). The significand is in two pieces: its highest limb, which
/// a pattern shares with the exponent, and where the others are.
struct LimbNumber {
  Limb sign;
  std::int64_t exp;
  const Limb* low;
  Limb top;
};

/// Sign and exponent field of a pattern, the sign above the field.
inline std::uint64_t top_of(LimbShape s, Limbs bits, long n) {
  return shifted_limb(bits[n - 1], s.has_limb_above() ? bits[n] : 0, s.top_bit()) &
         ((std::uint64_t{2} << s.exp_width) - 1);
}

/// A pattern whose exponent field is 0: a zero or a subnormal. It may have few limbs; the others go
/// to `room`.
[[gnu::noinline]] inline LimbNumber unpack_tiny(Limbs bits, long n, Limb sign, Limb top,
                                                Limb* room) {
  const long low = n - 1;
  if (bits.size >= low) {
    return {sign, 1, bits.data, top};
  }
  std::copy_n(bits.data, bits.size, room);
  std::fill(room + bits.size, room + low, 0);
  return {sign, 1, room, top};
}

/// Takes a pattern apart; false for infinities and NaNs. A subnormal or zero may need n limbs of
/// `room`.
[[gnu::always_inline]] inline bool unpack_limbs(LimbShape s, long n, Limbs bits, LimbNumber& x,
                                                Limb* room) {
  const std::uint64_t top = top_of(s, bits, n);
  const Limb hidden = s.hidden_bit();
  const Limb sign = top >> s.exp_width;
  const std::int64_t exp = static_cast<std::int64_t>(top) & s.exp_max();
  const Limb trailing = bits[n - 1] & (hidden - 1);
  if (exp == 0) [[unlikely]] {
    x = unpack_tiny(bits, n, sign, trailing, room);
    return true;
  }
  x.sign = sign;
  x.exp = exp;
  x.low = bits.data;
  x.top = trailing | hidden;
  return exp != s.exp_max();
}

/// out := the significand of x; the limbs up to the highest that is not 0.
template <class Size>
inline long copy_significand(const LimbNumber& x, Size n, Limb* out) {
  std::copy_n(x.low, n - 1, out);
  out[n - 1] = x.top;
  return trimmed(out, n);
}

template <class Size>
inline int compare_significands(const LimbNumber& x, const LimbNumber& y, Size n) {
  if (x.top != y.top) {
    return x.top < y.top ? -1 : 1;
  }
  if constexpr (is_fixed<Size>) {
    for (long i = n - 1; i-- > 0;) {
      if (x.low[i] != y.low[i]) {
        return x.low[i] < y.low[i] ? -1 : 1;
      }
    }
    return 0;
  } else {
    return mpn_cmp(x.low, y.low, n - 1);
  }
}

/// Writes sign and exponent field above the trailing significand, whose highest limb is `top`; what
/// that has above the trailing bits, and `carry`, add to the field.
inline void pack_top(LimbShape s, long n, Limb sign, std::int64_t field, Limb top, Limb carry,
                     Limb* out) {
  const Limb packed = static_cast<Limb>(field) | sign << s.exp_width;
  const DoubleLimb sum = DoubleLimb{packed << s.top_bit()} + top;
  out[n - 1] = static_cast<Limb>(sum);
  if (s.has_limb_above()) {
    out[n] = (packed >> 1 >> (limb_bits - 1 - s.top_bit())) + static_cast<Limb>(sum >> limb_bits) +
             carry;
  }
}

/// The infinity of this sign or the largest finite value, as the direction has it.
[[gnu::cold, gnu::noinline]] inline void pack_overflow_limbs(LimbShape s, Direction mode, Limb sign,
                                                             Limb* out) {
  const bool outward = swflt::detail::rounds_outward(sign, mode);
  const long n = s.significand_size();
  const Limb ones = outward ? 0 : ~Limb{0};
  std::fill_n(out, n - 1, ones);
  pack_top(s, n, sign, s.exp_max() - std::int64_t{!outward}, ones & (s.hidden_bit() - 1), 0, out);
}

inline void pack_zero_limbs(LimbShape s, Limb sign, Limb* out) {
  const long n = s.significand_size();
  std::fill_n(out, n - 1, 0);
  pack_top(s, n, sign, 0, 0, 0, out);
}

/// Whether rounding in direction `mode` increments a magnitude that has `guard` below.
inline bool rounds_up(Direction mode, Limb sign, bool odd, Limb guard) {
  return mode == Direction::nearest ? (guard | Limb{odd}) > half_limb
                                    : guard != 0 && swflt::detail::rounds_outward(sign, mode);
}

/// out, a significand of n limbs with its hidden bit in place or, for exp = 1, below, becomes the
/// pattern nearest in direction `mode` to it with the guard.
template <class Size>
[[gnu::always_inline]] inline void round_and_pack_limbs(LimbShape s, Size n, Direction mode,
                                                        Limb sign, std::int64_t exp, Limb guard,
                                                        Limb* out) {
  if (exp >= s.exp_max()) [[unlikely]] {
    pack_overflow_limbs(s, mode, sign, out);
    return;
  }
  const bool up = rounds_up(mode, sign, out[0] % 2 != 0, guard);
  const Limb increment_top = increment(out, one_less(n), Limb{up});
  const Limb top = out[n - 1] + increment_top;
  // The hidden bit may be the highest. What carries into the exponent of infinities is rounded
  // outward and leaves a significand of 0.
  pack_top(s, n, sign, exp - 1, top, Limb{top < increment_top}, out);
}

/// The same for w * 2^(exp - bias - m), plus less than one unit of w if `sticky`, w of `size` limbs
/// and not 0.
template <class Size>
[[gnu::always_inline]] inline void normalize_and_pack_limbs(LimbShape s, Size n, Direction mode,
                                                            Limb sign, std::int64_t exp,
                                                            const Limb* w, long size, bool sticky,
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
    guard = shift_right(out, n, w, size, static_cast<std::uint64_t>(shift));
  } else {
    shift_left(out, n, w, used, static_cast<std::uint64_t>(-shift));
  }
  round_and_pack_limbs(s, n, mode, sign, exp, guard | Limb{sticky}, out);
}

// ---- The operations ----

/// The operands of an operation: false for infinities and NaNs. Subnormals and zeros may need 2 n
/// limbs of room, and numbers of the small form `words`.
template <class Size>
[[gnu::always_inline]] inline bool unpack_both(LimbShape s, Size n, const QNumber& left,
                                               const QNumber& right, LimbNumber (&x)[2],
                                               Limb (&words)[2], Limb* room) {
  return unpack_limbs(s, n, limbs_of(left, words[0]), x[0], room) &&
         unpack_limbs(s, n, limbs_of(right, words[1]), x[1], room + n);
}

/// Where a result is built: in the target's own limbs, if it has enough, else in n + 1 limbs of
/// room. An operand may share them: they are written from the lowest up.
struct LimbResult {
  QNumber& target;
  Limb* own;
  Limb* limbs;
  long size;

  LimbResult(LimbShape s, long n, QNumber& number, Limb* room)
      : target(number),
        own(number.own_limbs(s.pattern_size(n))),
        limbs(own != nullptr ? own : room),
        size(s.pattern_size(n)) {}

  [[gnu::always_inline]] bool finish() {
    if (own != nullptr) {
      target.keep_limbs(size);
    } else {
      target.assign_limbs(limbs, size);
    }
    return true;
  }
};

/// What an exponent distance leaves of a significand.
struct Shifted {
  const Limb* low;
  Limb top;
  Limb guard;
};

/// y / 2^d, d >= 64, in n + 1 limbs of room.
[[gnu::noinline]] inline Shifted shift_far(const LimbNumber& y, long n, std::uint64_t d,
                                           Limb* room) {
  const long low = n - 1;
  if (d >= limb_bits * static_cast<std::uint64_t>(n + 1)) {
    const Limb lost = y.top != 0 || (low > 0 && mpn_zero_p(y.low, low) == 0);
    std::fill_n(room, n, 0);
    return {room, 0, lost};
  }
  const auto limbs = static_cast<long>(d / limb_bits);
  const auto bits = static_cast<unsigned>(d % limb_bits);
  // The limb that becomes the guard, and those above.
  const long have = n - limbs;
  std::copy_n(y.low + limbs - 1, have, room);
  room[have] = y.top;
  const Limb lost = (bits == 0 ? 0 : mpn_rshift(room, room, have + 1, bits)) != 0 ||
                    (limbs > 1 && mpn_zero_p(y.low, limbs - 1) == 0);
  std::fill(room + have + 1, room + n + 1, 0);
  return {room + 1, room[n], room[0] | lost};
}

/// y / 2^d.
template <class Size>
[[gnu::always_inline]] inline Shifted shift_down(const LimbNumber& y, Size n, std::uint64_t d,
                                                 Limb* room) {
  if (d >= limb_bits) [[unlikely]] {
    return shift_far(y, n, d, room);
  }
  const auto bits = static_cast<unsigned>(d);
  const long low = n - 1;
  if constexpr (is_fixed<Size>) {
    const Limb guard = shifted_limb(0, low > 0 ? y.low[0] : y.top, bits);
    for (long i = 0; i < low; ++i) {
      room[i] = shifted_limb(y.low[i], i + 1 < low ? y.low[i + 1] : y.top, bits);
    }
    return {room, y.top >> bits, guard};
  } else {
    if (bits == 0) {
      return {y.low, y.top, 0};
    }
    const Limb guard = mpn_rshift(room, y.low, low, bits);
    room[low - 1] |= y.top << (limb_bits - bits);
    return {room, y.top >> bits, guard};
  }
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
    mpn_lshift(out, out, n, bits);
    out[0] |= guard >> (limb_bits - bits);
    guard <<= bits;
  }
  return {guard, k};
}

// left := left op right, rounded once. False, and nothing changed, where an operand is an infinity
// or a NaN, or the divisor is 0.

template <class Size>
[[gnu::noinline]] bool add_sub_limbs(LimbShape s, Size n, Direction mode, QNumber& left,
                                     const QNumber& right, Limb flip) {
  LimbRoom<4, Size> room(n);
  Limb words[2];
  LimbNumber operands[2];
  if (!unpack_both(s, n, left, right, operands, words, room.limbs())) {
    return false;
  }
  operands[1].sign ^= flip;
  const std::int64_t distance = operands[0].exp - operands[1].exp;
  const int order =
      distance != 0 ? (distance < 0 ? -1 : 1) : compare_significands(operands[0], operands[1], n);
  // Which magnitude is larger, and whether the signs differ, is as good as random to a branch
  // predictor: an index and a mask choose.
  const LimbNumber& x = operands[order < 0];
  const LimbNumber& y = operands[order >= 0];
  const Limb minus = x.sign ^ y.sign;
  const Limb mask = 0 - minus;
  const auto low = one_less(n);
  LimbResult result(s, n, left, room.limbs() + 2 * n);
  Limb* out = result.limbs;
  if (order == 0 && minus != 0) [[unlikely]] {
    pack_zero_limbs(s, Limb{mode == Direction::downward}, out);
    return result.finish();
  }
  const Shifted part =
      shift_down(y, n, static_cast<std::uint64_t>(distance < 0 ? -distance : distance),
                 room.limbs() + 3 * n + 1);
  const Limb sign = x.sign;
  std::int64_t exp = x.exp;
  Limb guard = (part.guard ^ mask) + minus;
  const Limb carry = add(out, x.low, part.low, low, mask, Limb{guard < minus});
  const DoubleLimb sum = DoubleLimb{x.top} + (part.top ^ mask) + carry;
  const Limb top = static_cast<Limb>(sum);
  const Limb over = static_cast<Limb>(sum >> limb_bits) - minus;
  out[low] = top;

  const auto above = static_cast<unsigned>(shifted_limb(top, over, s.top_bit()));
  const unsigned k = above >> 1;  // a carry above the hidden bit
  guard = shifted_limb(guard, out[0], k) | (guard & k);
  shift_by_one(out, n, k, over);
  exp += k;
  if (above == 0 && exp > 1) {
    const Normalized moved = normalize_difference(s, n, out, exp, guard);
    guard = moved.guard;
    exp -= moved.k;
  }
  round_and_pack_limbs(s, n, mode, sign, exp, guard, out);
  return result.finish();
}

template <class Size>
[[gnu::noinline]] bool multiply_limbs(LimbShape s, Size n, Direction mode, QNumber& left,
                                      const QNumber& right) {
  LimbRoom<7, Size> room(n);
  Limb words[2];
  LimbNumber operands[2];
  if (!unpack_both(s, n, left, right, operands, words, room.limbs())) {
    return false;
  }
  Limb* x = room.limbs() + 2 * n;
  Limb* y = x + n;
  Limb* product = y + n;
  const Limb sign = operands[0].sign ^ operands[1].sign;
  const bool zero =
      copy_significand(operands[0], n, x) == 0 || copy_significand(operands[1], n, y) == 0;
  LimbResult result(s, n, left, product + 2 * n);
  if (zero) [[unlikely]] {
    pack_zero_limbs(s, sign, result.limbs);
    return result.finish();
  }
  multiply(product, x, &left == &right ? x : y, n);
  const std::int64_t exp =
      operands[0].exp - s.bias() + operands[1].exp - static_cast<long>(s.mant_width);
  normalize_and_pack_limbs(s, n, mode, sign, exp, product, 2 * n, false, result.limbs);
  return result.finish();
}

template <class Size>
[[gnu::noinline]] bool divide_limbs(LimbShape s, Size n, Direction mode, QNumber& left,
                                    const QNumber& right) {
  LimbRoom<9, Size> room(n);
  Limb words[2];
  LimbNumber operands[2];
  if (!unpack_both(s, n, left, right, operands, words, room.limbs())) {
    return false;
  }
  Limb* x = room.limbs() + 2 * n;
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
  LimbResult result(s, n, left, quotient + q + 1);
  if (x_size == 0) [[unlikely]] {
    pack_zero_limbs(s, sign, result.limbs);
    return result.finish();
  }
  std::int64_t exp = operands[0].exp - operands[1].exp + s.bias() +
                     static_cast<long>(s.mant_width) + 1 - (q - x_size + y_size) * long{limb_bits} -
                     std::countl_zero(x[x_size - 1]) + std::countl_zero(y[y_size - 1]);
  const bool sticky = divide(quotient, q, x, x_size, y, y_size, quotient + q + n + 2);
  normalize_and_pack_limbs(s, n, mode, sign, exp, quotient, q + 1, sticky, result.limbs);
  return result.finish();
}

// ---- Conversions ----

/// A pattern that was computed, in limbs that it owns, and room for 2 n limbs more.
struct LimbPattern {
  LimbRoom<1, long> room;
  long size;
  Limb* limbs;
  Limb* more;

  explicit LimbPattern(LimbShape s, long n = 0)
      : room(s.significand_size() + 2 * n),
        size(s.pattern_size(s.significand_size())),
        limbs(room.limbs()),
        more(limbs + s.significand_size() + 1) {}
};

/// out := the pattern `bits` of format `from` rounded to `to`, for which there are pattern_size()
/// limbs that `bits` may share, and 2 n of room; false for infinities and NaNs.
inline bool convert_limbs(LimbShape from, LimbShape to, Direction mode, Limbs bits, Limb* out,
                          Limb* room) {
  LimbNumber x;
  Limb* sig = room + from.significand_size();
  const long size = with_size(
      from, [&](auto n) __attribute__((always_inline)) {
        return unpack_limbs(from, n, bits, x, room) ? copy_significand(x, n, sig) : -1;
      });
  if (size <= 0) {
    if (size == 0) {
      pack_zero_limbs(to, x.sign, out);
    }
    return size == 0;
  }
  const std::int64_t exp = x.exp - from.bias() - static_cast<long>(from.mant_width) + to.bias() +
                           static_cast<long>(to.mant_width);
  with_size(
      to, [&](auto n) __attribute__((always_inline)) {
        normalize_and_pack_limbs(to, n, mode, x.sign, exp, sig, size, false, out);
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
  const std::int64_t exp = to.bias() + static_cast<long>(to.mant_width);
  with_size(to, [&](auto size) {
    normalize_and_pack_limbs(to, size, mode, Limb{n.sign() < 0}, exp, limbs.data, limbs.size, false,
                             out.limbs);
  });
  return true;
}

/// The exact value of a finite pattern other than zero; false for the rest.
inline bool exact_value_of_limbs(LimbShape s, Limbs bits, QNumber& out) {
  const long n = s.significand_size();
  LimbRoom<2, long> room(n);
  LimbNumber x{};
  if (!unpack_limbs(s, n, bits, x, room.limbs())) {
    return false;
  }
  Limb* sig = room.limbs() + n;
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
  LimbRoom<2, long> room(n);
  LimbNumber x{};
  const bool finite = unpack_limbs(s, n, bits, x, room.limbs());
  if ((x.top & s.hidden_bit()) == 0 || (w == 0 && !finite)) {
    return 0;
  }
  Limb* sig = room.limbs() + n;
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
