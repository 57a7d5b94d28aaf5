// Format strings of values: what the formatters of the standard library and of {fmt} share. Not for
// users.
#ifndef ZELK_FLOAT_FORMAT_TEXT_H_
#define ZELK_FLOAT_FORMAT_TEXT_H_

#include <string>
#include <string_view>
#include <type_traits>

#include "zelk/base/export.h"
#include "zelk/float/ieee_float.h"

namespace zelk::detail {

/// What stands between ':' and '}': [[fill]align][sign]['#']['0'][width]['.'precision][type].
struct FormatOptions {
  std::string_view fill = " ";  ///< one character, in UTF-8
  char align = 0;               ///< '<' '>' '^' or none
  char sign = '-';              ///< '-' '+' ' '
  bool alternate = false;       ///< always with a point
  bool zeros = false;           ///< padded by zeros behind the sign
  char type = 0;                ///< one of "aefgAEFG" or none
  int width = 0;
  int precision = -1;  ///< none where it is negative
  /// The arguments that give the two instead, where they are not negative.
  int width_argument = -1, precision_argument = -1;
};

/// Where {fmt} prints a double otherwise than the standard library.
enum class FormatStyle : bool { standard, fmt };

/// x as `options` say.
ZELK_EXPORT std::string formatted(const IEEEFloat& x, const FormatOptions& options,
                                  FormatStyle style);

/// Reads options from the front of a parse context's text; throws `Error`, at compile time too.
template <class Error, class Context>
class FormatReader {
 public:
  constexpr explicit FormatReader(Context& parse_context)
      : context(parse_context), at(parse_context.begin()), end(parse_context.end()) {}

  /// Up to the closing brace, whose place it returns.
  constexpr auto read(FormatOptions& options) {
    read_alignment(options);
    if (next_is("+- ")) options.sign = *at++;
    if (next_is("#")) options.alternate = *at++ == '#';
    if (next_is("0")) options.zeros = *at++ == '0';
    read_number(options.width, options.width_argument);
    if (next_is(".")) {
      ++at;
      if (!next_is("0123456789{")) throw Error("a precision is missing");
      read_number(options.precision, options.precision_argument);
    }
    if (next_is("aefgAEFG")) options.type = *at++;
    if (at != end && *at != '}') throw Error("invalid format of a floating-point value");
    return at;
  }

 private:
  constexpr bool next_is(std::string_view any) const {
    return at != end && any.find(*at) != std::string_view::npos;
  }

  // An alignment may have a fill before it.
  constexpr void read_alignment(FormatOptions& options) {
    if (at == end) return;
    const auto lead = static_cast<unsigned char>(*at);
    const std::ptrdiff_t size = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    const auto start = at;
    if (end - at > size) {
      at += size;
      if (next_is("<>^") && *start != '{' && *start != '}') {
        options.fill = {&*start, static_cast<std::size_t>(size)};
      } else {
        at = start;
      }
    }
    if (next_is("<>^")) options.align = *at++;
  }

  // Digits, or the argument in braces that gives the number.
  constexpr void read_number(int& number, int& argument) {
    if (!next_is("{")) {
      if (next_is("0123456789")) number = digits();
      return;
    }
    ++at;
    if (next_is("}")) {
      argument = static_cast<int>(context.next_arg_id());
    } else {
      if (!next_is("0123456789")) throw Error("invalid number of an argument");
      argument = digits();
      context.check_arg_id(argument_id(argument));
    }
    if (!next_is("}")) throw Error("a brace is not closed");
    ++at;
  }
  // The standard library counts arguments in std::size_t, {fmt} in int.
  static constexpr auto argument_id(int id) {
    return static_cast<decltype(std::declval<Context&>().next_arg_id())>(id);
  }
  constexpr int digits() {
    long n = 0;
    for (; next_is("0123456789"); ++at) {
      n = 10 * n + (*at - '0');
      if (n > 2147483647) throw Error("number is too big");
    }
    return static_cast<int>(n);
  }

  Context& context;
  decltype(std::declval<Context&>().begin()) at, end;
};

/// A width or precision that an argument gives.
template <class Error>
struct ArgumentNumber {
  template <class T>
  int operator()(T n) const {
    if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char>) {
      if (n >= 0 && static_cast<unsigned long long>(n) <= 2147483647) return static_cast<int>(n);
    }
    throw Error("a width or precision is no number from 0 to 2147483647");
  }
};

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_FORMAT_TEXT_H_
