#include "zelk/numbers/number_text.h"

#include <algorithm>
#include <cctype>
#include <string>

#include "zelk/base/exception.h"
#include "zelk/base/quoted.h"
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
                    detail::quoted(text));
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

// The integer of digits that do not begin with a zero.
QNumber integer(const std::string& digits, int base) {
  if (digits.empty()) {
    return 0;
  }
  if (digits.size() > max_bits / 4) {
    throw Exception("number too large");
  }
  mpz_class n;  // which gives back what it has if there is no memory for more
  n.set_str(digits, base);
  return {n, 1};
}

void drop_leading_zeros(std::string& digits) {
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
}

// An integer with an optional sign, as exponents and divisors are. Of the exponent of a zero
// nothing is wanted.
QNumber read_integer(Cursor& in, bool wanted = true) {
  const bool negative = in.next() == '-';
  in.take("+-");
  std::string digits;
  if (in.take_digits(10, digits) == 0) {
    in.refuse();
  }
  drop_leading_zeros(digits);
  const QNumber n = wanted ? integer(digits, 10) : 0;
  return negative ? -n : n;
}

// Whether these digits, which do not begin with a zero, times the powers of ten and of two make a
// number of which one part is sure to have more than `limit` bits. 10^d has 3.3219 d of them at
// least, 5^d 2.3219 d, and a digit after which there are zeros only cancels either the twos of 10^d
// or its fives.
bool is_beyond(const std::string& digits, const detail::NumberText& number, int base,
               unsigned long limit) {
  const std::size_t last = digits.find_last_not_of('0');
  const std::size_t zeros = digits.size() - 1 - last;
  const QNumber k = base == 16 ? number.two + 4 * zeros : number.ten + zeros;
  const QNumber above = base == 16 ? QNumber(4 * last) : QNumber(last) * 33219 / 10000;
  if (base == 16) {
    return above + k - 3 > limit || -k - 3 > limit;
  }
  return above + k * QNumber(k.sign() > 0 ? 33219 : 23220) / 10000 > limit || -k > limit;
}

}  // namespace

detail::NumberText detail::read_number(std::string_view text, std::optional<unsigned long> limit) {
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
  drop_leading_zeros(digits);
  (hex ? number.two : number.ten) = hex ? -4 * places : -places;
  QNumber divisor = 1;
  if (!hex && !point && in.take("/")) {
    const std::size_t start = in.position;
    divisor = in.next() >= '0' && in.next() <= '9' ? read_integer(in) : QNumber();
    if (divisor.is_zero()) {
      in.position = start;
      in.refuse();
    }
  } else if (in.take(hex ? "pP" : "eE")) {
    (hex ? number.two : number.ten) += read_integer(in, !digits.empty());
  }
  if (in.position != text.size()) {
    in.refuse();
  }
  if (limit && divisor == 1 && !digits.empty() && is_beyond(digits, number, base, *limit)) {
    throw Exception("number too large");
  }
  number.magnitude = integer(digits, base) / divisor;
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

QNumber QNumber::from_text(std::string_view text, unsigned long limit) {
  const detail::NumberText number = detail::read_number(text, limit);
  QNumber value = number.negative ? -number.magnitude : number.magnitude;
  if (!value.is_zero()) {
    value *= detail::power(10, number.ten);
    value *= detail::power(2, number.two);
    if (std::max(BVNumber::bit_length(value), BVNumber::bit_length(value.get_den())) > limit) {
      throw Exception("number too large");
    }
  }
  return value;
}

}  // namespace zelk
