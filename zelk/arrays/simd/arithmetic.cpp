// Operations on doubles, rounded to odd: cut off toward zero, with the last bit set where that
// leaves something.
#include "zelk/arrays/simd/kernels.h"
#include "zelk/rules/flags.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zelk/arrays/simd/arithmetic.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace zelk::arrays::detail::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<double>;
using DU = hn::ScalableTag<std::uint64_t>;
using V = hn::Vec<D>;
using M = hn::Mask<D>;

// Instruction sets with a fused multiply-add find what a product leaves by one. On the others,
// operands of at most 26 digits have exact products, and wider ones are declined.
constexpr bool fused = HWY_NATIVE_FMA != 0;
constexpr std::uint64_t low_digits = (std::uint64_t{1} << 27) - 1;

// Below this magnitude errors of products and quotients may underflow. It is less than half the
// least positive value of every format with e <= 10 and m <= 50, 2^-560, so that there all numbers
// but 0 are the same to rounding.
constexpr double small = 0x1p-900;
constexpr double large = 0x1p1000;

HWY_INLINE V set(double x) { return hn::Set(D(), x); }
HWY_INLINE V bits(std::uint64_t x) { return hn::BitCast(D(), hn::Set(DU(), x)); }
HWY_INLINE V sign_of(V x) { return hn::And(x, bits(std::uint64_t{1} << 63)); }
HWY_INLINE M is_nan(V x) { return hn::IsNaN(x); }
HWY_INLINE M is_finite(V x) { return hn::Lt(hn::Abs(x), set(infinity)); }
HWY_INLINE M is_wide(V x) {
  return hn::RebindMask(
      D(), hn::Ne(hn::And(hn::BitCast(DU(), x), hn::Set(DU(), low_digits)), hn::Zero(DU())));
}
HWY_INLINE V odd_if(M inexact, V x) { return hn::Or(x, hn::IfThenElseZero(inexact, bits(1))); }

// What becomes of the lanes of a block.
struct State {
  M invalid, pole, declined;
  bool any_declined = false;

  HWY_INLINE State() : invalid(hn::MaskFromVec(hn::Zero(D()))), pole(invalid), declined(invalid) {}
  HWY_INLINE void decline(M lanes) {
    declined = lanes;
    any_declined = true;
  }
};

// x + y. Of the two differences of the sum and an operand, that from the larger one is exact when
// the sum is cut off: |sum - x| is a multiple of the finer of their last places and no more than
// |y| rounded up to one. So the sum is exact only if each is the other operand.
HWY_INLINE V sum(V x, V y, bool toward_negative, M& finite) {
  const V s = hn::Add(x, y);
  const M inexact = hn::Or(hn::Ne(hn::Sub(s, x), y), hn::Ne(hn::Sub(s, y), x));
  V r = odd_if(inexact, s);
  finite = is_finite(s);
  if (toward_negative) {  // only -0 + -0 is -0 as it is
    const M zero = hn::Eq(s, hn::Zero(D()));
    r = hn::Or(r, hn::IfThenElseZero(zero, sign_of(hn::Or(x, y))));
  }
  return r;  // which is for finite sums
}

HWY_INLINE void note_invalid(V r, V x, V y, State& state) {
  const M was_nan = hn::Or(is_nan(x), is_nan(y));
  state.invalid = hn::Or(state.invalid, hn::AndNot(was_nan, is_nan(r)));
}

// Whether a result is of a size that leaves exact remainders.
HWY_INLINE M is_usual(V size) {
  return hn::And(hn::Ge(size, set(small)), hn::Le(size, set(large)));
}

HWY_INLINE V product(V x, V y, State& state) {
  const V p = hn::Mul(x, y);
  V r = p;
  if constexpr (fused) {
    r = odd_if(hn::Ne(hn::MulSub(x, y, p), hn::Zero(D())), p);
  }
  const V size = hn::Abs(p);
  M usual = is_usual(size);
  if constexpr (!fused) {
    usual = hn::AndNot(hn::Or(is_wide(x), is_wide(y)), usual);
  }
  if (HWY_UNLIKELY(!hn::AllTrue(D(), usual))) {
    const M other_than_zero = hn::And(hn::Ne(x, hn::Zero(D())), hn::Ne(y, hn::Zero(D())));
    const M tiny = hn::And(hn::Lt(size, set(small)), other_than_zero);
    r = hn::IfThenElse(is_finite(p), r, p);
    r = hn::IfThenElse(tiny, hn::Or(set(small), sign_of(p)), r);
    note_invalid(p, x, y, state);
    if constexpr (!fused) {
      state.decline(hn::And(hn::And(is_finite(x), is_finite(y)), hn::Or(is_wide(x), is_wide(y))));
    }
  }
  return r;
}

HWY_INLINE V quotient(V x, V y, State& state) {
  const V zero = hn::Zero(D());
  const V q = hn::Div(x, y);
  M inexact;
  if constexpr (fused) {
    inexact = hn::Ne(hn::NegMulAdd(q, y, x), zero);
  } else {  // one that is exact has no more digits than x
    inexact = hn::Or(is_wide(q), hn::Ne(hn::Mul(q, y), x));
  }
  V r = odd_if(inexact, q);
  const V size = hn::Abs(q);
  M usual = hn::And(is_usual(size), hn::Ge(hn::Abs(x), set(small)));
  if constexpr (!fused) {
    usual = hn::AndNot(hn::Or(is_wide(x), is_wide(y)), usual);
  }
  if (HWY_UNLIKELY(!hn::AllTrue(D(), usual))) {
    const M finite = hn::And(is_finite(x), is_finite(y));
    const M numbers = hn::And(finite, hn::And(hn::Ne(x, zero), hn::Ne(y, zero)));
    r = hn::IfThenElse(numbers, r, q);
    r = hn::IfThenElse(hn::And(numbers, hn::Lt(size, set(small))), hn::Or(set(small), sign_of(q)),
                       r);
    note_invalid(q, x, y, state);
    state.pole = hn::Or(state.pole, hn::And(finite, hn::Eq(size, set(infinity))));
    M hard = hn::Lt(hn::Abs(x), set(small));
    if constexpr (!fused) {
      hard = hn::Or(hard, hn::Or(is_wide(x), is_wide(y)));
    }
    state.decline(hn::And(numbers, hard));
  }
  return r;
}

HWY_INLINE V root(V x, State& state) {
  const V s = hn::Sqrt(x);
  M inexact, hard = hn::Lt(x, set(small));
  if constexpr (fused) {
    inexact = hn::Ne(hn::NegMulAdd(s, s, x), hn::Zero(D()));
  } else {  // one that is exact has half as many digits as x
    inexact = hn::Or(is_wide(s), hn::Ne(hn::Mul(s, s), x));
    hard = hn::Or(hard, is_wide(x));
  }
  const V r = odd_if(inexact, s);
  const M usual = hn::AndNot(hard, hn::Lt(x, set(infinity)));
  if (HWY_UNLIKELY(!hn::AllTrue(D(), usual))) {
    const M number = hn::And(hn::Gt(x, hn::Zero(D())), hn::Lt(x, set(infinity)));
    state.decline(hn::And(number, hard));
    state.invalid = hn::Or(state.invalid, hn::Lt(x, hn::Zero(D())));
    return hn::IfThenElse(number, r, s);
  }
  return r;
}

// Quick where the product is exact, so that a sum is left.
HWY_INLINE V fused_sum(V x, V y, V z, bool toward_negative, State& state) {
  const V p = hn::Mul(x, y);
  M usual = is_usual(hn::Abs(p));
  if constexpr (fused) {
    usual = hn::And(usual, hn::Eq(hn::MulSub(x, y, p), hn::Zero(D())));
  } else {
    usual = hn::AndNot(hn::Or(is_wide(x), is_wide(y)), usual);
  }
  M finite;
  V r = sum(p, z, toward_negative, finite);
  if (HWY_UNLIKELY(!hn::AllTrue(D(), hn::And(usual, finite)))) {
    r = hn::IfThenElse(finite, r, hn::Add(p, z));
    const V zero = hn::Zero(D());
    const M numbers =
        hn::And(hn::And(is_finite(x), is_finite(y)), hn::And(hn::Ne(x, zero), hn::Ne(y, zero)));
    state.decline(hn::AndNot(usual, hn::And(numbers, is_finite(z))));
    state.invalid = hn::Or(state.invalid,
                           hn::AndNot(hn::Or(is_nan(x), hn::Or(is_nan(y), is_nan(z))), is_nan(r)));
  }
  return r;
}

template <Operation op>
HWY_INLINE V apply(V x, V y, V z, bool toward_negative, State& state) {
  if constexpr (op == Operation::subtract) {
    y = hn::Xor(y, bits(std::uint64_t{1} << 63));
  }
  if constexpr (op == Operation::add || op == Operation::subtract) {
    M finite;
    const V finite_sum = sum(x, y, toward_negative, finite);
    const V r = hn::IfThenElse(finite, finite_sum, hn::Add(x, y));
    note_invalid(r, x, y, state);
    return r;
  } else if constexpr (op == Operation::multiply) {
    return product(x, y, state);
  } else if constexpr (op == Operation::divide) {
    return quotient(x, y, state);
  } else if constexpr (op == Operation::sqrt) {
    return root(x, state);
  } else {
    return fused_sum(x, y, z, toward_negative, state);
  }
}

// Notes which lanes of a vector are declined; their result is 1, which every rounding leaves alone.
HWY_INLINE V with_places(V r, std::size_t i, State& state, Declined& declined) {
  std::uint8_t lanes[HWY_MAX_BYTES]{};
  hn::StoreMaskBits(D(), state.declined, lanes);
  for (std::size_t k = 0; k < hn::Lanes(D()); ++k) {
    if ((lanes[k / 8] >> (k % 8) & 1) != 0) {
      declined.place[declined.size++] = static_cast<std::uint16_t>(i + k);
    }
  }
  state.any_declined = false;
  return hn::IfThenElse(state.declined, set(1), r);
}

// Sums of finite numbers, which nearly all are; returns whether all were.
template <Operation op>
bool run_finite(const double* x, const double* y, bool toward_negative, double* out,
                std::size_t n) {
  const D d;
  const V flip = op == Operation::subtract ? bits(std::uint64_t{1} << 63) : hn::Zero(d);
  M all = hn::Eq(flip, flip);
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    M finite;
    const V b = hn::Xor(hn::LoadU(d, y + i), flip);
    hn::StoreU(sum(hn::LoadU(d, x + i), b, toward_negative, finite), d, out + i);
    all = hn::And(all, finite);
  }
  return hn::AllTrue(d, all);
}

template <Operation op>
unsigned run(const double* const (&x)[3], bool toward_negative, double* out, std::size_t n,
             Declined& declined) {
  const D d;
  if constexpr (op == Operation::add || op == Operation::subtract) {
    if (run_finite<op>(x[0], x[1], toward_negative, out, n)) {
      return 0;
    }
  }
  State state;
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    const V a = hn::LoadU(d, x[0] + i);
    const V b = op == Operation::sqrt ? a : hn::LoadU(d, x[1] + i);
    const V c = op == Operation::fma ? hn::LoadU(d, x[2] + i) : a;
    V r = apply<op>(a, b, c, toward_negative, state);
    if (HWY_UNLIKELY(state.any_declined)) {
      r = with_places(r, i, state, declined);
    }
    hn::StoreU(r, d, out + i);
  }
  return (hn::AllFalse(d, state.invalid) ? 0U : unsigned{rules::invalid}) |
         (hn::AllFalse(d, state.pole) ? 0U : unsigned{rules::divide_by_zero});
}

unsigned ComputeToOdd(Operation op, const double* const (&x)[3], bool toward_negative, double* out,
                      std::size_t n, Declined& declined) {
  switch (op) {
    case Operation::add:
      return run<Operation::add>(x, toward_negative, out, n, declined);
    case Operation::subtract:
      return run<Operation::subtract>(x, toward_negative, out, n, declined);
    case Operation::multiply:
      return run<Operation::multiply>(x, toward_negative, out, n, declined);
    case Operation::divide:
      return run<Operation::divide>(x, toward_negative, out, n, declined);
    case Operation::sqrt:
      return run<Operation::sqrt>(x, toward_negative, out, n, declined);
    default:
      return run<Operation::fma>(x, toward_negative, out, n, declined);
  }
}

// Operands that are equal differ at most as -0 and +0 do: of the smaller the sign is the union of
// theirs, of the larger the intersection.
void SelectDoubles(Operation op, const double* x, const double* y, double* out, std::size_t n) {
  const D d;
  const bool largest = op == Operation::maximum;
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    const V a = hn::LoadU(d, x + i), b = hn::LoadU(d, y + i);
    const M first = largest ? hn::Lt(b, a) : hn::Lt(a, b);
    V r = hn::IfThenElse(first, a, b);
    r = hn::IfThenElse(hn::Eq(a, b), largest ? hn::And(a, b) : hn::Or(a, b), r);
    const V nan = set(std::numeric_limits<double>::quiet_NaN());
    hn::StoreU(hn::IfThenElse(hn::Or(is_nan(a), is_nan(b)), nan, r), d, out + i);
  }
}

void FlushDoubles(double least, const double* x, double* out, std::size_t n) {
  const D d;
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    const V a = hn::LoadU(d, x + i);
    hn::StoreU(hn::IfThenElse(hn::Lt(hn::Abs(a), set(least)), sign_of(a), a), d, out + i);
  }
}

}  // namespace zelk::arrays::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zelk::arrays::detail {

HWY_EXPORT(ComputeToOdd);
HWY_EXPORT(SelectDoubles);
HWY_EXPORT(FlushDoubles);

unsigned compute_to_odd(Operation op, const double* const (&x)[3], bool toward_negative,
                        double* out, std::size_t n, Declined& declined) {
  return HWY_DYNAMIC_DISPATCH(ComputeToOdd)(op, x, toward_negative, out, n, declined);
}
void select_doubles(Operation op, const double* x, const double* y, double* out, std::size_t n) {
  HWY_DYNAMIC_DISPATCH(SelectDoubles)(op, x, y, out, n);
}
void flush_doubles(double least, const double* x, double* out, std::size_t n) {
  HWY_DYNAMIC_DISPATCH(FlushDoubles)(least, x, out, n);
}

}  // namespace zelk::arrays::detail
#endif  // HWY_ONCE
