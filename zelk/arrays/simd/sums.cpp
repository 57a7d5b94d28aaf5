#include "zelk/arrays/simd/sums.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zelk/arrays/simd/sums.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace zelk::arrays::detail::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<double>;
using DU = hn::ScalableTag<std::uint64_t>;
using V = hn::Vec<D>;
using VU = hn::Vec<DU>;
using M = hn::Mask<D>;

HWY_INLINE V set(double x) { return hn::Set(D(), x); }
HWY_INLINE V zero() { return hn::Zero(D()); }
HWY_INLINE double sum_of(V x) { return hn::GetLane(hn::SumOfLanes(D(), x)); }
HWY_INLINE double max_of(V x) { return hn::GetLane(hn::MaxOfLanes(D(), x)); }

// Whether a product is a double: by what a fused multiply-add leaves of it, or by operands of at
// most 26 digits.
HWY_INLINE M is_exact(V x, V y, V p) {
  if constexpr (HWY_NATIVE_FMA != 0) {
    return hn::Eq(hn::MulSub(x, y, p), zero());
  }
  const VU low = hn::And(hn::Or(hn::BitCast(DU(), x), hn::BitCast(DU(), y)),
                         hn::Set(DU(), (std::uint64_t{1} << 27) - 1));
  return hn::RebindMask(D(), hn::Eq(low, hn::Zero(DU())));
}

// The error-free transformation of Rump, Ogita and Oishi, "Accurate floating-point summation, part
// I: faithful rounding" (2008), section 3: of terms no larger than a 2^-10 of sigma, up to 2^10 - 2
// of them, the upper parts have an exact sum. Its parts are taken until nothing is left.
bool SumProducts(const double* x, const double* y, std::size_t n, Parts& parts) {
  const D d;
  double products[block_size];
  V largest = zero();
  M usual = hn::Eq(zero(), zero());
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    const V a = hn::LoadU(d, x + i), b = hn::LoadU(d, y + i);
    const V p = hn::Mul(a, b), size = hn::Abs(p);
    const M is_zero = hn::Or(hn::Eq(a, zero()), hn::Eq(b, zero()));
    usual = hn::And(usual, hn::And(is_exact(a, b, p), hn::Le(size, set(0x1p900))));
    usual = hn::And(usual, hn::Or(is_zero, hn::Ge(size, set(0x1p-800))));
    largest = hn::Max(largest, size);
    hn::StoreU(p, d, products + i);
  }
  double top = max_of(largest);
  if (!hn::AllTrue(d, usual) || top == 0) {
    return false;
  }
  for (parts.size = 0; top != 0 && parts.size < Parts::most; ++parts.size) {
    const auto power = std::bit_cast<std::uint64_t>(top) & 0x7FF0000000000000;
    const V sigma = set(std::bit_cast<double>(power) * 0x1p11);
    V sum = zero();
    largest = zero();
    for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
      const V p = hn::LoadU(d, products + i);
      const V upper = hn::Sub(hn::Add(sigma, p), sigma);
      const V lower = hn::Sub(p, upper);
      sum = hn::Add(sum, upper);
      largest = hn::Max(largest, hn::Abs(lower));
      hn::StoreU(lower, d, products + i);
    }
    parts.part[parts.size] = sum_of(sum);
    top = max_of(largest);
  }
  return top == 0;
}

// The same in one pass, where two parts are enough.
bool SumNarrowProducts(const double* x, const double* y, std::size_t n, Shape f, Parts& parts) {
  const D d;
  const int high = 2 * (f.emax() + 1) + 10;  // of a sum
  const V sigma = set(pow2(high));
  constexpr std::size_t ways = 4;  // sums in turn, as each addition waits for the one before it
  V upper[ways], lower[ways];
  std::fill_n(upper, ways, zero());
  std::fill_n(lower, ways, zero());
  VU digits = hn::Zero(DU());
  for (std::size_t i = 0; i < n; i += ways * hn::Lanes(d)) {
    for (std::size_t k = 0; k < ways; ++k) {
      const std::size_t at = i + k * hn::Lanes(d);
      const V p = hn::Mul(hn::LoadU(d, x + at), hn::LoadU(d, y + at));
      const V q = hn::Sub(hn::Add(sigma, p), sigma);
      upper[k] = hn::Add(upper[k], q);
      lower[k] = hn::Add(lower[k], hn::Sub(p, q));
      digits = hn::Or(digits, hn::BitCast(DU(), hn::Abs(p)));
    }
  }
  // Infinities and NaNs have come through to the sum.
  parts.size = 2;
  parts.part[0] = sum_of(hn::Add(hn::Add(upper[0], upper[1]), hn::Add(upper[2], upper[3])));
  parts.part[1] = sum_of(hn::Add(hn::Add(lower[0], lower[1]), hn::Add(lower[2], lower[3])));
  return !hn::AllTrue(DU(), hn::Eq(digits, hn::Zero(DU()))) && parts.part[0] - parts.part[0] == 0 &&
         parts.part[1] - parts.part[1] == 0;
}

Extent ExtentOf(const double* x, std::size_t n) {
  const D d;
  const DU du;
  V largest = zero(), least = set(infinity);
  M usual = hn::Eq(zero(), zero());
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    const V a = hn::Abs(hn::LoadU(d, x + i));
    const VU bits = hn::BitCast(du, a);
    // The lowest digit is what a loses with it, or all of a power of two.
    const V without = hn::BitCast(d, hn::And(bits, hn::Sub(bits, hn::Set(du, 1))));
    const M power = hn::RebindMask(
        d, hn::Eq(hn::And(bits, hn::Set(du, (std::uint64_t{1} << 52) - 1)), hn::Zero(du)));
    const V digit = hn::IfThenElse(power, a, hn::Sub(a, without));
    const M is_zero = hn::Eq(a, zero());
    usual =
        hn::And(usual, hn::Or(is_zero, hn::And(hn::Ge(a, set(0x1p-400)), hn::Le(a, set(0x1p400)))));
    largest = hn::Max(largest, a);
    least = hn::Min(least, hn::IfThenElse(is_zero, set(infinity), digit));
  }
  const double top = max_of(largest);
  if (!hn::AllTrue(d, usual) || top == 0) {
    return {0, 0, hn::AllTrue(d, usual)};
  }
  const double low = hn::GetLane(hn::MinOfLanes(d, least));
  const auto exponent = [](double a) {
    return static_cast<int>(std::bit_cast<std::uint64_t>(a) >> 52) - 1023;
  };
  return {exponent(low), exponent(top) + 1, true};
}

void Split(int place, double* x, double* q, std::size_t n) {
  const D d;
  const V sigma = set(1.5 * pow2(place + 52));
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    const V a = hn::LoadU(d, x + i);
    const V upper = hn::Sub(hn::Add(sigma, a), sigma);
    hn::StoreU(upper, d, q + i);
    hn::StoreU(hn::Sub(a, upper), d, x + i);
  }
}

// A tile of c in registers: R rows and the columns of a panel.
template <std::size_t R>
HWY_INLINE void multiply_tile(const double* a, const double* b, double* c, std::size_t k,
                              std::size_t columns) {
  const hn::CappedTag<double, panel> d;
  constexpr std::size_t lanes = HWY_MIN(hn::MaxLanes(hn::ScalableTag<double>()), panel);
  constexpr std::size_t vectors = panel / lanes;
  using VC = hn::Vec<decltype(d)>;
  VC sum[R][vectors];
  for (std::size_t r = 0; r < R; ++r) {
    for (std::size_t v = 0; v < vectors; ++v) {
      sum[r][v] = hn::LoadU(d, c + r * columns + v * lanes);
    }
  }
  for (std::size_t i = 0; i < k; ++i, a += panel, b += panel) {
    VC row[vectors];
    for (std::size_t v = 0; v < vectors; ++v) {
      row[v] = hn::LoadU(d, b + v * lanes);
    }
    for (std::size_t r = 0; r < R; ++r) {
      const VC left = hn::Set(d, a[r]);
      for (std::size_t v = 0; v < vectors; ++v) {
        sum[r][v] = hn::MulAdd(left, row[v], sum[r][v]);
      }
    }
  }
  for (std::size_t r = 0; r < R; ++r) {
    for (std::size_t v = 0; v < vectors; ++v) {
      hn::StoreU(sum[r][v], d, c + r * columns + v * lanes);
    }
  }
}

// Some hundred elements of a panel stay in the first cache while all of a goes by.
void MultiplyAdd(const double* a, const double* b, double* c, std::size_t rows, std::size_t k,
                 std::size_t columns) {
  constexpr std::size_t lanes = hn::MaxLanes(hn::ScalableTag<double>());
  constexpr std::size_t tile = lanes >= 8 ? 8 : lanes >= 4 ? 4 : 2;
  constexpr std::size_t depth = 256;
  for (std::size_t first = 0; first < k; first += depth) {
    const std::size_t some = HWY_MIN(depth, k - first);
    for (std::size_t j = 0; j < columns; j += panel) {
      const double* const right = b + j * k + first * panel;
      for (std::size_t i = 0; i < rows; i += tile) {
        const double* const left = a + (i / panel * k + first) * panel + i % panel;
        multiply_tile<tile>(left, right, c + i * columns + j, some, columns);
      }
    }
  }
}

}  // namespace zelk::arrays::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zelk::arrays::detail {

HWY_EXPORT(SumProducts);
HWY_EXPORT(SumNarrowProducts);
HWY_EXPORT(ExtentOf);
HWY_EXPORT(Split);
HWY_EXPORT(MultiplyAdd);

// A product has to be a double, and so has a sum of lower parts: each of these is a multiple of the
// square of the least positive value and at most half of sigma's last place; 10 digits more are for
// how many there are.
bool has_narrow_products(Shape f) {
  const int low = 2 * (f.emin() - f.m), high = 2 * (f.emax() + 1);
  return 2 * (f.m + 1) <= 53 && high + 10 - 52 + 10 - low <= 53;
}

bool sum_products(const double* x, const double* y, std::size_t n, Parts& parts) {
  return HWY_DYNAMIC_DISPATCH(SumProducts)(x, y, n, parts);
}
bool sum_narrow_products(const double* x, const double* y, std::size_t n, Shape f, Parts& parts) {
  return HWY_DYNAMIC_DISPATCH(SumNarrowProducts)(x, y, n, f, parts);
}
Extent extent_of(const double* x, std::size_t n) { return HWY_DYNAMIC_DISPATCH(ExtentOf)(x, n); }
void split(int place, double* x, double* q, std::size_t n) {
  HWY_DYNAMIC_DISPATCH(Split)(place, x, q, n);
}
void multiply_add(const double* a, const double* b, double* c, std::size_t rows, std::size_t k,
                  std::size_t columns) {
  HWY_DYNAMIC_DISPATCH(MultiplyAdd)(a, b, c, rows, k, columns);
}

}  // namespace zelk::arrays::detail
#endif  // HWY_ONCE
