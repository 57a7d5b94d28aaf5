#include "zelk/decimal/quick.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

#include "zelk/base/machine.h"
#include "zelk/decimal/powers.h"
#include "zelk/decimal/spelling.h"

namespace zelk::decimal {

namespace {

// A magnitude significand * 2^exponent, as `Binary` has it.
template <class W>
struct Short {
  W significand;
  std::int64_t exponent;
  bool closer_below;
};

// Whether the powers that there are reach so far, and a word has four bits above the significand.
bool has_power(const Short<std::uint64_t>& x) {
  return x.significand >> 60 == 0 && x.exponent >= -1250 && x.exponent <= 1250;
}
bool has_power(const Short<uint128>& x) {
  return x.significand >> 124 == 0 && x.exponent >= -16600 && x.exponent <= 16600;
}

using words::high_word;
using words::low_word;

// ---- Numbers with as many digits after the point as before it ----

template <class W>
struct Fixed {
  W whole;
  W part;
};

template <class W>
Fixed<W> operator+(Fixed<W> a, Fixed<W> b) {
  const W part = a.part + b.part;
  return {a.whole + b.whole + W{part < a.part}, part};
}
template <class W>
Fixed<W> operator-(Fixed<W> a, Fixed<W> b) {
  return {a.whole - b.whole - W{a.part < b.part}, a.part - b.part};
}
template <class W>
Fixed<W> halved(Fixed<W> a) {
  return {a.whole >> 1, a.part >> 1 | a.whole << (8 * sizeof(W) - 1)};
}

// Powers of five with twice the bits of a significand: s * P / 2^bits, and 2^h * P / 2^bits, h < 4.
template <class W>
struct Power;

template <>
struct Power<std::uint64_t> {
  uint128 p;
  explicit Power(long q) : p(power_of_five(q)) {}

  Fixed<std::uint64_t> times(std::uint64_t s) const {
    const uint128 low = uint128{low_word(p)} * s;
    const uint128 high = uint128{high_word(p)} * s + high_word(low);
    return {high_word(high), low_word(high)};
  }
  Fixed<std::uint64_t> shifted(int h) const {
    return {high_word(p) >> 1 >> (63 - h), high_word(p) << h | low_word(p) >> 1 >> (63 - h)};
  }
  static constexpr long last_exact = 55;
};

template <>
struct Power<uint128> {
  Power256 p;
  explicit Power(long q) : p(wide_power_of_five(q)) {}

  Fixed<uint128> times(uint128 s) const {
    std::uint64_t r[6]{};
    for (int i = 0; i < 2; ++i) {
      const std::uint64_t digit = i == 0 ? low_word(s) : high_word(s);
      std::uint64_t carry = 0;
      for (int j = 0; j < 4; ++j) {
        const uint128 sum = uint128{p.limb[j]} * digit + r[i + j] + carry;
        r[i + j] = low_word(sum);
        carry = high_word(sum);
      }
      r[i + 4] = carry;
    }
    return {words::double_word(r[5], r[4]), words::double_word(r[3], r[2])};
  }
  Fixed<uint128> shifted(int h) const {
    const std::uint64_t* l = p.limb;
    const auto limb = [=](int i) { return l[i] << h | l[i - 1] >> 1 >> (63 - h); };
    return {l[3] >> 1 >> (63 - h), words::double_word(limb(3), limb(2))};
  }
  static constexpr long last_exact = 110;
};

// The powers are less than 3 units below what they stand for. So quotients, of factors below
// 2^bits, and halves of distances are less than 4 below, and sums and differences of two less than
// 8 off.
template <class W>
constexpr W bound = 8;

template <class W>
bool is_close_to(W part, W point) {
  return static_cast<W>(part - point + bound<W>) <= 2 * bound<W>;
}

// ---- Digits of integers ----

// A number D * 10^exponent, D in ASCII, without zeros before it and at its end, in a room that has
// eight characters before them.
struct Digits {
  char* room;
  long first;
  long count;
  std::int64_t top;  // of the first digit

  std::int64_t exponent() const { return top - count + 1; }
  char* begin() const { return room + first; }
  char* end() const { return begin() + count; }
};
constexpr long room_before = 8;

// n < 10^8 as eight bytes from 0 to 9, the first digit in the lowest: halves of four digits, then
// of two, then of one. A part that is q d + r becomes q + 2^k r, which is 2^k times the part less
// q (2^k d - 1).
std::uint64_t eight_digits(std::uint64_t n) {
  constexpr auto digits = [](std::uint64_t x, std::uint64_t q, std::uint64_t d, int k) {
    return (x << k) - q * ((d << k) - 1);
  };
  const std::uint64_t x = digits(n, n * 109951163 >> 40, 10000, 32);
  const std::uint64_t y = digits(x, x * 5243 >> 19 & 0x0000007F'0000007F, 100, 16);
  return digits(y, y * 103 >> 10 & 0x000F000F'000F000F, 10, 8);
}

void store_digits(char* out, std::uint64_t digits) {
  digits |= 0x30303030'30303030;
  if constexpr (std::endian::native == std::endian::big) {
    digits = detail::reversed_bytes(digits);
  }
  std::memcpy(out, &digits, sizeof digits);
}

constexpr std::uint64_t ten8 = 100000000;
constexpr std::uint64_t ten16 = ten8 * ten8;

// d := a number other than 0 in blocks of eight digits, times 10^p.
template <std::size_t n>
[[gnu::always_inline]] inline void write_blocks(const std::uint64_t (&blocks)[n], std::int64_t p,
                                                Digits& d) {
  for (std::size_t i = 0; i < n; ++i) {
    store_digits(d.room + room_before + 8 * i, blocks[i]);
  }
  std::size_t last = n - 1;
  long zeros = 0;
  while (blocks[last] == 0) [[unlikely]] {
      --last;
      zeros += 8;
    }
  zeros += std::countl_zero(blocks[last]) / 8;
  long before = std::countr_zero(blocks[0]) / 8;
  for (std::size_t i = 1; i < n && (n > 3 || i < 2); ++i) {
    const bool begins = before == static_cast<long>(8 * i);
    before += std::countr_zero(blocks[i]) / 8 & -static_cast<long>(begins);
  }
  d.first = room_before + before;
  d.count = static_cast<long>(8 * n) - before - zeros;
  d.top = p + static_cast<long>(8 * n) - before - 1;
}

// d := n * 10^p, n not 0. One digit before whole blocks is what most numbers of a format have, or
// none.
[[gnu::always_inline]] inline void write(std::uint64_t n, std::int64_t p, Digits& d) {
  const std::uint64_t upper = n / ten8;
  const std::uint64_t block = eight_digits(n % ten8);
  if (upper < 10) {
    write_blocks({upper << 56, block}, p, d);
  } else {
    const std::uint64_t top = upper / ten8;
    write_blocks({top < 10 ? top << 56 : eight_digits(top), eight_digits(upper % ten8), block}, p,
                 d);
  }
}

void write(uint128 n, std::int64_t p, Digits& d) {
  if (high_word(n) == 0) {
    return write(low_word(n), p, d);
  }
  // Above twice 16 digits, up to 7.
  const std::uint64_t high = high_word(n) / ten16;
  const words::Quotient upper =
      words::divide_word(words::double_word(high_word(n) % ten16, low_word(n)), ten16);
  const words::Quotient top = words::divide_word(words::double_word(high, upper.q), ten16);
  write_blocks({eight_digits(top.q), eight_digits(top.rest / ten8), eight_digits(top.rest % ten8),
                eight_digits(upper.rest / ten8), eight_digits(upper.rest % ten8)},
               p, d);
}

std::uint64_t modulo_ten(std::uint64_t n) { return n % 10; }
std::uint64_t modulo_ten(uint128 n) {
  return (high_word(n) % 10 * 6 + low_word(n) % 10) % 10;  // 2^64 is 6
}

// floor(log10(2^k)), and of 3/4 of that, for |k| <= 17000.
long floor_log10(std::int64_t k, bool three_quarters) {
  return static_cast<long>((k * 1292913986 - (three_quarters ? 536607788 : 0)) >> 32);
}

// d := the shortest digits of x; false where the bound of the error does not decide.
template <class W>
[[gnu::always_inline]] inline bool shortest(const Short<W>& x, Digits& d) {
  constexpr int bits = 8 * sizeof(W);
  constexpr W half = W{1} << (bits - 1);
  const std::int64_t k = x.exponent;
  const long p = floor_log10(k, x.closer_below);
  // 2^k / 10^p is 2^h times the power as a number from 1 to 2.
  const auto h = static_cast<int>(binary_exponent(-p) + k - p);
  const Power<W> power(-p);
  const Fixed<W> value = power.times(x.significand << (h + 1));
  const Fixed<W> above = power.shifted(h);
  const Fixed<W> upper = value + above;
  const Fixed<W> lower = value - (x.closer_below ? halved(above) : above);
  const int close = int{is_close_to<W>(upper.part, 0)} | int{is_close_to<W>(lower.part, 0)} |
                    int{is_close_to(value.part, half)};
  if (close != 0) {
    const bool exact = p <= 0 && -p <= Power<W>::last_exact && k - p - 2 >= -bits;
    if (!exact) [[unlikely]] {
      return false;
    }
  }
  const W odd = x.significand & 1;
  const W most = upper.whole - (W{upper.part == 0} & odd);
  const W least = lower.whole + (W{lower.part != 0} | odd);
  W n = most - modulo_ten(most);
  if (n < least) {
    const W up = W{value.part > half} | (W{value.part == half} & value.whole);
    n = value.whole + (up & 1);
    n += W{n < least};
  }
  if (x.significand >> 20 == 0) {  // n < 14 * 2^20
    write_blocks({eight_digits(static_cast<std::uint64_t>(n))}, p, d);
  } else {
    write(n, p, d);
  }
  // Of few values 9 * 10^i reads back as well as 10^(i + 1), and may be closer.
  return x.significand >= 16 || d.count > 1 || *d.begin() != '1' || n <= value.whole;
}

// d := the digits of an integer whose shortest ones end at 10^5 or below, so that k <= 20; false
// for one of 2^127 or more.
template <class W>
bool whole_digits(const Short<W>& x, Digits& d) {
  const std::int64_t k = x.exponent;
  if (k <= 0) {
    write(x.significand >> -k, 0, d);
    return true;
  }
  if (uint128{x.significand} >> (127 - k) != 0) {
    return false;
  }
  write(uint128{x.significand} << k, 0, d);
  return true;
}

// ---- Texts ----

// In plain digits.
[[gnu::always_inline]] inline QuickText plain(const Digits& d) {
  if (d.top < 0) {  // "0.000": zeros, of which one becomes the point
    char* const begin = d.begin() + d.top - 1;
    std::memset(d.begin() - room_before, '0', room_before);
    begin[1] = '.';
    return {begin, d.end()};
  }
  if (d.exponent() >= 0) {
    std::memset(d.end(), '0', 40);
    return {d.begin(), d.end() + d.exponent()};
  }
  char* const begin = d.begin() - 1;
  begin[0] = begin[1];
  if (d.top > 0) {
    std::memmove(begin + 1, begin + 2, static_cast<std::size_t>(d.top));
  }
  begin[d.top + 1] = '.';
  return {begin, d.end()};
}

[[gnu::always_inline]] inline QuickText with_exponent(const Digits& d) {
  char* begin = d.begin();
  char* end = d.end();
  if (d.count > 1) {
    begin[-1] = begin[0];
    *begin-- = '.';
  }
  *end++ = 'e';
  *end++ = d.top < 0 ? '-' : '+';
  auto rest = static_cast<unsigned>(d.top < 0 ? -d.top : d.top);  // below 10^4
  const auto digit = [&](unsigned unit) {
    *end++ = static_cast<char>('0' + rest / unit);
    rest %= unit;
  };
  if (rest >= 100) {
    if (rest >= 1000) {
      digit(1000);
    }
    digit(100);
  }
  digit(10);
  digit(1);
  return {begin, end};
}

template <class W>
[[gnu::always_inline]] inline QuickText text_of_pattern(W pattern, int e, int m, char* room) {
  const W hidden = W{1} << m;
  const W trailing = pattern & (hidden - 1);
  const std::int64_t top = (std::int64_t{1} << e) - 1;
  const auto field = static_cast<std::int64_t>(pattern >> m) & top;
  const bool normal = field != 0;
  const Short<W> x{trailing | W{normal} << m, field + std::int64_t{!normal} - (top >> 1) - m,
                   trailing == 0 && field > 1};
  Digits d;
  d.room = room;
  if (field == top || x.significand == 0 || !has_power(x) || !shortest(x, d)) {
    return {};
  }
  const bool has_plain = is_plain(d.count, d.exponent());
  if (has_plain && d.exponent() > 0 && !whole_digits(x, d)) {
    return {};
  }
  QuickText text = has_plain ? plain(d) : with_exponent(d);
  text.begin[-1] = '-';
  text.begin -= static_cast<int>(pattern >> m >> e & 1);
  return text;
}

}  // namespace

QuickText shortest_text(std::uint64_t pattern, int e, int m, QuickRoom& room) {
  const QuickText text = text_of_pattern(pattern, e, m, room);
  return text.begin != nullptr || e <= 11 ? text : shortest_text(uint128{pattern}, e, m, room);
}
QuickText shortest_text(uint128 pattern, int e, int m, QuickRoom& room) {
  return text_of_pattern(pattern, e, m, room);
}
QuickText shortest_text16(std::uint64_t pattern, QuickRoom& room) {
  return text_of_pattern(pattern, 5, 10, room);
}
QuickText shortest_text32(std::uint64_t pattern, QuickRoom& room) {
  return text_of_pattern(pattern, 8, 23, room);
}
QuickText shortest_text64(std::uint64_t pattern, QuickRoom& room) {
  return text_of_pattern(pattern, 11, 52, room);
}

}  // namespace zelk::decimal
