// Integers in limbs, least first: where they are kept, and the few operations that rounded
// arithmetic needs.
//
// Of few limbs the number is a constant, and the loops unroll; of many it is known at run time, and
// GMP's low-level functions do the work, but for the shifts. Used by limb_patterns.h.
#ifndef ZELK_FLOAT_LIMB_INTEGERS_H_
#define ZELK_FLOAT_LIMB_INTEGERS_H_

#include <gmp.h>
#ifdef __x86_64__
#include <immintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "zelk/swflt/words.h"

namespace zelk {
namespace {

using Limb = mp_limb_t;
using DoubleLimb = swflt::detail::uint128;

constexpr long limb_bits = 64;
constexpr Limb half_limb = Limb{1} << (limb_bits - 1);

/// A number of limbs that is a constant; the others are longs.
template <std::size_t n>
using Fixed = std::integral_constant<std::size_t, n>;

/// The limbs of a non-negative integer, least first; what is above `size` counts as 0.
struct Limbs {
  const Limb* data;
  long size;

  Limb operator[](long i) const { return i < size ? data[i] : 0; }
};

/// All ones if `condition` holds.
inline Limb limb_mask(bool condition) { return 0 - Limb{condition}; }

inline DoubleLimb double_limb(Limb high, Limb low) { return DoubleLimb{high} << limb_bits | low; }

/// The lower limb of high:low / 2^k, k < 64.
inline Limb shifted_limb(Limb low, Limb high, unsigned k) {
  return low >> k | high << 1 << (limb_bits - 1 - k);
}

/// x := x + carry, x of n > 0 limbs; the carry out of it. A carry rarely goes far.
inline Limb increment(Limb* x, long n, Limb carry) {
  long i = 0;
  do {
    x[i] += carry;
    carry = Limb{x[i] < carry};
  } while (carry != 0 && ++i < n);
  return carry;
}

// Shifts of many limbs, two at a time.

using LimbPair [[gnu::vector_size(2 * sizeof(Limb))]] = Limb;

inline LimbPair load_pair(const Limb* p) {
  LimbPair pair;
  std::memcpy(&pair, p, sizeof pair);
  return pair;
}
inline void store_pair(Limb* p, LimbPair pair) { std::memcpy(p, &pair, sizeof pair); }

/// The n lower limbs of in / 2^k, k < 64, in having n + 1, each with the bits of `flip` changed.
/// out may begin at in or below.
[[gnu::always_inline]] inline void shift_down(Limb* out, const Limb* in, long n, unsigned k,
                                              Limb flip = 0) {
  const auto shifted = [=](LimbPair low, LimbPair next) {
    const LimbPair high = __builtin_shufflevector(low, next, 1, 2);
    return (low >> k | high << 1 << (limb_bits - 1 - k)) ^ flip;
  };
  long i = 0;
  for (LimbPair low = n < 5 ? LimbPair{} : load_pair(in); i + 5 <= n; i += 4) {
    const LimbPair middle = load_pair(in + i + 2);
    const LimbPair high = load_pair(in + i + 4);
    store_pair(out + i, shifted(low, middle));
    store_pair(out + i + 2, shifted(middle, high));
    low = high;
  }
  for (; i + 2 <= n; i += 2) {
    store_pair(out + i, shifted(load_pair(in + i), LimbPair{in[i + 2], 0}));
  }
  if (i < n) {
    out[i] = shifted_limb(in[i], in[i + 1], k) ^ flip;
  }
}

/// The n upper limbs of in * 2^k, k < 64, in[-1] being its lowest. out may begin at in or above.
[[gnu::always_inline]] inline void shift_up(Limb* out, const Limb* in, long n, unsigned k) {
  const auto pair = [=](long i) {
    return load_pair(in + i) << k | load_pair(in + i - 1) >> 1 >> (limb_bits - 1 - k);
  };
  long i = n;
  for (; i >= 4; i -= 4) {
    const LimbPair first = pair(i - 2);
    const LimbPair second = pair(i - 4);
    store_pair(out + i - 2, first);
    store_pair(out + i - 4, second);
  }
  if (i >= 2) {
    store_pair(out + i - 2, pair(i - 2));
    i -= 2;
  }
  if (i > 0) {
    out[0] = in[0] << k | in[-1] >> 1 >> (limb_bits - 1 - k);
  }
}

/// product := x * y of n limbs each.
inline void multiply(Limb* product, const Limb* x, const Limb* y, long n) {
  if (x == y) {
    mpn_sqr(product, x, n);
  } else {
    mpn_mul_n(product, x, y, n);
  }
}

/// The number of limbs without the zeros on top.
inline long trimmed(const Limb* p, long n) {
  while (n > 0 && p[n - 1] == 0) {
    --n;
  }
  return n;
}

/// The bits of a number whose top limb is not 0.
inline long bit_size(const Limb* p, long n) {
  return n * static_cast<long>(limb_bits) - std::countl_zero(p[n - 1]);
}

/// quotient := X / Y * 2^(64 q - 1) cut off, of q + 1 limbs, where X and Y are x and y divided by
/// the powers of two that bring them to [1/2, 1); whether a remainder is left. x has fewer than 64
/// q bits. Changes y, and needs q + 2 y_size limbs of room.
inline bool divide(Limb* quotient, long q, const Limb* x, long x_size, Limb* y, long y_size,
                   Limb* room) {
  const auto x_zeros = static_cast<unsigned>(std::countl_zero(x[x_size - 1]));
  const auto y_zeros = static_cast<unsigned>(std::countl_zero(y[y_size - 1]));
  const long size = q + y_size;
  Limb* dividend = room;
  Limb* remainder = room + size;
  Limb* high = dividend + (size - x_size);
  std::fill(dividend, high, 0);
  if (x_zeros > 1) {
    mpn_lshift(high, x, x_size, x_zeros - 1);
  } else if (x_zeros == 1) {
    std::copy_n(x, x_size, high);
  } else {
    high[-1] = mpn_rshift(high, x, x_size, 1);
  }
  if (y_zeros > 0) {
    mpn_lshift(y, y, y_size, y_zeros);
  }
  mpn_tdiv_qr(quotient, remainder, 0, dividend, size, y, y_size);
  return mpn_zero_p(remainder, y_size) == 0;
}

// What is cut off below a significand is kept as one limb, the guard: the 64 bits below the last
// place, the lowest of them set also when any digit beneath is not 0.

/// out := w / 2^k cut to its n low limbs, w of `size` limbs and not 0; the guard.
[[gnu::noinline]] inline Limb shift_many_right(Limb* out, long n, const Limb* w, long size,
                                               std::uint64_t k) {
  const auto bits = static_cast<unsigned>(k % limb_bits);
  const auto limbs = static_cast<long>(k / limb_bits);
  if (limbs > size) {
    std::fill_n(out, n, 0);
    return 1;
  }
  const Limb last = limbs > 0 ? w[limbs - 1] : 0;
  const Limb guard = shifted_limb(last, limbs < size ? w[limbs] : 0, bits);
  const bool lost = shifted_limb(0, last, bits) != 0 ||
                    (limbs > 1 && (w[0] != 0 || mpn_zero_p(w, limbs - 1) == 0));
  const long have = std::min(size - limbs, n);
  if (have > 0) {
    shift_down(out, w + limbs, have - 1, bits);
    const Limb above = limbs + have < size ? w[limbs + have] : 0;
    out[have - 1] = shifted_limb(w[limbs + have - 1], above, bits);
  }
  std::fill_n(out + have, n - have, 0);
  return guard | Limb{lost};
}

/// out := w * 2^k, which fits n limbs.
inline void shift_left(Limb* out, long n, const Limb* w, long size, std::uint64_t k) {
  const auto bits = static_cast<unsigned>(k % limb_bits);
  const auto limbs = static_cast<long>(k / limb_bits);
  std::fill_n(out, limbs, 0);
  long have = limbs + size;
  if (bits == 0) {
    std::copy_n(w, size, out + limbs);
  } else if (const Limb carry = mpn_lshift(out + limbs, w, size, bits); carry != 0) {
    out[have++] = carry;
  }
  std::fill_n(out + have, n - have, 0);
}

// ---- Few limbs ----

using Carry = unsigned char;

/// x + y + carry; `carry` becomes what leaves the limb.
inline Limb add_limb(Limb x, Limb y, Carry& carry) {
#ifdef __x86_64__
  unsigned long long sum = 0;
  carry = _addcarry_u64(carry, x, y, &sum);
  return sum;
#else
  const DoubleLimb sum = DoubleLimb{x} + y + carry;
  carry = static_cast<Carry>(sum >> limb_bits);
  return static_cast<Limb>(sum);
#endif
}

/// x - y - borrow; `borrow` becomes what is missing.
inline Limb subtract_limb(Limb x, Limb y, Carry& borrow) {
#ifdef __x86_64__
  unsigned long long difference = 0;
  borrow = _subborrow_u64(borrow, x, y, &difference);
  return difference;
#else
  const DoubleLimb difference = DoubleLimb{x} - y - borrow;
  borrow = static_cast<Carry>(difference >> limb_bits) & 1;
  return static_cast<Limb>(difference);
#endif
}

/// product := x * y.
template <std::size_t n>
[[gnu::always_inline]] inline void multiply_few(Limb (&product)[2 * n], const Limb (&x)[n],
                                                const Limb (&y)[n]) {
  for (std::size_t i = 0; i < n; ++i) {
    Limb carry = 0;
    for (std::size_t j = 0; j < n; ++j) {
      const DoubleLimb sum = DoubleLimb{x[j]} * y[i] + (i == 0 ? 0 : product[i + j]) + carry;
      product[i + j] = static_cast<Limb>(sum);
      carry = static_cast<Limb>(sum >> limb_bits);
    }
    product[i + n] = carry;
  }
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
      : y(double_limb(y1, y0)),
        reciprocal(swflt::detail::divide_word(double_limb(~y1, ~Limb{0}), y1).q) {
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
  const swflt::detail::Quotient digit = swflt::detail::divide_word(double_limb(x[0], low), y[0]);
  x[0] = digit.rest;
  return digit.q;
}

[[gnu::always_inline]] inline Limb next_digit(Limb (&x)[2], Limb low, const Limb (&/*y*/)[2],
                                              const Divisor& divisor) {
  DoubleLimb rest = double_limb(x[1], x[0]);
  const Limb digit = swflt::detail::next_digit(rest, low, divisor.y);
  x[0] = static_cast<Limb>(rest);
  x[1] = static_cast<Limb>(rest >> limb_bits);
  return digit;
}

// ---- Where limbs are kept ----

// The block of large operations. Given back at exit, and made anew for whoever computes later.
constinit Limb* limb_block = nullptr;
constinit long limb_block_size = 0;

inline void free_limb_block() {
  delete[] std::exchange(limb_block, nullptr);
  limb_block_size = 0;
}

const struct LimbBlockRelease {
  LimbBlockRelease() = default;
  LimbBlockRelease(const LimbBlockRelease&) = delete;
  LimbBlockRelease& operator=(const LimbBlockRelease&) = delete;
  ~LimbBlockRelease() { free_limb_block(); }
} limb_block_release;

/// Limbs to compute in, not initialised. On the stack while they are few, else in one block that is
/// kept for the next operation: one object at a time.
class LimbRoom {
 public:
  /// \throws std::bad_alloc
  explicit LimbRoom(long limbs) : data(limbs > local_size ? large(limbs) : local) {}
  LimbRoom(const LimbRoom&) = delete;
  LimbRoom& operator=(const LimbRoom&) = delete;
  ~LimbRoom() = default;

  Limb* limbs() { return data; }

 private:
  static constexpr long local_size = 128;

  [[gnu::noinline]] static Limb* large(long limbs) {
    if (limbs > limb_block_size) {
      free_limb_block();
      limb_block = new Limb[static_cast<std::size_t>(limbs)];
      limb_block_size = limbs;
    }
    return limb_block;
  }

  Limb local[static_cast<std::size_t>(local_size)];
  Limb* data;
};

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_LIMB_INTEGERS_H_
