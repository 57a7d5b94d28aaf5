#include "zelk/float/native.h"

namespace zelk {

std::size_t PatternHash::operator()(const IEEEFloat& x) const {
  std::size_t hash = 0;
  const auto mix = [&hash](std::uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15;
    hash ^= hash >> 32;
  };
  mix(x.get_format().exp_width);
  mix(x.get_format().mant_width);
  auto words = detail::PatternAccess::words(x);
  while (words.size() > 1 && words.back() == 0) {  // however many the value has room for
    words = words.first(words.size() - 1);
  }
  for (const std::uint64_t word : words) {
    mix(word);
  }
  return hash;
}

}  // namespace zelk
