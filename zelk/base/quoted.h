// What the texts of exceptions say of what a caller gave.
#ifndef ZELK_BASE_QUOTED_H_
#define ZELK_BASE_QUOTED_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace zelk::detail {

/// At most 200 characters of a text: what follows in a longer one is cut off, and "..." stands for
/// it.
inline std::string quoted(std::string_view text) {
  constexpr std::size_t longest = 200;
  std::string result(text.substr(0, longest));
  if (text.size() > longest) {
    result += "...";
  }
  return result;
}

}  // namespace zelk::detail

#endif  // ZELK_BASE_QUOTED_H_
