#include "zelk/decimal/spelling.h"

#include <algorithm>

namespace zelk::decimal {

namespace {

constexpr std::string_view zero = "0";

char* fill(char* out, std::uint64_t zeros) { return std::fill_n(out, zeros, '0'); }

}  // namespace

std::uint64_t Spelling::length() const {
  const std::uint64_t after = zeros_before + places.size() + zeros_after;
  return std::uint64_t{negative} + prefix.size() + whole.size() + whole_zeros +
         (after == 0 ? 0 : 1 + after) + tail.size();
}

char* Spelling::write(char* out) const {
  const auto copy = [&out](std::string_view s) { out = std::copy(s.begin(), s.end(), out); };
  if (negative) {
    *out++ = '-';
  }
  copy(prefix);
  copy(whole);
  out = fill(out, whole_zeros);
  if (zeros_before != 0 || !places.empty() || zeros_after != 0) {
    *out++ = '.';
    out = fill(out, zeros_before);
    copy(places);
    out = fill(out, zeros_after);
  }
  copy(tail);
  return out;
}

Tail::Tail(char letter, std::int64_t exponent, long least) {
  text[size++] = letter;
  text[size++] = exponent < 0 ? '-' : '+';
  char digits[20];
  char* const end = digits + sizeof digits;
  char* first = end;
  auto rest = static_cast<std::uint64_t>(exponent);
  for (rest = exponent < 0 ? 0 - rest : rest; rest != 0 || end - first < least; rest /= 10) {
    *--first = static_cast<char>('0' + rest % 10);
  }
  size = static_cast<std::size_t>(std::copy(first, end, text + size) - text);
}

Spelling plain(std::string_view digits, std::int64_t exponent, std::uint64_t places) {
  Spelling s;
  const auto count = static_cast<std::int64_t>(digits.size());
  if (exponent >= 0 || count == 0) {
    s.whole = count == 0 ? zero : digits;
    s.whole_zeros = count == 0 ? 0 : static_cast<std::uint64_t>(exponent);
    s.zeros_after = places;
    return s;
  }
  const auto whole = static_cast<std::uint64_t>(std::max<std::int64_t>(count + exponent, 0));
  s.whole = whole == 0 ? zero : digits.substr(0, whole);
  s.places = digits.substr(whole);
  const auto after = static_cast<std::uint64_t>(-exponent);
  s.zeros_before = after - s.places.size();
  s.zeros_after = std::max(places, after) - after;
  return s;
}

Spelling pointed(std::string_view digits, std::uint64_t places) {
  Spelling s;
  s.whole = digits.substr(0, 1);
  s.places = digits.substr(1);
  s.zeros_after = std::max<std::uint64_t>(places, s.places.size()) - s.places.size();
  return s;
}

}  // namespace zelk::decimal
