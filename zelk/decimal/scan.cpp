#include "zelk/decimal/scan.h"

#include <string_view>

namespace zelk::decimal {

namespace {

bool is_hex_digit(char c) {
  return is_digit(c) || static_cast<unsigned char>((c | 0x20) - 'a') < 6;
}

const char* take_hex_digits(const char* p, const char* last) {
  while (p != last && is_hex_digit(*p)) ++p;
  return p;
}

bool starts_with_word(const char* p, const char* last, std::string_view word) {
  for (const char c : word) {
    if (p == last || (*p++ | 0x20) != c) return false;
  }
  return true;
}

void scan_word(Literal& x, const char* p, const char* last) {
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
bool scan_hexadecimal(Literal& x, const char* p, const char* last) {
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
  const bool has_sign = first != last && (*first == '-' || *first == '+');
  const char* const p = first + (has_sign ? 1 : 0);
  Literal x{Form::none, has_sign && *first == '-', first, p, p, 0, 0, 0};
  if (last - p > 2 && *p == '0' && (p[1] | 0x20) == 'x' && scan_hexadecimal(x, p + 2, last)) {
    return x;
  }
  if (const Literal decimal = scan_decimal(first, last); decimal.count > 0) {
    x = decimal;
    if (!x.fits_word()) x.skip_zeros();
  } else {
    scan_word(x, p, last);
  }
  return x;
}

}  // namespace zelk::decimal
