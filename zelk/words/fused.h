// Products with an addend in words, rounded once.
//
// The exact product is an integer of twice the width, and the addend is brought to the same places.
// What is moved down past the lowest one is sticky: the other is then so much larger that its
// leading bit stays where it is, or goes down by one place.
#ifndef ZELK_WORDS_FUSED_H_
#define ZELK_WORDS_FUSED_H_

#include <algorithm>
#include <cstdint>

#include "zelk/words/arithmetic.h"

namespace zelk::words {

// An integer of four words, in two's complement where it may be negative.
struct FourWords {
  uint128 high;
  uint128 low;
};

constexpr uint128 exact_product(std::uint64_t x, std::uint64_t y) { return uint128{x} * y; }
constexpr FourWords exact_product(uint128 x, uint128 y) {
  const uint128 low = uint128{low_word(x)} * low_word(y);
  const uint128 cross = uint128{high_word(x)} * low_word(y) + high_word(low);
  const uint128 middle = uint128{low_word(x)} * high_word(y) + low_word(cross);
  const uint128 high = uint128{high_word(x)} * high_word(y) + high_word(cross) + high_word(middle);
  return {high, double_word(low_word(middle), low_word(low))};
}

// sig * 2^lead.
constexpr uint128 widened(std::uint64_t sig) { return uint128{sig} << lead<std::uint64_t>; }
constexpr FourWords widened(uint128 sig) { return {sig >> 2, sig << lead<uint128>}; }

constexpr FourWords shift_right_jam(FourWords a, std::int64_t n) {
  if (n >= 128) return {0, shift_right_jam(a.high, n - 128) | uint128{a.low != 0}};
  const uint128 into_low = n == 0 ? 0 : a.high << (128 - n);
  const uint128 kept = a.low >> n;
  return {a.high >> n, into_low | kept | uint128{kept << n != a.low}};
}

// Exchanges two numbers if `mask` is all ones.
constexpr void exchange(uint128& a, uint128& b, uint128 mask) {
  const uint128 change = (a ^ b) & mask;
  a ^= change;
  b ^= change;
}
constexpr void exchange(FourWords& a, FourWords& b, uint128 mask) {
  exchange(a.high, b.high, mask);
  exchange(a.low, b.low, mask);
}

// a, or -a if `mask` is all ones.
constexpr uint128 negated(uint128 a, uint128 mask) { return (a ^ mask) - mask; }
constexpr FourWords negated(FourWords a, uint128 mask) {
  const uint128 low = negated(a.low, mask);
  return {(a.high ^ mask) + (mask & uint128{low == 0}), low};
}

constexpr uint128 sum_of(uint128 a, uint128 b) { return a + b; }
constexpr FourWords sum_of(FourWords a, FourWords b) {
  const uint128 low = a.low + b.low;
  return {a.high + b.high + uint128{low < a.low}, low};
}

constexpr bool is_negative(uint128 a) { return high_word(a) >> 63 != 0; }
constexpr bool is_negative(FourWords a) { return is_negative(a.high); }
constexpr bool is_zero(uint128 a) { return a == 0; }
constexpr bool is_zero(FourWords a) { return (a.high | a.low) == 0; }

// A positive number with its leading bit at `lead` of half as many words, sticky, and where that
// bit was.
constexpr Normalized<std::uint64_t> narrowed(uint128 a) {
  const auto x = normalize(a);
  return {resized<std::uint64_t>(x.sig), x.top};
}
constexpr Normalized<uint128> narrowed(FourWords a) {
  std::int64_t top = 192;
  while (high_word(a.high) == 0) {
    a = {double_word(low_word(a.high), high_word(a.low)), a.low << 64};
    top -= 64;
  }
  const std::int64_t bit = highest_bit(high_word(a.high));
  const std::int64_t n = 63 - bit;
  const uint128 sig = shift_left(a.high, n) | high_word(a.low) >> 1 >> (63 - n);
  const bool sticky = (sig & 1) != 0 || shift_left(a.low, n) != 0;
  return {sig >> 1 | uint128{sticky}, top + bit};
}

// An exact product: the value +-sig * 2^(exp + 1 - bias - 2 * lead).
template <class W>
struct ExactProduct {
  W sign;
  std::int64_t exp;
  decltype(exact_product(W{}, W{})) sig;
};
// Of operands with their leading bits at `lead`.
template <Shape S>
[[gnu::always_inline]] inline ExactProduct<Word<S>> multiply_exactly(S s,
                                                                     const Unpacked<Word<S>>& x,
                                                                     const Unpacked<Word<S>>& y) {
  return {x.sign ^ y.sign, x.exp - bias(s) + y.exp + 1, exact_product(x.sig, y.sig)};
}

// p + q, one of the two a product, the other such a one, or 0, or widened; false where nothing is
// left.
template <class W>
[[gnu::always_inline]] inline bool add_exactly(ExactProduct<W> p, ExactProduct<W> q,
                                               Unpacked<W>& out) {
  const bool less = p.exp < q.exp;
  exchange(p.sig, q.sig, mask_if<uint128>(less));
  const std::int64_t distance = p.exp - q.exp;
  const auto part = shift_right_jam(q.sig, less ? -distance : distance);
  const auto sum = sum_of(p.sig, negated(part, mask_if<uint128>(p.sign != q.sign)));
  if (is_zero(sum)) [[unlikely]]
    return false;
  const auto minus = mask_if<uint128>(is_negative(sum));
  const W sign = less ? q.sign : p.sign;
  const auto x = narrowed(negated(sum, minus));
  const W change = (p.sign | q.sign) & static_cast<W>(minus);  // they differ
  out = {sign ^ change, std::max(p.exp, q.exp) + x.top - 2 * lead<W>, x.sig};
  return true;
}

/// a * b + c as a record of both ways.
struct FusedMultiplyAdd {
  template <Shape S>
  [[gnu::always_inline]] static bool usual(S s, Word<S> a, Word<S> b, Word<S> c, Direction mode,
                                           Word<S>& out) {
    const auto x = unpack_normal_up(s, a);
    const auto y = unpack_normal_up(s, b);
    const auto z = unpack_normal_up(s, c);
    if (!is_normal_exponent(s, x.exp) || !is_normal_exponent(s, y.exp) ||
        !is_normal_exponent(s, z.exp)) [[unlikely]]
      return false;
    Unpacked<Word<S>> r;
    if (!add_exactly(multiply_exactly(s, x, y), {z.sign, z.exp, widened(z.sig)}, r) ||
        !is_inside(s, r.exp)) [[unlikely]]
      return false;
    out = round_and_pack_inside(s, r, mode);
    return true;
  }

  template <Shape S>
  static Word<S> general(S s, Word<S> a, Word<S> b, Word<S> c, Direction mode) {
    const rules::Result r =
        rules::fused(operand_of(s, a), operand_of(s, b), operand_of(s, c), mode);
    if (r.outcome != rules::Outcome::computed) return special(s, r, a, b);
    if (is_zero(s, a) || is_zero(s, b)) return round_and_pack(s, unpack(s, c), mode);
    const auto p = multiply_exactly(s, unpack(s, a), unpack(s, b));
    ExactProduct<Word<S>> addend{p.sign, p.exp, {}};
    if (!is_zero(s, c)) {
      const auto z = unpack(s, c);
      addend = {z.sign, z.exp, widened(z.sig)};
    }
    Unpacked<Word<S>> x;
    return add_exactly(p, addend, x)           ? round_and_pack(s, x, mode)
           : rules::zero_sum_is_negative(mode) ? sign_bit(s)
                                               : 0;
  }
};

}  // namespace zelk::words

#endif  // ZELK_WORDS_FUSED_H_
