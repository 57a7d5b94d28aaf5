#include "zelk/float/functions.h"

#include "zelk/float/value_access.h"

namespace zelk {

using detail::OwnPattern;
using detail::ValueAccess;
using rules::Class;

namespace {

// Formats too wide to have patterns have the value +0 only.
bool has_pattern(const IEEEFloat& x) {
  return detail::has_patterns(x.get_format().exp_width, x.get_format().mant_width);
}

rules::Operand operand_of(const IEEEFloat& x) {
  return has_pattern(x) ? OwnPattern(x).operand() : rules::Operand{Class::zero, false};
}

bool is_subnormal(const OwnPattern& x) {
  return x.operand().is(Class::finite) &&
         words::are_zeros(x.words(), x.widths().mant_width, x.widths().exp_width);
}

// x after a change that is made to the pattern in x's own format.
template <class Change>
IEEEFloat changed(IEEEFloat x, Change change) {
  if (!ValueAccess::is_foreign(x)) {
    change(x);
    return x;
  }
  IEEEFloat own = ValueAccess::generic_copy(x);
  change(own);
  own.self_specialize_repr(x.get_repr());
  return own;
}

IEEEFloat with_sign(IEEEFloat x, bool negative) {
  return changed(std::move(x), [negative](IEEEFloat& v) {
    if (v.is_nan()) {
      v.self_nan();
    } else {
      v.set_sign(negative);
    }
  });
}

// For a fixed sign the pattern one above is the value of next larger magnitude, that of the largest
// finite value the infinity.
IEEEFloat next(IEEEFloat x, bool up) {
  return changed(std::move(x), [up](IEEEFloat& v) {
    if (v.is_nan()) {
      v.self_nan();
    } else if (v.is_zero()) {
      v.set_sign(!up);
      ValueAccess::step_magnitude(v, true);
    } else if (const bool grow = up != v.get_sign(); !grow || !v.is_inf()) {
      ValueAccess::step_magnitude(v, grow);
    }
  });
}

}  // namespace

FloatClass classify(const IEEEFloat& x) {
  const rules::Operand o = operand_of(x);
  switch (o.what) {
    case Class::nan:
      return FloatClass::quiet_nan;
    case Class::infinite:
      return o.negative ? FloatClass::negative_infinity : FloatClass::positive_infinity;
    case Class::zero:
      return o.negative ? FloatClass::negative_zero : FloatClass::positive_zero;
    default:
      break;
  }
  if (is_subnormal(OwnPattern(x))) {
    return o.negative ? FloatClass::negative_subnormal : FloatClass::positive_subnormal;
  }
  return o.negative ? FloatClass::negative_normal : FloatClass::positive_normal;
}

bool is_normal(const IEEEFloat& x) {
  const FloatClass c = classify(x);
  return c == FloatClass::negative_normal || c == FloatClass::positive_normal;
}

bool is_finite(const IEEEFloat& x) {
  const rules::Operand o = operand_of(x);
  return o.is(Class::zero) || o.is(Class::finite);
}

bool is_integral(const IEEEFloat& x) {
  const rules::Operand o = operand_of(x);
  if (!o.is(Class::finite)) {
    return o.is(Class::zero);
  }
  const OwnPattern own(x);
  const auto n = own.magnitude();
  return n ? n->lowest() >= 0 : exact::is_integral(own);
}

IEEEFloat abs(IEEEFloat x) { return with_sign(std::move(x), false); }
IEEEFloat operator-(IEEEFloat x) {
  const bool negative = operand_of(x).negative;
  return with_sign(std::move(x), !negative);
}
IEEEFloat copy_sign(IEEEFloat x, const IEEEFloat& sign) {
  return with_sign(std::move(x), operand_of(sign).negative);
}

IEEEFloat next_up(IEEEFloat x) { return next(std::move(x), true); }
IEEEFloat next_down(IEEEFloat x) { return next(std::move(x), false); }

QNumber exponent_of(const IEEEFloat& x) {
  switch (operand_of(x).what) {
    case Class::nan:
      detail::throw_error("NaN has no exponent");
    case Class::infinite:
      detail::throw_error("infinity has no exponent");
    case Class::zero:
      detail::throw_error("zero has no exponent");
    default:
      break;
  }
  const OwnPattern o(x);
  const auto n = o.magnitude();
  return n ? n->exponent : detail::within_limits([&] { return exact::exponent_of(o); });
}

std::partial_ordering compare(const IEEEFloat& x, const IEEEFloat& y) {
  const auto ordering = [](int order) {
    return order == 2 ? std::partial_ordering::unordered : order <=> 0;
  };
  if (has_pattern(x) && has_pattern(y)) {
    return ordering(OwnPattern(x).compare(OwnPattern(y)));
  }
  // One of them is +0.
  const IEEEFloat zero(IEEEFloat::format{2, 1}, IEEEFloat::ROUND_NEAREST_EVEN);
  return ordering(has_pattern(x)   ? OwnPattern(x).compare(OwnPattern(zero))
                  : has_pattern(y) ? OwnPattern(zero).compare(OwnPattern(y))
                                   : 0);
}

std::strong_ordering total_order(const IEEEFloat& x, const IEEEFloat& y) {
  if (x.get_format() != y.get_format()) {
    detail::throw_error("operands of different formats");
  }
  if (!has_pattern(x)) {
    return std::strong_ordering::equal;
  }
  const OwnPattern a(x);
  return words::compare_patterns(a.words(), OwnPattern(y).words(), a.widths()) <=> 0;
}

}  // namespace zelk
