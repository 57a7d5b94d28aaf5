#include "zelk/limbs/limbs.h"

#include "zelk/limbs/few.h"
#include "zelk/limbs/many.h"

namespace zelk::limbs {

namespace {

// What each operation is for a size: a function of its own, so that none pays for the others.

template <class S, class N, class R>
[[gnu::noinline]] void add_pattern(S s, N n, R r, Limb* x, const Limb* y) {
  add_sub(s, n, r, x, y, 0);
}
template <class S, class N, class R>
[[gnu::noinline]] void subtract_pattern(S s, N n, R r, Limb* x, const Limb* y) {
  add_sub(s, n, r, x, y, 1);
}
template <class S, class N, class R>
[[gnu::noinline]] void multiply_pattern(S s, N n, R r, Limb* x, const Limb* y) {
  multiply(s, n, r, x, y);
}
template <class S, class N, class R>
[[gnu::noinline]] void divide_pattern(S s, N n, R r, Limb* x, const Limb* y) {
  divide(s, n, r, x, y);
}

constexpr Fixed<Binary256::size> few;

}  // namespace

template <class R>
void binary256::add(Limb* x, const Limb* y, R r) {
  add_sub(Binary256(), few, r, x, y, 0);
}
template <class R>
void binary256::subtract(Limb* x, const Limb* y, R r) {
  add_sub(Binary256(), few, r, x, y, 1);
}
template <class R>
void binary256::multiply(Limb* x, const Limb* y, R r) {
  limbs::multiply(Binary256(), few, r, x, y);
}
template <class R>
void binary256::divide(Limb* x, const Limb* y, R r) {
  limbs::divide(Binary256(), few, r, x, y);
}

template <class R>
void any_size::add(Limb* x, const Limb* y, rules::Widths f, R r) {
  with_size(Shape{f}, [=](auto s, auto n) { add_pattern(s, n, r, x, y); });
}
template <class R>
void any_size::subtract(Limb* x, const Limb* y, rules::Widths f, R r) {
  with_size(Shape{f}, [=](auto s, auto n) { subtract_pattern(s, n, r, x, y); });
}
template <class R>
void any_size::multiply(Limb* x, const Limb* y, rules::Widths f, R r) {
  with_size(Shape{f}, [=](auto s, auto n) { multiply_pattern(s, n, r, x, y); });
}
template <class R>
void any_size::divide(Limb* x, const Limb* y, rules::Widths f, R r) {
  with_size(Shape{f}, [=](auto s, auto n) { divide_pattern(s, n, r, x, y); });
}

template void binary256::add(Limb*, const Limb*, Direction);
template void binary256::add(Limb*, const Limb*, Rounding);
template void binary256::subtract(Limb*, const Limb*, Direction);
template void binary256::subtract(Limb*, const Limb*, Rounding);
template void binary256::multiply(Limb*, const Limb*, Direction);
template void binary256::multiply(Limb*, const Limb*, Rounding);
template void binary256::divide(Limb*, const Limb*, Direction);
template void binary256::divide(Limb*, const Limb*, Rounding);
template void any_size::add(Limb*, const Limb*, rules::Widths, Direction);
template void any_size::add(Limb*, const Limb*, rules::Widths, Rounding);
template void any_size::subtract(Limb*, const Limb*, rules::Widths, Direction);
template void any_size::subtract(Limb*, const Limb*, rules::Widths, Rounding);
template void any_size::multiply(Limb*, const Limb*, rules::Widths, Direction);
template void any_size::multiply(Limb*, const Limb*, rules::Widths, Rounding);
template void any_size::divide(Limb*, const Limb*, rules::Widths, Direction);
template void any_size::divide(Limb*, const Limb*, rules::Widths, Rounding);

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

// Numbers in the order of two patterns, or the same where the upper 64 bits, which hold sign and
// exponent, are not enough. As binary64 patterns are, these are ordered without a look at the
// single fields.
struct Keys {
  std::int64_t x;
  std::int64_t y;
};
[[gnu::always_inline]] static inline Keys upper_keys(const Limb* x, const Limb* y,
                                                     rules::Widths f) {
  const Shape s{f};
  const long n = s.significand_size();
  const Limb upper_x = upper_limb(s, n, x);
  const Limb upper_y = upper_limb(s, n, y);
  if (std::max(upper_x << 1, upper_y << 1) >= s.upper_infinity()) [[unlikely]] {
    return {0, 0};
  }
  return {words::order_key(words::binary64, upper_x), words::order_key(words::binary64, upper_y)};
}

// With the widths of binary256 as constants.
static inline Keys keys_of(const Limb* x, const Limb* y, rules::Widths f) {
  return f == binary256::widths ? upper_keys(x, y, binary256::widths) : upper_keys(x, y, f);
}

int compare(const Limb* x, const Limb* y, rules::Widths f) {
  const Keys keys = keys_of(x, y, f);
  return keys.x == keys.y ? compare_below(x, y, f) : keys.x < keys.y ? -1 : 1;
}

bool less(const Limb* x, const Limb* y, rules::Widths f) {
  const Keys keys = keys_of(x, y, f);
  return keys.x == keys.y ? compare_below(x, y, f) == -1 : keys.x < keys.y;
}

}  // namespace zelk::limbs
