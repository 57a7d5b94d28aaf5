#include "zelk/float/format_text.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

#include "zelk/float/functions.h"
#include "zelk/float/text.h"

namespace zelk::detail {

namespace {

constexpr auto none = std::string::npos;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// A magnitude by `to_chars`, whatever room that takes.
std::string characters(const IEEEFloat& x, std::chars_format form, int precision) {
  std::string text(128, ' ');
  for (;;) {
    const auto [end, error] = to_chars(text.data(), text.data() + text.size(), x, form, precision);
    if (error == std::errc()) {
      text.resize(static_cast<std::size_t>(end - text.data()));
      return text;
    }
    text.resize(4 * text.size());
  }
}

// The digits of %#g, which keeps the zeros at the end.
std::string general_with_zeros(const IEEEFloat& x, int precision) {
  const int digits = std::max(precision, 1);
  std::string text = characters(x, std::chars_format::scientific, digits - 1);
  const long exponent = std::stol(text.substr(text.find('e') + 1));
  return exponent < -4 || exponent >= digits
             ? text
             : characters(x, std::chars_format::fixed, digits - 1 - static_cast<int>(exponent));
}

// Rounds hexadecimal digits behind the point to so many, to nearest-even; the digit before it grows
// when they run over.
void round_digits(char& leading, std::string& digits, std::size_t places) {
  const char next = digits[places];
  const char last = places == 0 ? leading : digits[places - 1];
  const bool odd = (last <= '9' ? last - '0' : last - 'a' + 10) % 2 != 0;
  const bool more = digits.find_first_not_of('0', places + 1) != none;
  digits.resize(places);
  if (next < '8' || (next == '8' && !more && !odd)) {
    return;
  }
  for (std::size_t i = places; i-- > 0;) {
    if (digits[i] != 'f') {
      digits[i] = digits[i] == '9' ? 'a' : static_cast<char>(digits[i] + 1);
      return;
    }
    digits[i] = '0';
  }
  ++leading;
}

// The digits of %a without their "0x": subnormals have the exponent of the smallest normal value
// behind a leading 0, which takes the place of the 1 of the sum of both.
std::string hexadecimal(const IEEEFloat& x, int precision) {
  const bool small = x.is_subnormal();
  const IEEEFloat::format f = x.get_format();
  std::string text =
      to_hex(small ? IEEEFloat::from_bits(x.get_bits() + f.max_mantissa() + 1, f) : x).substr(2);
  const std::size_t p = text.find('p');
  char leading = small ? '0' : text[0];
  std::string digits = p > 2 ? text.substr(2, p - 2) : "";
  if (precision >= 0) {
    const auto places = static_cast<std::size_t>(precision);
    if (places < digits.size()) {
      round_digits(leading, digits, places);
    } else {
      digits.append(places - digits.size(), '0');
    }
  }
  return leading + (digits.empty() ? "" : '.' + digits) + text.substr(p);
}

// The digits of a finite magnitude.
std::string digits_of(const IEEEFloat& x, const FormatOptions& o, FormatStyle style) {
  const bool has_precision = o.precision >= 0;
  const int precision = has_precision ? o.precision : 6;
  switch (lower(o.type)) {
    case 'a':
      return (style == FormatStyle::fmt ? "0x" : "") + hexadecimal(x, o.precision);
    case 'e':
      return characters(x, std::chars_format::scientific, precision);
    case 'f':
      return characters(x, std::chars_format::fixed, precision);
    default:
      if (o.type == 0 && !has_precision) {
        return to_shortest(x);
      }
      return o.alternate && (o.type != 0 || style == FormatStyle::fmt)
                 ? general_with_zeros(x, precision)
                 : characters(x, std::chars_format::general, precision);
  }
}

// Puts a point behind the digits where there is none; {fmt} lets no integer end in it, but for 'f'.
void add_point(std::string& text, const FormatOptions& o, FormatStyle style) {
  const std::size_t exponent = text.find(lower(o.type) == 'a' ? 'p' : 'e');
  if (text.find('.') == none) {
    const bool zero = style == FormatStyle::fmt && exponent == none && lower(o.type) != 'f';
    text.insert(std::min(exponent, text.size()), zero ? ".0" : ".");
  }
}

std::string padding(std::string_view fill, std::size_t times) {
  std::string text;
  for (; times > 0; --times) {
    text += fill;
  }
  return text;
}

}  // namespace

std::string formatted(const IEEEFloat& x, const FormatOptions& o, FormatStyle style) {
  const bool finite = is_finite(x);
  const bool negative = x.get_sign() && !x.is_nan();
  std::string text = x.is_nan() ? "nan" : finite ? digits_of(abs(x), o, style) : "inf";
  if (finite && o.alternate) {
    add_point(text, o, style);
  }
  if (o.type != 0 && lower(o.type) != o.type) {
    std::transform(text.begin(), text.end(), text.begin(), upper);
  }
  const std::string sign = negative ? "-" : o.sign == '-' ? "" : std::string(1, o.sign);
  const std::size_t size = sign.size() + text.size();
  const std::size_t room = std::max(static_cast<std::size_t>(o.width), size) - size;
  const bool zeros = o.zeros && o.align == 0;
  if (zeros && finite) {
    return sign + std::string(room, '0') + text;
  }
  // Numbers are at the right, but {fmt} has what is none at the left.
  const bool left =
      o.align == '<' || (o.align == 0 && !finite && !zeros && style == FormatStyle::fmt);
  const std::size_t before = left ? 0 : o.align == '^' ? room / 2 : room;
  // {fmt} fills no infinity and no NaN with zeros.
  const std::string_view fill =
      !finite && style == FormatStyle::fmt && o.fill == "0" ? " " : std::string_view(o.fill);
  return padding(fill, before) + sign + text + padding(fill, room - before);
}

}  // namespace zelk::detail
