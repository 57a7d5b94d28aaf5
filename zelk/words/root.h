// Square roots in words, by integers alone: the processor's own would depend on its rounding mode.
//
// Roots of twice the length come by one division (P. Zimmermann, Karatsuba Square Root, INRIA
// report 3805, 1999): of n = (n1 * b + n2) * b, where n1 is s^2 + rest, the quotient of rest * b +
// n2 by 2s is the lower half of the root, or a little more.
#ifndef ZELK_WORDS_ROOT_H_
#define ZELK_WORDS_ROOT_H_

#include <algorithm>
#include <array>
#include <cstdint>

#include "zelk/words/rounding.h"

namespace zelk::words {

// 2^15 / sqrt((i + 1/2) / 512) for the i from 128 to 511, rounded down.
inline constexpr auto reciprocal_roots = [] {
  std::array<std::uint16_t, 384> table{};
  for (std::uint64_t i = 0, r = 65535; i < 384; ++i) {
    while (r * r * (2 * (i + 128) + 1) > std::uint64_t{1} << 40) --r;
    table[i] = static_cast<std::uint16_t>(r);
  }
  return table;
}();

// The integer part of a root, and what is left below its square: at most twice the root.
template <class W>
struct Root {
  W root;
  W rest;
};

// Of n from 2^62 on. With a = n / 2^64: r approaches 1 / sqrt(a) to nine bits, and by a step of
// Newton's to 17; then a * r is the root to as many, and a step with what is left gives 32, but for
// an error of one.
inline Root<std::uint64_t> root_of_word(std::uint64_t n) {
  const std::uint64_t a = n >> 32;
  const std::uint64_t r0 = reciprocal_roots[(n >> 55) - 128];                // 15 digits
  const auto error = static_cast<std::int64_t>((1UL << 62) - a * (r0 * r0))  // 62
                     >> 32;
  const auto r =
      static_cast<std::int64_t>(r0 << 16) + (static_cast<std::int64_t>(r0) * error >> 15);
  std::uint64_t s = a * static_cast<std::uint64_t>(r) >> 31;
  const auto left = static_cast<std::int64_t>(n - s * s);
  s += static_cast<std::uint64_t>((left >> 18) * r >> 46);
  s = std::min<std::uint64_t>(s, 0xFFFFFFFF);
  s -= std::uint64_t{s * s > n};
  const std::uint64_t more{n - s * s > 2 * s};
  s += more;
  return {s, n - s * s};
}

// Of n from 2^124 up to 2^126: the root or one more, and what the division that gave its lower
// half has left.
struct NearRoot {
  std::uint64_t root;
  std::uint64_t lower;
  std::uint64_t rest;
};
inline NearRoot near_root_of_two_words(uint128 n) {
  constexpr std::uint64_t half = (std::uint64_t{1} << 31) - 1;
  const auto [high, rest] = root_of_word(static_cast<std::uint64_t>(n >> 62));
  const std::uint64_t dividend = (rest << 31) + (low_word(n) >> 31 & half);
  const std::uint64_t q = dividend / (2 * high);
  return {(high << 31) + q, q, dividend % (2 * high)};
}
inline Root<std::uint64_t> corrected(const NearRoot& near, uint128 n) {
  constexpr std::uint64_t half = (std::uint64_t{1} << 31) - 1;
  std::uint64_t s = near.root;
  // From -q^2 up, less than 2s + 1.
  uint128 left =
      (uint128{near.rest} << 31) + (low_word(n) & half) - uint128{near.lower} * near.lower;
  while (high_word(left) >> 63 != 0) {
    left += 2 * uint128{s} - 1;
    --s;
  }
  return {s, low_word(left)};
}
inline Root<std::uint64_t> root_of_two_words(uint128 n) {
  return corrected(near_root_of_two_words(n), n);
}

// Significands, their leading bits at `lead` or, of odd exponents, one above: the root has it
// there. Before its last correction a root is too large by less than `close`. If what it has in the
// places of `below`, where all is sticky, is more than that, there is nothing to correct.
constexpr std::uint64_t close = 4;
inline std::uint64_t sticky_root(std::uint64_t sig, bool odd, std::uint64_t below) {
  const uint128 n = uint128{sig} << (lead<std::uint64_t> + odd);
  const NearRoot near = near_root_of_two_words(n);
  if ((near.root & below) > close) [[likely]]
    return near.root | 1;
  const auto [s, rest] = corrected(near, n);
  return s | std::uint64_t{rest != 0};
}
inline uint128 sticky_root(uint128 sig, bool odd, uint128 below) {
  const auto [high, rest] = root_of_two_words(sig >> (2 - odd));
  const std::uint64_t low = low_word(sig) << (62 + odd);
  const std::uint64_t divisor = 2 * high;
  // A quotient of 2^64 is too large by one or two, and the root is not an integer then.
  if (rest >= divisor) [[unlikely]]
    return double_word(high, ~std::uint64_t{0});
  const auto [q, u] = divide_word(double_word(rest, low), divisor);
  const uint128 s = double_word(high, q);
  if ((q & low_word(below)) > close) [[likely]]
    return s | 1;
  const uint128 square = uint128{q} * q;
  const uint128 left = uint128{u} << 64;
  if (left >= square) return s | uint128{left != square};
  // Too large by one, or by two if s - 1 is. What is left is not 0: the square of a root that has
  // digits in its lower word has more of them than a significand.
  return (s - 1 - uint128{square - left > 2 * s - 1}) | 1;
}

// The square root of a positive number taken apart.
template <Shape S>
[[gnu::always_inline]] inline Unpacked<Word<S>> root_of(S s, const Unpacked<Word<S>>& x) {
  const std::int64_t exp = ((x.exp + 1 - bias(s)) >> 1) - 1 + bias(s);
  const bool odd = (x.exp & 1) != 0;  // as the exponent without its bias, which is odd
  if constexpr (sizeof(Word<S>) == 8) {
    if (is_short(s)) {
      const auto [root, rest] = root_of_word(x.sig << odd);
      return {0, exp, root << 31 | std::uint64_t{rest != 0}};
    }
  }
  return {0, exp, sticky_root(x.sig, odd, half_ulp(s) - 1)};
}

/// The square root of a as a record of both ways.
struct SquareRoot {
  template <Shape S>
  [[gnu::always_inline]] static bool usual(S s, Word<S> a, Direction mode, Word<S>& out) {
    const auto x = unpack_normal_up(s, a);
    if (!is_normal_exponent(s, x.exp) || x.sign != 0) [[unlikely]]
      return false;
    out = round_and_pack_inside(s, root_of(s, x), mode);
    return true;
  }

  template <Shape S>
  static Word<S> general(S s, Word<S> a, Direction mode) {
    const rules::Result r = rules::root(operand_of(s, a));
    return r.outcome != rules::Outcome::computed
               ? special(s, r, a, a)
               : round_and_pack(s, root_of(s, unpack(s, a)), mode);
  }
};

}  // namespace zelk::words

#endif  // ZELK_WORDS_ROOT_H_
