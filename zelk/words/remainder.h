// What a division leaves in words, exactly, whatever the distance of the exponents.
#ifndef ZELK_WORDS_REMAINDER_H_
#define ZELK_WORDS_REMAINDER_H_

#include <cstdint>

#include "zelk/words/fused.h"

namespace zelk::words {

// x * 2^64 + low modulo y, for x below y and the highest bit of y set.
inline std::uint64_t reduce(std::uint64_t x, std::uint64_t low, std::uint64_t y) {
  return divide_word(double_word(x, low), y).rest;
}
inline uint128 reduce(uint128 x, std::uint64_t low, uint128 y) {
  next_digit(x, low, y);
  return x;
}

// x * 2^n modulo y, for n below 64.
inline std::uint64_t scale_below(std::uint64_t x, std::uint64_t n, std::uint64_t y) {
  return reduce(x >> 1 >> (63 - n), x << n, y);
}
inline uint128 scale_below(uint128 x, std::uint64_t n, uint128 y) {
  return reduce(x >> 1 >> (63 - n), low_word(x) << n, y);
}

// x * z modulo y.
inline std::uint64_t multiply_modulo(std::uint64_t x, std::uint64_t z, std::uint64_t y) {
  const uint128 p = uint128{x} * z;
  return reduce(high_word(p), low_word(p), y);
}
inline uint128 multiply_modulo(uint128 x, uint128 z, uint128 y) {
  const FourWords p = exact_product(x, z);
  return reduce(reduce(p.high, high_word(p.low), y), low_word(p.low), y);
}

// x * 2^n modulo y: for far exponents by a power of two that is made of squares.
template <class W>
[[gnu::noinline]] W scale_modulo(W x, std::uint64_t n, W y) {
  constexpr std::uint64_t near = 512;
  if (n < near) {
    for (; n >= 64; n -= 64) x = reduce(x, 0, y);
    return scale_below(x, n, y);
  }
  std::int64_t place = highest_bit(n) - 5;
  W power = scale_below(W{1}, n >> place, y);
  while (place-- > 0) {
    power = multiply_modulo(power, power, y);
    if ((n >> place & 1) != 0) power = scale_below(power, 1, y);
  }
  return multiply_modulo(x, power, y);
}

// What x / y leaves of numbers taken apart, its leading bit anywhere below `lead`: modulo twice the
// divisor first, which keeps the parity of the quotient. The result is 0, or has its own sign.
template <bool nearest, class W>
[[gnu::always_inline]] inline Unpacked<W> remainder_of(const Unpacked<W>& x, const Unpacked<W>& y) {
  const W twice = y.sig << 1;
  const std::int64_t distance = x.exp - y.exp;
  if (distance < 0) {
    // The quotient is below one, and above a half only of exponents next to each other.
    if (nearest && distance == -1 && x.sig > y.sig) return {~x.sign, x.exp, twice - x.sig};
    return x;
  }
  const auto n = static_cast<std::uint64_t>(distance);
  W rest = n < 64 ? scale_below(x.sig, n, twice) : scale_modulo(x.sig, n, twice);
  const bool odd = rest >= y.sig;
  rest -= odd ? y.sig : 0;
  if (const W left = y.sig - rest; nearest && (rest > left || (rest == left && odd))) {
    return {~x.sign, y.exp, left};
  }
  return {x.sign, y.exp, rest};
}

/// What a / b leaves as a record of both ways: of a quotient rounded to nearest-even, or cut off.
template <bool nearest>
struct Leaving {
  template <Shape S>
  [[gnu::always_inline]] static bool usual(S s, Word<S> a, Word<S> b, Direction mode,
                                           Word<S>& out) {
    const auto x = unpack_normal_up(s, a);
    const auto y = unpack_normal_up(s, b);
    if (!is_normal_exponent(s, x.exp) || !is_normal_exponent(s, y.exp)) [[unlikely]]
      return false;
    out = pack(s, remainder_of<nearest>(x, y), x.sign, mode);
    return true;
  }

  template <Shape S>
  static Word<S> general(S s, Word<S> a, Word<S> b, Direction mode) {
    const rules::Result r = rules::remainder(operand_of(s, a), operand_of(s, b));
    if (r.outcome != rules::Outcome::computed) return special(s, r, a, b);
    const auto x = unpack(s, a);
    return is_inf(s, b) ? round_and_pack(s, x, mode)
                        : pack(s, remainder_of<nearest>(x, unpack(s, b)), x.sign, mode);
  }

 private:
  // A zero has the dividend's sign.
  template <Shape S>
  [[gnu::always_inline]] static Word<S> pack(S s, Unpacked<Word<S>> r, Word<S> zero,
                                             Direction mode) {
    if (r.sig == 0) [[unlikely]]
      return zero;
    const auto x = normalize(r.sig);
    return round_and_pack(
        s, Unpacked<Word<S>>{r.sign & sign_bit(s), r.exp + x.top - lead<Word<S>>, x.sig}, mode);
  }
};
using Remainder = Leaving<true>;
using Modulo = Leaving<false>;

}  // namespace zelk::words

#endif  // ZELK_WORDS_REMAINDER_H_
