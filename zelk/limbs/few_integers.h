// Integers of so few limbs that they stay in registers: their number is a constant, and loops
// unroll.
#ifndef ZELK_LIMBS_FEW_INTEGERS_H_
#define ZELK_LIMBS_FEW_INTEGERS_H_

#include <algorithm>
#include <utility>

#include "zelk/base/machine.h"
#include "zelk/limbs/integers.h"
#include "zelk/words/integers.h"

namespace zelk::limbs {

using words::Carry;

/// x + y + carry; `carry` becomes what leaves the limb.
inline Limb add_limb(Limb x, Limb y, Carry& carry) { return words::add_word(x, y, carry); }

/// x - y - borrow; `borrow` becomes what is missing.
inline Limb subtract_limb(Limb x, Limb y, Carry& borrow) {
  return words::subtract_word(x, y, borrow);
}

/// The sum of fewer than 2^64 products of limbs.
struct Accumulator {
  Limb low = 0;
  Limb middle = 0;
  Limb high = 0;

  /// Takes x * y in.
  [[gnu::always_inline]] void add(Limb x, Limb y) {
    const DoubleLimb p = DoubleLimb{x} * y;
#ifdef ZELK_X86_64
    // One chain of carries, which compilers break.
    asm("addq %[p_low], %[low]\n\tadcq %[p_high], %[middle]\n\tadcq $0, %[high]"
        : [low] "+&r"(low), [middle] "+&r"(middle), [high] "+r"(high)
        : [p_low] "r"(static_cast<Limb>(p)), [p_high] "r"(static_cast<Limb>(p >> limb_bits))
        : "cc");
#else
    const DoubleLimb sum = double_limb(middle, low) + p;
    high += Limb{sum < p};
    low = static_cast<Limb>(sum);
    middle = static_cast<Limb>(sum >> limb_bits);
#endif
  }
  /// Takes the lowest limb out.
  [[gnu::always_inline]] Limb shift() {
    return std::exchange(low, std::exchange(middle, std::exchange(high, 0)));
  }
};

/// product := x * y, a column at a time.
template <std::size_t n>
[[gnu::always_inline]] inline void multiply_few(Limb (&product)[2 * n], const Limb (&x)[n],
                                                const Limb (&y)[n]) {
  Accumulator sum;
#pragma GCC unroll 8
  for (std::size_t column = 0; column < 2 * n - 1; ++column) {
    const std::size_t end = std::min(column + 1, n);
#pragma GCC unroll 4
    for (std::size_t i = column < n ? 0 : column - n + 1; i < end; ++i) {
      sum.add(x[i], y[column - i]);
    }
    product[column] = sum.shift();
  }
  product[2 * n - 1] = sum.low;
}

// Division by y, whose highest bit is set (N. Moller and T. Granlund, Improved division by
// invariant integers, IEEE Transactions on Computers 60, 2011). Whether an estimate is one too
// large is as good as random to a branch predictor: masks correct it.

/// A divisor of two limbs.
struct Divisor {
  DoubleLimb y;
  Limb reciprocal;  // (2^192 - 1) / y - 2^64, cut off

  /// Algorithm 6.
  Divisor(Limb y1, Limb y0)
      : y(double_limb(y1, y0)), reciprocal(words::divide_word(double_limb(~y1, ~Limb{0}), y1).q) {
    Limb p = y1 * reciprocal + y0;
    const Limb over = limb_mask(p < y0);
    const Limb over_again = over & limb_mask(p >= y1);
    p -= (y1 & over) + (y1 & over_again);
    reciprocal += over + over_again;
    const DoubleLimb t = DoubleLimb{reciprocal} * y0;
    p += static_cast<Limb>(t >> limb_bits);
    const Limb large = limb_mask(p < static_cast<Limb>(t >> limb_bits));
    const Limb very_large = large & limb_mask(double_limb(p, static_cast<Limb>(t)) >= y);
    reciprocal += large + very_large;
  }

  /// x * 2^64 + low over y, x becoming the remainder, for x below y (algorithm 5).
  [[gnu::always_inline]] Limb next_digit(DoubleLimb& x, Limb low) const {
    const DoubleLimb estimate = DoubleLimb{static_cast<Limb>(x >> limb_bits)} * reciprocal + x;
    Limb q = static_cast<Limb>(estimate >> limb_bits);
    const Limb high = static_cast<Limb>(x) - q * static_cast<Limb>(y >> limb_bits);
    x = double_limb(high, low) - DoubleLimb{q} * static_cast<Limb>(y) - y;
    const Limb over = limb_mask(static_cast<Limb>(x >> limb_bits) >= static_cast<Limb>(estimate));
    x += y & double_limb(over, over);
    q += over + 1;
    if (x >= y) [[unlikely]] {
      x -= y;
      ++q;
    }
    return q;
  }
};

/// The digit 2^64 - 1, which x * 2^64 + low over y gives where the two highest limbs of x and y
/// agree; x becomes the remainder.
template <std::size_t n>
[[gnu::cold, gnu::noinline]] Limb largest_digit(Limb (&x)[n], Limb low, const Limb (&y)[n]) {
  Limb dividend[n + 1] = {low};
  std::copy_n(x, n, dividend + 1);
  mpn_submul_1(dividend, y, n, ~Limb{0});
  std::copy_n(dividend, n, x);
  return ~Limb{0};
}

/// The same for any x below y, which begins with `divisor`.
template <std::size_t n>
[[gnu::always_inline]] inline Limb next_digit(Limb (&x)[n], Limb low, const Limb (&y)[n],
                                              const Divisor& divisor) {
  DoubleLimb high = double_limb(x[n - 1], x[n - 2]);
  if (high == divisor.y) [[unlikely]] {
    return largest_digit(x, low, y);
  }
  Limb q = divisor.next_digit(high, x[n - 3]);
  Limb carry = 0;
  Carry borrow = 0;
  for (std::size_t i = 0; i < n - 2; ++i) {
    const DoubleLimb p = DoubleLimb{q} * y[i] + carry;
    carry = static_cast<Limb>(p >> limb_bits);
    const Limb next = x[i];  // x moves up by one
    x[i] = subtract_limb(low, static_cast<Limb>(p), borrow);
    low = next;
  }
  const DoubleLimb part = DoubleLimb{carry} + borrow;
  const bool large = high < part;
  high -= part;
  x[n - 2] = static_cast<Limb>(high);
  x[n - 1] = static_cast<Limb>(high >> limb_bits);
  if (large) [[unlikely]] {
    --q;
    Carry out = 0;
    for (std::size_t i = 0; i < n; ++i) {
      x[i] = add_limb(x[i], y[i], out);
    }
  }
  return q;
}

// One or two limbs have so few digits that the processor's division is faster than a reciprocal.

[[gnu::always_inline]] inline Limb next_digit(Limb (&x)[1], Limb low, const Limb (&y)[1],
                                              const Divisor& /*divisor*/) {
  const words::Quotient digit = words::divide_word(double_limb(x[0], low), y[0]);
  x[0] = digit.rest;
  return digit.q;
}

[[gnu::always_inline]] inline Limb next_digit(Limb (&x)[2], Limb low, const Limb (&/*y*/)[2],
                                              const Divisor& divisor) {
  DoubleLimb rest = double_limb(x[1], x[0]);
  const Limb digit = words::next_digit(rest, low, divisor.y);
  x[0] = static_cast<Limb>(rest);
  x[1] = static_cast<Limb>(rest >> limb_bits);
  return digit;
}

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_FEW_INTEGERS_H_
