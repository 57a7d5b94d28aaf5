// Exact rational numbers: two machine words while they fit, a GMP rational when they do not.
//
// Every operation is exact. Small-form arithmetic is inline, allocates nothing and tests for
// overflow before it writes; the big form is in the source file.
//
// Distinct numbers may be used in distinct threads at the same time, and one number may be read by
// many while none changes it. What numbers share needs no lock: scratch belongs to each thread,
// which gives it back when it ends, and the table of greatest common divisors is read and written
// atomically.
#ifndef ZELK_NUMBERS_QNUMBER_H_
#define ZELK_NUMBERS_QNUMBER_H_

#include <gmpxx.h>

#include <bit>
#include <concepts>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "zelk/base/export.h"
#include "zelk/numbers/word_arithmetic.h"

namespace zelk {

/// The most bits that a numerator or a denominator may have: 2^32 unless the library was
/// configured with another `ZELK_MAX_BITS` (at most 2^36).
///
/// GMP ends the process when a number passes its own limit of 2^37 bits, so sizes are tested
/// before GMP is called: number code throws `Exception` "number too large", float code
/// `IEEEFloat::error` "reached limit on float precision". The test takes the most bits that a sum
/// or product of such operands can have before it is reduced, so that one close to the limit may
/// be refused too.
extern ZELK_EXPORT const unsigned long max_bits;

static_assert(sizeof(long) == 8 && GMP_NUMB_BITS == 64, "zelk needs 64-bit longs and GMP limbs");

class QNumber;

namespace detail {

class Parts;

// A call that takes a long would take whatever converts to one, too.

/// What makes a number beside long.
template <typename T>
concept other_integer = wide_integer<T> ||(standard_integer<T> && !std::same_as<T, long>);
/// What makes none.
template <typename T>
concept no_number = !std::is_convertible_v<const T&, QNumber>;

/// An integer as GMP reads it. A word becomes one in this object, as `MPZ_ROINIT_N` makes it.
class Operand {
 public:
  /// z, read where it is.
  explicit Operand(mpz_srcptr z) : limb(0), word{}, integer(z) {}
  /// n, other than -2^63.
  explicit Operand(long n)
      : limb(static_cast<mp_limb_t>(magnitude(n))),
        word{{0, (n > 0) - (n < 0), &limb}},
        integer(word) {}
  Operand(const Operand&) = delete;
  Operand& operator=(const Operand&) = delete;
  ~Operand() = default;

  /// What GMP's functions take.
  operator mpz_srcptr() const { return integer; }

 private:
  mp_limb_t limb;
  mpz_t word;
  mpz_srcptr integer;
};

}  // namespace detail

/// An exact rational number, always in lowest terms with a positive denominator; zero is 0/1.
///
/// The small form holds numerator and denominator as words in [-(2^63 - 1), 2^63 - 1]; the big
/// form owns a GMP rational on the heap and may hold any value, also one that would fit words.
/// An operation on two small operands gives a small result whenever every intermediate fits;
/// otherwise its target moves to the big form and stays there: assignment never shrinks a
/// target. Any operation that builds a big number may throw `Exception` "number too large"
/// (see `max_bits`) or `std::bad_alloc`; the target then keeps its value. Operands may be the
/// target itself.
class ZELK_EXPORT QNumber {
 public:
  /// 0 in the small form.
  constexpr QNumber() noexcept : num(0), den(1) {}

  /// The integer n, exactly, from any signed or unsigned integer type: small, except for -2^63
  /// and for values above 2^63 - 1.
  template <detail::standard_integer T>
  QNumber(T n) : QNumber() {
    num = static_cast<long>(n);  // NOLINT(bugprone-signed-char-misuse): a number
    if (!std::in_range<long>(n) || num == -detail::word_max - 1) {
      init_big(n < T{0},
               n < T{0} ? 0UL - static_cast<unsigned long>(n) : static_cast<unsigned long>(n));
    }
  }

  /// The same from an integer of 128 bits.
  template <detail::wide_integer T>
  QNumber(T n) : QNumber() {
    const bool negative = n < T{0};
    const auto bits = static_cast<detail::unsigned_int128>(n);
    const auto magnitude = negative ? 0 - bits : bits;
    if (magnitude <= static_cast<unsigned long>(detail::word_max)) {
      num = static_cast<long>(n);
    } else {
      init_wide(negative, magnitude);
    }
  }

  /// Truth values, characters and floating-point numbers are not taken for integers.
  template <typename T>
  requires(std::is_arithmetic_v<T> && !detail::standard_integer<T> && !detail::wide_integer<T>)
      QNumber(T)
  = delete;

  /// The value of q, not necessarily canonical: small when both parts fit a signed 32-bit int.
  /// \throws Exception "division by zero" when the denominator is 0; "number too large".
  QNumber(const mpq_class& q) : QNumber(q.get_num(), q.get_den()) {}

  template <typename N, typename D>
  requires((std::is_arithmetic_v<N> && !detail::standard_integer<N>) ||
           (std::is_arithmetic_v<D> && !detail::standard_integer<D>)) QNumber(N, D)
  = delete;

  /// n/d, by the same rules.
  QNumber(const mpz_class& n, const mpz_class& d) : QNumber() {
    init_ratio(n.get_mpz_t(), d.get_mpz_t());
  }

  /// The number that a text stands for, exactly: an optional sign, then an integer (12), a fraction
  /// (-7/4), a decimal (0.1, .5, 1e-400000) or a hexadecimal float (0x1.8p-3), and nothing else.
  /// \param text a number and nothing else
  /// \param limit the most bits that numerator and denominator may have; at most `max_bits` counts
  /// \throws Exception "invalid number at position <p>: <text>", where from position p on, counted
  ///   from 0, the text is none of these; "number too large" beyond the limit. An exponent that
  ///   leads there is not built.
  static QNumber from_text(std::string_view text, unsigned long limit = max_bits);

  /// n * 2^k, n and k other than -2^63: small when both parts fit words.
  /// \throws Exception "number too large".
  static QNumber scaled(long n, long k) {
    const auto magnitude = static_cast<unsigned long>(detail::magnitude(n));
    const long zeros = std::countr_zero(magnitude);
    const long cancelled = k >= 0 ? 0 : zeros < -k ? zeros : -k;
    const long numerator = n >> (cancelled & 63);
    const long exponent = k + cancelled;
    QNumber q;
    if (n == 0 || (exponent <= 0 && exponent >= -62)) {
      q.num = numerator;
      q.den = n == 0 ? 1 : 1L << -exponent;
    } else if (exponent > 0 && exponent < std::countl_zero(magnitude)) {
      q.num = n * (1L << exponent);
    } else {
      const auto limb = static_cast<mp_limb_t>(detail::magnitude(numerator));
      q.init_scaled(&limb, 1, n < 0, exponent);
    }
    return q;
  }

  /// The same for an integer in limbs; big unless the one limb fits a word.
  /// \param limbs the magnitude, the lowest limb first and the highest not 0
  /// \param n the number of limbs
  /// \param negative whether the number is below 0
  /// \param k the power of two
  static QNumber scaled(const mp_limb_t* limbs, long n, bool negative, long k);

  /// Same value, same form.
  QNumber(const QNumber& other) : QNumber() {
    if (other.is_small()) {
      num = other.num;
      den = other.den;
    } else {
      assign_big(other);
    }
  }

  /// Takes the source's form and storage; the source is 0.
  QNumber(QNumber&& other) noexcept : QNumber() { take(other); }

  /// The target takes the value: small when both are small, big otherwise.
  QNumber& operator=(const QNumber& other) {
    if (is_small() && other.is_small()) {
      num = other.num;
      den = other.den;
    } else {
      assign_big(other);
    }
    return *this;
  }

  /// Value and form as by copy assignment; the storage of a big source is taken over. The
  /// source is 0 (and, on self-assignment, what it was).
  QNumber& operator=(QNumber&& other) noexcept {
    if (is_small() && other.is_small()) {
      const long n = std::exchange(other.num, 0);
      const long d = std::exchange(other.den, 1);
      num = n;
      den = d;
    } else {
      move_big(other);
    }
    return *this;
  }

  ~QNumber() {
    if (!is_small()) {
      release();
    }
  }

  /// Adds.
  QNumber& operator+=(const QNumber& other) {
    if (!(is_small() && other.is_small() && add_small<detail::add_checked>(other))) {
      add_big(other, false);
    }
    return *this;
  }

  /// Subtracts.
  QNumber& operator-=(const QNumber& other) {
    if (!(is_small() && other.is_small() && add_small<detail::sub_checked>(other))) {
      add_big(other, true);
    }
    return *this;
  }

  /// Adds a word.
  QNumber& operator+=(long n) { return *this += QNumber(n); }
  /// Adds an integer of any other type that makes a number.
  template <detail::other_integer T>
  QNumber& operator+=(T n) {
    return *this += QNumber(n);
  }
  /// Other types, though they convert to words, are refused.
  template <detail::no_number T>
  QNumber& operator+=(const T& n) = delete;

  /// Subtracts a word.
  QNumber& operator-=(long n) { return *this -= QNumber(n); }
  /// Subtracts an integer of any other type that makes a number.
  template <detail::other_integer T>
  QNumber& operator-=(T n) {
    return *this -= QNumber(n);
  }
  /// Other types are refused.
  template <detail::no_number T>
  QNumber& operator-=(const T& n) = delete;

  /// Multiplies. A big target that is not an integer becomes small when multiplied by a small 0.
  QNumber& operator*=(const QNumber& other) {
    if (!(is_small() && other.is_small() && multiply_small(other))) {
      multiply_big(other);
    }
    return *this;
  }

  /// Divides: `*=` by the inverse.
  /// \throws Exception "division by zero" when other is 0.
  QNumber& operator/=(const QNumber& other) { return *this *= other.inv(); }

  /// 1/this, in this number's form.
  /// \throws Exception "division by zero" when this is 0.
  QNumber inv() const;

  /// Divides the numerator by d's numerator (both are meant to be integers). Small when both
  /// operands are small (a big target stays big), big otherwise. q and r may be the operands, but
  /// must be two objects.
  /// \param d the divisor
  /// \param q takes the quotient rounded toward minus infinity
  /// \param r takes the remainder, which has the divisor's sign
  /// \throws Exception "division by zero" when d is 0; q and r are then unchanged.
  void divmod(const QNumber& d, QNumber& q, QNumber& r) const;

  /// The numerator as an integer.
  QNumber get_num() const { return is_small() ? QNumber(num) : big_num(); }
  /// The denominator, above 0, as an integer.
  QNumber get_den() const { return is_small() ? QNumber(den) : big_den(); }

  /// The value as a GMP rational.
  mpq_class to_mpq() const;

  /// Decimal text, always in base 10: 5, -7/4.
  std::string to_string() const;

  /// The same for equal numbers, whatever their forms.
  std::size_t hash() const noexcept;

  /// True for the machine-word form, false for the GMP form.
  bool is_small() const { return den != 0; }

  /// Whether this is 0.
  bool is_zero() const { return sign() == 0; }

  /// -1, 0 or 1.
  int sign() const { return is_small() ? (num > 0) - (num < 0) : mpz_sgn(mpq_numref(gmp)); }

  /// Whether the denominator is 1.
  bool is_integer() const {
    return is_small() ? den == 1
                      : mpz_size(mpq_denref(gmp)) == 1 && mpz_getlimbn(mpq_denref(gmp), 0) == 1;
  }

  /// True for the integers of [-(2^63 - 1), 2^63 - 1], in either form.
  bool fits_long() const { return is_small() ? den == 1 : is_integer() && big_fits_long(); }

  /// The value as a word; requires `fits_long()`.
  long to_long() const { return is_small() ? num : mpz_get_si(mpq_numref(gmp)); }

  /// Flips the sign and keeps the form.
  void self_neg() {
    if (is_small()) {
      num = -num;
    } else {
      mpq_numref(gmp)->_mp_size = -mpq_numref(gmp)->_mp_size;
    }
  }

  /// Brings the stored pair to lowest terms with a positive denominator; keeps the form.
  void normalize();

  /// Becomes small if both parts fit words.
  void shrink() noexcept;

 private:
  friend class BVNumber;
  friend detail::Parts;
  friend bool operator==(const QNumber& a, const QNumber& b);
  friend bool operator<(const QNumber& a, const QNumber& b);
  friend QNumber pow(const QNumber& q, const QNumber& n);

  // A big number begins as one block: the rational, and the limbs of both parts behind it. A part
  // there has no storage of its own (`_mp_alloc` is 0, as `mpz_roinit_n` leaves it), and before
  // GMP may write it, it must have. Either way there is room for a limb, so that to take a word
  // needs no memory. The fields are those of "Integer Internals" in GMP's manual.

  void init_big(bool negative, unsigned long magnitude);
  void init_wide(bool negative, detail::unsigned_int128 magnitude);
  void init_ratio(mpz_srcptr n, mpz_srcptr d);
  void init_scaled(const mp_limb_t* limbs, long n, bool negative, long k);
  void assign_big(const QNumber& other);
  ZELK_HIDDEN void assign_small_in_place(const QNumber& other) noexcept;
  void move_big(QNumber& other) noexcept;
  // Moves value and storage of other into this small number.
  void take(QNumber& other) noexcept {
    if (other.is_small()) {
      num = other.num;
    } else {
      gmp = other.gmp;
    }
    den = std::exchange(other.den, 1);
    other.num = 0;
  }
  // Becomes a small 0.
  void clear() noexcept {
    if (!is_small()) {
      release();
    }
    num = 0;
    den = 1;
  }
  void release() noexcept;

  // Makes this small number big: write(n, d) sets the so many limbs of each part and returns
  // whether the number is negative.
  template <class Write>
  void init_parts(std::size_t num_limbs, std::size_t den_limbs, Write write);
  // A big 0 whose numerator has room for so many limbs.
  ZELK_HIDDEN static QNumber big_zero(std::size_t limbs);
  // The numerator, once this number has the big form and room for so many limbs there. An integer
  // keeps its value, and every number its form when there is no memory; a small fraction must be
  // overwritten.
  ZELK_HIDDEN mpz_ptr room(std::size_t limbs);
  // Of a big number: room for a denominator; its new value, |d| or d, for which there is room.
  ZELK_HIDDEN void reserve_den(std::size_t limbs);
  ZELK_HIDDEN void set_den(mpz_srcptr d) noexcept;
  ZELK_HIDDEN void set_den(unsigned long d) noexcept;
  // Becomes n/|d|, big; the other's n may get the storage of the old numerator.
  ZELK_HIDDEN void assign_ratio(mpz_srcptr n, mpz_srcptr d);
  ZELK_HIDDEN void take_ratio(mpz_ptr n, mpz_srcptr d);

  detail::Operand numerator() const {
    return is_small() ? detail::Operand(num) : detail::Operand(mpq_numref(gmp));
  }
  detail::Operand denominator() const {
    return is_small() ? detail::Operand(den) : detail::Operand(mpq_denref(gmp));
  }

  bool big_fits_long() const;
  ZELK_HIDDEN static QNumber big_part(mpz_srcptr z);
  QNumber big_num() const;
  QNumber big_den() const;

  template <auto checked>
  ZELK_HIDDEN bool add_small(const QNumber& other);
  bool multiply_small(const QNumber& other);
  void add_big(const QNumber& other, bool subtract);
  void multiply_big(const QNumber& other);
  static int compare_big(const QNumber& a, const QNumber& b);

  // Throws "number too large" for a number of more than max_bits bits.
  ZELK_HIDDEN static void require_bits(unsigned long bits);

  // den != 0: the small form num/den. den == 0: the big form, and this object owns *gmp.
  union {
    long num;
    mpq_ptr gmp;
  };
  long den;
};

// a/b +- p/q with g = gcd(b, q): the sum N of p * (b/g) and a * (q/g), over b * (q/g), can have
// only a divisor of g in common with its denominator, so that h = gcd(N, g) completes the
// reduction (Knuth, The Art of Computer Programming, volume 2, 4.5.1).
template <auto checked>
bool QNumber::add_small(const QNumber& other) {
  long n = 0;
  if (den == 1 && other.den == 1) {
    if (!checked(num, other.num, n)) {
      return false;
    }
    num = n;
    return true;
  }
  const long g = detail::gcd(den, other.den);
  const long b = detail::divide_exactly(den, g);
  const long q = detail::divide_exactly(other.den, g);
  long t = 0;
  long u = 0;
  if (!detail::mul_checked(other.num, b, t) || !detail::mul_checked(num, q, u) ||
      !checked(u, t, n)) {
    return false;
  }
  const long h = g == 1 ? 1 : detail::gcd(detail::magnitude(n), g);
  long d = 0;
  if (!detail::mul_checked(b, detail::divide_exactly(other.den, h), d)) {
    return false;
  }
  num = detail::divide_exactly(n, h);
  den = d;
  return true;
}

inline bool QNumber::multiply_small(const QNumber& other) {
  long n = 0;
  if (den == 1 && other.den == 1) {
    if (!detail::mul_checked(num, other.num, n)) {
      return false;
    }
    num = n;
    return true;
  }
  const long g = detail::gcd(detail::magnitude(num), other.den);
  const long h = detail::gcd(detail::magnitude(other.num), den);
  long d = 0;
  if (detail::mul_checked(num, other.num, n) && detail::mul_checked(den, other.den, d)) {
    n = detail::divide_exactly(n, g * h);  // fewer divisions than cancelling first
    d = detail::divide_exactly(d, g * h);
  } else if (!detail::mul_checked(num / g, other.num / h, n) ||
             !detail::mul_checked(den / h, other.den / g, d)) {
    return false;
  }
  num = n;
  den = d;
  return true;
}

/// Whether the values agree, whatever the forms.
inline bool operator==(const QNumber& a, const QNumber& b) {
  if (a.is_small() && b.is_small()) {
    return a.num == b.num && a.den == b.den;
  }
  return QNumber::compare_big(a, b) == 0;
}

/// Whether a is less than b.
inline bool operator<(const QNumber& a, const QNumber& b) {
  if (a.is_small() && b.is_small()) {
    if (a.den == b.den) {
      return a.num < b.num;
    }
    return static_cast<detail::int128>(a.num) * b.den < static_cast<detail::int128>(b.num) * a.den;
  }
  return QNumber::compare_big(a, b) < 0;
}

/// b < a.
inline bool operator>(const QNumber& a, const QNumber& b) { return b < a; }
/// Not b < a.
inline bool operator<=(const QNumber& a, const QNumber& b) { return !(b < a); }
/// Not a < b.
inline bool operator>=(const QNumber& a, const QNumber& b) { return !(a < b); }

/// The sum.
inline QNumber operator+(QNumber a, const QNumber& b) {
  a += b;
  return a;
}

/// The difference.
inline QNumber operator-(QNumber a, const QNumber& b) {
  a -= b;
  return a;
}

/// The product.
inline QNumber operator*(QNumber a, const QNumber& b) {
  a *= b;
  return a;
}

/// The quotient.
/// \throws Exception "division by zero" when b is 0.
inline QNumber operator/(QNumber a, const QNumber& b) {
  a /= b;
  return a;
}

/// The number less a word.
inline QNumber operator-(const QNumber& a, long n) { return a - QNumber(n); }
/// The same for any other type of integers.
template <detail::other_integer T>
QNumber operator-(const QNumber& a, T n) {
  return a - QNumber(n);
}
/// Other types are refused.
template <std::same_as<QNumber> Q, detail::no_number T>
QNumber operator-(const Q& a, const T& n) = delete;

/// The negated number.
inline QNumber operator-(QNumber a) {
  a.self_neg();
  return a;
}

// The results of what follows are small if both parts fit words.

/// What `divmod` leaves of the integer a over the integer b: it has the sign of b.
/// \throws Exception "number is not an integer: <n>"; "division by zero" when b is 0.
ZELK_EXPORT QNumber operator%(const QNumber& a, const QNumber& b);

/// The magnitude.
ZELK_EXPORT QNumber abs(QNumber q);

/// The greatest integer that is not above q.
ZELK_EXPORT QNumber floor(const QNumber& q);
/// The least integer that is not below q.
ZELK_EXPORT QNumber ceil(const QNumber& q);

/// q^n for an integer n, also a negative one; q^0 is 1 for every q.
/// \throws Exception "exponent is not an integer: <n>"; "division by zero" when q is 0 and n is
///   negative; "number too large".
ZELK_EXPORT QNumber pow(const QNumber& q, const QNumber& n);

/// Writes `to_string()`.
ZELK_EXPORT std::ostream& operator<<(std::ostream& os, const QNumber& q);

}  // namespace zelk

/// Numbers as keys.
template <>
struct std::hash<zelk::QNumber> {
  /// `q.hash()`.
  std::size_t operator()(const zelk::QNumber& q) const noexcept { return q.hash(); }
};

#endif  // ZELK_NUMBERS_QNUMBER_H_
