// Values as text: what is written, and how long it is; the digits come from decimal/.
#include <algorithm>
#include <string_view>

#include "zelk/decimal/digits.h"
#include "zelk/decimal/hexadecimal.h"
#include "zelk/decimal/quick.h"
#include "zelk/decimal/spelling.h"
#include "zelk/float/text.h"
#include "zelk/float/value_access.h"

namespace zelk {

namespace {

using decimal::Binary;
using decimal::Decimal;
using decimal::DigitRoom;
using decimal::Limb;
using decimal::Room;
using decimal::Spelling;
using decimal::Tail;
using detail::OwnPattern;
using detail::ValueAccess;
using rules::Class;
using rules::Direction;

constexpr std::string_view zero_digit = "0";

// ---- Where texts go ----

std::size_t checked_length(const Spelling& text) {
  const std::uint64_t length = text.length();
  detail::require_bits(length);
  return length;
}

struct String {
  using Result = std::string;
  std::string operator()(const Spelling& text) const {
    std::string result(checked_length(text), '\0');
    text.write(result.data());
    return result;
  }
  std::string operator()(const char* text, const char* end) const { return {text, end}; }
};

struct Range {
  using Result = std::to_chars_result;
  char* first;
  char* last;

  std::to_chars_result operator()(const Spelling& text) const {
    if (checked_length(text) > static_cast<std::size_t>(last - first)) {
      return {last, std::errc::value_too_large};
    }
    return {text.write(first), std::errc()};
  }
  std::to_chars_result operator()(const char* text, const char* end) const {
    if (end - text > last - first) {
      return {last, std::errc::value_too_large};
    }
    return {std::copy(text, end, first), std::errc()};
  }
};

// ---- What is written ----

Direction direction_of(Rounding rounding) {
  if (rounding > Rounding::to_odd) {
    detail::throw_bad_mode(static_cast<unsigned>(rounding));
  }
  return static_cast<Direction>(rounding);
}

void require_digits(long digits, long least) {
  if (digits < least) {
    detail::throw_error("bad number of digits: " + std::to_string(digits));
  }
}

// A pattern and its class. Formats without an exponent have no values.
struct Value : OwnPattern {
  explicit Value(const IEEEFloat& x)
      : OwnPattern(x),
        operand(x.get_format().exp_width == 0 ? rules::Operand{Class::zero, false}
                                              : OwnPattern::operand()) {}

  bool is(Class c) const { return operand.is(c); }
  /// Infinity or NaN, in words.
  Spelling word() const {
    Spelling text;
    text.negative = operand.negative && is(Class::infinite);
    text.whole = is(Class::nan) ? "nan" : "inf";
    return text;
  }

  rules::Operand operand;
};

// A finite value other than 0.
class Finite {
 public:
  explicit Finite(const Value& x)
      : f(x.widths()), significand(static_cast<long>(f.mant_width / 64) + 1) {
    const std::uint64_t* words = x.words();
    const unsigned long m = f.mant_width;
    Limb* s = significand.data();
    std::copy(words, words + m / 64 + 1, s);
    s[m / 64] &= (Limb{1} << m % 64) - 1;
    const bool normal = !words::are_zeros(words, m, f.exp_width);
    const bool lowest = words::are_zeros(words, m + 1, f.exp_width - 1);
    number.closer_below = !lowest && words::are_zeros(words, 0, m);
    s[m / 64] |= Limb{normal} << m % 64;
    number.limbs = s;
    number.size = limbs::trimmed(s, static_cast<long>(m / 64) + 1);
    if (f.exp_width <= 62) {
      number.exponent = last_place(words, normal);
    } else {
      const QNumber top = detail::within_limits([&] { return exact::exponent_of(x); });
      const QNumber last = top - (limbs::bit_size(s, number.size) - 1);
      number.exponent = last.fits_long() ? last.to_long() : LONG_MAX;
    }
  }

  /// The value, which has to be within the limit.
  const Binary& within_limit() const {
    detail::require_room_for_value(number.exponent, f.mant_width);
    return number;
  }

 private:
  std::int64_t last_place(const std::uint64_t* words, bool normal) const {
    const unsigned long m = f.mant_width;
    std::uint64_t field = words[m / 64] >> m % 64;
    if (m % 64 + f.exp_width > 64) {
      field |= words[m / 64 + 1] << (64 - m % 64);
    }
    field &= (std::uint64_t{1} << f.exp_width) - 1;
    const std::int64_t bias = (std::int64_t{1} << (f.exp_width - 1)) - 1;
    return static_cast<std::int64_t>(field) + std::int64_t{!normal} - bias -
           static_cast<std::int64_t>(m);
  }

  rules::Widths f;
  Room<Limb, 4> significand;
  Binary number{};
};

std::string_view text_of(const Decimal& d) { return {d.digits, static_cast<std::size_t>(d.count)}; }

Tail exponent_tail(const Decimal& d) { return {'e', d.exponent + d.count - 1, 2}; }

// Digits without zeros at the end, in the shorter spelling.
template <class Out>
typename Out::Result write_shorter(std::string_view digits, std::int64_t exponent, bool negative,
                                   const Out& out) {
  if (decimal::is_plain(static_cast<std::int64_t>(digits.size()), exponent)) {
    Spelling text = decimal::plain(digits, exponent, 0);
    text.negative = negative;
    return out(text);
  }
  const Tail tail('e', exponent + static_cast<std::int64_t>(digits.size()) - 1, 2);
  Spelling text = decimal::pointed(digits, 0);
  text.negative = negative;
  text.tail = tail;
  return out(text);
}

template <class Out>
typename Out::Result write_zero(bool negative, std::uint64_t places, std::string_view tail,
                                const Out& out) {
  Spelling text;
  text.negative = negative;
  text.whole = zero_digit;
  text.zeros_after = places;
  text.tail = tail;
  return out(text);
}

// A text whose length the value decides: write(number, negative) for what is finite and not 0.
template <class Out, class Write>
typename Out::Result write_as_long_as_it_is(const IEEEFloat& x, const Out& out, Write write) {
  const Value value(x);
  const bool negative = value.operand.negative;
  if (!value.is(Class::finite)) {
    return value.is(Class::zero) ? write_zero(negative, 0, {}, out) : out(value.word());
  }
  return write(Finite(value).within_limit(), negative);
}

template <class Out>
[[gnu::noinline]] typename Out::Result write_shortest_exactly(const IEEEFloat& x, const Out& out) {
  return write_as_long_as_it_is(x, out, [&](const Binary& number, bool negative) {
    Room<char, 64> room(shortest_room(number));
    const Decimal d = shortest(number, room.data());
    if (d.exponent <= 0 || !decimal::is_plain(d.count, d.exponent)) {
      return write_shorter(text_of(d), d.exponent, negative, out);
    }
    // An integer, with the digits of its own.
    Room<char, 96> digits(digits_room(number, 0));
    Spelling text = decimal::plain(text_of(digits_above(number, 0, digits.data())), 0, 0);
    text.negative = negative;
    return out(text);
  });
}

// The shortest text of a value in words; none where it takes the exact way.
decimal::QuickText quick_text(const IEEEFloat& x, decimal::QuickRoom& room) {
  using detail::Kind;
  const detail::Head& head = ValueAccess::head(x);
  const auto& words = ValueAccess::pattern(x).words;
  if (detail::has_short_roads && head.kind == Kind::packed64()) {
    return decimal::shortest_text64(words[0], room);
  }
  if (detail::has_short_roads && head.kind == Kind::packed32()) {
    return decimal::shortest_text32(words[0], room);
  }
  const auto e = static_cast<int>(head.exp_width);
  const auto m = static_cast<int>(head.mant_width);
  if (head.kind.is_one_word()) {
    if (head.kind.road() == detail::Road::half) {
      return decimal::shortest_text16(words[0], room);
    }
    return decimal::shortest_text(words[0], e, m, room);
  }
  if (!detail::has_short_roads || !head.kind.names_format() || head.kind.is_wide() || e < 2 ||
      e > 62 || m < 1) {
    return {};
  }
  return decimal::shortest_text(words::double_word(e + m > 63 ? words[1] : 0, words[0]), e, m,
                                room);
}

template <class Out>
typename Out::Result write_shortest(const IEEEFloat& x, const Out& out) {
  decimal::QuickRoom room;
  const decimal::QuickText text = quick_text(x, room);
  return text.begin != nullptr ? out(text.begin, text.end) : write_shortest_exactly(x, out);
}

template <class Out>
typename Out::Result write_exact(const IEEEFloat& x, const Out& out) {
  return write_as_long_as_it_is(x, out, [&](const Binary& number, bool negative) {
    const std::int64_t p = last_place(number);
    DigitRoom room(digits_room(number, p));
    Decimal d = digits_above(number, p, room.data());
    d.strip();
    return write_shorter(text_of(d), d.exponent, negative, out);
  });
}

// The digits above 10^p rounded; to `digits` of them unless that is 0.
Decimal rounded(const Binary& number, std::int64_t p, long digits, Direction d, bool negative,
                char* room) {
  Decimal result = digits_above(number, p, room);
  if (digits > 0) {
    result.cut(digits);
  }
  result.round(d, negative);
  if (digits > 0 && result.count > digits) {
    result.cut(digits);
  }
  return result;
}

// As %e and %g: so many significant digits; in the form that %g chooses or with an exponent.
template <class Out>
typename Out::Result write_scientific(const IEEEFloat& x, long digits, bool general,
                                      Rounding rounding, const Out& out) {
  const Direction direction = direction_of(rounding);
  const Value value(x);
  const bool negative = value.operand.negative;
  const auto places = static_cast<std::uint64_t>(digits - 1);
  if (value.is(Class::zero)) {
    return write_zero(negative, general ? 0 : places,
                      general ? std::string_view() : std::string_view("e+00"), out);
  }
  if (!value.is(Class::finite)) {
    return out(value.word());
  }
  if (!general) {
    detail::require_bits(places);
  }
  const Finite finite(value);
  const Binary& number = finite.within_limit();
  const std::int64_t p = place_of_digits(number, digits);
  DigitRoom room(digits_room(number, p));
  Decimal d = rounded(number, p, digits, direction, negative, room.data());
  const std::int64_t top = d.exponent + d.count - 1;
  if (general) {
    d.strip();
  }
  const Tail tail = exponent_tail(d);
  const bool plain = general && top >= -4 && top < digits;
  Spelling text = plain ? decimal::plain(text_of(d), d.exponent, 0)
                        : decimal::pointed(text_of(d), general ? 0 : places);
  text.negative = negative;
  if (!plain) {
    text.tail = tail;
  }
  return out(text);
}

template <class Out>
typename Out::Result write_fixed(const IEEEFloat& x, long places, Rounding rounding,
                                 const Out& out) {
  const Direction direction = direction_of(rounding);
  const Value value(x);
  const bool negative = value.operand.negative;
  const auto wanted = static_cast<std::uint64_t>(places);
  if (value.is(Class::zero)) {
    return write_zero(negative, wanted, {}, out);
  }
  if (!value.is(Class::finite)) {
    return out(value.word());
  }
  const Finite finite(value);
  const Binary& number = finite.within_limit();
  detail::require_bits(wanted);
  const std::int64_t whole = std::max<std::int64_t>(decimal::log10_of_power(number.top()), 0);
  detail::require_bits(static_cast<std::uint64_t>(whole) + wanted);
  const std::int64_t p = std::max<std::int64_t>(-places, last_place(number));
  DigitRoom room(digits_room(number, p));
  const Decimal d = rounded(number, p, 0, direction, negative, room.data());
  Spelling text = decimal::plain(text_of(d), d.exponent, wanted);
  text.negative = negative;
  return out(text);
}

// All digits if `digits` is 0.
template <class Out>
typename Out::Result write_hex(const IEEEFloat& x, long digits, Rounding rounding, const Out& out) {
  const Direction direction = direction_of(rounding);
  const Value value(x);
  const bool all = digits == 0;
  const std::uint64_t places = all ? 0 : static_cast<std::uint64_t>(digits - 1);
  Spelling text;
  text.negative = value.operand.negative;
  text.prefix = "0x";
  text.whole = zero_digit;
  text.zeros_after = places;
  text.tail = "p+0";
  if (value.is(Class::zero)) {
    return out(text);
  }
  if (!value.is(Class::finite)) {
    return out(value.word());
  }
  detail::require_bits(places);
  const Finite finite(value);
  const Binary& number = finite.within_limit();
  const long most = hexadecimal_places(number);
  Room<char, 32> room(most);
  const decimal::Hexadecimal hex = hexadecimal(number, all ? most : std::min(digits - 1, most),
                                               direction, value.operand.negative, room.data());
  text.whole = "1";
  text.places = {room.data(), static_cast<std::size_t>(hex.count)};
  if (all) {
    text.places.remove_suffix(text.places.size() - (text.places.find_last_not_of('0') + 1));
  } else {
    text.zeros_after -= text.places.size();
  }
  const Tail tail('p', number.top() + std::int64_t{hex.carried}, 1);
  text.tail = tail;
  return out(text);
}

}  // namespace

std::string to_shortest(const IEEEFloat& x) { return write_shortest(x, String()); }

std::string to_exact(const IEEEFloat& x) { return write_exact(x, String()); }

std::string to_scientific(const IEEEFloat& x, long digits, Rounding rounding) {
  require_digits(digits, 1);
  return write_scientific(x, digits, false, rounding, String());
}

std::string to_fixed(const IEEEFloat& x, long places, Rounding rounding) {
  require_digits(places, 0);
  return write_fixed(x, places, rounding, String());
}

std::string to_hex(const IEEEFloat& x) { return write_hex(x, 0, Rounding::nearest_even, String()); }

std::string to_hex(const IEEEFloat& x, long digits, Rounding rounding) {
  require_digits(digits, 1);
  return write_hex(x, digits, rounding, String());
}

std::string to_smtlib(const IEEEFloat& x) {
  const Value value(x);
  const IEEEFloat::format f = x.get_format();
  const auto field = [&](unsigned long place, unsigned long width) {
    std::string bits = " #b";
    while (width-- > 0) {
      bits += words::test_bit(value.words(), place + width) ? '1' : '0';
    }
    return bits;
  };
  const auto widths = ' ' + std::to_string(f.exp_width) + ' ' + std::to_string(f.mant_width + 1);
  const std::string_view sign = value.operand.negative ? "-" : "+";
  switch (value.operand.what) {
    case Class::nan:
      return "(_ NaN" + widths + ')';
    case Class::infinite:
      return std::string("(_ ").append(sign).append("oo").append(widths) + ')';
    case Class::zero:
      return std::string("(_ ").append(sign).append("zero").append(widths) + ')';
    default:
      detail::require_bits(f.exp_width + f.mant_width + 14);
      return "(fp" + field(f.exp_width + f.mant_width, 1) + field(f.mant_width, f.exp_width) +
             field(0, f.mant_width) + ')';
  }
}

std::string to_bits_text(const IEEEFloat& x) {
  const OwnPattern own(x);
  const unsigned long bits = own.widths().exp_width + own.widths().mant_width + 1;
  const unsigned long digits = (bits + 3) / 4;
  std::string text(2 + digits, '0');
  text[1] = 'x';
  decimal::write_hexadecimal(own.words(), static_cast<long>(digits), decimal::capital_letters,
                             text.data() + 2);
  return text;
}

// NOLINTNEXTLINE(readability-non-const-parameter): it is written to
std::to_chars_result to_chars(char* first, char* last, const IEEEFloat& x) {
  return write_shortest(x, Range{first, last});
}

// NOLINTNEXTLINE(readability-non-const-parameter)
std::to_chars_result to_chars(char* first, char* last, const IEEEFloat& x, std::chars_format form,
                              int precision, Rounding rounding) {
  const Range out{first, last};
  const long digits = precision < 0 ? 6 : precision;
  switch (form) {
    case std::chars_format::scientific:
      return write_scientific(x, digits + 1, false, rounding, out);
    case std::chars_format::fixed:
      return write_fixed(x, digits, rounding, out);
    case std::chars_format::hex:
      return write_hex(x, precision < 0 ? 0 : digits + 1, rounding, out);
    default:
      return write_scientific(x, std::max(digits, 1L), true, rounding, out);
  }
}

}  // namespace zelk
