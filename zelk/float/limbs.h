// Rounded arithmetic on patterns past one word: the limbs of a number's GMP integer, computed on
// at a cost that does not depend on the exponents.
//
// Serves generic formats with e <= 62. A significand has n limbs: for few, n is a constant and the
// loops unroll; for many it is known at run time and GMP's low-level functions do the work; the
// text is one. What these routines refuse, NaNs and infinities above all, goes to the algorithms on
// numbers. Called by ieee_float.cpp.
#ifndef ZELK_FLOAT_LIMBS_H_
#define ZELK_FLOAT_LIMBS_H_

#include <gmp.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "zelk/float/convert.h"

namespace zelk {
namespace {

using Limb = mp_limb_t;
using DoubleLimb = swflt::detail::uint128;
using Direction = swflt::detail::Direction;

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

/// The widths of a format: exponents fit a word, and all that an operation builds is well within
/// `max_bits`. Passed by value: limbs are written between its uses.
struct LimbShape {
  unsigned long exp_width;
  unsigned long mant_width;

  static bool serves(const IEEEFloat::format& f) {
    return f.exp_width - 2 <= 60 && f.mant_width - 1 < max_bits / 4 - 64;
  }
  std::int64_t exp_max() const { return (std::int64_t{1} << exp_width) - 1; }
  std::int64_t bias() const { return exp_max() >> 1; }
  /// Where the hidden bit is in the highest limb of a significand, and the exponent field starts.
  unsigned top_bit() const { return static_cast<unsigned>(mant_width % limb_bits); }
  Limb hidden_bit() const { return Limb{1} << top_bit(); }
  /// Limbs of a significand with its hidden bit, and of a pattern: as many, or one more.
  long significand_size() const { return static_cast<long>(mant_width / limb_bits) + 1; }
  bool has_limb_above() const { return exp_width + top_bit() >= limb_bits; }
  long pattern_size(long n) const { return n + long{has_limb_above()}; }
};

/// Calls `serve` with the number of limbs of a significand, as a constant when they are few.
template <class Serve>
[[gnu::always_inline]] inline auto with_size(LimbShape s, Serve serve) {
  switch (const long n = s.significand_size()) {
    case 1:
      return serve(Fixed<1>());
    case 2:
      return serve(Fixed<2>());
    case 3:
      return serve(Fixed<3>());
    case 4:
      return serve(Fixed<4>());
    default:
      return serve(n);
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

/// The limbs of a non-negative integer, least first; what is above `size` counts as 0.
struct Limbs {
  const Limb* data;
  long size;

  Limb operator[](long i) const { return i < size ? data[i] : 0; }
};

/// The limbs of an integer's magnitude; `word` is where those of the small form go.
inline Limbs limbs_of(const QNumber& q, Limb& word) {
  if (q.is_small()) {
    word = static_cast<Limb>(detail::magnitude(q.to_small()));
    return {&word, word == 0 ? 0 : 1};
  }
  return {q.big_limbs(), q.big_size()};
}

// ---- Integers of n limbs ----

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
/// the powers of two that bring them to [1/2, 1); whether a remainder is left. Changes y, and needs
/// q + 2 y_size limbs of room.
inline bool divide(Limb* quotient, long q, const Limb* x, long x_size, Limb* y, long y_size,
                   Limb* room) {
  const auto x_zeros = static_cast<unsigned>(std::countl_zero(x[x_size - 1]));
  const auto y_zeros = static_cast<unsigned>(std::countl_zero(y[y_size - 1]));
  if (q == 2 && x_size == 2 && y_size == 2) {
    const auto normalized = [](const Limb* p, unsigned zeros) {
      return (DoubleLimb{p[1]} << limb_bits | p[0]) << zeros;
    };
    const DoubleLimb digits =
        swflt::detail::high_quotient(normalized(x, x_zeros), normalized(y, y_zeros));
    quotient[0] = static_cast<Limb>(digits);
    quotient[1] = static_cast<Limb>(digits >> limb_bits);
    quotient[2] = 0;
    return false;
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

// ---- Patterns and significands ----

/// The value +-sig * 2^(exp - bias - m). The significand is in two pieces: its highest limb, which
/// a pattern shares with the exponent, and where the others are.
struct LimbNumber {
  Limb sign;
  std::int64_t exp;
  const Limb* low;
  Limb top;
};

/// Sign and exponent field of a pattern, the sign above the field.
inline std::uint64_t top_of(LimbShape s, Limbs bits, long n) {
  return shifted_limb(bits[n - 1], s.has_limb_above() ? bits[n] : 0, s.top_bit()) &
         ((std::uint64_t{2} << s.exp_width) - 1);
}

/// A pattern whose exponent field is 0: a zero or a subnormal. It may have few limbs; the others go
/// to `room`.
[[gnu::noinline]] inline LimbNumber unpack_tiny(Limbs bits, long n, Limb sign, Limb top,
                                                Limb* room) {
  const long low = n - 1;
  if (bits.size >= low) {
    return {sign, 1, bits.data, top};
  }
  std::copy_n(bits.data, bits.size, room);
  std::fill(room + bits.size, room + low, 0);
  return {sign, 1, room, top};
}

/// Takes a pattern apart; false for infinities and NaNs. A subnormal or zero may need n limbs of
/// `room`.
[[gnu::always_inline]] inline bool unpack_limbs(LimbShape s, long n, Limbs bits, LimbNumber& x,
                                                Limb* room) {
  const std::uint64_t top = top_of(s, bits, n);
  const Limb hidden = s.hidden_bit();
  const Limb sign = top >> s.exp_width;
  const std::int64_t exp = static_cast<std::int64_t>(top) & s.exp_max();
  const Limb trailing = bits[n - 1] & (hidden - 1);
  if (exp == 0) [[unlikely]] {
    x = unpack_tiny(bits, n, sign, trailing, room);
    return true;
  }
  x.sign = sign;
  x.exp = exp;
  x.low = bits.data;
  x.top = trailing | hidden;
  return exp != s.exp_max();
}

/// out := the significand of x; the limbs up to the highest that is not 0.
template <class Size>
inline long copy_significand(const LimbNumber& x, Size n, Limb* out) {
  std::copy_n(x.low, n - 1, out);
  out[n - 1] = x.top;
  return trimmed(out, n);
}

template <class Size>
inline int compare_significands(const LimbNumber& x, const LimbNumber& y, Size n) {
  if (x.top != y.top) {
    return x.top < y.top ? -1 : 1;
  }
  if constexpr (is_fixed<Size>) {
    for (long i = n - 1; i-- > 0;) {
      if (x.low[i] != y.low[i]) {
        return x.low[i] < y.low[i] ? -1 : 1;
      }
    }
    return 0;
  } else {
    return mpn_cmp(x.low, y.low, n - 1);
  }
}

/// Writes sign and exponent field above the trailing significand, whose highest limb is `top`; what
/// that has above the trailing bits, and `carry`, add to the field.
inline void pack_top(LimbShape s, long n, Limb sign, std::int64_t field, Limb top, Limb carry,
                     Limb* out) {
  const Limb packed = static_cast<Limb>(field) | sign << s.exp_width;
  const DoubleLimb sum = DoubleLimb{packed << s.top_bit()} + top;
  out[n - 1] = static_cast<Limb>(sum);
  if (s.has_limb_above()) {
    out[n] = (packed >> 1 >> (limb_bits - 1 - s.top_bit())) + static_cast<Limb>(sum >> limb_bits) +
             carry;
  }
}

/// The infinity of this sign or the largest finite value, as the direction has it.
[[gnu::cold, gnu::noinline]] inline void pack_overflow_limbs(LimbShape s, Direction mode, Limb sign,
                                                             Limb* out) {
  const bool outward = swflt::detail::rounds_outward(sign, mode);
  const long n = s.significand_size();
  const Limb ones = outward ? 0 : ~Limb{0};
  std::fill_n(out, n - 1, ones);
  pack_top(s, n, sign, s.exp_max() - std::int64_t{!outward}, ones & (s.hidden_bit() - 1), 0, out);
}

inline void pack_zero_limbs(LimbShape s, Limb sign, Limb* out) {
  const long n = s.significand_size();
  std::fill_n(out, n - 1, 0);
  pack_top(s, n, sign, 0, 0, 0, out);
}

/// out, a significand of n limbs with its hidden bit in place or, for exp = 1, below, becomes the
/// pattern nearest in direction `mode` to it with the guard.
template <class Size>
[[gnu::always_inline]] inline void round_and_pack_limbs(LimbShape s, Size n, Direction mode,
                                                        Limb sign, std::int64_t exp, Limb guard,
                                                        Limb* out) {
  if (exp >= s.exp_max()) [[unlikely]] {
    pack_overflow_limbs(s, mode, sign, out);
    return;
  }
  const bool up = mode == Direction::nearest
                      ? (guard | (out[0] & 1)) > half_limb
                      : guard != 0 && swflt::detail::rounds_outward(sign, mode);
  const Limb increment_top = increment(out, one_less(n), Limb{up});
  const Limb top = out[n - 1] + increment_top;
  const auto carry = Limb{top < increment_top};  // from a hidden bit that is the highest
  pack_top(s, n, sign, exp - 1, top, carry, out);
  if (exp - 1 + static_cast<std::int64_t>(shifted_limb(top, carry, s.top_bit())) == s.exp_max())
      [[unlikely]] {
    pack_overflow_limbs(s, mode, sign, out);
  }
}

/// The same for w * 2^(exp - bias - m), plus less than one unit of w if `sticky`, w of `size` limbs
/// and not 0.
template <class Size>
[[gnu::always_inline]] inline void normalize_and_pack_limbs(LimbShape s, Size n, Direction mode,
                                                            Limb sign, std::int64_t exp,
                                                            const Limb* w, long size, bool sticky,
                                                            Limb* out) {
  const long used = trimmed(w, size);
  std::int64_t shift = bit_size(w, used) - 1 - static_cast<long>(s.mant_width);
  exp += shift;
  if (exp < 1) {
    shift += 1 - exp;
    exp = 1;
  }
  Limb guard = 0;
  if (shift >= 0) {
    guard = shift_right(out, n, w, size, static_cast<std::uint64_t>(shift));
  } else {
    shift_left(out, n, w, used, static_cast<std::uint64_t>(-shift));
  }
  round_and_pack_limbs(s, n, mode, sign, exp, guard | Limb{sticky}, out);
}

// ---- The operations ----

/// The operands of an operation: false for infinities and NaNs. Subnormals and zeros may need 2 n
/// limbs of room, and numbers of the small form `words`.
template <class Size>
[[gnu::always_inline]] inline bool unpack_both(LimbShape s, Size n, const QNumber& left,
                                               const QNumber& right, LimbNumber (&x)[2],
                                               Limb (&words)[2], Limb* room) {
  return unpack_limbs(s, n, limbs_of(left, words[0]), x[0], room) &&
         unpack_limbs(s, n, limbs_of(right, words[1]), x[1], room + n);
}

/// Where a result is built: in the target's own limbs, if it has enough, else in n + 1 limbs of
/// room. An operand may share them: they are written from the lowest up.
struct LimbResult {
  QNumber& target;
  Limb* own;
  Limb* limbs;
  long size;

  LimbResult(LimbShape s, long n, QNumber& number, Limb* room)
      : target(number),
        own(number.own_limbs(s.pattern_size(n))),
        limbs(own != nullptr ? own : room),
        size(s.pattern_size(n)) {}

  [[gnu::always_inline]] bool finish() {
    if (own != nullptr) {
      target.keep_limbs(size);
    } else {
      target.assign_limbs(limbs, size);
    }
    return true;
  }
};

/// What an exponent distance leaves of a significand.
struct Shifted {
  const Limb* low;
  Limb top;
  Limb guard;
};

/// y / 2^d, d >= 64, in n + 1 limbs of room.
[[gnu::noinline]] inline Shifted shift_far(const LimbNumber& y, long n, std::uint64_t d,
                                           Limb* room) {
  const long low = n - 1;
  if (d >= limb_bits * static_cast<std::uint64_t>(n + 1)) {
    const Limb lost = y.top != 0 || (low > 0 && mpn_zero_p(y.low, low) == 0);
    std::fill_n(room, n, 0);
    return {room, 0, lost};
  }
  const auto limbs = static_cast<long>(d / limb_bits);
  const auto bits = static_cast<unsigned>(d % limb_bits);
  // The limb that becomes the guard, and those above.
  const long have = n - limbs;
  std::copy_n(y.low + limbs - 1, have, room);
  room[have] = y.top;
  const Limb lost = (bits == 0 ? 0 : mpn_rshift(room, room, have + 1, bits)) != 0 ||
                    (limbs > 1 && mpn_zero_p(y.low, limbs - 1) == 0);
  std::fill(room + have + 1, room + n + 1, 0);
  return {room + 1, room[n], room[0] | lost};
}

/// y / 2^d.
template <class Size>
[[gnu::always_inline]] inline Shifted shift_down(const LimbNumber& y, Size n, std::uint64_t d,
                                                 Limb* room) {
  if (d >= limb_bits) [[unlikely]] {
    return shift_far(y, n, d, room);
  }
  const auto bits = static_cast<unsigned>(d);
  const long low = n - 1;
  if constexpr (is_fixed<Size>) {
    const Limb guard = shifted_limb(0, low > 0 ? y.low[0] : y.top, bits);
    for (long i = 0; i < low; ++i) {
      room[i] = shifted_limb(y.low[i], i + 1 < low ? y.low[i + 1] : y.top, bits);
    }
    return {room, y.top >> bits, guard};
  } else {
    if (bits == 0) {
      return {y.low, y.top, 0};
    }
    const Limb guard = mpn_rshift(room, y.low, low, bits);
    room[low - 1] |= y.top << (limb_bits - bits);
    return {room, y.top >> bits, guard};
  }
}

/// Moves the leading bit of a difference up to m, or as far as the exponent goes, by k places; the
/// guard that is left, and k.
struct Normalized {
  Limb guard;
  std::int64_t k;
};
[[gnu::noinline]] inline Normalized normalize_difference(LimbShape s, long n, Limb* out,
                                                         std::int64_t exp, Limb guard) {
  const long leading = bit_size(out, trimmed(out, n)) - 1;
  const std::int64_t k = std::min(static_cast<long>(s.mant_width) - leading, exp - 1);
  const auto limbs = static_cast<long>(k / limb_bits);
  const auto bits = static_cast<unsigned>(k % limb_bits);
  if (limbs > 0) {
    std::copy_backward(out, out + n - limbs, out + n);
    std::fill_n(out, limbs - 1, 0);
    out[limbs - 1] = std::exchange(guard, 0);
  }
  if (bits != 0) {
    mpn_lshift(out, out, n, bits);
    out[0] |= guard >> (limb_bits - bits);
    guard <<= bits;
  }
  return {guard, k};
}

// left := left op right, rounded once. False, and nothing changed, where an operand is an infinity
// or a NaN, or the divisor is 0.

template <class Size>
[[gnu::noinline]] bool add_sub_limbs(LimbShape s, Size n, Direction mode, QNumber& left,
                                     const QNumber& right, Limb flip) {
  LimbRoom<4, Size> room(n);
  Limb words[2];
  LimbNumber operands[2];
  if (!unpack_both(s, n, left, right, operands, words, room.limbs())) {
    return false;
  }
  operands[1].sign ^= flip;
  const std::int64_t distance = operands[0].exp - operands[1].exp;
  const int order =
      distance != 0 ? (distance < 0 ? -1 : 1) : compare_significands(operands[0], operands[1], n);
  // Which magnitude is larger, and whether the signs differ, is as good as random to a branch
  // predictor: an index and a mask choose.
  const LimbNumber& x = operands[order < 0];
  const LimbNumber& y = operands[order >= 0];
  const Limb minus = x.sign ^ y.sign;
  const Limb mask = 0 - minus;
  const auto low = one_less(n);
  LimbResult result(s, n, left, room.limbs() + 2 * n);
  Limb* out = result.limbs;
  if (order == 0 && minus != 0) [[unlikely]] {
    pack_zero_limbs(s, Limb{mode == Direction::downward}, out);
    return result.finish();
  }
  const Shifted part =
      shift_down(y, n, static_cast<std::uint64_t>(distance < 0 ? -distance : distance),
                 room.limbs() + 3 * n + 1);
  const Limb sign = x.sign;
  std::int64_t exp = x.exp;
  Limb guard = (part.guard ^ mask) + minus;
  const Limb carry = add(out, x.low, part.low, low, mask, Limb{guard < minus});
  const DoubleLimb sum = DoubleLimb{x.top} + (part.top ^ mask) + carry;
  const Limb top = static_cast<Limb>(sum);
  const Limb over = static_cast<Limb>(sum >> limb_bits) - minus;
  out[low] = top;

  const auto above = static_cast<unsigned>(shifted_limb(top, over, s.top_bit()));
  const unsigned k = above >> 1;  // a carry above the hidden bit
  guard = shifted_limb(guard, out[0], k) | (guard & k);
  shift_by_one(out, n, k, over);
  exp += k;
  if (above == 0 && exp > 1) {
    const Normalized moved = normalize_difference(s, n, out, exp, guard);
    guard = moved.guard;
    exp -= moved.k;
  }
  round_and_pack_limbs(s, n, mode, sign, exp, guard, out);
  return result.finish();
}

template <class Size>
[[gnu::noinline]] bool multiply_limbs(LimbShape s, Size n, Direction mode, QNumber& left,
                                      const QNumber& right) {
  LimbRoom<7, Size> room(n);
  Limb words[2];
  LimbNumber operands[2];
  if (!unpack_both(s, n, left, right, operands, words, room.limbs())) {
    return false;
  }
  Limb* x = room.limbs() + 2 * n;
  Limb* y = x + n;
  Limb* product = y + n;
  const Limb sign = operands[0].sign ^ operands[1].sign;
  const bool zero =
      copy_significand(operands[0], n, x) == 0 || copy_significand(operands[1], n, y) == 0;
  LimbResult result(s, n, left, product + 2 * n);
  if (zero) [[unlikely]] {
    pack_zero_limbs(s, sign, result.limbs);
    return result.finish();
  }
  multiply(product, x, &left == &right ? x : y, n);
  const std::int64_t exp =
      operands[0].exp - s.bias() + operands[1].exp - static_cast<long>(s.mant_width);
  normalize_and_pack_limbs(s, n, mode, sign, exp, product, 2 * n, false, result.limbs);
  return result.finish();
}

template <class Size>
[[gnu::noinline]] bool divide_limbs(LimbShape s, Size n, Direction mode, QNumber& left,
                                    const QNumber& right) {
  LimbRoom<9, Size> room(n);
  Limb words[2];
  LimbNumber operands[2];
  if (!unpack_both(s, n, left, right, operands, words, room.limbs())) {
    return false;
  }
  Limb* x = room.limbs() + 2 * n;
  Limb* y = x + n;
  const Limb sign = operands[0].sign ^ operands[1].sign;
  const long x_size = copy_significand(operands[0], n, x);
  const long y_size = copy_significand(operands[1], n, y);
  if (y_size == 0) {
    return false;
  }
  // A quotient of 64 q - 1 bits at least, where m + 2 are needed; the remainder is the sticky bit.
  const long q = static_cast<long>((s.mant_width + 2) / limb_bits) + 1;
  Limb* quotient = y + n;
  LimbResult result(s, n, left, quotient + q + 1);
  if (x_size == 0) [[unlikely]] {
    pack_zero_limbs(s, sign, result.limbs);
    return result.finish();
  }
  std::int64_t exp = operands[0].exp - operands[1].exp + s.bias() +
                     static_cast<long>(s.mant_width) + 1 - (q - x_size + y_size) * long{limb_bits} -
                     std::countl_zero(x[x_size - 1]) + std::countl_zero(y[y_size - 1]);
  const bool sticky = divide(quotient, q, x, x_size, y, y_size, quotient + q + n + 2);
  normalize_and_pack_limbs(s, n, mode, sign, exp, quotient, q + 1, sticky, result.limbs);
  return result.finish();
}

// ---- Conversions ----

/// A pattern that was computed, in limbs that it owns, and room for 2 n limbs more.
struct LimbPattern {
  LimbRoom<1, long> room;
  long size;
  Limb* limbs;
  Limb* more;

  explicit LimbPattern(LimbShape s, long n = 0)
      : room(s.significand_size() + 2 * n),
        size(s.pattern_size(s.significand_size())),
        limbs(room.limbs()),
        more(limbs + s.significand_size() + 1) {}
};

/// out := the pattern `bits` of format `from` rounded to `to`, for which there are pattern_size()
/// limbs that `bits` may share, and 2 n of room; false for infinities and NaNs.
inline bool convert_limbs(LimbShape from, LimbShape to, Direction mode, Limbs bits, Limb* out,
                          Limb* room) {
  LimbNumber x;
  Limb* sig = room + from.significand_size();
  const long size = with_size(
      from, [&](auto n) __attribute__((always_inline)) {
        return unpack_limbs(from, n, bits, x, room) ? copy_significand(x, n, sig) : -1;
      });
  if (size <= 0) {
    if (size == 0) {
      pack_zero_limbs(to, x.sign, out);
    }
    return size == 0;
  }
  const std::int64_t exp = x.exp - from.bias() - static_cast<long>(from.mant_width) + to.bias() +
                           static_cast<long>(to.mant_width);
  with_size(
      to, [&](auto n) __attribute__((always_inline)) {
        normalize_and_pack_limbs(to, n, mode, x.sign, exp, sig, size, false, out);
      });
  return true;
}

/// The integer n rounded; false for 0.
inline bool round_integer_limbs(LimbShape to, Direction mode, const QNumber& n, LimbPattern& out) {
  Limb word = 0;
  const Limbs limbs = limbs_of(n, word);
  if (n.is_zero()) {
    return false;
  }
  const std::int64_t exp = to.bias() + static_cast<long>(to.mant_width);
  with_size(to, [&](auto size) {
    normalize_and_pack_limbs(to, size, mode, Limb{n.sign() < 0}, exp, limbs.data, limbs.size, false,
                             out.limbs);
  });
  return true;
}

/// The exact value of a finite pattern other than zero; false for the rest.
inline bool exact_value_of_limbs(LimbShape s, Limbs bits, QNumber& out) {
  const long n = s.significand_size();
  LimbRoom<2, long> room(n);
  LimbNumber x{};
  if (!unpack_limbs(s, n, bits, x, room.limbs())) {
    return false;
  }
  Limb* sig = room.limbs() + n;
  const long size = copy_significand(x, n, sig);
  if (size == 0) {
    return false;
  }
  const long k = x.exp - s.bias() - static_cast<long>(s.mant_width);
  require_room_for_value(k, s.mant_width);
  out = QNumber::scaled(sig, size, x.sign != 0, k);
  return true;
}

/// Whether a < b for two patterns none of which is a NaN or an infinity; otherwise no answer.
enum class Answer { no, yes, none };

inline Answer less_limbs(LimbShape s, Limbs a, Limbs b) {
  const long n = s.significand_size();
  const std::uint64_t top_a = top_of(s, a, n);
  const std::uint64_t top_b = top_of(s, b, n);
  const auto special = static_cast<std::uint64_t>(s.exp_max());
  if ((top_a & special) == special || (top_b & special) == special) {
    return Answer::none;
  }
  const bool negative = top_a > special;
  if (top_a != top_b) {
    // Of two signs, both may go with a zero.
    if (negative != (top_b > special)) {
      return (top_a & special) == 0 && (top_b & special) == 0 ? Answer::none
             : negative                                       ? Answer::yes
                                                              : Answer::no;
    }
    return (top_a < top_b) != negative ? Answer::yes : Answer::no;
  }
  const int order = a.size != b.size ? (a.size < b.size ? -1 : 1)
                    : a.size == 0    ? 0
                                     : mpn_cmp(a.data, b.data, a.size);
  return (negative ? order > 0 : order < 0) ? Answer::yes : Answer::no;
}

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_LIMBS_H_
