#include "zelk/numbers/number_text.h"

#include <cctype>
#include <string>

#include "zelk/base/exception.h"
#include "zelk/numbers/bvnumber.h"

namespace zelk {

namespace {

// A text and how far it has been read.
struct Cursor {
  std::string_view text;
  std::size_t position = 0;

  char next() const { return position < text.size() ? text[position] : '\0'; }
  // Whether the next character is one of these; then it is passed.
  bool take(std::string_view characters) {
    const bool taken = position < text.size() && characters.find(next()) != characters.npos;
    position += taken ? 1 : 0;
    return taken;
  }
  [[noreturn]] void refuse() const {
    throw Exception("invalid number at position " + std::to_string(position) + ": " +
                    std::string(text));
  }
  // Appends the digits of this base from here on; how many.
  long take_digits(int base, std::string& digits) {
    const std::size_t start = position;
    while (base == 16 ? std::isxdigit(static_cast<unsigned char>(next())) != 0
                      : next() >= '0' && next() <= '9') {
      ++position;
    }
    digits += text.substr(start, position - start);
    return static_cast<long>(position - start);
  }
};

QNumber integer(const std::string& digits, int base) {
  if (digits.size() > max_bits / 4) {
    throw Exception("number too large");
  }
  return {mpz_class(digits, base), 1};
}

// An integer with an optional sign, as exponents and divisors are.
QNumber read_integer(Cursor& in) {
  const bool negative = in.next() == '-';
  in.take("+-");
  std::string digits;
  if (in.take_digits(10, digits) == 0) {
    in.refuse();
  }
  const QNumber n = integer(digits, 10);
  return negative ? -n : n;
}

}  // namespace

detail::NumberText detail::read_number(std::string_view text) {
  Cursor in{text};
  NumberText number;
  number.negative = in.next() == '-';
  in.take("+-");
  const bool hex = text.substr(in.position, 2) == "0x" || text.substr(in.position, 2) == "0X";
  const int base = hex ? 16 : 10;
  in.position += hex ? 2 : 0;
  std::string digits;
  const long whole = in.take_digits(base, digits);
  const bool point = in.take(".");
  const long places = point ? in.take_digits(base, digits) : 0;
  if (whole + places == 0) {
    in.refuse();
  }
  number.magnitude = integer(digits, base);
  (hex ? number.two : number.ten) = hex ? -4 * places : -places;
  if (!hex && !point && in.take("/")) {
    const std::size_t start = in.position;
    const QNumber divisor = in.next() >= '0' && in.next() <= '9' ? read_integer(in) : QNumber();
    if (divisor.is_zero()) {
      in.position = start;
      in.refuse();
    }
    number.magnitude = number.magnitude / divisor;
  } else if (in.take(hex ? "pP" : "eE")) {
    (hex ? number.two : number.ten) += read_integer(in);
  }
  if (in.position != text.size()) {
    in.refuse();
  }
  return number;
}

QNumber detail::power(unsigned long base, const QNumber& exponent) {
  // Of 10 less than ten bits for three powers, of 5 seven.
  const QNumber bits = (exponent.sign() < 0 ? -exponent : exponent) *
                       (base == 2 ? QNumber(1) : QNumber(base == 10 ? 10 : 7) / 3);
  if (!(bits + 1 < max_bits)) {
    throw Exception("number too large");
  }
  const long k = exponent.to_long();
  mpz_class z;
  mpz_ui_pow_ui(z.get_mpz_t(), base, static_cast<unsigned long>(magnitude(k)));
  const QNumber q(z, 1);
  return k < 0 ? q.inv() : q;
}

QNumber QNumber::from_text(std::string_view text) {
  const detail::NumberText number = detail::read_number(text);
  QNumber value = number.negative ? -number.magnitude : number.magnitude;
  if (!value.is_zero()) {
    value *= detail::power(10, number.ten);
    value *= detail::power(2, number.two);
  }
  return value;
}

}  // namespace zelk
