// How digits are written: plain or with an exponent, padded or not.
#ifndef ZELK_DECIMAL_SPELLING_H_
#define ZELK_DECIMAL_SPELLING_H_

#include <cstdint>
#include <string_view>

namespace zelk::decimal {

/// A text in pieces: sign, prefix, digits with zeros after them, a point if there are places, its
/// places between zeros, a tail. Whatever it is made of has to outlive it.
struct Spelling {
  bool negative = false;
  std::string_view prefix;
  std::string_view whole;
  std::uint64_t whole_zeros = 0;
  std::uint64_t zeros_before = 0;
  std::string_view places;
  std::uint64_t zeros_after = 0;
  std::string_view tail;

  /// The number of its characters.
  std::uint64_t length() const;
  /// Writes them; their end.
  char* write(char* out) const;
};

/// What follows digits: a letter and an exponent, with a sign and `least` digits at least.
class Tail {
 public:
  Tail(char letter, std::int64_t exponent, long least);
  operator std::string_view() const { return {text, size}; }

 private:
  char text[24];
  std::size_t size = 0;
};

/// D * 10^exponent in plain digits, with zeros up to so many places after the point. No digits are
/// a zero.
Spelling plain(std::string_view digits, std::int64_t exponent, std::uint64_t places);

/// D as one digit and places after the point, with zeros up to so many.
Spelling pointed(std::string_view digits, std::uint64_t places);

/// Whether D * 10^exponent, D of so many digits, has as few characters in plain digits as with an
/// exponent.
constexpr bool is_plain(std::int64_t count, std::int64_t exponent) {
  const std::int64_t top = exponent + count - 1;
  const int point = count > 1 ? 1 : 0;
  if (exponent < 0) {
    return top >= -3 - point;  // "0.001", "1e-03"; "0.00012", "1.2e-04"
  }
  if (exponent <= point + 4 || top < 100) {
    return exponent <= point + 4;
  }
  std::int64_t tail = 5;  // with three digits
  for (std::int64_t rest = top / 1000; rest != 0; rest /= 10) {
    ++tail;
  }
  return exponent <= point + tail;
}

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_SPELLING_H_
