// What is computed on vectors: steps on blocks of doubles, chosen for the instruction set that the
// processor has.
//
// An operation is two steps. The first gives each result rounded to odd to 53 bits, or exactly; the
// second rounds it into f, where 53 >= m + 1 + 2 makes it the result rounded once (Boldo and
// Melquiond, "Emulation of FMA and correctly rounded sums: proved algorithms using rounding to
// odd", 2008, theorem 3). Lengths are multiples of `granule`; no pointer is aligned.
#ifndef ZELK_ARRAYS_SIMD_KERNELS_H_
#define ZELK_ARRAYS_SIMD_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "zelk/arrays/shape.h"
#include "zelk/rules/rounding.h"

namespace zelk::arrays::detail {

/// No vector has more lanes.
inline constexpr std::size_t granule = 64;
/// Elements of a block: its doubles, a few times, fit the first cache.
inline constexpr std::size_t block_size = 512;

/// How a vector is cut to the places of a format.
enum class Cut : unsigned char { by_processor, toward_zero, away, to_odd, stochastic };

/// A rounding into a format, prepared for lanes of float or double.
struct RoundingPlan {
  /// For lanes of 23 or 52 digits.
  RoundingPlan(const Environment& env, Format f, bool stochastic, int lane_digits);

  /// Whether there is a quick road for these lanes.
  static bool serves(Format f, int lane_digits);

  Cut cut;
  rules::Direction processor;     ///< what the control word has to be set to
  bool aligned;                   ///< the exponents are those of the lanes
  bool flush;                     ///< tiny results become zeros
  int m;                          ///< digits of the trailing significand
  int dropped;                    ///< digits of a lane below those
  double least_normal;            ///< 2^emin
  double greatest_power;          ///< 2^emax
  double largest;                 ///< the largest finite value
  double tiny_above, tiny_below;  ///< between these a number is tiny
  double overflow[2];             ///< what is beyond, by sign
  std::uint64_t over_pattern[2];  ///< the same as patterns
  std::uint64_t nan_pattern;
  std::uint64_t sign_shift;  ///< from a double's sign to a pattern's
};

/// Rounds doubles to doubles or to patterns, floats to floats. Returns flags. Draws are for
/// Cut::stochastic only.
unsigned round_doubles(const RoundingPlan& plan, const double* x, const std::uint64_t* draws,
                       double* out, std::size_t n);
unsigned round_to_patterns(const RoundingPlan& plan, const double* x, const std::uint64_t* draws,
                           std::uint64_t* out, std::size_t n);
unsigned round_floats(const RoundingPlan& plan, const float* x, float* out, std::size_t n);

/// The square roots of numbers of at most 51 digits to doubles, rounded in one step into a format
/// of p = m + 1 <= 24 digits: such a root is a number of p + 1 digits, or so far from all of these
/// that a double of any direction is on its side. For where roots are from 2^k to 2^(k + 1), the
/// number and the square of one of these are multiples of 2^(2k - 50), so the roots differ by more
/// than 2^(k - 52), a double's last place. Not for the widest exponent. Returns flags.
unsigned round_roots(const RoundingPlan& plan, const double* x, double* out, std::size_t n);
/// Whether all have so few digits.
bool have_51_digits(const double* x, std::size_t n);

/// out[i] := the draw first + i of a seed, n of them.
void draw(std::uint64_t seed, std::uint64_t first, std::uint64_t* out, std::size_t n);

/// Elements that a quick road declines: their places in a block.
struct Declined {
  std::size_t size = 0;
  std::uint16_t place[block_size + granule];
};

/// The results of an operation, rounded to odd; the control word says toward zero. What is declined
/// has the result 1. Returns invalid and divide-by-zero. Toward negative, exact zeros of sums are
/// -0.
unsigned compute_to_odd(Operation op, const double* const (&x)[3], bool toward_negative,
                        double* out, std::size_t n, Declined& declined);
/// Minima or maxima.
void select_doubles(Operation op, const double* x, const double* y, double* out, std::size_t n);

/// x, or the zero of its sign where |x| is less than a bound.
void flush_doubles(double least, const double* x, double* out, std::size_t n);

/// Between types of elements: floats and doubles, patterns and numbers, patterns and narrower ones.
void widen(const float* x, double* out, std::size_t n);
void narrow(const double* x, float* out, std::size_t n);
void narrow(const std::uint64_t* x, Type type, void* out, std::size_t n);
void decode_to_doubles(const void* x, Type type, Shape f, double* out, std::size_t n);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_SIMD_KERNELS_H_
