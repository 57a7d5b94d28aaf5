// Unsigned integers of one and of two words: the few operations that rounded arithmetic needs,
// spelt so that compilers make no branch of what is as good as random to a branch predictor.
#ifndef ZELK_WORDS_INTEGERS_H_
#define ZELK_WORDS_INTEGERS_H_

#include <algorithm>
#include <bit>
#include <cstdint>
#include <type_traits>

#include "zelk/base/machine.h"
#include "zelk/words/shape.h"

#ifdef ZELK_X86_64
#include <immintrin.h>
#endif

namespace zelk::words {

constexpr std::uint64_t low_word(uint128 a) { return static_cast<std::uint64_t>(a); }
constexpr std::uint64_t high_word(uint128 a) { return static_cast<std::uint64_t>(a >> 64); }
constexpr uint128 double_word(std::uint64_t high, std::uint64_t low) {
  return uint128{high} << 64 | low;
}

using Carry = unsigned char;

// x + y + carry; `carry` becomes what leaves the word.
inline std::uint64_t add_word(std::uint64_t x, std::uint64_t y, Carry& carry) {
#ifdef ZELK_X86_64
  unsigned long long sum = 0;
  carry = _addcarry_u64(carry, x, y, &sum);
  return sum;
#else
  const uint128 sum = uint128{x} + y + carry;
  carry = static_cast<Carry>(sum >> 64);
  return low_word(sum);
#endif
}

// x - y - borrow; `borrow` becomes what is missing.
inline std::uint64_t subtract_word(std::uint64_t x, std::uint64_t y, Carry& borrow) {
#ifdef ZELK_X86_64
  unsigned long long difference = 0;
  borrow = _subborrow_u64(borrow, x, y, &difference);
  return difference;
#else
  const uint128 difference = uint128{x} - y - borrow;
  borrow = static_cast<Carry>(difference >> 64 & 1);
  return low_word(difference);
#endif
}

// Masks come from 64-bit integers: of wider ones compilers make branches.
template <class W>
constexpr W mask_if(bool condition) {
  return static_cast<W>(Signed<W>{-static_cast<std::int64_t>(condition)});
}

// The place of the highest one of a nonzero word.
constexpr std::int64_t highest_bit(std::uint64_t a) {
#ifdef ZELK_EXTENSIONS
  return 63U ^ static_cast<unsigned>(__builtin_clzl(a));
#else
  return 63 - std::countl_zero(a);
#endif
}

// a * 2^n and a / 2^n for 0 <= n < 64. In double words these are written out: the processor's
// shifts of two words are slow.
constexpr std::uint64_t shift_left(std::uint64_t a, std::int64_t n) { return a << n; }
constexpr std::uint64_t shift_right(std::uint64_t a, std::int64_t n) { return a >> n; }
constexpr uint128 shift_left(uint128 a, std::int64_t n) {
  const std::uint64_t low = low_word(a);
  return double_word(high_word(a) << n | low >> 1 >> (63 - n), low << n);
}
constexpr uint128 shift_right(uint128 a, std::int64_t n) {
  const std::uint64_t high = high_word(a);
  return double_word(high >> n, low_word(a) >> n | high << 1 << (63 - n));
}

// a + n * 2^k. In double words k is 64 at least, and only the high word changes.
constexpr std::uint64_t plus_scaled(std::uint64_t a, std::int64_t n, std::int64_t k) {
  return a + (static_cast<std::uint64_t>(n) << k);
}
constexpr uint128 plus_scaled(uint128 a, std::int64_t n, std::int64_t k) {
  return double_word(plus_scaled(high_word(a), n, k - 64), low_word(a));
}

// sig / 2^n with the lost digits jammed into the lowest bit, which is sticky; n is not negative,
// and the highest bit of sig is clear.
constexpr std::uint64_t shift_right_jam(std::uint64_t sig, std::int64_t n) {
  n = std::min<std::int64_t>(n, 63);
  const std::uint64_t kept = sig >> n;
  return kept | std::uint64_t{kept << n != sig};
}
constexpr uint128 shift_right_jam(uint128 sig, std::int64_t n) {
  n = std::min<std::int64_t>(n, 127);
  const std::int64_t k = n & 63;
  const uint128 kept = shift_right(sig, k);
  const std::uint64_t lost = low_word(sig) << 1 << (63 - k);
  // Whether a whole word goes as well is as good as random to a branch predictor.
  const auto far = mask_if<std::uint64_t>(n >= 64);
  const std::uint64_t low = low_word(kept);
  const std::uint64_t high = high_word(kept);
  return double_word(high & ~far, (high & far) | (low & ~far)) |
         std::uint64_t{(lost | (low & far)) != 0};
}

// Where a significand has its leading bit when it is rounded, whatever the format: one place above
// takes the carry. The bits below the format's last place decide on rounding; bit 0 is sticky: it
// also stands for every nonzero digit dropped beneath it.
template <class W>
inline constexpr int lead = 8 * sizeof(W) - 2;

// A nonzero significand with its leading bit moved up to `lead`, and where that bit was.
template <class W>
struct Normalized {
  W sig;
  std::int64_t top;
};
constexpr Normalized<std::uint64_t> normalize(std::uint64_t sig) {
  const std::int64_t top = highest_bit(sig);
  return {sig << (lead<std::uint64_t> - top), top};
}
constexpr Normalized<uint128> normalize(uint128 sig) {
  if (sig >> 64 == 0) [[unlikely]] {
    const std::int64_t top = highest_bit(low_word(sig));
    return {sig << (lead<uint128> - top), top};
  }
  const std::uint64_t low = low_word(sig);
  const std::uint64_t high = high_word(sig);
  const auto top = static_cast<unsigned>(highest_bit(high));
  const unsigned n = 62 - top;  // as shift_left, which would need 63 - n
  return {double_word(high << n | low >> 1 >> (top + 1), low << n), 64 + std::int64_t{top}};
}

// A significand with its leading bit at `lead` in another kind of word, sticky.
template <class To, class From>
constexpr To resized(From sig) {
  if constexpr (sizeof(To) > sizeof(From)) {
    return To{sig} << 64;
  } else if constexpr (sizeof(To) < sizeof(From)) {
    return high_word(sig) | std::uint64_t{low_word(sig) != 0};
  } else {
    return sig;
  }
}

// x * y / 2^63, or 2^127 for double words, sticky, for factors below 2^63, or 2^127.
constexpr std::uint64_t high_product(std::uint64_t x, std::uint64_t y) {
  const uint128 p = uint128{x} * y;
  const std::uint64_t high = high_word(p);
  return high + high + (low_word(p) != 0);
}

constexpr uint128 high_product(uint128 x, uint128 y) {
  const std::uint64_t x0 = low_word(x);
  const std::uint64_t x1 = high_word(x);
  const std::uint64_t y0 = low_word(y);
  const std::uint64_t y1 = high_word(y);
  const uint128 low = uint128{x0} * y0;
  const uint128 cross = uint128{x1} * y0 + (low >> 64);  // fits: the factors are below 2^64
  const uint128 middle = uint128{x0} * y1 + low_word(cross);
  const uint128 high = uint128{x1} * y1 + (cross >> 64) + (middle >> 64);
  return high << 1 | uint128{low_word(low | middle) != 0};
}

struct Quotient {
  std::uint64_t q;
  std::uint64_t rest;
};

// The same as `divide_word` by divisions of words: two digits of half a word (D. E. Knuth, The Art
// of Computer Programming, volume 2, 4.3.1, algorithm D).
constexpr Quotient divide_by_halves(uint128 x, std::uint64_t y) {
  const int n = std::countl_zero(y);
  y <<= n;
  x <<= n;
  const std::uint64_t y0 = y & 0xFFFFFFFF;
  const std::uint64_t y1 = y >> 32;
  std::uint64_t rest = high_word(x);  // below y
  const auto next = [&](std::uint64_t half) {
    std::uint64_t q = rest / y1;  // too large by two at most
    const std::uint64_t p = q * y0;
    rest = (rest - q * y1) << 32 | half;
    for (bool high = false; !high && rest < p; --q) {
      rest += y;
      high = rest < y;  // it is 2^64 more than it says
    }
    rest -= p;
    return q;
  };
  const std::uint64_t q = next(low_word(x) >> 32);
  return {q << 32 | next(low_word(x) & 0xFFFFFFFF), rest >> n};
}

// x / y of a double word and the remainder, for a quotient of one word. The processor's own
// division is several times as fast as that of double words, which has to find out that one is
// enough.
inline Quotient divide_word(uint128 x, std::uint64_t y) {
#ifdef ZELK_X86_64
  std::uint64_t q = low_word(x);
  std::uint64_t rest = high_word(x);
  asm("divq %2" : "+a"(q), "+d"(rest) : "r"(y) : "cc");
  return {q, rest};
#else
  return divide_by_halves(x, y);
#endif
}

// x / y * 2^62, or 2^126 for double words, sticky, for leading bits at `lead` and clear ones from
// bit 1 down.
inline std::uint64_t high_quotient(std::uint64_t x, std::uint64_t y) {
  const Quotient d = divide_word(uint128{x} << 62, y);
  return d.q | std::uint64_t{d.rest != 0};
}

// x * 2^64 + low over y, x becoming the remainder, for x below y and the highest bit of y set (D.
// E. Knuth, The Art of Computer Programming, volume 2, 4.3.1, algorithm D).
inline std::uint64_t next_digit(uint128& x, std::uint64_t low, uint128 y) {
  const std::uint64_t y0 = low_word(y);
  const std::uint64_t y1 = high_word(y);
  if (high_word(x) >= y1) [[unlikely]] {  // the quotient of the high words is 2^64 or more
    std::uint64_t q = ~std::uint64_t{0};
    uint128 high = x - uint128{q} * y1;
    uint128 p = uint128{q} * y0;
    while (high_word(high) == 0 && p > (high << 64 | low)) {
      --q;
      high += y1;
      p -= y0;
    }
    x = (high << 64 | low) - p;
    return q;
  }
  // Too large by two at most; whether by one is as good as random to a branch predictor.
  auto [q, rest] = divide_word(x, y1);
  const uint128 product = uint128{q} * y0;
  x = double_word(rest, low);
  const std::uint64_t less = opaque(0 - std::uint64_t{x < product});
  x = x - product + double_word(y1 & less, y0 & less);
  q += less;
  if (x >= y) [[unlikely]] {  // below 0 still
    x += y;
    --q;
  }
  return q;
}

inline uint128 high_quotient(uint128 x, uint128 y) {
  uint128 rest = x >> 1;
  const std::uint64_t high = next_digit(rest, 0, y << 1);
  const std::uint64_t low = next_digit(rest, 0, y << 1);
  return double_word(high, low) | uint128{rest != 0};
}

}  // namespace zelk::words

#endif  // ZELK_WORDS_INTEGERS_H_
