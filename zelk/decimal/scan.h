// Numbers at the start of a text taken apart, as they are written.
#ifndef ZELK_DECIMAL_SCAN_H_
#define ZELK_DECIMAL_SCAN_H_

#include <bit>
#include <cstdint>
#include <cstring>

#include "zelk/base/machine.h"

namespace zelk::decimal {

/// What a text starts with.
enum class Form : unsigned char { none, decimal, hexadecimal, infinity, nan };

/// A number as it is written: digits * 10^exponent, or digits * 2^exponent if it is hexadecimal.
struct Literal {
  Form form;
  bool negative;
  const char* end;  ///< behind the number; where the text starts, if there is none
  /// Its digits, with at most one point among them, and how many they are. Where they do not fit
  /// `word`, the first one is not 0.
  const char* first;
  const char* last;
  long count;
  /// The digits as an integer, if they are decimal and no more than `word_digits`.
  std::uint64_t word;
  std::int64_t exponent;  ///< an exponent beyond +-2^62 is that; it has not the places taken off

  bool fits_word() const { return form == Form::decimal && count <= word_digits; }
  static constexpr long word_digits = 19;
  /// Leaves leading zeros out, if need be with the point behind them.
  void skip_zeros() {
    for (; first != last && (*first == '0' || *first == '.'); ++first) {
      count -= *first == '0' ? 1 : 0;
    }
  }
};

/// Takes the longest prefix of [first, last) apart that is a number: a sign or none, and then
/// digits, with a point or without, and a decimal exponent or none; the same in hexadecimal after
/// "0x", with a binary exponent; or inf, infinity or nan in letters of either case.
Literal scan(const char* first, const char* last);

// ---- Eight characters at a time, the first in the lowest byte ----

template <class W>
inline std::uint64_t load_characters(const char* p) {
  W characters;
  std::memcpy(&characters, p, sizeof characters);
  if constexpr (std::endian::native == std::endian::big) {
    return detail::reversed_bytes(characters) >> (64 - 8 * sizeof characters);
  }
  return characters;
}

/// Characters changed so that a digit is its value, and all else is more than 9.
inline std::uint64_t as_digits(std::uint64_t characters) { return characters ^ 0x3030303030303030; }

/// The characters from p to last, fewer than eight, of a text that starts at first; zeros above.
inline std::uint64_t load_last(const char* first, const char* p, const char* last) {
  const std::int64_t n = last - p;
  if (last - first >= 8) [[likely]] {
    const std::int64_t others = 4 * (8 - n);  // half of their bits
    return load_characters<std::uint64_t>(last - 8) >> others >> others;
  }
  // Two halves, which may overlap.
  if (n >= 4) {
    return load_characters<std::uint32_t>(p) | load_characters<std::uint32_t>(last - 4)
                                                   << 8 * (n - 4);
  }
  if (n >= 2) {
    return load_characters<std::uint16_t>(p) | load_characters<std::uint16_t>(last - 2)
                                                   << 8 * (n - 2);
  }
  return n == 1 ? load_characters<unsigned char>(p) : 0;
}

/// How many of eight characters are digits before the first that is none.
inline int leading_digits(std::uint64_t digits) {
  constexpr std::uint64_t high_bits = 0x8080808080808080;
  // Only what is above the first that is none can be changed by its carry.
  const std::uint64_t others = (digits | (digits + 0x7676767676767676)) & high_bits;
  return std::countr_zero(others) / 8;
}

/// Eight digits as an integer: neighbours are put together three times.
inline std::uint64_t eight_digits(std::uint64_t digits) {
  digits = digits * 10 + (digits >> 8);
  constexpr std::uint64_t mask = 0x000000FF000000FF;
  constexpr std::uint64_t hundred = 100 + (1000000ULL << 32);
  constexpr std::uint64_t one = 1 + (10000ULL << 32);
  return ((digits & mask) * hundred + (digits >> 16 & mask) * one) >> 32;
}

// ---- Decimals ----

/// Passes the digits from p on, which go to the end of `word`, modulo 2^64.
inline const char* take_digits(const char* first, const char* p, const char* last,
                               std::uint64_t& word) {
  static constexpr std::uint64_t powers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000};
  std::uint64_t digits = 0;
  for (; last - p >= 8; p += 8) {
    digits = as_digits(load_characters<std::uint64_t>(p));
    if (leading_digits(digits) < 8) break;
    word = word * 100000000 + eight_digits(digits);
  }
  if (last - p < 8) digits = as_digits(load_last(first, p, last));
  const int n = leading_digits(digits);
  const int others = 4 * (8 - n);
  word = word * powers[n] + eight_digits(digits << others << others);
  return p + n;
}

inline bool is_digit(char c) { return static_cast<unsigned char>(c - '0') <= 9; }

/// Passes an exponent after the letter at p, which is added to another one, if there is one.
inline const char* take_exponent(const char* p, const char* last, char letter,
                                 std::int64_t& exponent) {
  constexpr std::int64_t largest = std::int64_t{1} << 62;
  if (p == last || (*p | 0x20) != letter) return p;
  const char* digits = p + 1;
  const bool negative = digits != last && *digits == '-';
  digits += digits != last && (negative || *digits == '+') ? 1 : 0;
  if (digits == last || !is_digit(*digits)) return p;
  std::int64_t n = 0;
  for (; digits != last && is_digit(*digits); ++digits) {
    n = n > (largest - 9) / 10 ? largest : 10 * n + (*digits - '0');
  }
  exponent += negative ? -n : n;
  return digits;
}

/// A literal from its sign on, as a decimal one; none, with a count of 0, if it has no digits.
inline Literal scan_decimal(const char* first, const char* last) {
  Literal x{Form::decimal, false, first, nullptr, nullptr, 0, 0, 0};
  const char* p = first;
  if (p != last && (*p == '-' || *p == '+')) {
    x.negative = *p == '-';
    ++p;
  }
  x.first = p;
  for (; p != last && is_digit(*p); ++p) {
    x.word = x.word * 10 + static_cast<unsigned>(*p - '0');
  }
  x.count = p - x.first;
  if (p != last && *p == '.') {
    const char* const fraction = p + 1;
    p = take_digits(first, fraction, last, x.word);
    x.exponent = fraction - p;
    x.count -= x.exponent;
  }
  x.last = p;
  x.end = take_exponent(p, last, 'e', x.exponent);
  return x;
}

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_SCAN_H_
