#include "zelk/limbs/limbs.h"

#include "zelk/limbs/few.h"
#include "zelk/limbs/many.h"

namespace zelk::limbs {

namespace {

// What each operation is for every size: a function of its own, so that none pays for the others.
constexpr auto add_pattern =
    [](auto s, auto n, Direction d, Limb* x, const Limb* y) __attribute__((noinline)) {
  add_sub(s, n, d, x, y, 0);
};
constexpr auto subtract_pattern =
    [](auto s, auto n, Direction d, Limb* x, const Limb* y) __attribute__((noinline)) {
  add_sub(s, n, d, x, y, 1);
};
constexpr auto multiply_pattern =
    [](auto s, auto n, Direction d, Limb* x, const Limb* y) __attribute__((noinline)) {
  multiply(s, n, d, x, y);
};
constexpr auto divide_pattern =
    [](auto s, auto n, Direction d, Limb* x, const Limb* y) __attribute__((noinline)) {
  divide(s, n, d, x, y);
};

template <class Operation>
[[gnu::always_inline]] inline void apply(Operation operation, Limb* x, const Limb* y,
                                         rules::Widths f, Direction d) {
  with_size(
      Shape{f}, [&](auto s, auto n) __attribute__((always_inline)) { operation(s, n, d, x, y); });
}

}  // namespace

void add(Limb* x, const Limb* y, rules::Widths f, Direction d) { apply(add_pattern, x, y, f, d); }
void subtract(Limb* x, const Limb* y, rules::Widths f, Direction d) {
  apply(subtract_pattern, x, y, f, d);
}
void multiply(Limb* x, const Limb* y, rules::Widths f, Direction d) {
  apply(multiply_pattern, x, y, f, d);
}
void divide(Limb* x, const Limb* y, rules::Widths f, Direction d) {
  apply(divide_pattern, x, y, f, d);
}

rules::Operand operand_of(const Limb* x, rules::Widths f) { return operand_of(Shape{f}, x); }

// The order where the upper limbs do not decide.
[[gnu::noinline]] static int compare_below(const Limb* x, const Limb* y, rules::Widths f) {
  const rules::Operand a = operand_of(x, f);
  const rules::Operand b = operand_of(y, f);
  if (a.is(rules::Class::nan) || b.is(rules::Class::nan)) {
    return 2;
  }
  if (a.negative != b.negative) {
    return a.is(rules::Class::zero) && b.is(rules::Class::zero) ? 0 : a.negative ? -1 : 1;
  }
  const int order = a.negative ? mpn_cmp(y, x, size(f)) : mpn_cmp(x, y, size(f));
  return (order > 0) - (order < 0);
}

int compare(const Limb* x, const Limb* y, rules::Widths f) {
  // The upper 64 bits, which hold sign and exponent, are mostly enough; as binary64 patterns are,
  // they are ordered without a look at the single fields.
  const Shape s{f};
  const long n = s.significand_size();
  const words::RuntimeShape upper{static_cast<long>(s.exp_width),
                                  63 - static_cast<long>(s.exp_width)};
  const Limb upper_x = upper_limb(s, n, x);
  const Limb upper_y = upper_limb(s, n, y);
  const std::int64_t key_x = words::order_key(upper, upper_x);
  const std::int64_t key_y = words::order_key(upper, upper_y);
  if (key_x != key_y && upper_x << 1 < s.upper_infinity() && upper_y << 1 < s.upper_infinity())
      [[likely]] {
    return key_x < key_y ? -1 : 1;
  }
  return compare_below(x, y, f);
}

}  // namespace zelk::limbs
