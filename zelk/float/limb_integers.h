// Integers in limbs, least first: where they are kept, and the few operations that rounded
// arithmetic needs.
//
// An integer of few limbs has their number as a constant, and the loops unroll; for many it is
// known at run time, and GMP's low-level functions do the work. The text is one. Used by limbs.h.
#ifndef ZELK_FLOAT_LIMB_INTEGERS_H_
#define ZELK_FLOAT_LIMB_INTEGERS_H_

#include <gmp.h>

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
template <long n>
using Fixed = std::integral_constant<long, n>;
template <class Size>
inline constexpr bool is_fixed = !std::is_same_v<Size, long>;

template <long n>
constexpr Fixed<n - 1> one_less(Fixed<n> /*size*/) {
  return {};
}
constexpr long one_less(long n) { return n - 1; }

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

/// out := x + y + carry, or x + ~y + carry for a mask of ones; the carry. x and y may be out.
template <class Size>
inline Limb add(Limb* out, const Limb* x, const Limb* y, Size n, Limb mask, Limb carry) {
  if constexpr (is_fixed<Size>) {
    for (long i = 0; i < n; ++i) {
      const DoubleLimb sum = DoubleLimb{x[i]} + (y[i] ^ mask) + carry;
      out[i] = static_cast<Limb>(sum);
      carry = static_cast<Limb>(sum >> limb_bits);
    }
    return carry;
  } else {
    if (mask == 0) {
      const Limb first = mpn_add_n(out, x, y, n);
      return first | mpn_add_1(out, out, n, carry);
    }
    const Limb first = mpn_sub_n(out, x, y, n);
    return 1 - (first | mpn_sub_1(out, out, n, 1 - carry));
  }
}

/// product := x * y of n limbs each.
template <class Size>
inline void multiply(Limb* product, const Limb* x, const Limb* y, Size n) {
  if constexpr (is_fixed<Size>) {
    if constexpr (n <= 2) {
      std::fill_n(product, n, 0);
      for (long i = 0; i < n; ++i) {
        Limb carry = 0;
        for (long j = 0; j < n; ++j) {
          const DoubleLimb sum = DoubleLimb{x[j]} * y[i] + product[i + j] + carry;
          product[i + j] = static_cast<Limb>(sum);
          carry = static_cast<Limb>(sum >> limb_bits);
        }
        product[i + n] = carry;
      }
      return;
    }
  }
  if (x == y) {
    mpn_sqr(product, x, n);
  } else {
    mpn_mul_n(product, x, y, n);
  }
}

/// p := p / 2^k for k of 0 or 1; `high` is what comes in.
template <class Size>
inline void shift_by_one(Limb* p, Size n, unsigned k, Limb high) {
  if constexpr (is_fixed<Size>) {
    for (long i = 0; i < n; ++i) {
      p[i] = shifted_limb(p[i], i + 1 < n ? p[i + 1] : high, k);
    }
  } else if (k != 0) {
    mpn_rshift(p, p, n, 1);
    p[n - 1] |= high << (limb_bits - 1);
  }
}

/// p := p + carry; the carry.
template <class Size>
inline Limb increment(Limb* p, Size n, Limb carry) {
  if constexpr (is_fixed<Size>) {
    for (long i = 0; i < n; ++i) {
      p[i] += carry;
      carry = static_cast<Limb>(p[i] < carry);
    }
    return carry;
  } else {
    return mpn_add_1(p, p, n, carry);
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
  if (q == 2 && x_size == 2 && y_size == 2) {
    const DoubleLimb divisor = (DoubleLimb{y[1]} << limb_bits | y[0]) << y_zeros;
    DoubleLimb rest = (DoubleLimb{x[1]} << limb_bits | x[0]) << x_zeros >> 1;
    quotient[2] = 0;
    quotient[1] = swflt::detail::next_digit(rest, divisor);
    quotient[0] = swflt::detail::next_digit(rest, divisor);
    return rest != 0;
  }
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

template <class Size>
[[gnu::always_inline]] inline Limb shift_right(Limb* out, Size n, const Limb* w, long size,
                                               std::uint64_t k) {
  const auto limbs = static_cast<long>(k / limb_bits);
  if (!is_fixed<Size> || limbs > n || limbs + n >= size) {
    return shift_many_right(out, n, w, size, k);
  }
  const auto bits = static_cast<unsigned>(k % limb_bits);
  Limb below = 0;
  for (long i = 0; i < limbs - 1; ++i) {
    below |= w[i];
  }
  const Limb* from = w + limbs;
  const Limb last = limbs > 0 ? from[-1] : 0;
  const Limb guard = shifted_limb(last, from[0], bits);
  below |= shifted_limb(0, last, bits);
  for (long i = 0; i < n; ++i) {
    out[i] = shifted_limb(from[i], from[i + 1], bits);
  }
  return guard | Limb{below != 0};
}

/// out := w * 2^k, which fits n limbs.
template <class Size>
inline void shift_left(Limb* out, Size n, const Limb* w, long size, std::uint64_t k) {
  const auto bits = static_cast<unsigned>(k % limb_bits);
  const auto limbs = static_cast<long>(k / limb_bits);
  if constexpr (is_fixed<Size>) {
    const Limbs from{w, size};
    for (long i = 0; i < n; ++i) {
      const Limb below = i > limbs ? from[i - limbs - 1] : 0;
      out[i] = (i >= limbs ? from[i - limbs] : 0) << bits | below >> 1 >> (limb_bits - 1 - bits);
    }
  } else {
    std::fill_n(out, limbs, 0);
    long have = limbs + size;
    if (bits == 0) {
      std::copy_n(w, size, out + limbs);
    } else if (const Limb carry = mpn_lshift(out + limbs, w, size, bits); carry != 0) {
      out[have++] = carry;
    }
    std::fill_n(out + have, n - have, 0);
  }
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

/// Limbs to compute in, not initialised: `each` for each limb of a significand and a few more. On
/// the stack while they are few, else in one block that is kept for the next operation: one object
/// at a time.
template <long each, class Size>
class LimbRoom {
 public:
  /// \throws std::bad_alloc
  explicit LimbRoom(Size n) {
    if constexpr (!is_fixed<Size>) {
      if (const long limbs = each * n + few; limbs > local_size) {
        data = large(limbs);
      }
    }
  }
  LimbRoom(const LimbRoom&) = delete;
  LimbRoom& operator=(const LimbRoom&) = delete;
  ~LimbRoom() = default;

  Limb* limbs() {
    if constexpr (is_fixed<Size>) {
      return local;
    } else {
      return data;
    }
  }

 private:
  static constexpr long few = 8;
  static constexpr long local_size = is_fixed<Size> ? each * Size{} + few : 96;

  [[gnu::noinline]] static Limb* large(long limbs) {
    if (limbs > limb_block_size) {
      free_limb_block();
      limb_block = new Limb[static_cast<std::size_t>(limbs)];
      limb_block_size = limbs;
    }
    return limb_block;
  }

  Limb* data = local;
  Limb local[static_cast<std::size_t>(local_size)];
};

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_LIMB_INTEGERS_H_
