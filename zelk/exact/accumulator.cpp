#include "zelk/exact/accumulator.h"

#include <gmp.h>

#include <utility>

namespace zelk::exact {

Term Accumulator::total() const {
  const auto n = static_cast<mp_size_t>(size + 3);
  const std::uint64_t* positive = digits.data();
  const std::uint64_t* negative = positive + n;
  std::vector<std::uint64_t> difference(static_cast<std::size_t>(n));
  Term sum{mpn_cmp(positive, negative, n) < 0, 0, lowest};
  if (sum.negative) {
    std::swap(positive, negative);
  }
  mpn_sub_n(difference.data(), positive, negative, n);
  BVNumber::from_words(difference, &sum.significand);
  return sum;
}

Term ShortAccumulator::total() const {
  Term result{sum >> 127 != 0, 0, lowest};
  const words::uint128 magnitude = result.negative ? 0 - sum : sum;
  const std::uint64_t digits[] = {static_cast<std::uint64_t>(magnitude),
                                  static_cast<std::uint64_t>(magnitude >> 64)};
  BVNumber::from_words(digits, &result.significand);
  return result;
}

}  // namespace zelk::exact
