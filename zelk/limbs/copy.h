// Copies of limbs.
#ifndef ZELK_LIMBS_COPY_H_
#define ZELK_LIMBS_COPY_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zelk::limbs {

/// to := the n limbs of another number, or of the same. Those of a few dozen go in pieces that lie
/// where the pieces of the next reader do: the processor has them at hand then.
inline void copy(const std::uint64_t* from, long n, std::uint64_t* to) {
  using Pair [[gnu::vector_size(2 * sizeof *to)]] = std::uint64_t;
  if (n == 4) {  // of binary256
    for (long i = 0; i < 4; ++i) {
      to[i] = from[i];
    }
    return;
  }
  if (n > 64) {
    std::memmove(to, from, static_cast<std::size_t>(n) * sizeof *to);
    return;
  }
  long i = 0;
  for (; n > 8 && i + 4 <= n; i += 4) {
    Pair first;
    Pair second;
    std::memcpy(&first, from + i, sizeof first);
    std::memcpy(&second, from + i + 2, sizeof second);
    std::memcpy(to + i, &first, sizeof first);
    std::memcpy(to + i + 2, &second, sizeof second);
  }
  for (; i < n; ++i) {
    to[i] = from[i];
  }
}

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_COPY_H_
