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
  for (const std::uint64_t word : detail::PatternAccess::words(x)) {
    mix(word);
  }
  return hash;
}

}  // namespace zelk
