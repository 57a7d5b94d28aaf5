// Patterns in limbs: how they are taken apart, and what a rounded significand becomes.
//
// Serves generic formats with e <= 62. Used by few_limbs.h and limbs.h.
#ifndef ZELK_FLOAT_LIMB_PATTERNS_H_
#define ZELK_FLOAT_LIMB_PATTERNS_H_

#include "zelk/float/convert.h"
#include "zelk/float/limb_integers.h"

namespace zelk {
namespace {

using Direction = swflt::detail::Direction;

/// The widths of a format that limbs serve. Passed by value: limbs are written between its uses.
struct LimbShape {
  unsigned long exp_width;
  unsigned long mant_width;

  [[gnu::always_inline]] constexpr std::int64_t exp_max() const {
    return (std::int64_t{1} << exp_width) - 1;
  }
  [[gnu::always_inline]] constexpr std::int64_t bias() const { return exp_max() >> 1; }
  /// Where the hidden bit is in the highest limb of a significand, and the exponent field starts.
  [[gnu::always_inline]] constexpr unsigned top_bit() const {
    return static_cast<unsigned>(mant_width % limb_bits);
  }
  [[gnu::always_inline]] constexpr Limb hidden_bit() const { return Limb{1} << top_bit(); }
  /// Limbs of a significand with its hidden bit, and of a pattern: as many, or one more.
  [[gnu::always_inline]] constexpr long significand_size() const {
    return static_cast<long>(mant_width / limb_bits) + 1;
  }
  [[gnu::always_inline]] constexpr bool has_limb_above() const {
    return exp_width + top_bit() >= limb_bits;
  }
  [[gnu::always_inline]] constexpr long pattern_size(long n) const {
    return n + long{has_limb_above()};
  }
  /// Bits of a pattern's limbs above its sign.
  unsigned unused_bits() const {
    return static_cast<unsigned>(~(exp_width + mant_width)) % limb_bits;
  }
  /// The upper limb of infinities without the sign.
  Limb upper_infinity() const { return ~Limb{0} << (limb_bits - exp_width); }
};

/// Widths that are constants: shifts and masks are, too.
template <unsigned long exp_width, unsigned long mant_width>
struct FixedLimbShape {
  static constexpr LimbShape widths{exp_width, mant_width};
  static constexpr std::size_t size = static_cast<std::size_t>(widths.significand_size());

  static bool is(LimbShape s) { return s.exp_width == exp_width && s.mant_width == mant_width; }
  constexpr operator LimbShape() const {  // NOLINT(google-explicit-constructor): a LimbShape
    return widths;
  }
};
using Binary64 = FixedLimbShape<11, 52>;
using Binary128 = FixedLimbShape<15, 112>;
using Binary256 = FixedLimbShape<19, 236>;

/// Calls `serve` with the widths of a format, as constants for the standard's from binary64 on.
template <class Serve>
[[gnu::always_inline]] inline auto with_shape(LimbShape s, Serve serve) {
  return Binary128::is(s)   ? serve(Binary128())
         : Binary256::is(s) ? serve(Binary256())
         : Binary64::is(s)  ? serve(Binary64())
                            : serve(s);
}

/// The limbs of an integer's magnitude; `word` is where those of the small form go.
inline Limbs limbs_of(const QNumber& q, Limb& word) {
  if (q.is_small()) {
    word = static_cast<Limb>(detail::magnitude(q.to_small()));
    return {&word, word == 0 ? 0 : 1};
  }
  return {q.big_limbs(), q.big_size()};
}

/// The limbs of a pattern, pattern_size() of them; those of one that has fewer go to `room`.
[[gnu::noinline]] inline const Limb* with_zeros_above(Limbs bits, long size, Limb* room) {
  std::copy_n(bits.data, bits.size, room);
  std::fill(room + bits.size, room + size, 0);
  return room;
}
inline const Limb* pattern_limbs(LimbShape s, long n, Limbs bits, Limb* room) {
  const long size = s.pattern_size(n);
  return bits.size == size ? bits.data : with_zeros_above(bits, size, room);
}
[[gnu::noinline]] inline const Limb* small_pattern_limbs(const QNumber& q, long size, Limb* room) {
  Limb word = 0;
  return with_zeros_above(limbs_of(q, word), size, room);
}
inline const Limb* pattern_limbs(LimbShape s, long n, const QNumber& q, Limb* room) {
  const long size = s.pattern_size(n);
  const Limb* limbs = q.limbs_from(static_cast<int>(size));
  return limbs != nullptr ? limbs : small_pattern_limbs(q, size, room);
}

// ---- Patterns and significands ----

/// The upper 64 bits of a pattern of pattern_size() limbs, which hold sign and exponent.
[[gnu::always_inline]] inline Limb upper_limb(LimbShape s, long n, const Limb* bits) {
  const long size = s.pattern_size(n);
  const Limb below = n > 1 || size > 1 ? bits[size - 2] : 0;
  const unsigned unused = s.unused_bits();
  return bits[size - 1] << unused | below >> 1 >> (limb_bits - 1 - unused);
}

/// The value +-sig * 2^(exp - bias - m). The significand is in two pieces: its highest limb, which
/// a pattern shares with the exponent, and where the others are.
struct LimbNumber {
  Limb sign;
  std::int64_t exp;
  const Limb* low;
  Limb top;
};

[[gnu::always_inline]] inline std::int64_t exponent_field(LimbShape s, Limb upper) {
  return static_cast<std::int64_t>(upper << 1 >> (limb_bits - s.exp_width));
}

/// Takes a pattern apart. The exponent of infinities and NaNs is exp_max(), that of subnormals and
/// zeros 1, without a hidden bit.
[[gnu::always_inline]] inline LimbNumber unpack_limbs(LimbShape s, long n, const Limb* bits,
                                                      Limb upper) {
  const std::int64_t field = exponent_field(s, upper);
  const Limb hidden = Limb{field != 0} << s.top_bit();
  return {upper >> (limb_bits - 1), field + std::int64_t{field == 0}, bits,
          (bits[n - 1] & (s.hidden_bit() - 1)) | hidden};
}
[[gnu::always_inline]] inline LimbNumber unpack_limbs(LimbShape s, long n, const Limb* bits) {
  return unpack_limbs(s, n, bits, upper_limb(s, n, bits));
}

/// A positive integer: its highest limb, not 0, and where the others are.
struct LimbInteger {
  const Limb* low;
  long size;
  Limb top;

  long leading_bit() const { return size * long{limb_bits} - 1 - std::countl_zero(top); }
};

/// The significand of a number other than 0.
inline LimbInteger significand_of(const LimbNumber& x, long n) {
  if (x.top != 0) [[likely]] {
    return {x.low, n, x.top};
  }
  const long size = trimmed(x.low, n - 1);
  return {x.low, size, x.low[size - 1]};
}

inline bool is_zero(const LimbNumber& x, long n) {
  return x.top == 0 && trimmed(x.low, n - 1) == 0;
}

/// The operands of an operation in pattern_size() limbs, which may need n + 1 of room each.
struct LimbOperands {
  const Limb* bits[2];
  Limb upper[2];

  [[gnu::always_inline]] LimbOperands(LimbShape s, long n, const QNumber& left,
                                      const QNumber& right, Limb* room)
      : bits{pattern_limbs(s, n, left, room), pattern_limbs(s, n, right, room + n + 1)},
        upper{upper_limb(s, n, bits[0]), upper_limb(s, n, bits[1])} {}

  /// Whether neither is an infinity or a NaN.
  [[gnu::always_inline]] bool finite(LimbShape s) const {
    return upper[0] << 1 < s.upper_infinity() && upper[1] << 1 < s.upper_infinity();
  }
  [[gnu::always_inline]] LimbNumber unpack(LimbShape s, long n, long i) const {
    return unpack_limbs(s, n, bits[i], upper[i]);
  }
  /// Exchanges the operands if `mask` is all ones, which is as good as random to a branch
  /// predictor.
  [[gnu::always_inline]] void swap_if(Limb mask) {
    mask = swflt::detail::opaque(mask);
    const Limb first = std::bit_cast<Limb>(bits[0]);
    const Limb second = std::bit_cast<Limb>(bits[1]);
    const Limb change = (first ^ second) & mask;
    bits[0] = std::bit_cast<const Limb*>(first ^ change);
    bits[1] = std::bit_cast<const Limb*>(second ^ change);
    const Limb upper_change = (upper[0] ^ upper[1]) & mask;
    upper[0] ^= upper_change;
    upper[1] ^= upper_change;
  }
};

/// How two magnitudes are ordered: all ones for what holds.
struct Order {
  Limb less;
  Limb equal;
};

[[gnu::always_inline]] inline Order compare_magnitudes(LimbShape s, long n, const LimbOperands& x) {
  const Limb first = x.upper[0] << 1;
  const Limb second = x.upper[1] << 1;
  if (first == second) [[unlikely]] {
    const long below = s.pattern_size(n) - 1;
    const int order = below > 0 ? mpn_cmp(x.bits[0], x.bits[1], below) : 0;
    return {limb_mask(order < 0), limb_mask(order == 0)};
  }
  return {limb_mask(first < second), 0};
}

/// Writes sign and exponent field above the trailing significand, whose highest limb is `top`; what
/// that has above the trailing bits, and `carry`, add to the field.
[[gnu::always_inline]] inline void pack_top(LimbShape s, long n, Limb sign, std::int64_t field,
                                            Limb top, Limb carry, Limb* out) {
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
[[gnu::always_inline]] inline bool rounds_up(Direction mode, Limb sign, bool odd, Limb guard) {
  return mode == Direction::nearest ? (guard | Limb{odd}) > half_limb
                                    : guard != 0 && swflt::detail::rounds_outward(sign, mode);
}

/// Where a result is built: in the target's own limbs, if it has enough, else in n + 1 limbs of
/// room. An operand may share them: they are written from the lowest up, or when it is not needed
/// any more.
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

/// target := the zero of this sign.
[[gnu::cold, gnu::noinline]] inline bool store_zero(LimbShape s, long n, Limb sign, QNumber& target,
                                                    Limb* room) {
  LimbResult result(s, n, target, room);
  pack_zero_limbs(s, sign, result.limbs);
  return result.finish();
}

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_LIMB_PATTERNS_H_
