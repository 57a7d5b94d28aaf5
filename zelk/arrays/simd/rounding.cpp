// Doubles and floats rounded into a format, on vectors.
#include "zelk/arrays/simd/kernels.h"
#include "zelk/rules/flags.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zelk/arrays/simd/rounding.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace zelk::arrays::detail::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// What lanes of T are made of.
template <class T>
struct Lanes {
  using D = hn::ScalableTag<T>;
  using DU = hn::RebindToUnsigned<D>;
  using DI = hn::RebindToSigned<D>;
  using V = hn::Vec<D>;
  using VU = hn::Vec<DU>;
  using U = hn::TFromD<DU>;
  using I = hn::TFromD<DI>;
  static constexpr int digits = sizeof(T) == 8 ? 52 : 23;
  static constexpr U sign = U{1} << (8 * sizeof(T) - 1);
  static constexpr U exponents = sign - (U{1} << digits);
};

// The exceptions of all lanes so far: a lane is 0 where there was none.
template <class T>
struct Raised {
  using L = Lanes<T>;
  typename L::VU inexact, underflow, overflow;

  HWY_INLINE Raised()
      : inexact(hn::Zero(typename L::DU())), underflow(inexact), overflow(inexact) {}

  HWY_INLINE unsigned flags() const {
    return any(inexact, rules::inexact) | any(underflow, rules::underflow) |
           any(overflow, rules::overflow);
  }
  static HWY_INLINE unsigned any(typename L::VU lanes, unsigned flag) {
    const typename L::DU du;
    return hn::AllTrue(du, hn::Eq(lanes, hn::Zero(du))) ? 0 : flag;
  }
};

// Whether d < 2^64 * v, 0 <= v < 1, v having 53 digits: both in two halves, that of d exactly. The
// sign of the difference is right, as each half of v is exact and the upper ones are integers.
template <class V, class VU>
HWY_INLINE auto draw_is_below(V v, VU d) {
  const hn::ScalableTag<double> dd;
  const hn::ScalableTag<std::uint64_t> du;
  const auto two52 = hn::Set(dd, 0x1p52);
  const auto number = [&](VU low32) HWY_ATTR {
    return hn::Sub(hn::BitCast(dd, hn::Or(low32, hn::BitCast(du, two52))), two52);
  };
  const auto scaled = hn::Mul(v, hn::Set(dd, 0x1p32));
  const auto high = hn::Sub(hn::Add(scaled, two52), two52);  // cut off, as the control word says
  const auto low = hn::Mul(hn::Sub(scaled, high), hn::Set(dd, 0x1p32));
  const auto d_high = number(hn::ShiftRight<32>(d));
  const auto d_low = number(hn::And(d, hn::Set(du, 0xFFFFFFFF)));
  return hn::Or(hn::Lt(d_high, high), hn::And(hn::Eq(d_high, high), hn::Lt(d_low, low)));
}

// Rounds by adding a power of two whose last place is that of the result, and subtracting it again:
// what is cut off is rounded as the control word says, subnormals included, as the power is at
// least that of the least normal value. Where the sum needs the sign of x, the power has it: toward
// zero and for patterns, whose digits are the low ones of the sum. Numbers beyond the largest
// exponent keep at least that.
template <class T, Cut cut, bool to_patterns>
class Scaled {
  using L = Lanes<T>;
  using V = typename L::V;
  using VU = typename L::VU;
  using U = typename L::U;
  static constexpr bool with_sign = to_patterns || cut != Cut::by_processor;

 public:
  explicit HWY_INLINE Scaled(const RoundingPlan& p)
      : plan(p),
        scale(set(static_cast<double>(std::uint64_t{1} << p.dropped) * (with_sign ? 1 : 1.5))),
        least(set(p.least_normal)),
        greatest(set(p.greatest_power)),
        largest(set(p.largest)),
        tiny_above(set(p.tiny_above)),
        tiny_below(set(p.tiny_below)),
        half_place(set(0.5 / static_cast<double>(std::uint64_t{1} << p.m))),
        fields(hn::ShiftRightSame(hn::BitCast(du, least), p.dropped)) {}

  HWY_INLINE VU operator()(V x, VU draws, Raised<T>& raised) const {
    const V sign = hn::And(x, hn::BitCast(d, hn::Set(du, L::sign)));
    const V exponents = hn::BitCast(d, hn::Set(du, L::exponents));
    const V power = hn::Min(hn::Max(hn::And(x, exponents), least), greatest);
    const V unsigned_base = hn::Mul(power, scale);
    const V base = with_sign ? hn::Or(unsigned_base, sign) : unsigned_base;
    const V sum = cut_sum(x, base, power, sign, draws);
    const V size = hn::Abs(hn::Sub(sum, base));
    V result = hn::Or(size, sign);
    VU changed = hn::BitCast(du, hn::Xor(result, x));
    auto is_tiny = hn::And(hn::Gt(x, tiny_above), hn::Lt(x, tiny_below));
    VU out = to_patterns ? pattern(sum, power, sign) : hn::BitCast(du, result);
    if (plan.flush) {
      const auto tiny = hn::And(is_tiny, hn::Ne(x, hn::Zero(d)));
      const VU zero = to_patterns ? pattern_sign(sign) : hn::BitCast(du, sign);
      out = hn::IfThenElse(hn::RebindMask(du, tiny), zero, out);
      changed = hn::IfThenElse(hn::RebindMask(du, tiny), hn::Set(du, 1), changed);
    }
    const auto inside = hn::Le(size, largest);
    if (HWY_UNLIKELY(!hn::AllTrue(d, inside))) {
      settle(x, inside, out, changed, raised);
    }
    raised.inexact = hn::Or(raised.inexact, changed);
    raised.underflow =
        hn::Or(raised.underflow, hn::IfThenElseZero(hn::RebindMask(du, is_tiny), changed));
    return out;
  }

 private:
  static HWY_INLINE V set(double x) { return hn::Set(typename L::D(), static_cast<T>(x)); }

  // The sum whose last place is the result's, rounded.
  HWY_INLINE V cut_sum(V x, V base, V power, V sign, VU draws) const {
    if constexpr (cut == Cut::away) {
      return hn::Add(hn::Add(x, hn::Or(hn::Mul(power, half_place), sign)), base);
    }
    const V sum = hn::Add(x, base);
    if constexpr (cut == Cut::to_odd || cut == Cut::stochastic) {
      const V rest = hn::Sub(x, hn::Sub(sum, base));  // exact, of an x that is not beyond
      if constexpr (cut == Cut::to_odd) {
        const VU odd =
            hn::IfThenElseZero(hn::RebindMask(du, hn::Ne(rest, hn::Zero(d))), hn::Set(du, 1));
        return hn::BitCast(d, hn::Or(hn::BitCast(du, sum), odd));
      } else {
        // The rest in places, by the power's reciprocal, which is a power of two itself.
        const V reciprocal =
            hn::BitCast(d, hn::Sub(hn::Set(du, U{2046} << 52), hn::BitCast(du, power)));
        const V places =
            hn::Mul(hn::Mul(hn::Abs(rest), reciprocal), hn::Set(d, static_cast<T>(pow2(plan.m))));
        const VU up =
            hn::IfThenElseZero(hn::RebindMask(du, draw_is_below(places, draws)), hn::Set(du, 1));
        return hn::BitCast(d, hn::Add(hn::BitCast(du, sum), up));
      }
    }
    return sum;
  }

  HWY_INLINE VU pattern_sign(V sign) const {
    return hn::ShiftRightSame(hn::BitCast(du, sign), static_cast<int>(plan.sign_shift));
  }
  // The digits of the sum, below its leading one, are those of the result in its last places; the
  // leading one of a normal result counts as one in the exponent field.
  HWY_INLINE VU pattern(V sum, V power, V sign) const {
    const VU digits = hn::And(hn::BitCast(du, sum), hn::Set(du, (U{1} << L::digits) - 1));
    const VU field = hn::Sub(hn::ShiftRightSame(hn::BitCast(du, power), plan.dropped), fields);
    return hn::Or(hn::Add(digits, field), pattern_sign(sign));
  }

  // NaNs, infinities and overflow.
  template <class M>
  HWY_INLINE void settle(V x, M inside, VU& out, VU& changed, Raised<T>& raised) const {
    const auto bits = [this](double number, std::uint64_t p) HWY_ATTR {
      return to_patterns ? hn::Set(du, static_cast<U>(p)) : hn::BitCast(du, set(number));
    };
    const auto negative = hn::Lt(x, hn::Zero(d));
    const auto finite = hn::Lt(hn::Abs(x), hn::BitCast(d, hn::Set(du, L::exponents)));
    const auto over = hn::AndNot(inside, finite);
    const auto by_sign = [&](VU positive, VU other) HWY_ATTR {
      return hn::IfThenElse(hn::RebindMask(du, negative), other, positive);
    };
    const std::uint64_t inf = plan.nan_pattern - 1 - (std::uint64_t{1} << (63 - plan.sign_shift));
    const VU infinite = by_sign(bits(infinity, inf), bits(-infinity, plan.nan_pattern - 1));
    const VU beyond = by_sign(bits(plan.overflow[0], plan.over_pattern[0]),
                              bits(plan.overflow[1], plan.over_pattern[1]));
    const VU nan = bits(std::numeric_limits<double>::quiet_NaN(), plan.nan_pattern);
    const VU special = hn::IfThenElse(hn::RebindMask(du, hn::Eq(x, x)), infinite, nan);
    out = hn::IfThenElse(hn::RebindMask(du, over), beyond, out);
    out = hn::IfThenElse(hn::RebindMask(du, finite), out, special);
    changed = hn::IfThenElseZero(hn::RebindMask(du, finite), changed);
    raised.overflow = hn::Or(raised.overflow, hn::VecFromMask(du, hn::RebindMask(du, over)));
    changed = hn::Or(changed, hn::VecFromMask(du, hn::RebindMask(du, over)));
  }

  typename L::D d;
  typename L::DU du;
  const RoundingPlan& plan;
  V scale, least, greatest, largest, tiny_above, tiny_below, half_place;
  VU fields;
};

// Rounds lanes whose exponents are those of the format as integers: a carry moves the exponent on,
// to an infinity in the end, and subnormals need nothing of their own.
template <class T, Cut cut, bool to_patterns>
class Aligned {
  using L = Lanes<T>;
  using V = typename L::V;
  using VU = typename L::VU;
  using U = typename L::U;

 public:
  explicit HWY_INLINE Aligned(const RoundingPlan& p)
      : plan(p), below(hn::Set(du, (U{1} << p.dropped) - 1)) {
    const U half = p.dropped != 0 ? U{1} << (p.dropped - 1) : 0;
    const bool nearest = cut == Cut::by_processor && p.processor == rules::nearest;
    const auto added = [&](bool negative) HWY_ATTR {
      return nearest            ? half - (half != 0 ? 1 : 0)
             : cut == Cut::away ? half
             : cut == Cut::by_processor && rules::rounds_outward(p.processor, negative)
                 ? (U{1} << p.dropped) - 1
                 : 0;
    };
    add = hn::Set(du, added(false));
    add_change = hn::Set(du, added(false) ^ added(true));
    odd_counts = hn::Set(du, nearest && half != 0 ? 1 : 0);
    const auto end = [](double x) HWY_ATTR {
      return hn::BitCast(typename L::DU(), hn::Set(typename L::D(), static_cast<T>(x)));
    };
    tiny = end(p.tiny_below);
    tiny_change = hn::Xor(tiny, end(-p.tiny_above));
  }

  HWY_INLINE VU operator()(V x, VU draws, Raised<T>& raised) const {
    const VU bits = hn::BitCast(du, x);
    const VU sign = hn::And(bits, hn::Set(du, L::sign));
    const VU size = hn::Xor(bits, sign);
    const VU negative = hn::BitCast(du, hn::BroadcastSignBit(hn::BitCast(di, bits)));
    const VU rest = hn::And(size, below);
    const VU infinite = hn::Set(du, L::exponents);
    VU changed = rest;
    VU result = rounded(size, rest, negative, draws);
    VU under =
        hn::IfThenElseZero(less(size, hn::Xor(tiny, hn::And(negative, tiny_change))), changed);
    if (plan.flush) {
      const auto flushed = hn::AndNot(hn::Eq(size, hn::Zero(du)),
                                      less(size, hn::Xor(tiny, hn::And(negative, tiny_change))));
      result = hn::IfThenZeroElse(flushed, result);
      under = hn::VecFromMask(du, flushed);
      changed = hn::Or(changed, under);
    }
    VU out = shifted(hn::Or(result, sign));
    const auto finite = less(size, infinite);
    const auto inside = hn::And(finite, less(result, infinite));
    if (HWY_UNLIKELY(!hn::AllTrue(du, inside))) {
      const auto by_sign = [&](double positive, double other) HWY_ATTR {
        return hn::IfVecThenElse(negative, shifted_bits(other), shifted_bits(positive));
      };
      const auto over = hn::AndNot(inside, finite);
      const VU nan = to_patterns ? hn::Set(du, static_cast<U>(plan.nan_pattern))
                                 : shifted_bits(std::numeric_limits<double>::quiet_NaN());
      out = hn::IfThenElse(over, by_sign(plan.overflow[0], plan.overflow[1]), out);
      const VU special = hn::IfThenElse(hn::Eq(size, infinite), by_sign(infinity, -infinity), nan);
      out = hn::IfThenElse(finite, out, special);
      changed = hn::Or(hn::IfThenElseZero(finite, changed), hn::VecFromMask(du, over));
      raised.overflow = hn::Or(raised.overflow, hn::VecFromMask(du, over));
    }
    raised.inexact = hn::Or(raised.inexact, changed);
    raised.underflow = hn::Or(raised.underflow, under);
    return out;
  }

 private:
  static HWY_INLINE auto less(VU a, VU b) {  // of integers below the sign bit
    const typename L::DI di;
    return hn::RebindMask(typename L::DU(), hn::Lt(hn::BitCast(di, a), hn::BitCast(di, b)));
  }
  HWY_INLINE VU shifted(VU bits) const {
    return to_patterns ? hn::ShiftRightSame(bits, plan.dropped) : bits;
  }
  HWY_INLINE VU shifted_bits(double x) const {
    return shifted(hn::BitCast(du, hn::Set(d, static_cast<T>(x))));
  }
  HWY_INLINE VU rounded(VU size, VU rest, VU negative, VU draws) const {
    const VU place = hn::Add(below, hn::Set(du, 1));
    const VU kept = hn::Xor(size, rest);
    if constexpr (cut == Cut::to_odd) {
      return hn::Or(kept, hn::IfThenZeroElse(hn::Eq(rest, hn::Zero(du)), place));
    } else if constexpr (cut == Cut::stochastic) {
      const VU top = hn::Set(du, L::sign);  // orders words as signed ones
      const VU fraction = hn::ShiftLeftSame(hn::ShiftLeft<1>(rest), 63 - plan.dropped);
      const auto up =
          hn::Lt(hn::BitCast(di, hn::Xor(draws, top)), hn::BitCast(di, hn::Xor(fraction, top)));
      return hn::Add(kept, hn::IfThenElseZero(hn::RebindMask(du, up), place));
    } else {
      const VU odd = hn::And(hn::ShiftRightSame(size, plan.dropped), odd_counts);
      const VU carry = hn::Add(hn::Xor(add, hn::And(negative, add_change)), odd);
      return hn::AndNot(below, hn::Add(size, carry));
    }
  }

  typename L::D d;
  typename L::DU du;
  typename L::DI di;
  const RoundingPlan& plan;
  VU below, add, add_change, odd_counts, tiny, tiny_change;
};

template <class Rounder, bool of_roots, class T, class Out>
unsigned run(const RoundingPlan& plan, const T* x, const std::uint64_t* draws, Out* out,
             std::size_t n) {
  const typename Lanes<T>::D d;
  const typename Lanes<T>::DU du;
  const hn::ScalableTag<Out> d_out;
  const Rounder rounder(plan);
  Raised<T> raised;
  auto invalid = hn::Lt(hn::Zero(d), hn::Zero(d));
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    auto random = hn::Zero(du);
    if constexpr (sizeof(T) == sizeof(std::uint64_t)) {
      if (draws != nullptr) {
        random = hn::LoadU(du, draws + i);
      }
    }
    auto number = hn::LoadU(d, x + i);
    if constexpr (of_roots) {
      invalid = hn::Or(invalid, hn::Lt(number, hn::Zero(d)));
      number = hn::Sqrt(number);
    }
    const auto result = rounder(number, random, raised);
    hn::StoreU(hn::BitCast(d_out, result), d_out, out + i);
  }
  return raised.flags() | (hn::AllFalse(d, invalid) ? 0U : unsigned{rules::invalid});
}

template <class T, class Out, template <class, Cut, bool> class Rounder, bool of_roots = false>
unsigned run_cut(const RoundingPlan& plan, const T* x, const std::uint64_t* draws, Out* out,
                 std::size_t n) {
  constexpr bool patterns = !std::is_same_v<T, Out>;
  switch (plan.cut) {
    case Cut::by_processor:
      return run<Rounder<T, Cut::by_processor, patterns>, of_roots>(plan, x, nullptr, out, n);
    case Cut::toward_zero:
      return run<Rounder<T, Cut::toward_zero, patterns>, of_roots>(plan, x, nullptr, out, n);
    case Cut::away:
      return run<Rounder<T, Cut::away, patterns>, of_roots>(plan, x, nullptr, out, n);
    case Cut::to_odd:
      return run<Rounder<T, Cut::to_odd, patterns>, of_roots>(plan, x, nullptr, out, n);
    default:  // of doubles only
      constexpr bool has_draws = sizeof(T) == sizeof(double) && !of_roots;
      constexpr Cut last = has_draws ? Cut::stochastic : Cut::to_odd;
      return run<Rounder<T, last, patterns>, of_roots>(plan, x, draws, out, n);
  }
}

template <class T, class Out>
unsigned run_plan(const RoundingPlan& plan, const T* x, const std::uint64_t* draws, Out* out,
                  std::size_t n) {
  return plan.aligned ? run_cut<T, Out, Aligned>(plan, x, draws, out, n)
                      : run_cut<T, Out, Scaled>(plan, x, draws, out, n);
}

unsigned RoundDoubles(const RoundingPlan& plan, const double* x, const std::uint64_t* draws,
                      double* out, std::size_t n) {
  return run_plan(plan, x, draws, out, n);
}
unsigned RoundRoots(const RoundingPlan& plan, const double* x, double* out, std::size_t n) {
  return run_cut<double, double, Scaled, true>(plan, x, nullptr, out, n);
}
bool Have51Digits(const double* x, std::size_t n) {
  const hn::ScalableTag<std::uint64_t> du;
  auto some = hn::Zero(du);
  for (std::size_t i = 0; i < n; i += hn::Lanes(du)) {
    some = hn::Or(some, hn::BitCast(du, hn::LoadU(hn::ScalableTag<double>(), x + i)));
  }
  return hn::AllTrue(du, hn::Eq(hn::And(some, hn::Set(du, 3)), hn::Zero(du)));
}
unsigned RoundToPatterns(const RoundingPlan& plan, const double* x, const std::uint64_t* draws,
                         std::uint64_t* out, std::size_t n) {
  return run_plan(plan, x, draws, out, n);
}
unsigned RoundFloats(const RoundingPlan& plan, const float* x, float* out, std::size_t n) {
  return run_plan(plan, x, nullptr, out, n);
}

}  // namespace zelk::arrays::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zelk::arrays::detail {

HWY_EXPORT(RoundDoubles);
HWY_EXPORT(RoundRoots);
HWY_EXPORT(Have51Digits);
HWY_EXPORT(RoundToPatterns);
HWY_EXPORT(RoundFloats);

unsigned round_doubles(const RoundingPlan& plan, const double* x, const std::uint64_t* draws,
                       double* out, std::size_t n) {
  return HWY_DYNAMIC_DISPATCH(RoundDoubles)(plan, x, draws, out, n);
}
unsigned round_roots(const RoundingPlan& plan, const double* x, double* out, std::size_t n) {
  return HWY_DYNAMIC_DISPATCH(RoundRoots)(plan, x, out, n);
}
bool have_51_digits(const double* x, std::size_t n) {
  return HWY_DYNAMIC_DISPATCH(Have51Digits)(x, n);
}
unsigned round_to_patterns(const RoundingPlan& plan, const double* x, const std::uint64_t* draws,
                           std::uint64_t* out, std::size_t n) {
  return HWY_DYNAMIC_DISPATCH(RoundToPatterns)(plan, x, draws, out, n);
}
unsigned round_floats(const RoundingPlan& plan, const float* x, float* out, std::size_t n) {
  return HWY_DYNAMIC_DISPATCH(RoundFloats)(plan, x, out, n);
}

}  // namespace zelk::arrays::detail
#endif  // HWY_ONCE
