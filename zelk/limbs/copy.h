// Copies of limbs.
#ifndef ZELK_LIMBS_COPY_H_
#define ZELK_LIMBS_COPY_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zelk/base/machine.h"

namespace zelk::limbs {

/// to := four limbs, two at a time.
inline void copy_four(const std::uint64_t* from, std::uint64_t* to) {
#ifdef ZELK_EXTENSIONS
  using Pair [[gnu::vector_size(2 * sizeof *to)]] = std::uint64_t;
  Pair first;
  Pair second;
  std::memcpy(&first, from, sizeof first);
  std::memcpy(&second, from + 2, sizeof second);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + 2, &second, sizeof second);
#else
  for (int i = 0; i < 4; ++i) {
    to[i] = from[i];
  }
#endif
}

/// to := the n limbs of another number, or of the same. Those of a few dozen go in pieces that lie
/// where the pieces of the next reader do: the processor has them at hand then.
inline void copy(const std::uint64_t* from, long n, std::uint64_t* to) {
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
    copy_four(from + i, to + i);
  }
  for (; i < n; ++i) {
    to[i] = from[i];
  }
}

}  // namespace zelk::limbs

#endif  // ZELK_LIMBS_COPY_H_
