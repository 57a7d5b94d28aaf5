// Integers in limbs, least first: the few operations that rounded arithmetic needs, for any number
// of limbs.
//
// GMP's low-level functions do the work, but for the shifts. The integers of a few limbs that stay
// in registers are in few_integers.h.
#ifndef ZELK_LIMBS_INTEGERS_H_
#define ZELK_LIMBS_INTEGERS_H_

#include <gmp.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "zelk/base/machine.h"
#include "zelk/words/integers.h"
#include "zelk/words/shape.h"

namespace zelk::limbs {

using Limb = std::uint64_t;
using DoubleLimb = words::uint128;
static_assert(std::is_same_v<Limb, mp_limb_t>);

inline constexpr long limb_bits = 64;
inline constexpr Limb half_limb = Limb{1} << (limb_bits - 1);

/// All ones if `condition` holds.
constexpr Limb limb_mask(bool condition) { return 0 - Limb{condition}; }

constexpr DoubleLimb double_limb(Limb high, Limb low) {
  return DoubleLimb{high} << limb_bits | low;
}

/// The lower limb of high:low / 2^k, k < 64.
constexpr Limb shifted_limb(Limb low, Limb high, unsigned k) {
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

/// out := n limbs of 0, mostly few: the call that compilers make of it costs more.
inline void clear(Limb* out, long n) {
  const Limb zero = words::opaque(Limb{0});
  for (long i = 0; i < n; ++i) {
    out[i] = zero;
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
inline long bit_size(const Limb* p, long n) { return n * limb_bits - std::countl_zero(p[n - 1]); }

// ---- Shifts, two limbs at a time ----

#ifdef ZELK_EXTENSIONS

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

#else

inline void shift_down(Limb* out, const Limb* in, long n, unsigned k, Limb flip = 0) {
  for (long i = 0; i < n; ++i) {
    out[i] = shifted_limb(in[i], in[i + 1], k) ^ flip;
  }
}

inline void shift_up(Limb* out, const Limb* in, long n, unsigned k) {
  for (long i = n - 1; i >= 0; --i) {
    out[i] = in[i] << k | in[i - 1] >> 1 >> (limb_bits - 1 - k);
  }
}

#endif

// What is cut off below a significand is kept as one limb, the guard: the 64 bits below the last
// place, the lowest of them set also when any digit beneath is not 0.

/// out := w / 2^k cut to its n low limbs, w of `size` limbs and not 0; the guard. out may begin at
/// w or below.
Limb shift_right(Limb* out, long n, const Limb* w, long size, std::uint64_t k);

/// out := w * 2^k, which fits n limbs.
void shift_left(Limb* out, long n, const Limb* w, long size, std::uint64_t k);

// ---- Quotients ----

/// quotient := X / Y * 2^(64 q - 1) cut off, of q + 1 limbs, where X and Y are x and y divided by
/// the powers of two that bring them to [1/2, 1); whether a remainder is left. x has less than
/// q + y_size limbs. Changes y, and needs q + 2 y_size limbs of room.
bool divide_integers(Limb* quotient, long q, const Limb* x, long x_size, Limb* y, long y_size,
                     Limb* room);

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_INTEGERS_H_
