// What the texts of exceptions say of what a caller gave.
#ifndef ZELK_BASE_QUOTED_H_
#define ZELK_BASE_QUOTED_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace zelk::detail {

/// At most 200 bytes of a text: what follows in a longer one is cut off, no character of UTF-8
/// halved, and "..." stands for it.
inline std::string quoted(std::string_view text) {
  std::size_t length = 200;
  if (text.size() <= length) {
    return std::string(text);
  }
  for (int i = 0; i < 3 && (text[length] & 0xC0) == 0x80; ++i) {  // within a character
    --length;
  }
  return std::string(text.substr(0, length)) + "...";
}

}  // namespace zelk::detail

#endif  // ZELK_BASE_QUOTED_H_
