// Rounding to an integer.
#include "zelk/limbs/limbs.h"
#include "zelk/limbs/patterns.h"

namespace zelk::limbs {

namespace {

// x, a magnitude below one whose last place is 2^-places, becomes 0 or 1.
void round_below_one(Shape s, Rounding r, Limb sign, std::int64_t places, Limb* x) {
  const long n = s.significand_size();
  const Number a = unpack(s, n, x);
  const bool zeros = (a.top & (s.hidden_bit() - 1)) == 0 && trimmed(x, n - 1) == 0;
  if (zeros && a.top == 0) {
    return;
  }
  const bool half = places == static_cast<long>(s.mant_width) + 1;
  const Limb guard = half ? half_limb | Limb{!zeros} : 1;
  const bool up = rounds_up(r, sign, false, guard);
  clear(x, n - 1);
  pack_top(s, n, sign, up ? s.bias() : 0, 0, 0, x);
  r.raise(rules::inexact);
}

template <class S>
[[gnu::noinline]] void round_pattern_to_integral(S shape, Rounding r, Limb* x) {
  const Shape s = shape;
  const long n = s.significand_size();
  const Limb upper = upper_limb(s, n, x);
  const Limb sign = upper >> (limb_bits - 1);
  const std::int64_t field = exponent_field(s, upper);
  if (field == s.exp_max()) [[unlikely]] {
    settle(rules::same(operand_of(s, x)), s, r, x, x);
    return;
  }
  const auto m = static_cast<std::int64_t>(s.mant_width);
  const std::int64_t places = s.bias() + m - (field + std::int64_t{field == 0});
  if (places <= 0) {
    return;
  }
  if (places > m) {
    round_below_one(s, r, sign, places, x);
    return;
  }
  // The digit of 1 is in the significand, or is the lowest of the exponent: that is odd for the
  // numbers from 1 to below 2, and even for those below 1.
  const std::int64_t limb = places / limb_bits;
  const auto bit = static_cast<unsigned>(places % limb_bits);
  const Limb below = limb > 0 ? x[limb - 1] : 0;
  const bool lost = shifted_limb(0, below, bit) != 0 || trimmed(x, limb - 1) > 0;
  const Limb guard = shifted_limb(below, x[limb], bit) | Limb{lost};
  if (guard == 0) {
    return;
  }
  const Limb up = Limb{rounds_up(r, sign, (x[limb] >> bit & 1) != 0, guard)};
  clear(x, limb);
  x[limb] &= ~Limb{0} << bit;
  increment(x + limb, s.pattern_size() - limb, up << bit);
  if (exponent_field(s, upper_limb(s, n, x)) == s.exp_max()) [[unlikely]] {
    pack_overflow(s, r, sign, x);
  }
  r.raise(rules::inexact);
}

}  // namespace

void round_to_integral(Limb* x, rules::Widths f, Rounding r) {
  if (f == binary256::widths) {
    round_pattern_to_integral(Binary256(), r, x);
  } else {
    round_pattern_to_integral(Shape{f}, r, x);
  }
}

}  // namespace zelk::limbs
