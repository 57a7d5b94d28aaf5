#include "zelk/decimal/scan.h"

#include <string_view>

namespace zelk::decimal {

namespace {

constexpr std::int64_t largest_exponent = std::int64_t{1} << 62;

bool is_digit(char c) { return static_cast<unsigned char>(c - '0') <= 9; }
bool is_hex_digit(char c) {
  return is_digit(c) || static_cast<unsigned char>((c | 0x20) - 'a') < 6;
}

// Passes digits, which go to the end of `word`, modulo 2^64.
inline const char* take_digits(const char* p, const char* last, std::uint64_t& word) {
  static constexpr std::uint64_t powers[] = {1,      10,      100,      1000,     10000,
                                             100000, 1000000, 10000000, 100000000};
  int n = 8;
  while (n == 8) {
    const std::uint64_t digits = load_digits(p, last - p);
    n = leading_digits(digits);
    const int unused = 4 * (8 - n);  // half of the bits that are no digits
    word = word * powers[n] + eight_digits(digits << unused << unused);
    p += n;
  }
  return p;
}

const char* take_hex_digits(const char* p, const char* last) {
  while (p != last && is_hex_digit(*p)) ++p;
  return p;
}

// Passes an exponent after the letter at p, if there is one.
inline const char* take_exponent(const char* p, const char* last, char letter,
                                 std::int64_t& exponent) {
  if (p == last || (*p | 0x20) != letter) return p;
  const char* digits = p + 1;
  const bool negative = digits != last && *digits == '-';
  digits += digits != last && (negative || *digits == '+') ? 1 : 0;
  if (digits == last || !is_digit(*digits)) return p;
  std::int64_t n = 0;
  for (; digits != last && is_digit(*digits); ++digits) {
    n = n > (largest_exponent - 9) / 10 ? largest_exponent : 10 * n + (*digits - '0');
  }
  exponent += negative ? -n : n;
  return digits;
}

bool starts_with_word(const char* p, const char* last, std::string_view word) {
  for (const char c : word) {
    if (p == last || (*p++ | 0x20) != c) return false;
  }
  return true;
}

[[gnu::noinline]] void scan_word(Literal& x, const char* p, const char* last) {
  const bool infinite = starts_with_word(p, last, "inf");
  if (infinite) {
    x.form = Form::infinity;
    x.end = p + (starts_with_word(p, last, "infinity") ? 8 : 3);
  } else if (starts_with_word(p, last, "nan")) {
    x.form = Form::nan;
    x.end = p + 3;
  }
}

// The number whose digits begin at p, behind "0x"; false if there are none.
[[gnu::noinline]] bool scan_hexadecimal(Literal& x, const char* p, const char* last) {
  x.first = p;
  p = take_hex_digits(p, last);
  x.count = p - x.first;
  long places = 0;
  if (p != last && *p == '.') {
    const char* fraction = p + 1;
    p = take_hex_digits(fraction, last);
    places = p - fraction;
  }
  x.count += places;
  if (x.count == 0) return false;
  x.form = Form::hexadecimal;
  x.last = p;
  x.exponent = -4 * places;
  x.end = take_exponent(p, last, 'p', x.exponent);
  x.skip_zeros();
  return true;
}

}  // namespace

Literal scan(const char* first, const char* last) {
  Literal x{Form::none, false, first, nullptr, nullptr, 0, 0, 0};
  const char* p = first;
  if (p != last && (*p == '-' || *p == '+')) {
    x.negative = *p == '-';
    ++p;
  }
  if (last - p > 2 && *p == '0' && (p[1] | 0x20) == 'x' && scan_hexadecimal(x, p + 2, last)) {
    return x;
  }
  x.first = p;
  p = take_digits(p, last, x.word);
  x.count = p - x.first;
  if (p != last && *p == '.') {
    const char* const fraction = p + 1;
    p = take_digits(fraction, last, x.word);
    x.exponent = fraction - p;
    x.count -= x.exponent;
  }
  if (x.count == 0) {
    scan_word(x, x.first, last);
    return x;
  }
  x.form = Form::decimal;
  x.last = p;
  x.end = take_exponent(p, last, 'e', x.exponent);
  if (x.count > Literal::word_digits) [[unlikely]] {
    x.skip_zeros();
  }
  return x;
}

}  // namespace zelk::decimal
