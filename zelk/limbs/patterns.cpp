#include "zelk/limbs/patterns.h"

namespace zelk::limbs {

namespace {

// out := the pattern of these fields, `fill` being every limb of the trailing significand.
void pack_fields(Shape s, Limb sign, std::int64_t field, Limb fill, Limb* out) {
  const long n = s.significand_size();
  std::fill_n(out, n - 1, fill);
  pack_top(s, n, sign, field, fill & (s.hidden_bit() - 1), 0, out);
}

rules::Result look_up(Operation op, rules::Operand a, rules::Operand b, Direction d) {
  switch (op) {
    case Operation::product:
      return rules::product(a, b);
    case Operation::quotient:
      return rules::quotient(a, b);
    case Operation::difference:
      b.negative = !b.negative;
      break;
    case Operation::sum:
      break;
  }
  return rules::sum(a, b, d);
}

}  // namespace

void pack_zero(Shape s, Limb sign, Limb* out) { pack_fields(s, sign, 0, 0, out); }

void pack_infinity(Shape s, Limb sign, Limb* out) { pack_fields(s, sign, s.exp_max(), 0, out); }

void pack_nan(Shape s, Limb* out) {
  pack_infinity(s, 1, out);
  out[0] |= 1;
}

void pack_overflow(Shape s, Rounding r, Limb sign, Limb* out) {
  r.raise(rules::overflow | rules::inexact);
  if (rules::rounds_outward(r.direction, sign != 0)) {
    pack_infinity(s, sign, out);
  } else {
    pack_fields(s, sign, s.exp_max() - 1, ~Limb{0}, out);
  }
}

namespace {

// Whether a subnormal pattern that was rounded up is tiny. Only what has become the least normal
// number may not be: with a digit more below it has to be rounded up to that, too.
bool is_tiny_after(Shape s, Rounding r, Limb sign, Limb guard, const Limb* out) {
  const bool normal = exponent_field(s, upper_limb(s, s.significand_size(), out)) != 0;
  return !normal || guard < half_limb || !rounds_up(r, sign, true, guard << 1);
}

}  // namespace

void round_watched(Shape s, Rounding r, Limb sign, Limb guard, Limb* out) {
  const long n = s.significand_size();
  const long size = s.pattern_size(n);
  const std::int64_t field = exponent_field(s, upper_limb(s, n, out));
  const bool below = field == 0 && (guard != 0 || operand_of(s, out).what == rules::Class::finite);
  increment(out, size, Limb{rounds_up(r, sign, out[0] % 2 != 0, guard)});
  if (below && (r.exceptions->tiny_before || is_tiny_after(s, r, sign, guard, out))) {
    if (r.exceptions->flush) {
      pack_zero(s, sign, out);
      guard = 1;
    }
    r.raise(unsigned{guard != 0} * (rules::underflow | rules::inexact));
  } else if (field == s.exp_max() - 1 && exponent_field(s, upper_limb(s, n, out)) == s.exp_max()) {
    r.raise(rules::overflow | rules::inexact);
  } else {
    r.raise_lost(guard);
  }
}

rules::Operand operand_of(Shape s, const Limb* bits) {
  const long n = s.significand_size();
  const Number x = unpack(s, n, bits);
  const bool trailing = (x.top & (s.hidden_bit() - 1)) != 0 || trimmed(bits, n - 1) != 0;
  const rules::Class what = x.exp == s.exp_max()
                                ? (trailing ? rules::Class::nan : rules::Class::infinite)
                            : trailing || x.top != 0 ? rules::Class::finite
                                                     : rules::Class::zero;
  return {what, x.sign != 0};
}

bool settle(rules::Result result, Shape s, Rounding r, Limb* x, const Limb* y) {
  using rules::Outcome;
  switch (result.outcome) {
    case Outcome::computed:
      return false;
    case Outcome::left:
    case Outcome::right:
      if (r.is_watched()) {
        pack_nan(s, x);
      } else if (result.outcome == Outcome::right) {
        std::copy_n(y, s.pattern_size(), x);
      }
      break;
    case Outcome::invalid:
      pack_nan(s, x);
      r.raise(rules::invalid);
      break;
    case Outcome::zero:
      pack_zero(s, Limb{result.negative}, x);
      break;
    case Outcome::pole:
      r.raise(rules::divide_by_zero);
      [[fallthrough]];
    case Outcome::infinity:
      pack_infinity(s, Limb{result.negative}, x);
      break;
  }
  return true;
}

void apply_table(Operation op, Shape s, Rounding r, Limb* x, const Limb* y) {
  settle(look_up(op, operand_of(s, x), operand_of(s, y), r.direction), s, r, x, y);
}

}  // namespace zelk::limbs
