// Patterns in limbs: their shapes, how they are taken apart, and what a rounded significand
// becomes.
//
// A pattern of format (e, m) is an integer of (e + m) / 64 + 1 limbs: from the highest bit a sign,
// e bits of biased exponent and m bits of trailing significand, with zeros above. Serves formats
// with 2 <= e <= 62.
#ifndef ZELK_LIMBS_PATTERNS_H_
#define ZELK_LIMBS_PATTERNS_H_

#include <algorithm>
#include <bit>

#include "zelk/limbs/integers.h"
#include "zelk/limbs/rounding.h"
#include "zelk/rules/rounding.h"
#include "zelk/rules/special.h"
#include "zelk/words/integers.h"

namespace zelk::limbs {

/// The widths of a format. Passed by value: limbs are written between its uses.
struct Shape : rules::Widths {
  [[gnu::always_inline]] constexpr std::int64_t exp_max() const {
    return (std::int64_t{1} << exp_width) - 1;
  }
  [[gnu::always_inline]] constexpr std::int64_t bias() const { return exp_max() >> 1; }
  /// Where the hidden bit is in the highest limb of a significand, and the exponent field starts.
  [[gnu::always_inline]] constexpr unsigned top_bit() const {
    return static_cast<unsigned>(mant_width % limb_bits);
  }
  [[gnu::always_inline]] constexpr Limb hidden_bit() const { return Limb{1} << top_bit(); }
  /// Limbs of a significand with its hidden bit.
  [[gnu::always_inline]] constexpr long significand_size() const {
    return static_cast<long>(mant_width / limb_bits) + 1;
  }
  /// Whether a pattern has a limb more than a significand.
  [[gnu::always_inline]] constexpr bool has_limb_above() const {
    return exp_width + top_bit() >= limb_bits;
  }
  /// Limbs of a pattern whose significand has n.
  [[gnu::always_inline]] constexpr long pattern_size(long n) const {
    return n + long{has_limb_above()};
  }
  [[gnu::always_inline]] constexpr long pattern_size() const {
    return pattern_size(significand_size());
  }
  /// Bits of a pattern's limbs above its sign.
  [[gnu::always_inline]] constexpr unsigned unused_bits() const {
    return static_cast<unsigned>(~(exp_width + mant_width)) % limb_bits;
  }
  /// The upper limb of infinities without the sign, which is shifted out.
  [[gnu::always_inline]] constexpr Limb upper_infinity() const {
    return ~Limb{0} << (limb_bits - exp_width);
  }
};

/// Widths that are constants: shifts and masks are, too.
template <unsigned long exp_width, unsigned long mant_width>
struct FixedShape {
  static constexpr Shape widths{{exp_width, mant_width}};
  static constexpr std::size_t size = static_cast<std::size_t>(widths.significand_size());

  static constexpr bool is(rules::Widths f) {
    return f.exp_width == exp_width && f.mant_width == mant_width;
  }
  constexpr operator Shape() const { return widths; }  // NOLINT(google-explicit-constructor)
};
using Binary64 = FixedShape<11, 52>;
using Binary128 = FixedShape<15, 112>;
using Binary256 = FixedShape<19, 236>;

/// A number of limbs that is a constant; the others are longs.
template <std::size_t n>
using Fixed = std::integral_constant<std::size_t, n>;

/// Calls `serve` with the widths and with the number of limbs of a significand, as a constant when
/// they are few.
template <class Serve>
[[gnu::always_inline]] inline decltype(auto) with_size(Shape s, Serve serve) {
  switch (const long n = s.significand_size()) {
    case 1:
      return serve(s, Fixed<1>());
    case 2:
      return serve(s, Fixed<2>());
    case 3:
      return serve(s, Fixed<3>());
    case 4:
      return serve(s, Fixed<4>());
    default:
      return serve(s, n);
  }
}

// ---- Taking apart ----

/// The upper 64 bits of a pattern, which hold sign and exponent; zeros below a shorter one.
[[gnu::always_inline]] inline Limb upper_limb(Shape s, long n, const Limb* bits) {
  const long size = s.pattern_size(n);
  const Limb below = n > 1 || size > 1 ? bits[size - 2] : 0;
  const unsigned unused = s.unused_bits();
  return bits[size - 1] << unused | below >> 1 >> (limb_bits - 1 - unused);
}

/// The value +-sig * 2^(exp - bias - m). The significand is in two pieces: its highest limb, which
/// a pattern shares with the exponent, and where the others are.
struct Number {
  Limb sign;
  std::int64_t exp;
  const Limb* low;
  Limb top;
};

[[gnu::always_inline]] inline std::int64_t exponent_field(Shape s, Limb upper) {
  return static_cast<std::int64_t>(upper << 1 >> (limb_bits - s.exp_width));
}

/// Takes a pattern apart. The exponent of infinities and NaNs is exp_max(), that of subnormals and
/// zeros 1, without a hidden bit.
[[gnu::always_inline]] inline Number unpack(Shape s, long n, const Limb* bits, Limb upper) {
  const std::int64_t field = exponent_field(s, upper);
  const Limb hidden = Limb{field != 0} << s.top_bit();
  return {upper >> (limb_bits - 1), field + std::int64_t{field == 0}, bits,
          (bits[n - 1] & (s.hidden_bit() - 1)) | hidden};
}
[[gnu::always_inline]] inline Number unpack(Shape s, long n, const Limb* bits) {
  return unpack(s, n, bits, upper_limb(s, n, bits));
}

inline bool is_zero(const Number& x, long n) { return x.top == 0 && trimmed(x.low, n - 1) == 0; }

/// A positive integer: its highest limb, not 0, and where the others are.
struct Integer {
  const Limb* low;
  long size;
  Limb top;

  long leading_bit() const { return size * limb_bits - 1 - std::countl_zero(top); }
};

/// The significand of a number other than 0.
inline Integer significand_of(const Number& x, long n) {
  if (x.top != 0) [[likely]] {
    return {x.low, n, x.top};
  }
  const long size = trimmed(x.low, n - 1);
  return {x.low, size, x.low[size - 1]};
}

/// out := the significand of x; the limbs up to the highest that is not 0.
inline long copy_significand(const Number& x, long n, Limb* out) {
  std::copy_n(x.low, n - 1, out);
  out[n - 1] = x.top;
  return trimmed(out, n);
}

/// The operands of an operation.
struct Operands {
  const Limb* bits[2];
  Limb upper[2];

  [[gnu::always_inline]] Operands(Shape s, long n, const Limb* x, const Limb* y)
      : bits{x, y}, upper{upper_limb(s, n, x), upper_limb(s, n, y)} {}

  /// Whether neither is an infinity or a NaN.
  [[gnu::always_inline]] bool finite(Shape s) const {
    return upper[0] << 1 < s.upper_infinity() && upper[1] << 1 < s.upper_infinity();
  }
  [[gnu::always_inline]] Number unpack(Shape s, long n, long i) const {
    return limbs::unpack(s, n, bits[i], upper[i]);
  }
  /// Exchanges the operands if `mask` is all ones, which is as good as random to a branch
  /// predictor.
  [[gnu::always_inline]] void swap_if(Limb mask) {
    mask = words::opaque(mask);
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

[[gnu::always_inline]] inline Order compare_magnitudes(Shape s, long n, const Operands& x) {
  const Limb first = x.upper[0] << 1;
  const Limb second = x.upper[1] << 1;
  if (first == second) [[unlikely]] {
    const long below = s.pattern_size(n) - 1;
    const int order = below > 0 ? mpn_cmp(x.bits[0], x.bits[1], below) : 0;
    return {limb_mask(order < 0), limb_mask(order == 0)};
  }
  return {limb_mask(first < second), 0};
}

// ---- Putting together ----

/// Writes sign and exponent field above the trailing significand, whose highest limb is `top`; what
/// that has above the trailing bits, and `carry`, add to the field.
[[gnu::always_inline]] inline void pack_top(Shape s, long n, Limb sign, std::int64_t field,
                                            Limb top, Limb carry, Limb* out) {
  const Limb packed = static_cast<Limb>(field) | sign << s.exp_width;
  const DoubleLimb sum = DoubleLimb{packed << s.top_bit()} + top;
  out[n - 1] = static_cast<Limb>(sum);
  if (s.has_limb_above()) {
    out[n] = (packed >> 1 >> (limb_bits - 1 - s.top_bit())) + static_cast<Limb>(sum >> limb_bits) +
             carry;
  }
}

/// out := the zero of this sign.
void pack_zero(Shape s, Limb sign, Limb* out);
/// out := the infinity of this sign.
void pack_infinity(Shape s, Limb sign, Limb* out);
/// out := the NaN that operations make.
void pack_nan(Shape s, Limb* out);
/// out := the infinity of this sign or the largest finite value, as the direction has it; an
/// overflow.
[[gnu::cold]] void pack_overflow(Shape s, Rounding r, Limb sign, Limb* out);

/// Whether a result of this exponent field can be tiny, or be rounded to an infinity.
[[gnu::always_inline]] inline bool is_at_border(Shape s, std::int64_t field) {
  return static_cast<Limb>(field) - 2 >= static_cast<Limb>(s.exp_max()) - 3;
}

/// Rounds the magnitude of a finite pattern that has `guard` below, with the exceptions that this
/// raises. Tiny is what has an exponent field of 0 and is not zero.
void round_watched(Shape s, Rounding r, Limb sign, Limb guard, Limb* out);
/// The same with exceptions or without. What carries into the exponent of infinities is rounded
/// outward and leaves a significand of 0.
inline void round_pattern(Shape s, long n, Rounding r, Limb sign, Limb guard, Limb* out) {
  if (r.is_watched()) {
    round_watched(s, r, sign, guard, out);
  } else {
    increment(out, s.pattern_size(n), Limb{rounds_up(r, sign, out[0] % 2 != 0, guard)});
  }
}

// ---- Special operands ----

/// The class and sign of a pattern.
rules::Operand operand_of(Shape s, const Limb* bits);

/// Operations that the tables of special operands know.
enum class Operation : unsigned char { sum, difference, product, quotient };

/// x := what a table has for the operands x and y, with its exceptions; false, and nothing done,
/// where that is left to be computed. With exceptions NaNs become the canonical one.
bool settle(rules::Result result, Shape s, Rounding r, Limb* x, const Limb* y);

/// x := x op y, where the tables know the result: one operand is a NaN or an infinity, or a zero
/// that is a factor or a divisor.
[[gnu::cold]] void apply_table(Operation op, Shape s, Rounding r, Limb* x, const Limb* y);

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_PATTERNS_H_
