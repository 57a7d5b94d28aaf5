// Exact arithmetic on words, as the small form of numbers needs it: operations that test for
// overflow, and greatest common divisors.
#ifndef ZELK_NUMBERS_WORD_ARITHMETIC_H_
#define ZELK_NUMBERS_WORD_ARITHMETIC_H_

#include <bit>
#include <concepts>
#include <limits>
#include <type_traits>

#include "zelk/base/export.h"
#include "zelk/base/machine.h"

namespace zelk {

/// Entry [x][y] is gcd(x, y), or 0 while that is not known yet. Threads read and write entries at
/// the same time, as relaxed atomics.
extern ZELK_EXPORT long gcd_cache[1024][1024];

namespace detail {

template <typename T, typename... Others>
concept one_of = (std::same_as<T, Others> || ...);

/// The signed and unsigned integer types of at most 64 bits; not bool and not characters.
template <typename T>
concept standard_integer = one_of < std::remove_cv_t<T>,
signed char, short, int, long, long long, unsigned char, unsigned short, unsigned int,
    unsigned long, unsigned long long > ;

__extension__ using int128 = __int128;
__extension__ using unsigned_int128 = unsigned __int128;

/// Those of 128 bits.
template <typename T>
concept wide_integer = one_of<std::remove_cv_t<T>, int128, unsigned_int128>;

inline constexpr long word_max = std::numeric_limits<long>::max();

// The checked operations below are false when the exact result is outside
// [-word_max, word_max]; -2^63 counts as outside, so that negation never overflows.

#ifdef ZELK_EXTENSIONS
inline bool add_checked(long a, long b, long& r) {
  return !__builtin_add_overflow(a, b, &r) && r != -word_max - 1;
}
inline bool sub_checked(long a, long b, long& r) {
  return !__builtin_sub_overflow(a, b, &r) && r != -word_max - 1;
}
inline bool mul_checked(long a, long b, long& r) {
  return !__builtin_mul_overflow(a, b, &r) && r != -word_max - 1;
}
#else
inline bool fits_word(int128 exact, long& r) {
  r = static_cast<long>(exact);
  return -word_max <= exact && exact <= word_max;
}
inline bool add_checked(long a, long b, long& r) { return fits_word(int128{a} + b, r); }
inline bool sub_checked(long a, long b, long& r) { return fits_word(int128{a} - b, r); }
inline bool mul_checked(long a, long b, long& r) { return fits_word(int128{a} * b, r); }
#endif

inline long magnitude(long a) { return a < 0 ? -a : a; }

/// Computes gcd(x, y), 0 <= x, y <= 1023, and enters it into the table both ways.
ZELK_EXPORT long fill_gcd_cache(long x, long y);

/// a/b for a divisor b > 0 of a, mostly 1: dividing is what costs.
inline long divide_exactly(long a, long b) { return b == 1 ? a : a / b; }

inline long small_gcd(unsigned long x, unsigned long y) {
  const long known = __atomic_load_n(&gcd_cache[x][y], __ATOMIC_RELAXED);
  return known != 0 ? known : fill_gcd_cache(static_cast<long>(x), static_cast<long>(y));
}

/// The greatest common divisor of a, b >= 0; gcd(x, 0) = x.
///
/// Small operands are looked up. Of others one step of Euclid's algorithm brings both to one size;
/// then both are made odd, and their difference, which is even, loses its twos until both are below
/// 1024, where the table ends it (D. E. Knuth, The Art of Computer Programming, volume 2, 4.5.2,
/// algorithm B).
inline long gcd(long a, long b) {
  if ((a | b) < 1024) {
    return small_gcd(static_cast<unsigned long>(a), static_cast<unsigned long>(b));
  }
  auto x = static_cast<unsigned long>(a < b ? b : a);
  auto y = static_cast<unsigned long>(a < b ? a : b);
  if (y == 0) {
    return static_cast<long>(x);
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

}  // namespace detail

}  // namespace zelk

#endif  // ZELK_NUMBERS_WORD_ARITHMETIC_H_
