// The constants of a format within doubles: e <= 11 and m <= 52.
#ifndef ZELK_ARRAYS_SHAPE_H_
#define ZELK_ARRAYS_SHAPE_H_

#include <bit>
#include <cstdint>
#include <limits>

#include "zelk/arrays/calls.h"

namespace zelk::arrays::detail {

inline constexpr Format binary32{8, 23};
inline constexpr Format binary64{11, 52};

/// 2^n, for a double's normal and subnormal values.
constexpr double pow2(int n) {
  return n < -1022 ? std::bit_cast<double>(std::uint64_t{1} << (n + 1074))
                   : std::bit_cast<double>(static_cast<std::uint64_t>(n + 1023) << 52);
}

/// What a format's widths say.
struct Shape {
  int e, m;

  explicit constexpr Shape(const Format& f)
      : e(static_cast<int>(f.exp_width)), m(static_cast<int>(f.mant_width)) {}

  constexpr int emax() const { return (1 << (e - 1)) - 1; }
  constexpr int emin() const { return 1 - emax(); }
  constexpr double least_normal() const { return pow2(emin()); }
  constexpr double largest() const { return pow2(emax()) * (2 - pow2(-m)); }
  constexpr std::uint64_t infinity() const { return ((std::uint64_t{1} << e) - 1) << m; }
  constexpr std::uint64_t sign() const { return std::uint64_t{1} << (e + m); }
  constexpr std::uint64_t nan() const { return sign() | infinity() | 1; }
};

inline constexpr double infinity = std::numeric_limits<double>::infinity();

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_SHAPE_H_
