// Patterns in words taken apart, what special operands give, and rounding: the first and the last
// steps of every operation.
#ifndef ZELK_WORDS_ROUNDING_H_
#define ZELK_WORDS_ROUNDING_H_

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <type_traits>

#include "zelk/rules/flags.h"
#include "zelk/rules/rounding.h"
#include "zelk/rules/special.h"
#include "zelk/words/integers.h"
#include "zelk/words/shape.h"

namespace zelk::words {

using rules::Direction;

// A shape whose operations raise flags in a byte of the caller's. Signaling NaNs are invalid.
template <Shape S>
struct Flagged : S {
  unsigned char* flags;
};
// A shape whose operations raise flags, judge tininess and flush as an environment has it. Every
// NaN is quiet.
template <Shape S>
struct InEnvironment : Flagged<S> {
  bool tiny_before;  // tininess is judged before rounding, else after it
  bool flush;        // tiny results that are not zero become the zero of their sign
};

// The other shapes know no flags.
template <class S>
concept HasFlags = requires(S s) {
  s.flags;
};
template <class S>
concept HasEnvironment = requires(S s) {
  s.tiny_before;
};

// Writes only what changes, and asks for that first: flags that are up already cost no branch that
// is hard to predict, nor a store that the next operation has to load.
template <Shape S>
void raise([[maybe_unused]] S s, bool condition, int flags) {
  if constexpr (HasFlags<S>) {
    if ((flags & ~*s.flags) != 0 && condition) {
      *s.flags = static_cast<unsigned char>(*s.flags | flags);
    }
  }
}

// Whether a NaN operand's pattern is the result. The other shapes give the canonical NaN.
template <class S>
inline constexpr bool passes_nan_on = false;
template <>
inline constexpr bool passes_nan_on<RuntimeShape> = true;
template <>
inline constexpr bool passes_nan_on<ShortShape> = true;
template <>
inline constexpr bool passes_nan_on<RaisedShape> = true;
template <>
inline constexpr bool passes_nan_on<FixedShape<5, 10>> = true;
template <>
inline constexpr bool passes_nan_on<FixedShape<8, 7>> = true;
template <>
inline constexpr bool passes_nan_on<FixedShape<15, 112>> = true;

// The value +-sig * 2^(exp + 1 - bias - lead), where sig has its leading bit at `lead`; a nonzero
// `sign` is the pattern's sign bit. `exp` is the exponent field less the one that the leading bit
// adds to it in a pattern.
template <class W>
struct Unpacked {
  W sign;
  std::int64_t exp;
  W sig;
};

template <Shape S>
constexpr std::int64_t exp_max(S s) {
  return static_cast<std::int64_t>(pow2<std::uint64_t>(s.exp_width)) - 1;
}
template <Shape S>
constexpr std::int64_t bias(S s) {
  return exp_max(s) >> 1;
}

template <Shape S>
constexpr bool is_signaling(S s, Word<S> a) {
  return is_nan(s, a) && (a & hidden_bit(s) >> 1) == 0;
}

// ---- Special operands ----

template <Shape S>
constexpr rules::Operand operand_of(S s, Word<S> a) {
  const rules::Class what = is_nan(s, a)    ? rules::Class::nan
                            : is_inf(s, a)  ? rules::Class::infinite
                            : is_zero(s, a) ? rules::Class::zero
                                            : rules::Class::finite;
  return {what, sign_of(s, a) != 0};
}

// What the table has for the operands a and b.
template <Shape S>
Word<S> special(S s, rules::Result r, Word<S> a, Word<S> b) {
  const Word<S> sign = r.negative ? sign_bit(s) : 0;
  switch (r.outcome) {
    case rules::Outcome::left:
    case rules::Outcome::right:
      if constexpr (passes_nan_on<S>) return r.outcome == rules::Outcome::left ? a : b;
      if constexpr (!HasEnvironment<S>) {
        raise(s, is_signaling(s, a) || is_signaling(s, b), rules::invalid);
      }
      return canonical_nan(s);
    case rules::Outcome::zero:
      return sign;
    case rules::Outcome::pole:
      raise(s, true, rules::divide_by_zero);
      [[fallthrough]];
    case rules::Outcome::infinity:
      return sign | infinity(s);
    default:
      raise(s, true, rules::invalid);
      return canonical_nan(s);
  }
}

// ---- Taking apart ----

template <Shape S>
constexpr bool is_short(S s) {
  return std::derived_from<S, ShortShape> || (sizeof(Word<S>) == 8 && s.mant_width <= short_width);
}

// a / 2^n. In double words n is 64 at least.
constexpr std::uint64_t upper_bits(std::uint64_t a, std::int64_t n) { return a >> n; }
constexpr std::uint64_t upper_bits(uint128 a, std::int64_t n) { return high_word(a) >> (n - 64); }

template <Shape S>
constexpr std::int64_t exponent_field(S s, Word<S> a) {
  return static_cast<std::int64_t>(upper_bits(magnitude(s, a), s.mant_width));
}

// The exponent field of a magnitude less the one that its hidden bit adds to it; 0 for subnormals.
template <Shape S>
constexpr std::int64_t exponent_below(S s, Word<S> magnitude) {
  const std::uint64_t field = upper_bits(magnitude, s.mant_width);
  return static_cast<std::int64_t>(field - 1 + (field < 1));
}

// The significand of a magnitude with this exponent below, its hidden bit at mant_width.
template <Shape S>
constexpr Word<S> integer_significand(S s, Word<S> magnitude, std::int64_t exp) {
  return plus_scaled(magnitude, -exp, s.mant_width);
}

// The same n places further up.
template <Shape S>
constexpr Word<S> significand(S s, Word<S> magnitude, std::int64_t exp, std::int64_t n) {
  return plus_scaled(shift_left(magnitude, n), -exp, s.mant_width + n);
}

// Takes a finite nonzero pattern apart.
template <Shape S>
[[gnu::always_inline]] constexpr Unpacked<Word<S>> unpack(S s, Word<S> a) {
  const std::int64_t exp = exponent_below(s, magnitude(s, a));
  const std::int64_t n = lead<Word<S>> - s.mant_width;
  const auto x = normalize(significand(s, magnitude(s, a), exp, n));
  return {sign_of(s, a), exp + x.top - lead<Word<S>>, x.sig};
}

// A factor, dividend or divisor: the same with the leading bit at mant_width.
template <Shape S>
[[gnu::always_inline]] constexpr Unpacked<Word<S>> unpack_operand(S s, Word<S> a) {
  const auto x = unpack(s, a);
  return {x.sign, x.exp, x.sig >> (lead<Word<S>> - s.mant_width)};
}

// The significand of a normal pattern, its hidden bit at mant_width.
template <Shape S>
constexpr Word<S> normal_significand(S s, Word<S> a) {
  if constexpr (sizeof(Word<S>) > 8) {
    const std::uint64_t hidden = high_word(hidden_bit(s));
    return double_word((high_word(a) & (hidden - 1)) | hidden, low_word(a));
  }
  return (a & (hidden_bit(s) - 1)) | hidden_bit(s);
}

// The same for a normal one.
template <Shape S>
[[gnu::always_inline]] constexpr Unpacked<Word<S>> unpack_normal(S s, Word<S> a) {
  const std::int64_t exp = exponent_field(s, a) - 1;
  return {sign_of(s, a), exp, normal_significand(s, a)};
}

// The same as unpack takes it apart.
template <Shape S>
[[gnu::always_inline]] constexpr Unpacked<Word<S>> unpack_normal_up(S s, Word<S> a) {
  const auto x = unpack_normal(s, a);
  return {x.sign, x.exp, shift_left(x.sig, lead<Word<S>> - s.mant_width)};
}

// Whether a pattern from which unpack_normal took this exponent is normal.
template <Shape S>
constexpr bool is_normal_exponent(S s, std::int64_t exp) {
  return static_cast<std::uint64_t>(exp) < static_cast<std::uint64_t>(exp_max(s)) - 1;
}

// Whether an exponent less the one of the leading bit needs no look at an end of the range.
template <Shape S>
constexpr bool is_inside(S s, std::int64_t exp) {
  return static_cast<std::uint64_t>(exp) < static_cast<std::uint64_t>(exp_max(s) - 2);
}

// ---- Rounding and packing ----

// The bits of a significand that its format keeps.
template <Shape S>
constexpr std::int64_t kept_width(S s) {
  if constexpr (Raised<S>) return s.kept_width;
  return s.mant_width;
}

// Half a unit in the last place of a significand.
template <Shape S>
constexpr Word<S> half_ulp(S s) {
  return pow2<Word<S>>(lead<Word<S>> - 1 - kept_width(s));
}

// Whether a significand has digits below the format's last place.
template <Shape S>
constexpr bool is_inexact(S s, Word<S> sig) {
  return (sig & (2 * half_ulp(s) - 1)) != 0;
}

// The rule as one addition: what is added to the digits below a unit, so that their carry into it
// is the increment. Whether any digit was lost beneath them is in the lowest one.
template <class W>
constexpr W to_carry(Direction mode, bool negative, bool odd, W unit) {
  switch (mode) {
    case rules::nearest:
      return unit / 2 - 1 + W{odd};
    case rules::nearest_away:
      return unit / 2;
    case rules::to_odd:
      return odd ? 0 : unit - 1;
    default:
      return rules::rounds_outward(mode, negative) ? unit - 1 : 0;
  }
}

// A significand rounded to the format, its leading bit at mant_width or, by a carry, above.
template <Shape S>
[[gnu::always_inline]] constexpr Word<S> rounded(S s, Word<S> sig, Word<S> sign, Direction mode) {
  const std::int64_t n = lead<Word<S>> - s.mant_width;
  const Word<S> unit = 2 * half_ulp(s);
  if constexpr (Raised<S>) {
    const bool odd = (sig & unit) != 0;
    const Word<S> below =
        mode == rules::nearest ? half_ulp(s) - 1 + odd : to_carry(mode, sign != 0, odd, unit);
    return shift_right((sig + below) & (0 - unit), n);
  }
  if (mode == rules::nearest) [[likely]]
    return shift_right(sig + (half_ulp(s) - 1) + (shift_right(sig, n) & 1), n);
  return shift_right(sig + to_carry(mode, sign != 0, (sig & unit) != 0, unit), n);
}

// Rounds and packs, for an exponent of 0 or more. The significand brings its leading bit along,
// which adds one to the exponent field, and so does a carry out of it; a subnormal's has no such
// bit and leaves the field 0.
template <Shape S>
[[gnu::always_inline]] inline Word<S> round_and_pack_inside(S s, Unpacked<Word<S>> x,
                                                            Direction mode) {
  raise(s, is_inexact(s, x.sig), rules::inexact);
  return x.sign | plus_scaled(rounded(s, x.sig, x.sign, mode), x.exp, s.mant_width);
}

// Rounds and packs a normalized number near or beyond an end of the exponent range. The exponent
// that rounding would give it there, without an end, decides on overflow and on tininess; a mode
// that points toward zero, or to odd, overflows to the largest finite value.
template <Shape S>
[[gnu::cold, gnu::noinline]] Word<S> round_and_pack_at_border(S s, Word<S> sign, std::int64_t exp,
                                                              Word<S> sig, Direction mode) {
  const Word<S> field = rounded(s, sig, sign, mode) >> s.mant_width;  // 1, or 2 by a carry
  const std::int64_t rounded_exp = exp + static_cast<std::int64_t>(field);
  if (rounded_exp >= exp_max(s)) {
    raise(s, true, rules::overflow | rules::inexact);
    return sign | (infinity(s) - (rules::rounds_outward(mode, sign != 0) ? 0 : ulp(s)));
  }
  if (exp < 0) {
    bool tiny = rounded_exp <= 0;
    if constexpr (HasEnvironment<S>) {
      tiny = tiny || s.tiny_before;
      if (tiny && s.flush) {
        raise(s, true, rules::underflow | rules::inexact);
        return sign;
      }
    }
    sig = shift_right_jam(sig, -exp);
    exp = 0;
    raise(s, tiny && is_inexact(s, sig), rules::underflow);
  }
  return round_and_pack_inside(s, Unpacked<Word<S>>{sign, exp, sig}, mode);
}

// Rounds to the format, and raises overflow, underflow and inexact.
template <Shape S>
[[gnu::always_inline]] inline Word<S> round_and_pack(S s, Unpacked<Word<S>> x, Direction mode) {
  const bool inside =
      static_cast<std::uint64_t>(x.exp) < static_cast<std::uint64_t>(exp_max(s) - 2);
  return inside ? round_and_pack_inside(s, x, mode)
                : round_and_pack_at_border(s, x.sign, x.exp, x.sig, mode);
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_ROUNDING_H_
