// Integers as vectors of bits.
//
// Bit patterns, exponent fields and significands are built and taken apart with these. Words
// are handled inline; GMP takes over where a word does not hold the operand or the result.
#ifndef ZELK_NUMBERS_BVNUMBER_H_
#define ZELK_NUMBERS_BVNUMBER_H_

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <span>

#include "zelk/numbers/qnumber.h"

namespace zelk {

/// Bit operations on integer-valued `QNumber`s (a fraction is outside the contract).
///
/// A negative operand acts as in infinite two's complement, in both forms alike. Results are
/// assigned to `*out`, which may be an operand unless said otherwise, and which keeps the big
/// form if it has it. Where a result would pass `max_bits`, `Exception` "number too large" is
/// thrown and the target is unchanged.
class ZELK_EXPORT BVNumber {
 public:
  /// The position that `lowest_one` and `lowest_zero` give when there is no such bit.
  static constexpr unsigned long npos = std::numeric_limits<unsigned long>::max();

  /// *out := 2^k.
  static void pow2(unsigned long k, QNumber* out) {
    if (k <= 62) {
      *out = 1L << k;
    } else {
      pow2_big(k, out);
    }
  }

  /// Sets (value true) or clears bit i of n.
  static void set_bit(QNumber& n, unsigned long i, bool value) {
    if (n.is_small() && n.num >= 0 && i <= 62) {
      const long bit = 1L << i;
      n.num = value ? n.num | bit : n.num & ~bit;
    } else {
      set_bit_big(n, i, value);
    }
  }

  /// n := n mod 2^w, the low w bits.
  static void trim(QNumber& n, unsigned long w) {
    if (n.is_small() && (n.num >= 0 || w <= 63)) {
      n.num = w <= 62 ? n.num & ((1L << w) - 1) : n.num & detail::word_max;
    } else {
      trim_big(n, w);
    }
  }

  /// *out := floor(a / 2^k). Big when a is big.
  static void bit_right_shift(const QNumber& a, unsigned long k, QNumber* out) {
    if (a.is_small()) {
      *out = a.num >> (k < 63 ? k : 63);
    } else {
      right_shift_big(a, k, out);
    }
  }

  /// *out := a * 2^k. For k > 0 small when the product fits a word and *out is small.
  static void bit_left_shift(const QNumber& a, unsigned long k, QNumber* out) {
    if (long r = 0; a.is_small() && k <= 62 && detail::mul_checked(a.num, 1L << k, r)) {
      *out = r;
    } else {
      left_shift_big(a, k, out);
    }
  }

  /// *out := a op b, bit by bit: f works on two words, g on GMP integers (result, operand,
  /// operand).
  template <typename SmallOp, typename BigOp>
  static void bit_op(const QNumber& a, const QNumber& b, SmallOp f, BigOp g, QNumber* out) {
    if (a.is_small() && b.is_small()) {
      *out = f(a.num, b.num);
      return;
    }
    const detail::Operand x = a.numerator();
    const detail::Operand y = b.numerator();
    QNumber result = QNumber::big_zero(std::max(mpz_size(x), mpz_size(y)) + 1);
    g(mpq_numref(result.gmp), x, y);
    QNumber::require_bits(mpz_sizeinbase(mpq_numref(result.gmp), 2));
    *out = std::move(result);
  }

  /// a AND b: the word function that goes with `mpz_and` in `bit_op`.
  static long bit_and_l(long a, long b) { return a & b; }

  /// *out := 2^w - a, which for 0 < a < 2^w is the two's complement negation in w bits.
  static void neg(unsigned long w, const QNumber& a, QNumber* out) {
    QNumber result;
    pow2(w, &result);
    result -= a;
    *out = std::move(result);
  }

  /// The number of leading zero bits of a in a field of w bits: max(0, w - bit length), and 0
  /// for a negative a.
  static unsigned long count_leading_zeros(const QNumber& a, unsigned long w) {
    const unsigned long length = a.sign() < 0 ? w : bit_length(a);
    return length < w ? w - length : 0;
  }

  /// The index of the highest one bit of |a|, plus one; 0 for 0.
  static unsigned long bit_length(const QNumber& a) {
    return a.is_small() ? static_cast<unsigned long>(std::bit_width(magnitude(a)))
                        : bit_length_big(a);
  }

  /// Bit i of a.
  static bool test_bit(const QNumber& a, unsigned long i) {
    return a.is_small() ? (a.num >> (i < 63 ? i : 63) & 1) != 0
                        : mpz_tstbit(mpq_numref(a.gmp), i) != 0;
  }

  /// The index of the lowest one bit of a at or above `from`; `npos` if there is none.
  static unsigned long lowest_one(const QNumber& a, unsigned long from = 0) {
    return a.is_small() ? lowest_one_of(a.num, from) : mpz_scan1(mpq_numref(a.gmp), from);
  }

  /// The index of the lowest zero bit of a at or above `from`; `npos` if there is none.
  static unsigned long lowest_zero(const QNumber& a, unsigned long from) {
    return a.is_small() ? lowest_one_of(~a.num, from) : mpz_scan0(mpq_numref(a.gmp), from);
  }

  /// *out := the non-negative integer of these words, the lowest first. Below 2^63 it is assigned
  /// like a small number, so that a small *out stays small; from there on the result is big. A big
  /// *out keeps its storage where that suffices.
  static void from_words(std::span<const std::uint64_t> words, QNumber* out);

  /// The word of bits 64 i to 64 i + 63 of |a|: of a negative number, unlike elsewhere here, the
  /// magnitude's. 0 above it.
  static std::uint64_t word(const QNumber& a, unsigned long i) {
    if (a.is_small()) {
      return i == 0 ? magnitude(a) : 0;
    }
    return mpz_getlimbn(mpq_numref(a.gmp), static_cast<mp_size_t>(i));  // 0 where there is none
  }

  /// words := the low words of |a|, zeros above it; a negative number's magnitude is meant here
  /// too.
  static void to_words(const QNumber& a, std::span<std::uint64_t> words);

  /// The low 64 bits of a.
  static unsigned long low_word(const QNumber& a) {
    if (a.is_small()) [[likely]] {
      return static_cast<unsigned long>(a.num);
    }
    const unsigned long word = mpz_get_ui(mpq_numref(a.gmp));
    return a.sign() < 0 ? 0UL - word : word;
  }

 private:
  static unsigned long magnitude(const QNumber& a) {
    return static_cast<unsigned long>(detail::magnitude(a.num));
  }

  static unsigned long lowest_one_of(long word, unsigned long from) {
    if (from >= 63) {
      return word < 0 ? from : npos;
    }
    const long rest = word >> from;
    return rest == 0
               ? npos
               : from +
                     static_cast<unsigned long>(std::countr_zero(static_cast<unsigned long>(rest)));
  }

  static void pow2_big(unsigned long k, QNumber* out);
  static void set_bit_big(QNumber& n, unsigned long i, bool value);
  static void trim_big(QNumber& n, unsigned long w);
  static void right_shift_big(const QNumber& a, unsigned long k, QNumber* out);
  static void left_shift_big(const QNumber& a, unsigned long k, QNumber* out);
  static unsigned long bit_length_big(const QNumber& a);
};

}  // namespace zelk

#endif  // ZELK_NUMBERS_BVNUMBER_H_
