// Values to and from text.
#include <algorithm>
#include <initializer_list>
#include <ostream>
#include <string_view>
#include <utility>

#include "zelk/base/quoted.h"
#include "zelk/float/ieee_float.h"
#include "zelk/float/read_text.h"
#include "zelk/numbers/bvnumber.h"
#include "zelk/numbers/number_text.h"
#include "zelk/numbers/room.h"

namespace zelk {

// ---- Out ----

std::string IEEEFloat::to_float_str() const {
  if (get_format().exp_width == 0) {
    return "0";
  }
  if (is_nan()) {
    throw error("can't convert NaN to float str");
  }
  if (is_zero()) {
    return get_sign() ? "-0" : "0";
  }
  if (is_inf()) {
    throw error("can't convert Infinity to float str");
  }
  QNumber q = to_number();
  std::string text;
  if (q.sign() < 0) {
    text = '-';
    q.self_neg();
  }
  mpf_class value(0, mpf_get_default_prec());
  value = q.to_mpq();
  mp_exp_t point = 0;  // value = 0.digits * 10^point
  std::string digits = value.get_str(point);
  if (point <= 0) {
    return text.append("0.").append(static_cast<std::size_t>(-point), '0').append(digits);
  }
  const auto places = static_cast<std::size_t>(point);
  if (digits.size() <= places) {
    return text.append(digits).append(places - digits.size(), '0');
  }
  return text.append(digits, 0, places).append(".").append(digits, places);
}

std::string IEEEFloat::to_str() const {
  std::string text = '[' + std::to_string(get_format().exp_width) + ':' +
                     std::to_string(get_format().mant_width) + ']';
  if (get_format().exp_width == 0) {
    return text + "+0{0}";
  }
  if (is_nan()) {
    text += "NaN";
  } else if (is_inf()) {
    text += get_sign() ? "-Inf" : "+Inf";
  } else {
    text += to_float_str();
  }
  text += '{';
  const unsigned long sign_index =
      detail::sign_place(get_format().exp_width, get_format().mant_width);
  const QNumber bits = get_bits();
  for (unsigned long i = sign_index + 1; i-- > 0;) {
    text += BVNumber::test_bit(bits, i) ? '1' : '0';
    if (i == sign_index || i == get_format().mant_width) {
      text += '_';
    }
  }
  return text + '}';
}

std::ostream& operator<<(std::ostream& os, const IEEEFloat& x) { return os << x.to_str(); }

// ---- In ----

namespace {

// Whether a text is a word of lower-case letters, but for the case of its own.
bool is_name(std::string_view text, std::string_view word) {
  return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                    [](char a, char b) { return (a | 0x20) == b; });
}

// Whether so much is sure by the size of 5^|t|: more than m + 1 bits in n 5^t with an odd n, or a
// remainder of n / 5^|t|. The number is then inexact at any exponent.
bool is_inexact(const detail::NumberText& number, unsigned long m) {
  const QNumber n = number.magnitude.get_num();
  const QNumber length(BVNumber::bit_length(n));
  const QNumber fives = number.ten * QNumber(2321) / 1000;
  return number.ten.sign() > 0 ? length - BVNumber::lowest_one(n) - 2 + fives >= m
                               : length + fives <= 0;
}

// The number with its power of ten built in, or one beyond the format's range, on the same side,
// that rounds as it does: with 10^t = 2^t 5^t, and log2(5) between 2.321 and 2.322.
detail::NumberText reduced(const detail::NumberText& number, const IEEEFloat::format& f) {
  const QNumber bits = QNumber(BVNumber::bit_length(number.magnitude.get_num())) -
                       BVNumber::bit_length(number.magnitude.get_den());
  const bool up = number.ten.sign() > 0;
  detail::NumberText result{number.negative, 1, 0, number.ten + number.two};
  const QNumber least = bits - 1 + result.two + number.ten * QNumber(up ? 2321 : 2322) / 1000;
  const QNumber most = bits + 1 + result.two + number.ten * QNumber(up ? 2322 : 2321) / 1000;
  const QNumber bias = f.bias();
  if (least > bias + 1 && is_inexact(number, f.mant_width)) {
    // Twice the largest power of two and more, inexact, as the number is.
    result.magnitude = detail::power(2, f.mant_width + 2) + 1;
    result.two = bias + 2;
  } else if (most < -bias - f.mant_width) {
    result.two = -bias - f.mant_width - 1;  // below half the smallest subnormal
  } else {
    result.magnitude = number.magnitude * detail::power(5, number.ten);
  }
  return result;
}

// A term of SMT-LIB, and how far it has been read.
struct Term {
  std::string_view text;
  std::size_t position = 0;

  [[noreturn]] void refuse() const {
    throw IEEEFloat::error("invalid number at position " + std::to_string(position) + ": " +
                           detail::quoted(text));
  }
  // Passes one of these words; which it is.
  std::size_t take(std::initializer_list<std::string_view> words) {
    const std::string_view rest = text.substr(position);
    std::size_t longest = 0;
    for (const std::string_view& word : words) {
      const auto* const end =
          std::mismatch(word.begin(), word.end(), rest.begin(), rest.end()).first;
      if (end == word.end()) {
        position += word.size();
        return static_cast<std::size_t>(&word - words.begin());
      }
      longest = std::max(longest, static_cast<std::size_t>(end - word.begin()));
    }
    position += longest;
    refuse();
  }
  // Passes characters of a set, one at least.
  std::string take_all(std::string_view characters) {
    const std::size_t end = std::min(text.find_first_not_of(characters, position), text.size());
    std::string taken(text.substr(position, end - position));
    position = end;
    if (taken.empty()) {
      refuse();
    }
    return taken;
  }
  // Passes a number without zeros before it.
  mpz_class take_number() {
    if (text.substr(position).starts_with('0')) {
      refuse();
    }
    return mpz_class(take_all("0123456789"));
  }
  void take_end() {
    take({")"});
    if (position != text.size()) {
      refuse();
    }
  }
};

// An integer of as many bits as it has digits of one bit or four.
struct Field {
  std::string digits;
  bool hexadecimal;

  explicit Field(Term& term) : hexadecimal(term.take({" #b", " #x"}) == 1) {
    digits = term.take_all(hexadecimal ? "0123456789abcdefABCDEF" : "01");
  }
  std::size_t width() const { return (hexadecimal ? 4 : 1) * digits.size(); }
  QNumber value() const { return {mpz_class(digits, hexadecimal ? 16 : 2), 1}; }
};

void require_format(const mpz_class& exp_width, const mpz_class& mant_width,
                    const IEEEFloat::format& f) {
  if (exp_width != f.exp_width || mant_width != f.mant_width) {
    throw IEEEFloat::error(
        "text of another format: " +
        detail::quoted('(' + exp_width.get_str() + ", " + mant_width.get_str() + ')'));
  }
}

// "(fp #b0 #b01111 #b1000000000)", "(_ NaN 5 11)" and its like.
detail::TextValue read_term(std::string_view text, const IEEEFloat::format& f) {
  using rules::Class;
  Term term{text};
  if (term.take({"(fp", "(_ "}) == 1) {
    const std::size_t name = term.take({"NaN", "+oo", "-oo", "+zero", "-zero"});
    term.take({" "});
    const mpz_class exp_width = term.take_number();
    term.take({" "});
    const mpz_class precision = term.take_number();
    term.take_end();
    require_format(exp_width, precision - 1, f);
    const Class what = name == 0 ? Class::nan : name <= 2 ? Class::infinite : Class::zero;
    return {what, name % 2 == 0, 0, 0};
  }
  const bool negative = term.take({" #b0", " #b1"}) == 1;
  const Field exponent(term);
  const Field significand(term);
  term.take_end();
  require_format(exponent.width(), significand.width(), f);
  const QNumber biased = exponent.value();
  const QNumber trailing = significand.value();
  if (biased == f.max_exponent()) {
    return {trailing.is_zero() ? Class::infinite : Class::nan, negative, 0, 0};
  }
  if (biased.is_zero()) {
    return {trailing.is_zero() ? Class::zero : Class::finite, negative, trailing,
            1 - f.bias() - f.mant_width};
  }
  return {Class::finite, negative, trailing + detail::power(2, f.mant_width),
          biased - f.bias() - f.mant_width};
}

}  // namespace

detail::TextValue detail::read_text(std::string_view text, const IEEEFloat::format& f) {
  using rules::Class;
  const bool negative = text.starts_with('-');
  const std::string_view word = text.substr(negative || text.starts_with('+') ? 1 : 0);
  if (is_name(word, "nan")) {
    return {Class::nan, negative, 0, 0};
  }
  if (is_name(word, "inf") || is_name(word, "infinity")) {
    return {Class::infinite, negative, 0, 0};
  }
  try {
    if (text.starts_with('(')) {
      return read_term(text, f);
    }
    const NumberText number = read_number(text);
    if (number.magnitude.is_zero()) {
      return {Class::zero, negative, 0, 0};
    }
    NumberText part = reduced(number, f);
    return {Class::finite, negative, std::move(part.magnitude), std::move(part.two)};
  } catch (const IEEEFloat::error&) {
    throw;
  } catch (const Exception& e) {
    const std::string& what = e.get_msg();
    throw IEEEFloat::error(what == "number too large" ? "reached limit on float precision" : what);
  }
}

void detail::set_special(IEEEFloat& x, const TextValue& v) {
  if (v.what == rules::Class::nan) {
    x.self_nan();
  } else if (v.what == rules::Class::infinite) {
    x.self_inf(v.negative);
  } else {
    x.self_zero(v.negative);
  }
}

IEEEFloat IEEEFloat::from_text(std::string_view text, format f, rounding_mode rm) {
  detail::require_arithmetic(f.exp_width, f.mant_width, rm);
  const auto by_numbers = [&] {
    const detail::TextValue v = detail::read_text(text, f);
    if (v.what == rules::Class::finite) {
      return from_scaled(v.negative ? -v.magnitude : v.magnitude, v.exponent, f, rm);
    }
    IEEEFloat x(f, rm);
    detail::set_special(x, v);
    return x;
  };
  if (!rules::is_direction(rm)) {
    return by_numbers();
  }
  Environment env{static_cast<Rounding>(rm)};
  return detail::read_whole(text, f, rm, env, by_numbers);
}

}  // namespace zelk
