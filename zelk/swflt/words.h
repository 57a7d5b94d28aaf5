// Rounded arithmetic on patterns in words: one text for every format that fits.
//
// The shape of a format is a constant (binary32, binary64) or known at run time. Each operation
// settles NaN, infinite and zero operands, computes every other result as a significand whose
// lowest bit is sticky, and rounds and packs it. Included by swflt.cpp, for its routines, and by
// the float code.
#ifndef ZELK_SWFLT_WORDS_H_
#define ZELK_SWFLT_WORDS_H_

#include <algorithm>
#include <bit>
#include <cstdint>

#include "zelk/swflt/swflt.h"

namespace zelk::swflt::detail {

__extension__ using uint128 = unsigned __int128;

// A shape whose operations raise the flags. The others neither read nor write them.
template <Shape S>
struct Flagged : S {};

template <class S>
inline constexpr bool raises_flags = false;
template <class S>
inline constexpr bool raises_flags<Flagged<S>> = true;

// Whether a NaN operand's pattern is the result. The other shapes return the canonical NaN.
template <class S>
inline constexpr bool passes_nan_on = false;
template <>
inline constexpr bool passes_nan_on<RuntimeShape> = true;

enum Direction : unsigned { nearest, toward_zero, upward, downward };

// Whether the arithmetic serves a format: exponents, and sums of two, fit 63 bits, and a
// significand leaves four bits of the word to the digits that rounding looks at.
constexpr bool serves(std::uint64_t exp_width, std::uint64_t mant_width) {
  return mant_width - 1 <= 58 && exp_width - 2 <= 61 - mant_width;
}

template <Shape S>
void raise(S /*shape*/, bool condition, unsigned char flags) {
  if constexpr (raises_flags<S>) {
    raise(condition ? flags : 0);
  }
}

// Where a significand has its leading bit when it is rounded, whatever the format. The bits below
// the format's last place decide on rounding; bit 0 is sticky: it also stands for every nonzero
// digit dropped beneath it.
constexpr int lead = 63;

// The value +-sig * 2^(exp - bias - lead), where sig has its leading bit at `lead`; a nonzero
// `sign` is the pattern's sign bit.
struct Unpacked {
  std::uint64_t sign;
  std::int64_t exp;
  std::uint64_t sig;
};

constexpr std::int64_t exp_max(Shape auto s) {
  return static_cast<std::int64_t>(pow2(s.exp_width)) - 1;
}
constexpr std::int64_t bias(Shape auto s) { return exp_max(s) >> 1; }

constexpr std::uint64_t sign_of(Shape auto s, std::uint64_t a) { return a & sign_bit(s); }

constexpr bool is_normal(Shape auto s, std::uint64_t a) {
  return magnitude(s, a) - hidden_bit(s) < infinity(s) - hidden_bit(s);
}

constexpr bool is_signaling(Shape auto s, std::uint64_t a) {
  return is_nan(s, a) && (a & hidden_bit(s) >> 1) == 0;
}

// The result of an operation with a NaN operand.
template <Shape S>
std::uint64_t nan_from(S s, std::uint64_t a, std::uint64_t b) {
  if constexpr (passes_nan_on<S>) return is_nan(s, a) ? a : b;
  raise(s, is_signaling(s, a) || is_signaling(s, b), flag_invalid);
  return canonical_nan(s);
}

// The result of an operation without a useful value.
std::uint64_t invalid(Shape auto s) {
  raise(s, true, flag_invalid);
  return canonical_nan(s);
}

constexpr std::uint64_t mask_if(bool condition) { return 0 - std::uint64_t{condition}; }

// Whether two significands side by side, and guard bits, fit a word: then shifts, products and
// quotients need neither a second word nor a sticky bit.
constexpr bool is_short(Shape auto s) { return s.mant_width <= 29; }

// sig / 2^n with the lost digits jammed into the sticky bit; n is not negative, sig is below 2^63.
constexpr std::uint64_t shift_right_jam(std::uint64_t sig, std::int64_t n) {
  n = std::min<std::int64_t>(n, 63);
  const std::uint64_t kept = sig >> n;
  return kept | std::uint64_t{kept << n != sig};
}

// The exponent field of a magnitude, as it counts: subnormals have the smallest normal's.
constexpr std::int64_t exponent(Shape auto s, std::uint64_t magnitude) {
  const auto field = static_cast<std::int64_t>(magnitude >> s.mant_width);
  return field + (field == 0);
}

// The significand of a magnitude with this exponent, its hidden bit at `top`: what is above is the
// exponent less one.
template <int top>
constexpr std::uint64_t significand(Shape auto s, std::uint64_t magnitude, std::int64_t exp) {
  return (magnitude << (top - s.mant_width)) - (static_cast<std::uint64_t>(exp - 1) << top);
}

// The same with its hidden bit at mant_width.
constexpr std::uint64_t integer_significand(Shape auto s, std::uint64_t magnitude,
                                            std::int64_t exp) {
  return magnitude - (static_cast<std::uint64_t>(exp - 1) << s.mant_width);
}

// Takes a finite nonzero pattern apart.
[[gnu::always_inline]] constexpr Unpacked unpack(Shape auto s, std::uint64_t a) {
  const std::int64_t exp = exponent(s, magnitude(s, a));
  const std::uint64_t sig = significand<lead>(s, magnitude(s, a), exp);
  const std::int64_t n = __builtin_clzl(sig);
  return {sign_of(s, a), exp - n, sig << n};
}

// The same for a normal one.
[[gnu::always_inline]] constexpr Unpacked unpack_normal(Shape auto s, std::uint64_t a) {
  const auto exp = static_cast<std::int64_t>(magnitude(s, a) >> s.mant_width);
  constexpr std::uint64_t hidden = std::uint64_t{1} << lead;
  return {sign_of(s, a), exp, hidden | a << (lead - s.mant_width)};
}

// Whether rounding in direction `mode` can move a magnitude up.
constexpr bool rounds_outward(std::uint64_t sign, Direction mode) {
  return mode == nearest || mode == (sign != 0 ? downward : upward);
}

// A significand cut to the format: its integer part, and what was cut off as a fraction of 2^64.
struct Cut {
  std::uint64_t sig;
  std::uint64_t rest;
};

constexpr Cut cut(Shape auto s, std::uint64_t sig) {
  return {sig >> (lead - s.mant_width), sig << (s.mant_width + 1)};
}

constexpr std::uint64_t rounded(Cut c, std::uint64_t sign, Direction mode) {
  constexpr std::uint64_t half = std::uint64_t{1} << 63;
  if (mode == nearest) [[likely]]
    return c.sig + (c.rest + (c.sig & 1) > half);  // bit 0 of rest is clear
  return c.sig + (c.rest != 0 && rounds_outward(sign, mode));
}

// Rounds and packs, for an exponent above 0. The significand brings its leading bit along, which
// adds one to the exponent field, and so does a carry out of it; a subnormal's has no such bit and
// leaves the field 0.
[[gnu::always_inline]] inline std::uint64_t round_and_pack_inside(Shape auto s, Unpacked x,
                                                                  Direction mode) {
  const Cut c = cut(s, x.sig);
  raise(s, c.rest != 0, flag_inexact);
  return (x.sign | static_cast<std::uint64_t>(x.exp - 1) << s.mant_width) +
         rounded(c, x.sign, mode);
}

// Rounds and packs a normalized number near or beyond an end of the exponent range. The exponent
// that rounding would give it there, without an end, decides on overflow and on tininess; a mode
// that points toward zero overflows to the largest finite value.
[[gnu::cold, gnu::noinline]] std::uint64_t round_and_pack_at_border(
    Shape auto s, std::uint64_t sign, std::int64_t exp, std::uint64_t sig, Direction mode) {
  const std::uint64_t carry = rounded(cut(s, sig), sign, mode) >> (s.mant_width + 1);
  const std::int64_t rounded_exp = exp + static_cast<std::int64_t>(carry);
  if (rounded_exp >= exp_max(s)) {
    raise(s, true, flag_overflow | flag_inexact);
    return sign | (infinity(s) - !rounds_outward(sign, mode));
  }
  if (exp <= 0) {
    sig = shift_right_jam(sig >> 1 | (sig & 1), -exp);
    exp = 1;
    raise(s, rounded_exp <= 0 && cut(s, sig).rest != 0, flag_underflow);
  }
  return round_and_pack_inside(s, {sign, exp, sig}, mode);
}

// Rounds to the format, and raises overflow, underflow and inexact.
[[gnu::always_inline]] inline std::uint64_t round_and_pack(Shape auto s, Unpacked x,
                                                           Direction mode) {
  const auto limit = static_cast<std::uint64_t>(exp_max(s) - 2);
  const bool inside = static_cast<std::uint64_t>(x.exp - 1) < limit;
  return inside ? round_and_pack_inside(s, x, mode)
                : round_and_pack_at_border(s, x.sign, x.exp, x.sig, mode);
}

// a + b where an operand is a NaN or an infinity; `b` is its pattern before a subtraction turned
// it into `addend`.
[[gnu::cold, gnu::noinline]] std::uint64_t add_special(Shape auto s, std::uint64_t a,
                                                       std::uint64_t b, std::uint64_t addend) {
  if (is_nan(s, a) || is_nan(s, b)) return nan_from(s, a, b);
  if (is_inf(s, a) && is_inf(s, b) && a != addend) return invalid(s);
  return is_inf(s, a) ? a : addend;
}

// sig / 2^n, n not negative, near enough for a sum with a significand that is not smaller: digits
// are lost only when sig is shifted out of the word, and then the leading bit of the sum moves down
// by one place at most.
constexpr std::uint64_t align(Shape auto s, std::uint64_t sig, std::int64_t n) {
  if (!is_short(s)) return shift_right_jam(sig, n);
  // Below a quarter of an ulp it only matters that there is something.
  return sig >> std::min<std::int64_t>(n, s.mant_width + 3);
}

template <bool subtract>
[[gnu::always_inline]] inline std::uint64_t add_sub(Shape auto s, std::uint64_t a, std::uint64_t b,
                                                    Direction mode) {
  // Which magnitude is larger, and whether the signs differ, is as good as random to a branch
  // predictor: both choices are made with masks.
  const std::uint64_t addend = subtract ? b ^ sign_bit(s) : b;
  const std::uint64_t difference = a ^ addend;
  const std::uint64_t mag_a = magnitude(s, a);
  const std::uint64_t mag_b = magnitude(s, b);
  const std::uint64_t swap = mask_if(mag_a < mag_b);
  const std::uint64_t large = mag_a ^ ((mag_a ^ mag_b) & swap);
  const std::uint64_t small = mag_b ^ ((mag_a ^ mag_b) & swap);
  const std::uint64_t sign = sign_of(s, a ^ (difference & swap));
  if (large >= infinity(s)) [[unlikely]]
    return add_special(s, a, b, addend);

  // Hidden bits one below `lead`, so that a carry has room.
  const std::int64_t exp = exponent(s, large);
  const std::int64_t small_exp = exponent(s, small);
  const std::uint64_t x = significand<lead - 1>(s, large, exp);
  const std::uint64_t y = significand<lead - 1>(s, small, small_exp);
  const std::uint64_t minus = mask_if(sign_of(s, difference) != 0);
  const std::uint64_t sum = x + (align(s, y, exp - small_exp) ^ minus) - minus;
  if (sum == 0) [[unlikely]]
    return minus == 0 ? sign : mode == downward ? sign_bit(s) : 0;

  const std::int64_t n = __builtin_clzl(sum);
  return round_and_pack(s, {sign, exp + 1 - n, sum << n}, mode);
}

[[gnu::always_inline]] inline std::uint64_t add(Shape auto s, std::uint64_t a, std::uint64_t b,
                                                Direction mode) {
  return add_sub<false>(s, a, b, mode);
}

[[gnu::always_inline]] inline std::uint64_t sub(Shape auto s, std::uint64_t a, std::uint64_t b,
                                                Direction mode) {
  return add_sub<true>(s, a, b, mode);
}

// Moves the leading bit up to `lead` from there or one place below.
[[gnu::always_inline]] inline Unpacked normalize_by_one(Unpacked x) {
  const std::uint64_t n = ~x.sig >> lead;
  return {x.sign, x.exp - static_cast<std::int64_t>(n), x.sig << n};
}

// x * y / 2^64, sticky; the leading bit is at `lead` or one below.
constexpr std::uint64_t product(Shape auto s, std::uint64_t x, std::uint64_t y) {
  // The first factor lost its trailing zeros, and the second as many as a word can spare.
  if (is_short(s)) return (x >> (lead - s.mant_width)) * (y >> (s.mant_width + 1));
  const uint128 p = uint128{x} * y;
  return static_cast<std::uint64_t>(p >> 64) | std::uint64_t{static_cast<std::uint64_t>(p) != 0};
}

[[gnu::always_inline]] inline std::uint64_t mul_finite(Shape auto s, Unpacked x, Unpacked y,
                                                       Direction mode) {
  const std::int64_t exp = x.exp - bias(s) + y.exp + 1;
  const std::uint64_t sig = product(s, x.sig, y.sig);
  return round_and_pack(s, normalize_by_one({x.sign ^ y.sign, exp, sig}), mode);
}

// a * b where an operand is not normal.
[[gnu::cold, gnu::noinline]] std::uint64_t mul_special(Shape auto s, std::uint64_t a,
                                                       std::uint64_t b, Direction mode) {
  if (is_nan(s, a) || is_nan(s, b)) return nan_from(s, a, b);
  const std::uint64_t sign = sign_of(s, a ^ b);
  const bool zero = is_zero(s, a) || is_zero(s, b);
  if (is_inf(s, a) || is_inf(s, b)) return zero ? invalid(s) : sign | infinity(s);
  if (zero) return sign;
  return mul_finite(s, unpack(s, a), unpack(s, b), mode);
}

[[gnu::always_inline]] inline std::uint64_t mul(Shape auto s, std::uint64_t a, std::uint64_t b,
                                                Direction mode) {
  if (!is_normal(s, a) || !is_normal(s, b)) [[unlikely]]
    return mul_special(s, a, b, mode);
  return mul_finite(s, unpack_normal(s, a), unpack_normal(s, b), mode);
}

// x / y * 2^63, sticky; the leading bit is at `lead` or one below.
constexpr std::uint64_t quotient(Shape auto s, std::uint64_t x, std::uint64_t y) {
  if (is_short(s)) {
    const std::uint64_t divisor = y >> (lead - s.mant_width);
    const std::uint64_t q = x / divisor;  // of mant_width + 2 digits at least
    return q << s.mant_width | std::uint64_t{q * divisor != x};
  }
  const uint128 dividend = uint128{x} << 62;
  const auto q = static_cast<std::uint64_t>(dividend / y);
  return q << 1 | std::uint64_t{q * y != static_cast<std::uint64_t>(dividend)};
}

[[gnu::always_inline]] inline std::uint64_t div_finite(Shape auto s, Unpacked x, Unpacked y,
                                                       Direction mode) {
  const std::int64_t exp = x.exp - y.exp + bias(s);
  const std::uint64_t sig = quotient(s, x.sig, y.sig);
  return round_and_pack(s, normalize_by_one({x.sign ^ y.sign, exp, sig}), mode);
}

// a / b where an operand is not normal.
[[gnu::cold, gnu::noinline]] std::uint64_t div_special(Shape auto s, std::uint64_t a,
                                                       std::uint64_t b, Direction mode) {
  if (is_nan(s, a) || is_nan(s, b)) return nan_from(s, a, b);
  if ((is_inf(s, a) && is_inf(s, b)) || (is_zero(s, a) && is_zero(s, b))) return invalid(s);
  const std::uint64_t sign = sign_of(s, a ^ b);
  if (is_zero(s, a) || is_inf(s, b)) return sign;
  raise(s, is_zero(s, b) && !is_inf(s, a), flag_divide_by_zero);
  if (is_zero(s, b) || is_inf(s, a)) return sign | infinity(s);
  return div_finite(s, unpack(s, a), unpack(s, b), mode);
}

[[gnu::always_inline]] inline std::uint64_t div(Shape auto s, std::uint64_t a, std::uint64_t b,
                                                Direction mode) {
  if (!is_normal(s, a) || !is_normal(s, b)) [[unlikely]]
    return div_special(s, a, b, mode);
  return div_finite(s, unpack_normal(s, a), unpack_normal(s, b), mode);
}

// The conversion of a zero, an infinity or a NaN; every NaN becomes the canonical one.
[[gnu::cold, gnu::noinline]] std::uint64_t convert_special(Shape auto from, Shape auto to,
                                                           std::uint64_t a, std::uint64_t sign) {
  if (is_zero(from, a)) return sign;
  if (is_inf(from, a)) return sign | infinity(to);
  raise(to, is_signaling(from, a), flag_invalid);
  return canonical_nan(to);
}

// The pattern `a` of one shape rounded to another.
[[gnu::always_inline]] inline std::uint64_t convert(Shape auto from, Shape auto to, std::uint64_t a,
                                                    Direction mode) {
  const std::uint64_t sign = sign_bit(to) & mask_if(sign_of(from, a) != 0);
  if (magnitude(from, a) - 1 >= infinity(from) - 1) [[unlikely]]
    return convert_special(from, to, a, sign);
  const Unpacked x = unpack(from, a);
  return round_and_pack(to, {sign, x.exp - bias(from) + bias(to), x.sig}, mode);
}

// The integer n, above -2^63, rounded.
constexpr std::uint64_t from_integer(Shape auto s, std::int64_t n, Direction mode) {
  if (n == 0) return 0;
  const auto magnitude = static_cast<std::uint64_t>(n < 0 ? -n : n);
  const int zeros = std::countl_zero(magnitude);
  return round_and_pack(s, {n < 0 ? sign_bit(s) : 0, bias(s) + lead - zeros, magnitude << zeros},
                        mode);
}

}  // namespace zelk::swflt::detail

#endif  // ZELK_SWFLT_WORDS_H_
