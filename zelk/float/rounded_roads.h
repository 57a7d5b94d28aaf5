// The table of roads of environments: which function computes a rounded operation, with flags, on
// patterns of a kind.
//
// Included by environment.h, whose inline functions take the first step; not for users.
#ifndef ZELK_FLOAT_ROUNDED_ROADS_H_
#define ZELK_FLOAT_ROUNDED_ROADS_H_

#include <cstdint>

#include "zelk/base/export.h"
#include "zelk/float/kind.h"

namespace zelk {

struct Environment;

namespace exact {
struct Source;
struct Target;
}  // namespace exact

namespace detail {

/// x := op x, a pattern of format (e, m).
struct OnOne {
  using OnRoad = void (*)(Pattern& x, unsigned long exp_width, unsigned long mant_width,
                          Environment& env);
  using OnPacked = std::uint64_t (*)(std::uint64_t x, Environment& env);
  using OnNumbers = void (*)(const exact::Source& x, const exact::Target& t);
};
/// x := x op y, patterns of one format.
struct OnTwo {
  using OnRoad = void (*)(Pattern& x, const Pattern& y, unsigned long exp_width,
                          unsigned long mant_width, Environment& env);
  using OnPacked = std::uint64_t (*)(std::uint64_t x, std::uint64_t y, Environment& env);
  using OnNumbers = void (*)(const exact::Source& x, const exact::Source& y,
                             const exact::Target& t);
};
/// x := x * y + z.
struct OnThree {
  using OnRoad = void (*)(Pattern& x, const Pattern& y, const Pattern& z, unsigned long exp_width,
                          unsigned long mant_width, Environment& env);
  using OnPacked = std::uint64_t (*)(std::uint64_t x, std::uint64_t y, std::uint64_t z,
                                     Environment& env);
  using OnNumbers = void (*)(const exact::Source& x, const exact::Source& y, const exact::Source& z,
                             const exact::Target& t);
};

/// An operation on all roads; null where it is computed on numbers. Packed words that are rounded
/// to nearest-even stay in registers: their way through memory takes longer than a sum does.
template <class Operands>
struct RoundedOperations {
  typename Operands::OnPacked nearest32;
  typename Operands::OnPacked nearest64;
  typename Operands::OnRoad on[road_count];
  typename Operands::OnNumbers on_numbers;

  typename Operands::OnRoad operator[](Road r) const { return on[static_cast<unsigned>(r)]; }
};

extern ZELK_EXPORT const RoundedOperations<OnTwo> rounded_sum;         ///< of `add`
extern ZELK_EXPORT const RoundedOperations<OnTwo> rounded_difference;  ///< of `subtract`
extern ZELK_EXPORT const RoundedOperations<OnTwo> rounded_product;     ///< of `multiply`
extern ZELK_EXPORT const RoundedOperations<OnTwo> rounded_quotient;    ///< of `divide`
extern ZELK_EXPORT const RoundedOperations<OnOne> rounded_root;        ///< of `sqrt`
extern ZELK_EXPORT const RoundedOperations<OnTwo> rounded_remainder;   ///< of `remainder`
extern ZELK_EXPORT const RoundedOperations<OnTwo> rounded_modulo;      ///< of `modulo`
extern ZELK_EXPORT const RoundedOperations<OnOne> rounded_integral;    ///< of `round_to_integral`
extern ZELK_EXPORT const RoundedOperations<OnThree> rounded_fused;     ///< of `fma`

/// x := the larger or the smaller of two patterns in limbs, or of their magnitudes; false, and
/// nothing done, where that is not seen in their upper limbs.
template <bool largest, bool magnitude>
bool select_limbs(std::uint64_t* x, const std::uint64_t* y, unsigned long exp_width,
                  unsigned long mant_width);

/// A packed binary32 or binary64 word as one of the other format, rounded to nearest-even.
ZELK_EXPORT std::uint64_t binary64_of(std::uint64_t a, Environment& env);
ZELK_EXPORT std::uint64_t binary32_of(std::uint64_t a, Environment& env);

}  // namespace detail
}  // namespace zelk

#endif  // ZELK_FLOAT_ROUNDED_ROADS_H_
