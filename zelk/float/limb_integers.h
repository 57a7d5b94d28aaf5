// Integers in limbs, least first: where they are kept, and the few operations that rounded
// arithmetic needs.
//
// An integer of few limbs has their number as a constant, and the loops unroll; for many it is
// known at run time, and GMP's low-level functions do the work. The text is one. Used by limbs.h.
#ifndef ZELK_FLOAT_LIMB_INTEGERS_H_
#define ZELK_FLOAT_LIMB_INTEGERS_H_

#include <gmp.h>
#ifdef __x86_64__
#include <immintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstdint>
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

/// The lower limb of high:low / 2^k, k < 64.
inline Limb shifted_limb(Limb low, Limb high, unsigned k) {
  return low >> k | high << 1 << (limb_bits - 1 - k);
}

/// out := x + y + carry, or x - y - 1 + carry; the carry, or what is left after a borrow. x and y
/// may be out.
inline Limb add(Limb* out, const Limb* x, const Limb* y, long n, bool minus, Limb carry) {
  if (!minus) {
    const Limb first = mpn_add_n(out, x, y, n);
    return first | (carry != 0 ? mpn_add_1(out, out, n, 1) : 0);
  }
  const Limb first = mpn_sub_n(out, x, y, n);
  return 1 - (first | (carry == 0 ? mpn_sub_1(out, out, n, 1) : 0));
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
  if (bits == 0) {
    std::copy_n(w + limbs, have, out);
  } else if (have > 0) {
    mpn_rshift(out, w + limbs, have, bits);
    out[have - 1] |= limbs + have < size ? w[limbs + have] << (limb_bits - bits) : 0;
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

/// A digit of (x[n - 1], x[n - 2], x[n - 3]) / (y[n - 1], y[n - 2]), too large by one at most.
template <std::size_t n>
[[gnu::always_inline]] inline Limb estimated_digit(const Limb (&x)[n], const Limb (&y)[n]) {
  const DoubleLimb high = DoubleLimb{x[n - 1]} << limb_bits | (n > 1 ? x[n - 2] : 0);
  const Limb y1 = y[n - 1];
  Limb q = x[n - 1] >= y1 ? ~Limb{0} : static_cast<Limb>(high / y1);
  if constexpr (n > 1) {
    DoubleLimb rest = high - DoubleLimb{q} * y1;
    DoubleLimb p = DoubleLimb{q} * y[n - 2];
    while (rest >> limb_bits == 0 && p > (rest << limb_bits | (n > 2 ? x[n - 3] : 0))) {
      --q;
      rest += y1;
      p -= y[n - 2];
    }
  }
  return q;
}

/// x * 2^64 / y, x becoming the remainder, for x below y and the highest bit of y set (D. E. Knuth,
/// The Art of Computer Programming, volume 2, 4.3.1, algorithm D).
template <std::size_t n>
[[gnu::always_inline]] inline Limb next_digit(Limb (&x)[n], const Limb (&y)[n]) {
  Limb q = estimated_digit(x, y);
  Limb digit = 0;  // x moves up by one
  Limb high = 0;
  Carry borrow = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const DoubleLimb p = DoubleLimb{q} * y[i] + high;
    high = static_cast<Limb>(p >> limb_bits);
    const Limb next = x[i];
    x[i] = subtract_limb(digit, static_cast<Limb>(p), borrow);
    digit = next;
  }
  if (digit < high + borrow) [[unlikely]] {
    --q;
    Carry carry = 0;
    for (std::size_t i = 0; i < n; ++i) {
      x[i] = add_limb(x[i], y[i], carry);
    }
  }
  return q;
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
