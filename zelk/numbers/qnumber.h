// Exact rational numbers: two machine words while they fit, a GMP rational when they do not.
//
// Every operation is exact. Small-form arithmetic is inline, allocates nothing and tests for
// overflow before it writes; the big form is in the source file. The scratch integers, the storage
// of a few numbers that are gone and the table of greatest common divisors belong to the whole
// process and have no lock: one thread at a time.
#ifndef ZELK_NUMBERS_QNUMBER_H_
#define ZELK_NUMBERS_QNUMBER_H_

#include <gmpxx.h>

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstring>
#include <iosfwd>
#include <limits>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

#include "zelk/base/export.h"

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

/// Entry [x][y] is gcd(x, y), or 0 while that is not known yet.
extern ZELK_EXPORT long gcd_cache[1024][1024];

static_assert(sizeof(long) == 8 && GMP_NUMB_BITS == 64, "zelk needs 64-bit longs and GMP limbs");

namespace detail {

template <typename T, typename... Others>
concept one_of = (std::same_as<T, Others> || ...);

/// The signed and unsigned integer types of at most 64 bits; not bool and not characters.
template <typename T>
concept standard_integer = one_of < std::remove_cv_t<T>,
signed char, short, int, long, long long, unsigned char, unsigned short, unsigned int,
    unsigned long, unsigned long long > ;

inline constexpr long word_max = std::numeric_limits<long>::max();

// The checked operations below are false when the exact result is outside
// [-word_max, word_max]; -2^63 counts as outside, so that negation never overflows.

inline bool add_checked(long a, long b, long& r) {
  return !__builtin_add_overflow(a, b, &r) && r != -word_max - 1;
}

inline bool sub_checked(long a, long b, long& r) {
  return !__builtin_sub_overflow(a, b, &r) && r != -word_max - 1;
}

inline bool mul_checked(long a, long b, long& r) {
  return !__builtin_mul_overflow(a, b, &r) && r != -word_max - 1;
}

inline long magnitude(long a) { return a < 0 ? -a : a; }

/// Computes gcd(x, y), 1 <= x, y <= 1023, and enters it into the table both ways.
ZELK_EXPORT long fill_gcd_cache(long x, long y);

/// a/b for a divisor b > 0 of a, mostly 1: dividing is what costs.
inline long divide_exactly(long a, long b) { return b == 1 ? a : a / b; }

inline long small_gcd(unsigned long x, unsigned long y) {
  const long known = gcd_cache[x][y];
  return known != 0 ? known : fill_gcd_cache(static_cast<long>(x), static_cast<long>(y));
}

/// The greatest common divisor of a, b >= 0; gcd(x, 0) = x.
///
/// One step of Euclid's algorithm brings the operands to one size; then both are made odd, and
/// their difference, which is even, loses its twos until both are below 1024, where the table
/// ends it (D. E. Knuth, The Art of Computer Programming, volume 2, 4.5.2, algorithm B).
inline long gcd(long a, long b) {
  auto x = static_cast<unsigned long>(a < b ? b : a);
  auto y = static_cast<unsigned long>(a < b ? a : b);
  if (y == 0) {
    return static_cast<long>(x);
  }
  if (x < 1024) {
    return small_gcd(x, y);
  }
  x %= y;
  if (x == 0) {
    return static_cast<long>(y);
  }
  const int twos = std::countr_zero(x | y);
  x >>= std::countr_zero(x);
  y >>= std::countr_zero(y);
  while ((x | y) >= 1024) {
    const auto difference = static_cast<long>(x - y);
    if (difference == 0) {
      return static_cast<long>(y << twos);
    }
    y = x < y ? x : y;
    x = static_cast<unsigned long>(magnitude(difference)) >>
        std::countr_zero(static_cast<unsigned long>(difference));
  }
  return small_gcd(x, y) << twos;
}

/// Keeps the GMP scratch integers alive while any file that includes this header needs them.
class ZELK_EXPORT ScratchUser {
 public:
  ScratchUser() noexcept;
  ScratchUser(const ScratchUser&) = delete;
  ScratchUser& operator=(const ScratchUser&) = delete;
  ~ScratchUser();
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
    num = static_cast<long>(n);  // NOLINT(bugprone-signed-char-misuse,cert-str34-c): a number
    if (!std::in_range<long>(n) || num == -detail::word_max - 1) {
      init_big(n < T{0},
               n < T{0} ? 0UL - static_cast<unsigned long>(n) : static_cast<unsigned long>(n));
    }
  }

  /// Truth values, characters and floating-point numbers are not taken for integers.
  template <typename T>
  requires(std::is_arithmetic_v<T> && !detail::standard_integer<T>) QNumber(T)
  = delete;

  /// The value of q, not necessarily canonical: small when both parts fit a signed 32-bit int.
  /// \throws Exception "division by zero" when the denominator is 0; "number too large".
  explicit QNumber(const mpq_class& q) : QNumber(q.get_num(), q.get_den()) {}

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
  /// \throws Exception "invalid number at position <p>: <text>", where from position p on, counted
  ///   from 0, the text is none of these; "number too large".
  static QNumber from_text(std::string_view text);

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
      q.init_scaled(numerator, exponent);
    }
    return q;
  }

  /// The same for n limbs, the lowest first and the highest not 0; big unless the one limb fits a
  /// word.
  static QNumber scaled(const mp_limb_t* limbs, long n, bool negative, long k);

  /// Same value, same form.
  QNumber(const QNumber& other) : QNumber() {
    if (other.is_small()) {
      num = other.num;
      den = other.den;
    } else {
      init_copy(other);
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

  /// Numbers on the heap start where others ended: a few of those places are kept.
  // NOLINTNEXTLINE(cert-dcl54-cpp): the delete that takes a size matches
  static void* operator new(std::size_t size) {
    return size == sizeof(QNumber) && spare_places != nullptr ? take_spare_place() : allocate(size);
  }
  /// Keeps the place, if there are not enough of them yet.
  static void operator delete(void* place, std::size_t size) noexcept;
  /// The form that does not throw, which the first would hide.
  static void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept {
    return ::operator new(size, tag);
  }
  /// Placement, which it would hide, too.
  static void* operator new(std::size_t /*size*/, void* place) noexcept { return place; }

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

  /// Multiplies. A big target that is not an integer becomes small when multiplied by a small 0.
  QNumber& operator*=(const QNumber& other) {
    if (!(is_small() && other.is_small() && multiply_small(other))) {
      multiply_big(other);
    }
    return *this;
  }

  /// 1/this, in this number's form.
  /// \throws Exception "division by zero" when this is 0.
  QNumber inv() const;

  /// Divides the numerator by d's numerator (both are meant to be integers): q := the quotient
  /// rounded toward minus infinity, r := the remainder, which has the divisor's sign. Small
  /// when both operands are small (a big target stays big), big otherwise. q and r may be the
  /// operands, but must be two objects.
  /// \throws Exception "division by zero" when d is 0; q and r are then unchanged.
  void divmod(const QNumber& d, QNumber& q, QNumber& r) const;

  /// The numerator as an integer.
  QNumber get_num() const { return is_small() ? QNumber(num) : big_num(); }
  /// The denominator, above 0, as an integer.
  QNumber get_den() const { return is_small() ? QNumber(den) : big_den(); }

  /// The value as a GMP rational.
  mpq_class to_mpq() const;

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
      mpz_neg(mpq_numref(gmp), mpq_numref(gmp));
    }
  }

  /// Becomes the integer n; takes the form that assignment would give it.
  void assign(unsigned long n) {
    if (is_small() && n <= static_cast<unsigned long>(detail::word_max)) [[likely]] {
      num = static_cast<long>(n);
      den = 1;
    } else {
      assign_big(n);
    }
  }

  /// The numerator of a small number.
  long to_small() const { return num; }

  /// Replaces the numerator, where this is a small integer; n is not -2^63.
  void assign_small(long n) { num = n; }

  // What arithmetic on the limbs of integers needs. Fields as the GMP manual gives them under
  // "Integer Internals": for a few limbs calls cost more than the work.

  /// The limbs of a big number's numerator, the lowest first, until that changes.
  const mp_limb_t* big_limbs() const { return mpq_numref(gmp)->_mp_d; }
  /// How many they are.
  long big_size() const { return static_cast<long>(mpz_size(mpq_numref(gmp))); }

  /// The limbs of this non-negative integer if it is big and has n of them at least; else null.
  [[gnu::always_inline]] const mp_limb_t* limbs_from(int n) const {
    return !is_small() && mpq_numref(gmp)->_mp_size >= n ? not_null(mpq_numref(gmp)->_mp_d)
                                                         : nullptr;
  }

  /// The storage of this integer, of n limbs at least, to be overwritten; null when it has none.
  /// `keep_limbs` ends that: this number becomes the integer of the n limbs now there.
  [[gnu::always_inline]] mp_limb_t* own_limbs(long n) {
    return !is_small() && mpq_numref(gmp)->_mp_alloc >= n ? not_null(mpq_numref(gmp)->_mp_d)
                                                          : nullptr;
  }
  /// Ends what `own_limbs` began: this number is the integer of the n limbs there.
  [[gnu::always_inline]] void keep_limbs(long n) {
    mpz_ptr z = mpq_numref(gmp);
    while (n > 0 && z->_mp_d[n - 1] == 0) {
      --n;
    }
    z->_mp_size = static_cast<int>(n);
  }

  /// The low 64 bits of this non-negative integer, without a branch on its form.
  unsigned long to_word() const {
    mpz_srcptr z = mpq_numref(gmp_or_none());
    const auto small = static_cast<unsigned long>(is_small());
    const auto used = static_cast<unsigned long>(z->_mp_size != 0);
    return (first_word() & (0 - small)) | (z->_mp_d[0] & (0 - used));
  }

  /// Takes the value of a non-negative integer below 2^64 where this integer is big and has
  /// storage, without a branch on the other's form; false, and nothing done, otherwise.
  bool assign_word_in_place(const QNumber& other) {
    if (is_small() || mpq_numref(gmp)->_mp_alloc == 0) {
      return false;
    }
    mpz_ptr to = mpq_numref(gmp);
    to->_mp_d[0] = other.to_word();
    to->_mp_size = static_cast<int>(to->_mp_d[0] != 0);
    return true;
  }

  /// The same for any non-negative integer that is big; false also for others.
  bool assign_in_place(const QNumber& other) {
    if (is_small() || other.is_small()) {
      return false;
    }
    mpz_ptr to = mpq_numref(gmp);
    mpz_srcptr from = mpq_numref(other.gmp);
    const int n = from->_mp_size;
    if (n < 0 || to->_mp_alloc < n) {
      return false;
    }
    to->_mp_size = n;
    if (n > 8) {
      copy_limbs(to->_mp_d, from->_mp_d, n);
      return true;
    }
    for (int i = 0; i < n; ++i) {
      to->_mp_d[i] = from->_mp_d[i];
    }
    return true;
  }

  /// Becomes the integer low + 2^64 * high, by the same rule.
  void assign(unsigned long low, unsigned long high) {
    const mp_limb_t limbs[] = {low, high};
    assign_limbs(limbs, 2);
  }
  /// The same for a number that is an integer.
  void assign_to_integer(unsigned long low, unsigned long high) {
    if (mp_limb_t* own = high != 0 ? own_limbs(2) : nullptr; own != nullptr) [[likely]] {
      own[0] = low;
      own[1] = high;
      mpq_numref(gmp)->_mp_size = 2;
    } else {
      assign(low, high);
    }
  }

  /// Becomes the integer of n > 0 limbs, the lowest first, by the same rule.
  void assign_limbs(const mp_limb_t* limbs, long n);

  /// Becomes 0 in the small form and gives up its GMP storage.
  void reset() noexcept {
    if (!is_small()) {
      release();
    }
    num = 0;
    den = 1;
  }

  /// Brings the stored pair to lowest terms with a positive denominator; keeps the form.
  void normalize();

 private:
  friend class BVNumber;
  friend class detail::ScratchUser;
  friend bool operator==(const QNumber& a, const QNumber& b);
  friend bool operator<(const QNumber& a, const QNumber& b);
  friend std::ostream& operator<<(std::ostream& os, const QNumber& q);

  void init_big(bool negative, unsigned long magnitude);
  void init_ratio(mpz_srcptr n, mpz_srcptr d);
  void init_scaled(long n, long k);
  void init_copy(const QNumber& other);
  void assign_big(const QNumber& other);
  void assign_big(mpz_srcptr integer);
  void assign_big(unsigned long n);
  void move_big(QNumber& other) noexcept;
  void make_big();
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
  void release() noexcept;
  // Tells the compiler what it cannot know of GMP's integers.
  static mp_limb_t* not_null(mp_limb_t* limbs) {
    if (limbs == nullptr) {
      __builtin_unreachable();
    }
    return limbs;
  }
  // Copies the limbs of one number to another, or to itself. Those of a few dozen go in pieces that
  // lie where the pieces of the next reader do: the processor has them at hand then.
  static void copy_limbs(mp_limb_t* to, const mp_limb_t* from, int n) {
    using Piece [[gnu::vector_size(2 * sizeof *to)]] = mp_limb_t;
    if (n > 64) {
      std::memmove(to, from, static_cast<std::size_t>(n) * sizeof *to);
      return;
    }
    int i = 0;
    for (; i + 4 <= n; i += 4) {
      Piece first;
      Piece second;
      std::memcpy(&first, from + i, sizeof first);
      std::memcpy(&second, from + i + 2, sizeof second);
      std::memcpy(to + i, &first, sizeof first);
      std::memcpy(to + i + 2, &second, sizeof second);
    }
    for (; i < n; ++i) {
      to[i] = from[i];
    }
  }
  static void* allocate(std::size_t size);
  static void* take_spare_place() noexcept {
    --spare_place_count;
    return std::exchange(spare_places, spare_places->next);
  }
  // What is in the first word, `num` or `gmp`.
  unsigned long first_word() const {
    unsigned long word = 0;
    std::memcpy(&word, &num, sizeof word);
    return word;
  }
  // *gmp; for a small number a 0. The form of 64-bit patterns goes by a value's sign, as good as
  // random to a branch predictor: an index chooses.
  mpq_srcptr gmp_or_none() const {
    const mpq_srcptr forms[] = {std::bit_cast<mpq_srcptr>(first_word()), &none};
    return forms[is_small()];
  }
  bool big_fits_long() const;
  QNumber big_num() const;
  QNumber big_den() const;

  template <auto checked>
  bool add_small(const QNumber& other);
  bool multiply_small(const QNumber& other);
  void add_big(const QNumber& other, bool subtract);
  void multiply_big(const QNumber& other);
  static int compare_big(const QNumber& a, const QNumber& b);

  // Throws "number too large" for a number of more than max_bits bits.
  static void require_bits(unsigned long bits);

  static const __mpq_struct none;

  // Scratch of single operations, meaningless between them.
  static mpz_t gmp_tmp[4];

  // Places on the heap whose numbers are gone.
  struct SparePlace {
    SparePlace* next;
  };
  static SparePlace* spare_places;
  static int spare_place_count;

  // den != 0: the small form num/den. den == 0: the big form, and this object owns *gmp.
  union {
    long num;
    mpq_ptr gmp;
  };
  long den;
};

namespace detail {
// One in each file that includes this header, built before all static objects of ordinary
// priority and destroyed after them, so that they may compute in constructors and destructors.
[[gnu::init_priority(101)]] static const ScratchUser scratch_user;
}  // namespace detail

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
    __extension__ using wide = __int128;
    return static_cast<wide>(a.num) * b.den < static_cast<wide>(b.num) * a.den;
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
  a *= b.inv();
  return a;
}

/// The negated number.
inline QNumber operator-(QNumber a) {
  a.self_neg();
  return a;
}

/// Decimal text, always in base 10: 5, -7/4.
ZELK_EXPORT std::ostream& operator<<(std::ostream& os, const QNumber& q);

}  // namespace zelk

#endif  // ZELK_NUMBERS_QNUMBER_H_
