// Rounded arithmetic on patterns past one word: the limbs of a number's GMP integer, computed on
// with GMP's low-level functions, at a cost that does not depend on the exponents.
//
// Serves finite nonzero operands of generic formats with e <= 62; what these routines refuse goes
// to the algorithms on numbers. Called by ieee_float.cpp.
#ifndef ZELK_FLOAT_LIMBS_H_
#define ZELK_FLOAT_LIMBS_H_

#include <gmp.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <utility>

#include "zelk/float/convert.h"

namespace zelk {
namespace {

constexpr unsigned long limb_bits = 64;

/// The widths of a format: exponents fit a word, and all that an operation builds is well within
/// `max_bits`.
struct LimbShape {
  unsigned long exp_width;
  unsigned long mant_width;

  static bool serves(const IEEEFloat::format& f) {
    return f.exp_width - 2 <= 60 && f.mant_width - 1 < max_bits / 4 - 64;
  }
  std::int64_t exp_max() const { return (std::int64_t{1} << exp_width) - 1; }
  std::int64_t bias() const { return exp_max() >> 1; }
  /// Limbs of a significand with its hidden bit, and of a pattern.
  long significand_size() const { return static_cast<long>(mant_width / limb_bits) + 1; }
  long pattern_size() const { return static_cast<long>((exp_width + mant_width) / limb_bits) + 1; }
  /// Where the exponent field starts: a limb, and a bit in it.
  long top_limb() const { return static_cast<long>(mant_width / limb_bits); }
  unsigned top_bit() const { return static_cast<unsigned>(mant_width % limb_bits); }
};

// The block of large operations. Given back at exit, and made anew for whoever computes later.
constinit mp_limb_t* limb_block = nullptr;
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

/// Limbs to compute in: on the stack while they are few, else in one block that is kept for the
/// next operation: one object at a time. Nothing is initialised.
class LimbStore {
 public:
  /// \throws std::bad_alloc
  explicit LimbStore(long limbs) : next(local) {
    if (limbs > local_size) {
      if (limbs > limb_block_size) {
        free_limb_block();
        limb_block = new mp_limb_t[static_cast<std::size_t>(limbs)];
        limb_block_size = limbs;
      }
      next = limb_block;
    }
  }
  LimbStore(const LimbStore&) = delete;
  LimbStore& operator=(const LimbStore&) = delete;
  ~LimbStore() = default;

  mp_limb_t* take(long limbs) { return std::exchange(next, next + limbs); }

 private:
  static constexpr long local_size = 96;

  mp_limb_t* next;
  mp_limb_t local[local_size];
};

/// The limbs of a non-negative integer, least first; what is above `size` counts as 0.
struct Limbs {
  const mp_limb_t* data;
  long size;

  mp_limb_t operator[](long i) const { return i < size ? data[i] : 0; }
};

/// The value +-sig * 2^(exp - bias - m), sig of significand_size() limbs.
struct LimbNumber {
  bool sign;
  std::int64_t exp;
  mp_limb_t* sig;
};

/// Sign and exponent field of a pattern, the sign above the field.
inline std::uint64_t top_of(const LimbShape& s, Limbs bits) {
  const long i = s.top_limb();
  const unsigned b = s.top_bit();
  const mp_limb_t above = b == 0 ? 0 : bits[i + 1] << (limb_bits - b);
  return ((bits[i] >> b) | above) & ((std::uint64_t{2} << s.exp_width) - 1);
}

/// Takes a pattern apart, x.sig being where to; false for zeros, infinities and NaNs.
inline bool unpack_limbs(const LimbShape& s, Limbs bits, LimbNumber& x) {
  const std::uint64_t top = top_of(s, bits);
  x.sign = top >> s.exp_width != 0;
  x.exp = static_cast<std::int64_t>(top) & s.exp_max();
  const long n = s.significand_size();
  const long have = std::min(n, bits.size);
  std::copy_n(bits.data, have, x.sig);
  std::fill(x.sig + have, x.sig + n, 0);
  const mp_limb_t hidden = mp_limb_t{1} << s.top_bit();
  x.sig[n - 1] &= hidden - 1;
  if (x.exp == s.exp_max()) {
    return false;
  }
  if (x.exp != 0) {
    x.sig[n - 1] |= hidden;
    return true;
  }
  x.exp = 1;
  return mpn_zero_p(x.sig, n) == 0;
}

/// The number of limbs without the zeros on top.
inline long trimmed(const mp_limb_t* p, long n) {
  while (n > 0 && p[n - 1] == 0) {
    --n;
  }
  return n;
}

/// The bits of a number whose top limb is not 0.
inline long bit_size(const mp_limb_t* p, long n) {
  return n * static_cast<long>(limb_bits) - std::countl_zero(p[n - 1]);
}

/// out := p / 2^k cut off, of n - k / 64 limbs; out may be p or below. Whether digits were lost
/// below the last one that was cut off, and that one, are told apart in the result.
inline Remainder shift_limbs_right(mp_limb_t* out, const mp_limb_t* p, long n, unsigned long k) {
  const auto limbs = static_cast<long>(k / limb_bits);
  const auto bits = static_cast<unsigned>(k % limb_bits);
  const unsigned long last = k - 1;
  const auto last_limb = static_cast<long>(last / limb_bits);
  const mp_limb_t last_bit = mp_limb_t{1} << last % limb_bits;
  const Remainder rest{
      (p[last_limb] & last_bit) != 0,
      (p[last_limb] & (last_bit - 1)) != 0 || (last_limb > 0 && mpn_zero_p(p, last_limb) == 0)};
  if (bits == 0) {
    std::copy_n(p + limbs, n - limbs, out);
  } else if (n > limbs) {
    mpn_rshift(out, p + limbs, n - limbs, bits);
  }
  return rest;
}

/// The pattern, in pattern_size() limbs and one of room, nearest in direction rm to the number w of
/// n limbs, whose top limb is not 0, plus less than one if `sticky`, times 2^(exp - bias - m).
/// False on overflow.
inline bool round_and_pack_limbs(const LimbShape& s, IEEEFloat::rounding_mode rm, bool sign,
                                 std::int64_t exp, const mp_limb_t* w, long n, bool sticky,
                                 mp_limb_t* out) {
  const long size = s.pattern_size();
  std::int64_t shift = bit_size(w, n) - 1 - static_cast<long>(s.mant_width);
  std::int64_t field = exp + shift - 1;  // the hidden bit adds one
  if (field >= s.exp_max() - 1) {
    return false;
  }
  if (field < 0) {
    field = 0;
    shift = 1 - exp;
  }
  bool increment = false;
  long have = 0;
  if (shift > n * static_cast<long>(limb_bits)) {
    increment = increments(rm, sign, false, false, true);
  } else if (shift > 0) {
    const auto k = static_cast<unsigned long>(shift);
    have = n - static_cast<long>(k / limb_bits);
    const Remainder rest = shift_limbs_right(out, w, n, k);
    increment =
        increments(rm, sign, have > 0 && out[0] % 2 != 0, rest.round, rest.sticky || sticky);
  } else {
    const auto limbs = static_cast<long>(-shift) / static_cast<long>(limb_bits);
    const auto bits = static_cast<unsigned>(-shift % static_cast<long>(limb_bits));
    std::fill_n(out, limbs, 0);
    have = limbs + n;
    if (bits == 0) {
      std::copy_n(w, n, out + limbs);
    } else if (const mp_limb_t carry = mpn_lshift(out + limbs, w, n, bits); carry != 0) {
      out[have++] = carry;
    }
  }
  if (have < size) {
    std::fill(out + have, out + size, 0);
  }
  if (increment) {
    mpn_add_1(out, out, size, 1);
  }
  const long i = s.top_limb();
  const unsigned b = s.top_bit();
  const std::uint64_t top =
      static_cast<std::uint64_t>(field) | std::uint64_t{sign} << s.exp_width;  // e + 1 <= 63 bits
  mpn_add_1(out + i, out + i, size - i, top << b);
  if (i + 1 < size && b != 0) {
    out[i + 1] += top >> (limb_bits - b);
  }
  return true;
}

/// out := x + y / 2^d for x and y of n limbs, y negated if `minus`, with a limb below that takes
/// what y is shifted by; n + 2 limbs. True when even that loses digits: out is then rounded toward
/// zero. For minus x is not smaller than y / 2^d.
inline bool add_shifted(mp_limb_t* out, const mp_limb_t* x, mp_limb_t* y, long n, std::uint64_t d,
                        bool minus) {
  out[0] = 0;
  std::copy_n(x, n, out + 1);
  out[n + 1] = 0;
  bool lost = true;
  if (d < limb_bits * static_cast<std::uint64_t>(n + 1)) {
    const auto limbs = static_cast<long>(d / limb_bits);
    const auto bits = static_cast<unsigned>(d % limb_bits);
    const mp_limb_t below = bits == 0 ? 0 : mpn_rshift(y, y, n, bits);
    if (limbs == 0) {
      lost = false;
      out[n + 1] =
          minus ? 0 - mpn_sub_n(out + 1, out + 1, y, n) : mpn_add_n(out + 1, out + 1, y, n);
      if (minus && below != 0) {
        out[0] = 0 - below;
        mpn_sub_1(out + 1, out + 1, n + 1, 1);
      } else {
        out[0] = below;
      }
    } else {
      lost = below != 0 || (limbs > 1 && mpn_zero_p(y, limbs - 1) == 0);
      const mp_limb_t* kept = y + limbs - 1;
      const long size = n - limbs + 1;
      minus ? mpn_sub(out, out, n + 2, kept, size) : mpn_add(out, out, n + 2, kept, size);
    }
  }
  if (lost && minus) {
    mpn_sub_1(out, out, n + 2, 1);
  }
  return lost;
}

/// The limbs of an integer's magnitude; `word` is where those of the small form go.
inline Limbs limbs_of(const QNumber& q, mp_limb_t& word) {
  if (q.is_small()) {
    word = static_cast<mp_limb_t>(detail::magnitude(q.to_small()));
    return {&word, word == 0 ? 0 : 1};
  }
  mpz_srcptr z = q.big_numerator();
  return {mpz_limbs_read(z), static_cast<long>(mpz_size(z))};
}

/// The two operands of an operation and the limbs that it computes in.
struct LimbOperation {
  LimbShape shape;
  long n;  // limbs of a significand
  LimbStore store;
  LimbNumber x, y;

  /// With room for so many limbs per limb of a significand, besides operands and result.
  LimbOperation(const IEEEFloat::format& f, long room_per_limb)
      : shape{f.exp_width, f.mant_width},
        n(shape.significand_size()),
        store((3 + room_per_limb) * n + 8),
        x{false, 0, store.take(n)},
        y{false, 0, store.take(n)} {}

  bool read(const QNumber& left, const QNumber& right) {
    mp_limb_t word = 0;
    return unpack_limbs(shape, limbs_of(left, word), x) &&
           unpack_limbs(shape, limbs_of(right, word), y);
  }

  /// target := the result of `size` limbs at w, rounded; false on overflow.
  bool write(IEEEFloat::rounding_mode rm, bool sign, std::int64_t exp, const mp_limb_t* w,
             long size, bool sticky, QNumber& target) {
    mp_limb_t* out = store.take(shape.pattern_size() + 1);
    if (!round_and_pack_limbs(shape, rm, sign, exp, w, size, sticky, out)) {
      return false;
    }
    target.assign_limbs(out, shape.pattern_size());
    return true;
  }
};

// The operations: left := left op right, rounded once. False, and nothing changed, where an
// operand is a zero, an infinity or a NaN, or the result is zero or too large.

template <bool subtract>
bool add_sub_limbs(const IEEEFloat::format& f, IEEEFloat::rounding_mode rm, QNumber& left,
                   const QNumber& right) {
  LimbOperation op(f, 2);
  if (!op.read(left, right)) {
    return false;
  }
  auto& [shape, n, store, x, y] = op;
  y.sign = y.sign != subtract;
  if (x.exp < y.exp || (x.exp == y.exp && mpn_cmp(x.sig, y.sig, n) < 0)) {
    std::swap(x, y);
  }
  mp_limb_t* w = store.take(n + 2);
  const bool minus = x.sign != y.sign;
  const bool sticky =
      add_shifted(w, x.sig, y.sig, n, static_cast<std::uint64_t>(x.exp - y.exp), minus);
  const long size = trimmed(w, n + 2);
  return size > 0 &&
         op.write(rm, x.sign, x.exp - static_cast<long>(limb_bits), w, size, sticky, left);
}

inline bool multiply_limbs(const IEEEFloat::format& f, IEEEFloat::rounding_mode rm, QNumber& left,
                           const QNumber& right) {
  LimbOperation op(f, 2);
  if (!op.read(left, right)) {
    return false;
  }
  auto& [shape, n, store, x, y] = op;
  mp_limb_t* product = store.take(2 * n);
  if (&left == &right) {
    mpn_sqr(product, x.sig, n);
  } else {
    mpn_mul_n(product, x.sig, y.sig, n);
  }
  const std::int64_t exp = x.exp - shape.bias() + y.exp - static_cast<long>(f.mant_width);
  return op.write(rm, x.sign != y.sign, exp, product, trimmed(product, 2 * n), false, left);
}

inline bool divide_limbs(const IEEEFloat::format& f, IEEEFloat::rounding_mode rm, QNumber& left,
                         const QNumber& right) {
  LimbOperation op(f, 6);
  if (!op.read(left, right)) {
    return false;
  }
  auto& [shape, n, store, x, y] = op;
  const long x_size = trimmed(x.sig, n);
  const long y_size = trimmed(y.sig, n);
  // A quotient of m + 2 or m + 3 bits; the remainder is the sticky bit.
  const auto shift = static_cast<unsigned long>(static_cast<long>(f.mant_width) + 2 +
                                                bit_size(y.sig, y_size) - bit_size(x.sig, x_size));
  const auto limbs = static_cast<long>(shift / limb_bits);
  mp_limb_t* dividend = store.take(x_size + limbs + 1);
  std::fill_n(dividend, limbs, 0);
  dividend[limbs + x_size] = 0;
  if (const auto bits = static_cast<unsigned>(shift % limb_bits); bits != 0) {
    dividend[limbs + x_size] = mpn_lshift(dividend + limbs, x.sig, x_size, bits);
  } else {
    std::copy_n(x.sig, x_size, dividend + limbs);
  }
  const long size = trimmed(dividend, limbs + x_size + 1);
  mp_limb_t* quotient = store.take(size - y_size + 1);
  mp_limb_t* remainder = store.take(y_size);
  mpn_tdiv_qr(quotient, remainder, 0, dividend, size, y.sig, y_size);
  const std::int64_t exp =
      x.exp - y.exp + shape.bias() + static_cast<long>(f.mant_width) - static_cast<long>(shift);
  return op.write(rm, x.sign != y.sign, exp, quotient, trimmed(quotient, size - y_size + 1),
                  mpn_zero_p(remainder, y_size) == 0, left);
}

/// A pattern that was computed, in limbs that it owns.
struct LimbPattern {
  LimbStore store;
  mp_limb_t* data;

  explicit LimbPattern(const LimbShape& s, long room = 0)
      : store(s.pattern_size() + 1 + room), data(store.take(s.pattern_size() + 1)) {}
};

/// out := the pattern `bits` of format `from` rounded to `to`; false for special values and on
/// overflow.
inline bool convert_limbs(const LimbShape& from, const LimbShape& to, IEEEFloat::rounding_mode rm,
                          Limbs bits, LimbPattern& out) {
  LimbNumber x{false, 0, out.store.take(from.significand_size())};
  if (!unpack_limbs(from, bits, x)) {
    return false;
  }
  const std::int64_t exp = x.exp - from.bias() - static_cast<long>(from.mant_width) + to.bias() +
                           static_cast<long>(to.mant_width);
  return round_and_pack_limbs(to, rm, x.sign, exp, x.sig, trimmed(x.sig, from.significand_size()),
                              false, out.data);
}

/// out := the integer n rounded; false for 0 and on overflow.
inline bool round_integer_limbs(const LimbShape& to, IEEEFloat::rounding_mode rm, const QNumber& n,
                                LimbPattern& out) {
  mp_limb_t word = 0;
  const Limbs limbs = limbs_of(n, word);
  const std::int64_t exp = to.bias() + static_cast<long>(to.mant_width);
  return !n.is_zero() &&
         round_and_pack_limbs(to, rm, n.sign() < 0, exp, limbs.data, limbs.size, false, out.data);
}

/// The exact value of a finite pattern other than zero; false for the rest.
inline bool exact_value_of_limbs(const LimbShape& s, Limbs bits, QNumber& out) {
  LimbStore store(s.significand_size());
  LimbNumber x{false, 0, store.take(s.significand_size())};
  if (!unpack_limbs(s, bits, x)) {
    return false;
  }
  const long k = x.exp - s.bias() - static_cast<long>(s.mant_width);
  require_room_for_value(k, s.mant_width);
  out = QNumber::scaled(x.sig, trimmed(x.sig, s.significand_size()), x.sign, k);
  return true;
}

/// Whether a < b for two patterns none of which is a NaN or an infinity; otherwise no answer.
enum class Answer { no, yes, none };

inline Answer less_limbs(const LimbShape& s, Limbs a, Limbs b) {
  const std::uint64_t top_a = top_of(s, a);
  const std::uint64_t top_b = top_of(s, b);
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
