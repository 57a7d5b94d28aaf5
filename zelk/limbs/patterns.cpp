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

void pack_overflow(Shape s, Direction d, Limb sign, Limb* out) {
  if (rules::rounds_outward(d, sign != 0)) {
    pack_infinity(s, sign, out);
  } else {
    pack_fields(s, sign, s.exp_max() - 1, ~Limb{0}, out);
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

void apply_table(Operation op, Shape s, Direction d, Limb* x, const Limb* y) {
  const rules::Result r = look_up(op, operand_of(s, x), operand_of(s, y), d);
  switch (r.outcome) {
    case rules::Outcome::computed:
    case rules::Outcome::left:
      break;
    case rules::Outcome::right:
      std::copy_n(y, s.pattern_size(), x);
      break;
    case rules::Outcome::invalid:
      pack_nan(s, x);
      break;
    case rules::Outcome::zero:
      pack_zero(s, Limb{r.negative}, x);
      break;
    case rules::Outcome::infinity:
    case rules::Outcome::pole:
      pack_infinity(s, Limb{r.negative}, x);
      break;
  }
}

}  // namespace zelk::limbs
