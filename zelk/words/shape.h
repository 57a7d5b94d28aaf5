// Patterns in one or two words: their shapes, their classes and their order.
//
// A pattern of format (e, m) is an integer: from the highest bit a sign, e bits of biased exponent
// and m bits of trailing significand. Included by ieee_float.h, whose inline functions rest on it;
// not for users.
#ifndef ZELK_WORDS_SHAPE_H_
#define ZELK_WORDS_SHAPE_H_

#include <concepts>
#include <cstdint>
#include <type_traits>

#include "zelk/base/machine.h"

namespace zelk::words {

__extension__ using uint128 = unsigned __int128;
__extension__ using int128 = __int128;

using detail::opaque;

/// The widths of the exponent and trailing-significand fields, and the unsigned type whose low bits
/// hold a pattern.
template <class T>
concept Shape = requires(T s) {
  s.exp_width;
  s.mant_width;
  typename T::Word;
};

template <Shape S>
using Word = typename S::Word;

/// The signed integer as wide as W.
template <class W>
using Signed = std::conditional_t<sizeof(W) == 8, std::int64_t, int128>;

/// Widths that are constants.
template <int ExpWidth, int MantWidth>
struct FixedShape {
  static constexpr int exp_width = ExpWidth;
  static constexpr int mant_width = MantWidth;
  using Word = std::conditional_t<ExpWidth + MantWidth <= 63, std::uint64_t, uint128>;
};
inline constexpr FixedShape<8, 23> binary32;
inline constexpr FixedShape<11, 52> binary64;
inline constexpr FixedShape<15, 112> binary128;

/// Widths known at run time, together at most 63.
struct RuntimeShape {
  std::int64_t exp_width;
  std::int64_t mant_width;
  using Word = std::uint64_t;
};

/// Whether two significands side by side, and guard bits, fit a word: then shifts, products and
/// quotients need neither a second word nor a sticky bit.
inline constexpr std::int64_t short_width = 29;
/// Widths of which that holds.
struct ShortShape : RuntimeShape {};

/// Widths known at run time, together 64 to 127, of a pattern that was moved up: its sign is the
/// highest bit of the double word, and zeros are below the `kept_width` bits of its significand.
/// So it is a pattern with the wider significand that the double word has room for.
struct RaisedShape {
  std::int64_t exp_width;
  std::int64_t kept_width;
  std::int64_t mant_width = 127 - exp_width;
  using Word = uint128;

  /// How far the pattern was moved.
  constexpr std::int64_t below() const { return mant_width - kept_width; }
};
template <class S>
concept Raised = Shape<S> && std::derived_from<S, RaisedShape>;

/// Widths known at run time, together at most 127, of a pattern in two words whose significand
/// fills the lower one: mant_width is 64 at least. Such a pattern need not be moved.
struct LongShape {
  std::int64_t exp_width;
  std::int64_t mant_width;
  using Word = uint128;
};

/// The same, 64 to 127, of one whose significand fits a word: mant_width is 63 at most.
struct NarrowShape {
  std::int64_t exp_width;
  std::int64_t mant_width;
  using Word = uint128;
};

/// Widths known at run time, together 64 to 127, as patterns have them in two words.
struct DoubleShape {
  std::int64_t exp_width;
  std::int64_t mant_width;
  using Word = uint128;
};

/// Whether the arithmetic serves a format in one word: exponents, and sums of two, fit 63 bits, and
/// a significand leaves five bits of the word to a carry and the digits that rounding looks at.
constexpr bool serves_in_one_word(std::uint64_t exp_width, std::uint64_t mant_width) {
  return mant_width - 1 <= 57 && exp_width - 2 <= 61 - mant_width;
}
/// The same in two words, for patterns that need them.
constexpr bool serves_in_two_words(std::uint64_t exp_width, std::uint64_t mant_width) {
  return exp_width - 2 <= 60 && mant_width - 1 <= 121 && exp_width + mant_width - 64 <= 63;
}

/// The powers of two: where the width is known at run time a load is cheaper than a shift.
struct PowersOfTwo {
  std::uint64_t value[64]{};
  constexpr PowersOfTwo() {
    for (int k = 0; k < 64; ++k) value[k] = std::uint64_t{1} << k;
  }
};
inline constexpr PowersOfTwo powers_of_two;

template <class W>
constexpr W pow2(std::int64_t k) {
  if constexpr (sizeof(W) > 8) return W{1} << k;
  return powers_of_two.value[k];
}

template <Shape S>
constexpr Word<S> sign_bit(S s) {
  return pow2<Word<S>>(s.exp_width + s.mant_width);
}
template <Raised S>
constexpr uint128 sign_bit(S /*shape*/) {
  return uint128{1} << 127;
}
template <Shape S>
requires std::is_same_v<S, LongShape> || std::is_same_v<S, NarrowShape>
constexpr uint128 sign_bit(S s) {
  return uint128{std::uint64_t{1} << (s.exp_width + s.mant_width - 64)} << 64;
}

/// The significand's leading bit, which normal patterns leave out; also the smallest normal.
template <Shape S>
constexpr Word<S> hidden_bit(S s) {
  return pow2<Word<S>>(s.mant_width);
}
template <Raised S>
constexpr uint128 hidden_bit(S s) {
  return uint128{std::uint64_t{1} << (s.mant_width - 64)} << 64;
}

constexpr uint128 hidden_bit(LongShape s) {
  return uint128{std::uint64_t{1} << (s.mant_width - 64)} << 64;
}

/// The lowest bit of a significand; also the smallest subnormal.
template <Shape S>
constexpr Word<S> ulp(S /*shape*/) {
  return 1;
}
template <Raised S>
constexpr uint128 ulp(S s) {
  return powers_of_two.value[s.below()];
}

template <Shape S>
constexpr Word<S> infinity(S s) {
  return sign_bit(s) - hidden_bit(s);
}

/// The one NaN that operations make. Its quiet bit is clear: as an operand it signals.
template <Shape S>
constexpr Word<S> canonical_nan(S s) {
  return sign_bit(s) | infinity(s) | ulp(s);
}

template <Shape S>
constexpr Word<S> magnitude(S s, Word<S> a) {
  if constexpr (sizeof(Word<S>) > 8) {
    // A sign bit is in the high word; compilers do not see that the low one stays as it is.
    const auto below = static_cast<std::uint64_t>(sign_bit(s) >> 64) - 1;
    return a & (Word<S>{below} << 64 | ~std::uint64_t{0});
  }
  return a & (sign_bit(s) - 1);
}

template <Shape S>
constexpr Word<S> sign_of(S s, Word<S> a) {
  return a & sign_bit(s);
}

template <Shape S>
constexpr bool is_nan(S s, Word<S> a) {
  return magnitude(s, a) > infinity(s);
}

template <Shape S>
constexpr bool is_inf(S s, Word<S> a) {
  return magnitude(s, a) == infinity(s);
}

template <Shape S>
constexpr bool is_zero(S s, Word<S> a) {
  return magnitude(s, a) == 0;
}

template <Shape S>
constexpr bool is_subnormal(S s, Word<S> a) {
  return magnitude(s, a) - 1 < hidden_bit(s) - 1;
}

/// All ones if the sign bit is set, else 0.
template <Shape S>
constexpr Word<S> sign_mask(S s, Word<S> a) {
  const auto sign = static_cast<std::uint64_t>((a & sign_bit(s)) >> (8 * sizeof(Word<S>) - 64));
  // cppcheck-suppress shiftTooManyBitsSigned  // C++20 defines it
  return static_cast<Word<S>>(Signed<Word<S>>{static_cast<std::int64_t>(0 - sign) >> 63});
}

/// Orders all patterns but NaNs as their values; the two zeros share a key.
template <Shape S>
constexpr Signed<Word<S>> order_key(S s, Word<S> a) {
  const Word<S> mask = sign_mask(s, a);
  return static_cast<Signed<Word<S>>>((magnitude(s, a) ^ mask) - mask);
}

/// a < b, quietly: false when either is a NaN.
template <Shape S>
constexpr bool less(S s, Word<S> a, Word<S> b) {
  return !is_nan(s, a) && !is_nan(s, b) && order_key(s, a) < order_key(s, b);
}

/// a <= b, quietly.
template <Shape S>
constexpr bool less_equal(S s, Word<S> a, Word<S> b) {
  return !is_nan(s, a) && !is_nan(s, b) && order_key(s, a) <= order_key(s, b);
}

/// a == b, quietly.
template <Shape S>
constexpr bool equal(S s, Word<S> a, Word<S> b) {
  return !is_nan(s, a) && !is_nan(s, b) && order_key(s, a) == order_key(s, b);
}

/// -1, 0 or 1 as a < b, a == b or a > b; 2 when either is a NaN.
template <Shape S>
constexpr int order_of(S s, Word<S> a, Word<S> b) {
  if (is_nan(s, a) || is_nan(s, b)) return 2;
  return order_key(s, a) < order_key(s, b) ? -1
                                           : static_cast<int>(order_key(s, a) != order_key(s, b));
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_SHAPE_H_
