// Numbers at the start of a text taken apart, as they are written.
#ifndef ZELK_DECIMAL_SCAN_H_
#define ZELK_DECIMAL_SCAN_H_

#include <bit>
#include <cstdint>
#include <cstring>

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

/// The n characters from p on, at most eight, with zeros above; each changed so that a digit is its
/// value, and all else is more than 9.
inline std::uint64_t load_digits(const char* p, std::int64_t n) {
  const auto load = [](auto word, const char* from) {
    std::memcpy(&word, from, sizeof word);
    if constexpr (std::endian::native == std::endian::big) {
      word = static_cast<decltype(word)>(__builtin_bswap64(word) >> (64 - 8 * sizeof word));
    }
    return std::uint64_t{word};
  };
  std::uint64_t characters = 0;
  if (n >= 8) {
    characters = load(std::uint64_t{}, p);
  } else if (n >= 4) {  // two halves, which may overlap
    characters = load(std::uint32_t{}, p) | load(std::uint32_t{}, p + n - 4) << 8 * (n - 4);
  } else if (n >= 2) {
    characters = load(std::uint16_t{}, p) | load(std::uint16_t{}, p + n - 2) << 8 * (n - 2);
  } else if (n == 1) {
    characters = static_cast<unsigned char>(*p);
  }
  return characters ^ 0x3030303030303030;
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

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_SCAN_H_
