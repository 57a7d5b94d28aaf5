#include "zelk/swflt/swflt.h"

#include <algorithm>
#include <bit>

namespace zelk::swflt {

unsigned char float_exception_flags = 0;

namespace {

using namespace detail;

__extension__ using uint128 = unsigned __int128;

// Where a significand keeps its leading bit between unpacking and rounding, whatever the format.
// The bit above takes the carry of rounding; the bits below the format's last place are the guard
// bits, and bit 0 is sticky: it also stands for every nonzero digit dropped beneath it.
constexpr int lead = 62;

// The value (-1)^sign * sig * 2^(exp - bias - lead).
struct Unpacked {
  bool sign;
  int exp;
  std::uint64_t sig;
};

constexpr int exp_max(Shape auto s) { return (1 << s.exp_width) - 1; }
constexpr int bias(Shape auto s) { return exp_max(s) >> 1; }
constexpr int guard_width(Shape auto s) { return lead - s.mant_width; }

constexpr std::uint64_t guard_mask(Shape auto s) {
  return (std::uint64_t{1} << guard_width(s)) - 1;
}

bool sign_of(Shape auto s, std::uint64_t a) { return (a & sign_bit(s)) != 0; }

int biased_exponent(Shape auto s, std::uint64_t a) {
  return static_cast<int>(magnitude(s, a) >> s.mant_width);
}

bool is_normal(Shape auto s, std::uint64_t a) {
  const int exp = biased_exponent(s, a);
  return exp > 0 && exp < exp_max(s);
}

bool is_signaling(Shape auto s, std::uint64_t a) {
  return is_nan(s, a) && (a & hidden_bit(s) >> 1) == 0;
}

std::uint64_t with_sign(Shape auto s, bool sign, std::uint64_t magnitude) {
  return (std::uint64_t{sign} << (s.exp_width + s.mant_width)) + magnitude;
}

// The result of an operation with a NaN operand.
std::uint64_t nan_from(Shape auto s, std::uint64_t a, std::uint64_t b) {
  if (is_signaling(s, a) || is_signaling(s, b)) raise(flag_invalid);
  return canonical_nan(s);
}

// The result of an operation without a useful value.
std::uint64_t invalid(Shape auto s) {
  raise(flag_invalid);
  return canonical_nan(s);
}

constexpr std::uint64_t mask_if(bool condition) { return 0 - std::uint64_t{condition}; }

// sig / 2^n with the lost digits jammed into the sticky bit; n is not negative, sig is below 2^63.
std::uint64_t shift_right_jam(std::uint64_t sig, int n) {
  n = std::min(n, 63);
  const std::uint64_t kept = sig >> n;
  return kept | std::uint64_t{kept << n != sig};
}

// Takes a finite pattern apart. A subnormal keeps the exponent of the smallest normal and so has
// its leading bit below `lead`.
Unpacked unpack(Shape auto s, std::uint64_t a) {
  const int exp = biased_exponent(s, a);
  const std::uint64_t fraction = a & (hidden_bit(s) - 1);
  const std::uint64_t hidden = std::uint64_t{exp != 0} << s.mant_width;
  return {sign_of(s, a), exp + (exp == 0), (hidden + fraction) << guard_width(s)};
}

// Brings the leading bit of a nonzero significand, at or below `lead`, to `lead`.
Unpacked normalize(Unpacked x) {
  const int n = std::countl_zero(x.sig) - (63 - lead);
  return {x.sign, x.exp - n, x.sig << n};
}

// What to add to a significand so that cutting off the guard bits rounds it: half an ulp, less one
// guard unit when the last place is even, for nearest-even; all but one unit of an ulp for a mode
// that points away from zero; nothing for one that points toward it. Only the last is 0.
std::uint64_t round_increment(Shape auto s, bool sign, std::uint64_t sig, int mode) {
  const bool directed = static_cast<unsigned>(mode) - 1 < 3;
  const bool away = mode == (sign ? 1 : 2);
  const std::uint64_t last_place = sig >> guard_width(s) & 1;
  const std::uint64_t nearest = (guard_mask(s) >> 1) + last_place;
  return directed ? (away ? guard_mask(s) : 0) : nearest;
}

// Rounds at the guard bits and packs, for an exponent above 0. The significand brings its leading
// bit along, which adds one to the exponent field, and so does a carry out of it; a subnormal's has
// no such bit and leaves the field 0.
std::uint64_t cut_and_pack(Shape auto s, Unpacked x, int mode) {
  raise((x.sig & guard_mask(s)) != 0 ? flag_inexact : 0);
  const std::uint64_t sig = x.sig + round_increment(s, x.sign, x.sig, mode);
  const std::uint64_t exponent = static_cast<std::uint64_t>(x.exp - 1) << s.mant_width;
  return with_sign(s, x.sign, exponent + (sig >> guard_width(s)));
}

// Rounds and packs a normalized number near or beyond an end of the exponent range. The exponent
// that rounding would give it there, without an end, decides on overflow and on tininess; a mode
// that points toward zero overflows to the largest finite value.
[[gnu::cold]] std::uint64_t round_at_border(Shape auto s, Unpacked x, int mode) {
  const std::uint64_t increment = round_increment(s, x.sign, x.sig, mode);
  const int rounded_exp = x.exp + static_cast<int>((x.sig + increment) >> (lead + 1));
  if (rounded_exp >= exp_max(s)) {
    raise(flag_overflow | flag_inexact);
    return with_sign(s, x.sign, infinity(s) - (increment == 0));
  }
  if (x.exp <= 0) {
    x.sig = shift_right_jam(x.sig, 1 - x.exp);
    x.exp = 1;
    if (rounded_exp <= 0 && (x.sig & guard_mask(s)) != 0) raise(flag_underflow);
  }
  return cut_and_pack(s, x, mode);
}

// Rounds a normalized number to the format, and raises overflow, underflow and inexact.
std::uint64_t round_and_pack(Shape auto s, Unpacked x, int mode) {
  const bool inside = static_cast<unsigned>(x.exp - 1) < static_cast<unsigned>(exp_max(s) - 2);
  return inside ? cut_and_pack(s, x, mode) : round_at_border(s, x, mode);
}

// x + y for x not smaller in magnitude than y.
[[gnu::always_inline]] inline std::uint64_t add_finite(Shape auto s, Unpacked x, Unpacked y,
                                                       int mode) {
  // One place further down than `lead`, so that a carry has room. Digits are lost only when y is
  // shifted out of its guard bits, and then the leading bit moves down by one place at most.
  const std::uint64_t addend = shift_right_jam(y.sig >> 1, x.exp - y.exp);
  const std::uint64_t minus = mask_if(x.sign != y.sign);
  const std::uint64_t sum = (x.sig >> 1) + (addend ^ minus) - minus;
  if (sum == 0) [[unlikely]]
    return with_sign(s, x.sign == y.sign ? x.sign : mode == 1, 0);
  return round_and_pack(s, normalize({x.sign, x.exp + 1, sum}), mode);
}

// a + b where an operand is not normal, and a is not smaller in magnitude than b.
[[gnu::cold]] std::uint64_t add_special(Shape auto s, std::uint64_t a, std::uint64_t b, int mode) {
  if (is_nan(s, a)) return nan_from(s, a, b);
  if (is_inf(s, a)) return is_inf(s, b) && a != b ? invalid(s) : a;
  return add_finite(s, unpack(s, a), unpack(s, b), mode);
}

std::uint64_t add(Shape auto s, std::uint64_t a, std::uint64_t b, int mode) {
  // Which magnitude is larger, and whether the signs differ, is as good as random to a branch
  // predictor: both choices are made with masks.
  const std::uint64_t swap = (a ^ b) & mask_if(magnitude(s, a) < magnitude(s, b));
  a ^= swap;
  b ^= swap;
  if (!is_normal(s, a) || !is_normal(s, b)) [[unlikely]]
    return add_special(s, a, b, mode);
  return add_finite(s, unpack(s, a), unpack(s, b), mode);
}

// Moves the leading bit up to `lead` from there or one place below.
Unpacked normalize_by_one(Unpacked x) {
  const int n = static_cast<int>(~x.sig >> lead & 1);
  return {x.sign, x.exp - n, x.sig << n};
}

[[gnu::always_inline]] inline std::uint64_t mul_finite(Shape auto s, Unpacked x, Unpacked y,
                                                       int mode) {
  const uint128 product = uint128{x.sig} * (y.sig << 1);
  const auto low = static_cast<std::uint64_t>(product);
  const std::uint64_t sig = static_cast<std::uint64_t>(product >> 64) | std::uint64_t{low != 0};
  const int exp = x.exp + y.exp - bias(s) + 1;
  return round_and_pack(s, normalize_by_one({x.sign != y.sign, exp, sig}), mode);
}

// a * b where an operand is not normal.
[[gnu::cold]] std::uint64_t mul_special(Shape auto s, std::uint64_t a, std::uint64_t b, int mode) {
  if (is_nan(s, a) || is_nan(s, b)) return nan_from(s, a, b);
  const bool sign = sign_of(s, a ^ b);
  const bool zero = is_zero(s, a) || is_zero(s, b);
  if (is_inf(s, a) || is_inf(s, b)) return zero ? invalid(s) : with_sign(s, sign, infinity(s));
  if (zero) return with_sign(s, sign, 0);
  return mul_finite(s, normalize(unpack(s, a)), normalize(unpack(s, b)), mode);
}

std::uint64_t mul(Shape auto s, std::uint64_t a, std::uint64_t b, int mode) {
  if (!is_normal(s, a) || !is_normal(s, b)) [[unlikely]]
    return mul_special(s, a, b, mode);
  return mul_finite(s, unpack(s, a), unpack(s, b), mode);
}

// x / y, sticky, for significands with their leading bits at `lead`; that is where a 1 stands in
// the quotient too.
std::uint64_t quotient(Shape auto s, std::uint64_t x, std::uint64_t y) {
  // Rounding needs mant_width + 2 digits. A short format gets them without widening the dividend,
  // by leaving the guard bits out of the divisor.
  if (guard_width(s) >= s.mant_width + 2) {
    const std::uint64_t divisor = y >> guard_width(s);
    const std::uint64_t q = x / divisor;
    return q << s.mant_width | std::uint64_t{q * divisor != x};
  }
  const uint128 dividend = uint128{x} << lead;
  const auto q = static_cast<std::uint64_t>(dividend / y);
  return q | std::uint64_t{q * y != static_cast<std::uint64_t>(dividend)};
}

[[gnu::always_inline]] inline std::uint64_t div_finite(Shape auto s, Unpacked x, Unpacked y,
                                                       int mode) {
  const int exp = x.exp - y.exp + bias(s);
  const std::uint64_t sig = quotient(s, x.sig, y.sig);
  return round_and_pack(s, normalize_by_one({x.sign != y.sign, exp, sig}), mode);
}

// a / b where an operand is not normal.
[[gnu::cold]] std::uint64_t div_special(Shape auto s, std::uint64_t a, std::uint64_t b, int mode) {
  if (is_nan(s, a) || is_nan(s, b)) return nan_from(s, a, b);
  if ((is_inf(s, a) && is_inf(s, b)) || (is_zero(s, a) && is_zero(s, b))) return invalid(s);
  const bool sign = sign_of(s, a ^ b);
  if (is_zero(s, a) || is_inf(s, b)) return with_sign(s, sign, 0);
  if (is_zero(s, b) && !is_inf(s, a)) raise(flag_divide_by_zero);
  if (is_zero(s, b) || is_inf(s, a)) return with_sign(s, sign, infinity(s));
  return div_finite(s, normalize(unpack(s, a)), normalize(unpack(s, b)), mode);
}

std::uint64_t div(Shape auto s, std::uint64_t a, std::uint64_t b, int mode) {
  if (!is_normal(s, a) || !is_normal(s, b)) [[unlikely]]
    return div_special(s, a, b, mode);
  return div_finite(s, unpack(s, a), unpack(s, b), mode);
}

std::uint64_t convert(Shape auto from, Shape auto to, std::uint64_t a, int mode) {
  const bool sign = sign_of(from, a);
  if (is_nan(from, a)) return is_signaling(from, a) ? invalid(to) : canonical_nan(to);
  if (is_inf(from, a)) return with_sign(to, sign, infinity(to));
  if (is_zero(from, a)) return with_sign(to, sign, 0);
  const Unpacked x = normalize(unpack(from, a));
  return round_and_pack(to, {sign, x.exp - bias(from) + bias(to), x.sig}, mode);
}

std::uint64_t from_integer(Shape auto s, std::int64_t n, int mode) {
  if (n == 0) return 0;
  const auto magnitude = static_cast<std::uint64_t>(n < 0 ? -n : n);
  return round_and_pack(s, normalize({n < 0, bias(s) + lead, magnitude}), mode);
}

}  // namespace

namespace detail {

std::uint64_t word_add(RuntimeShape s, std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return add(s, a, b, mode);
}

std::uint64_t word_sub(RuntimeShape s, std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return add(s, a, b ^ sign_bit(s), mode);
}

std::uint64_t word_mul(RuntimeShape s, std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return mul(s, a, b, mode);
}

std::uint64_t word_div(RuntimeShape s, std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return div(s, a, b, mode);
}

std::uint64_t word_convert(RuntimeShape from, RuntimeShape to, std::uint64_t a, int mode) noexcept {
  return convert(from, to, a, mode);
}

std::uint64_t word_from_integer(RuntimeShape s, std::int64_t n, int mode) noexcept {
  return from_integer(s, n, mode);
}

}  // namespace detail

std::uint32_t float32_add(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(add(binary32, a, b, mode));
}
std::uint64_t float64_add(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return add(binary64, a, b, mode);
}

std::uint32_t float32_sub(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return float32_add(a, float32_negate(b), mode);
}
std::uint64_t float64_sub(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return float64_add(a, float64_negate(b), mode);
}

std::uint32_t float32_mul(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(mul(binary32, a, b, mode));
}
std::uint64_t float64_mul(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return mul(binary64, a, b, mode);
}

std::uint32_t float32_div(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(div(binary32, a, b, mode));
}
std::uint64_t float64_div(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return div(binary64, a, b, mode);
}

std::uint32_t float64_to_float32(std::uint64_t a, int mode) noexcept {
  return static_cast<std::uint32_t>(convert(binary64, binary32, a, mode));
}
std::uint64_t float32_to_float64(std::uint32_t a) noexcept {
  return convert(binary32, binary64, a, 0);
}

}  // namespace zelk::swflt
