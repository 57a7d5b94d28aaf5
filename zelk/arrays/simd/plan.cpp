#include <cmath>

#include "zelk/arrays/simd/kernels.h"

namespace zelk::arrays::detail {
namespace {

rules::Direction processor_direction(Cut cut, rules::Direction d) {
  return cut == Cut::by_processor ? d : rules::toward_zero;
}

Cut cut_of(rules::Direction d, bool stochastic) {
  return stochastic                 ? Cut::stochastic
         : d == rules::nearest_away ? Cut::away
         : d == rules::to_odd       ? Cut::to_odd
         : d == rules::toward_zero  ? Cut::toward_zero
                                    : Cut::by_processor;
}

double above(double x, int lane_digits) {
  return lane_digits == 52 ? std::nextafter(x, infinity)
                           : std::nextafter(static_cast<float>(x), static_cast<float>(infinity));
}

// The least magnitude that is not tiny, of numbers of one sign: rounded to m + 1 digits without an
// end of the exponents it is the least normal value, or of those that tininess is judged before
// rounding, it is that itself.
double tiny_end(const RoundingPlan& p, rules::Direction d, bool negative, bool before,
                int lane_digits) {
  const double place = p.least_normal * pow2(-p.m - 1);  // of numbers just below
  if (before || d == rules::toward_zero || d == rules::to_odd || p.m + 2 > lane_digits) {
    return p.least_normal;
  }
  if (d == rules::nearest || d == rules::nearest_away) {
    return p.least_normal - place / 2;
  }
  return rules::rounds_outward(d, negative) ? above(p.least_normal - place, lane_digits)
                                            : p.least_normal;
}

}  // namespace

// Aligned lanes are rounded as integers, whatever m is. Others are rounded by adding a power of
// two, whose exponent has to be within the lanes' own, and whose last place has to be that of f.
bool RoundingPlan::serves(Format f, int lane_digits) {
  const int e = static_cast<int>(f.exp_width), m = static_cast<int>(f.mant_width);
  const int lane_exponent = lane_digits == 52 ? 11 : 8;
  return m <= lane_digits && (e == lane_exponent || (e < lane_exponent && m <= lane_digits - 2));
}

RoundingPlan::RoundingPlan(const Environment& env, Format f, bool stochastic, int lane_digits)
    : flush(env.flush_results), m(Shape(f).m), dropped(lane_digits - m) {
  const Shape s(f);
  const auto d = stochastic ? rules::nearest : static_cast<rules::Direction>(env.rounding);
  cut = cut_of(d, stochastic);
  processor = processor_direction(cut, d);
  aligned = s.e == (lane_digits == 52 ? 11 : 8);
  least_normal = s.least_normal();
  greatest_power = pow2(s.emax());
  largest = s.largest();
  const bool before = stochastic || env.tininess == Tininess::before_rounding;
  tiny_above = -tiny_end(*this, d, true, before, lane_digits);
  tiny_below = tiny_end(*this, d, false, before, lane_digits);
  for (const bool negative : {false, true}) {
    const bool outward = rules::rounds_outward(d, negative);
    overflow[negative ? 1 : 0] = (outward ? infinity : largest) * (negative ? -1 : 1);
    over_pattern[negative ? 1 : 0] = (s.infinity() - (outward ? 0 : 1)) | (negative ? s.sign() : 0);
  }
  nan_pattern = s.nan();
  sign_shift = static_cast<std::uint64_t>(63 - s.e - s.m);
}

}  // namespace zelk::arrays::detail
