// The rounding rule of IEEE 754, clause 4.3: whether a magnitude is incremented, and what overflow
// gives.
//
// Each road has the rest of a number in a shape of its own and asks here, or spells the rule as its
// registers have it; a test holds the spellings against this one over all inputs.
#ifndef ZELK_RULES_ROUNDING_H_
#define ZELK_RULES_ROUNDING_H_

namespace zelk::rules {

/// The widths of a format: e bits of biased exponent, m bits of trailing significand.
struct Widths {
  unsigned long exp_width;
  unsigned long mant_width;

  constexpr bool operator==(const Widths&) const = default;

  /// Whether a pattern has at most so many bits; the widths may be any.
  constexpr bool fit(unsigned long bits) const {
    return mant_width < bits && exp_width < bits - mant_width;
  }
};

/// A rounding direction. Values store one of the first four, by its number; environments know all.
enum Direction : unsigned { nearest, toward_zero, upward, downward, nearest_away, to_odd };

/// Whether a number that a value stores is a direction. Others round nothing: what has to be
/// rounded reports them.
constexpr bool is_direction(unsigned mode) { return mode <= downward; }

/// Whether overflow gives an infinity; of directed rounding, whether it moves magnitudes up.
constexpr bool rounds_outward(Direction d, bool negative) {
  return d == nearest || d == nearest_away || d == (negative ? downward : upward);
}

/// Whether rounding increments a magnitude whose kept part is odd or even: `half` is the highest
/// digit below it, `rest` tells whether any lower one is not 0.
constexpr bool increments(Direction d, bool negative, bool odd, bool half, bool rest) {
  switch (d) {
    case nearest:
      return half && (rest || odd);
    case nearest_away:
      return half;
    case to_odd:
      return (half || rest) && !odd;
    default:
      return (half || rest) && rounds_outward(d, negative);
  }
}

}  // namespace zelk::rules

#endif  // ZELK_RULES_ROUNDING_H_
