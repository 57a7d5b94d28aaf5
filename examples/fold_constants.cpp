// Folds constants: reads expressions and prints what they are in a format, in fewest decimal digits
// and in hexadecimal ones, with the flags that were raised.
//
//   fold_constants format [expression...]
//     a format is half, bfloat16, single, double, quad, octuple or e,m: 5,10
//     an expression has numbers as `from_text` takes them, + - * / and parentheses, sqrt(x) and
//     fma(x, y, z); without any, each line of the standard input is one
#include <array>
#include <charconv>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "zelk/zelk.h"

namespace {

using zelk::Environment;
using zelk::IEEEFloat;
using Format = IEEEFloat::format;

class Folder {
 public:
  Folder(std::string_view text, Format format)
      : first(text.data()), at(first), last(first + text.size()), f(format) {}

  /// All of the text is one expression.
  IEEEFloat fold() {
    IEEEFloat x = sum(0);
    if (!at_end()) {
      fail("an operator is missing");
    }
    return x;
  }

  std::string flags() const {
    constexpr std::pair<unsigned char, const char*> names[] = {
        {zelk::swflt::flag_invalid, "invalid"},
        {zelk::swflt::flag_divide_by_zero, "divide-by-zero"},
        {zelk::swflt::flag_overflow, "overflow"},
        {zelk::swflt::flag_underflow, "underflow"},
        {zelk::swflt::flag_inexact, "inexact"}};
    std::string text;
    for (const auto& [flag, name] : names) {
      if ((env.flags & flag) != 0) {
        text += (text.empty() ? "" : " ") + std::string(name);
      }
    }
    return text.empty() ? "exact" : text;
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw std::invalid_argument("column " + std::to_string(at - first + 1) + ": " + what);
  }

  bool at_end() {
    while (at != last && (*at == ' ' || *at == '\t' || *at == '\r')) {
      ++at;
    }
    return at == last;
  }
  // Whether this comes next; then it is taken.
  bool take(std::string_view token) {
    if (at_end() || !std::string_view(at, last).starts_with(token)) {
      return false;
    }
    at += token.size();
    return true;
  }
  void expect(std::string_view token) {
    if (!take(token)) {
      fail("'" + std::string(token) + "' is missing");
    }
  }

  IEEEFloat sum(int depth) {
    IEEEFloat x = product(depth);
    for (;;) {
      if (take("+")) {
        x = env.add(std::move(x), product(depth));
      } else if (take("-")) {
        x = env.subtract(std::move(x), product(depth));
      } else {
        return x;
      }
    }
  }

  IEEEFloat product(int depth) {
    IEEEFloat x = factor(depth);
    for (;;) {
      if (take("*")) {
        x = env.multiply(std::move(x), factor(depth));
      } else if (take("/")) {
        x = env.divide(std::move(x), factor(depth));
      } else {
        return x;
      }
    }
  }

  IEEEFloat factor(int depth) {
    if (depth > 1000) {
      fail("nested too deeply");
    }
    if (take("-")) {
      return -factor(depth + 1);
    }
    if (take("(")) {
      return arguments<1>(depth)[0];
    }
    if (take("sqrt(")) {
      return env.sqrt(arguments<1>(depth)[0]);
    }
    if (take("fma(")) {
      const auto [x, y, z] = arguments<3>(depth);
      return env.fma(x, y, z);
    }
    IEEEFloat x(f, IEEEFloat::ROUND_NEAREST_EVEN);
    const auto [end, error] = zelk::from_chars(at, last, x, env);
    if (error != std::errc()) {
      fail("a number is missing");
    }
    at = end;
    return x;
  }

  // Expressions in parentheses, of which the first was taken.
  template <std::size_t count>
  std::array<IEEEFloat, count> arguments(int depth) {
    std::array<IEEEFloat, count> all;
    for (std::size_t i = 0; i < count; ++i) {
      all[i] = sum(depth + 1);
      expect(i + 1 < count ? "," : ")");
    }
    return all;
  }

  const char *first, *at, *last;
  Format f;
  Environment env;
};

Format format_of(std::string_view name) {
  constexpr std::pair<std::string_view, Format> names[] = {
      {"half", zelk::formats::half},     {"bfloat16", zelk::formats::bfloat16},
      {"single", zelk::formats::single}, {"double", zelk::formats::double_},
      {"quad", zelk::formats::quad},     {"octuple", zelk::formats::octuple}};
  for (const auto& [known, f] : names) {
    if (name == known) {
      return f;
    }
  }
  Format f;
  const char* last = name.data() + name.size();
  const auto e = std::from_chars(name.data(), last, f.exp_width);
  if (e.ec == std::errc() && e.ptr != last && *e.ptr == ',' &&
      std::from_chars(e.ptr + 1, last, f.mant_width).ptr == last && f.mant_width > 0) {
    return f;
  }
  throw std::invalid_argument("no format: " + std::string(name));
}

// Prints a line for an expression, and says whether it is one.
bool report(std::string_view text, Format f) {
  try {
    Folder folder(text, f);
    const IEEEFloat x = folder.fold();
    std::cout << to_shortest(x) << "  " << to_hex(x) << "  " << folder.flags() << '\n';
    return true;
  } catch (const std::exception& e) {
    std::cout << "error: " << e.what() << '\n';
    return false;
  }
}

bool run(int argc, char** argv) {
  if (argc < 2) {
    throw std::invalid_argument("usage: fold_constants format [expression...]");
  }
  const Format f = format_of(argv[1]);
  bool good = true;
  for (int i = 2; i < argc; ++i) {
    good = report(argv[i], f) && good;
  }
  for (std::string line; argc == 2 && std::getline(std::cin, line);) {
    good = report(line, f) && good;
  }
  return good;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv) ? 0 : 1;
  } catch (const std::exception& e) {
    std::cerr << "fold_constants: " << e.what() << '\n';
    return 2;
  }
}
