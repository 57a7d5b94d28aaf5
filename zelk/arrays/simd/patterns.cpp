// Between types of elements, and draws, on vectors.
#include <algorithm>

#include "zelk/arrays/simd/kernels.h"
#include "zelk/arrays/stochastic.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "zelk/arrays/simd/patterns.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace zelk::arrays::detail::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<double>;
using DU = hn::ScalableTag<std::uint64_t>;

// Patterns of a format in the low bits of lanes as wide as T's, as numbers of type T.
template <class DT>
class Decoder {
  using T = hn::TFromD<DT>;
  using DU = hn::RebindToUnsigned<DT>;
  using U = hn::TFromD<DU>;
  using V = hn::Vec<DT>;
  using VU = hn::Vec<DU>;
  static constexpr int digits = sizeof(T) == 8 ? 52 : 23;
  static constexpr int width = 8 * sizeof(T);
  static constexpr int bias = sizeof(T) == 8 ? 1023 : 127;
  static constexpr U top = U{1} << (width - 1);

 public:
  explicit HWY_INLINE Decoder(Shape f)
      : left(digits - f.m),
        sign_left(width - 1 - f.e - f.m),
        aligned(f.e == width - 1 - digits),
        magnitude(hn::Set(du, static_cast<U>(f.sign() - 1))),
        infinite(hn::Set(du, static_cast<U>(f.infinity()))),
        subnormal(hn::Set(du, static_cast<U>((std::uint64_t{1} << f.m) - 1))),
        rebias(hn::Set(du, static_cast<U>(static_cast<U>(bias - f.emax()) << digits))),
        unit(hn::Set(d, static_cast<T>(pow2(f.emin() - f.m)))) {}

  // A subnormal pattern, as an integer, is put below a power of two whose last place is 1.
  HWY_INLINE V operator()(VU p) const {
    const VU size = hn::And(p, magnitude);
    const VU sign = hn::And(hn::ShiftLeftSame(p, sign_left), hn::Set(du, top));
    VU r = hn::Add(hn::ShiftLeftSame(size, left), rebias);
    if (!aligned) {
      const V base = hn::Set(d, static_cast<T>(std::uint64_t{1} << digits));
      const V n = hn::Sub(hn::BitCast(d, hn::Or(size, hn::BitCast(du, base))), base);
      r = hn::IfThenElse(greater(size, subnormal), r, hn::BitCast(du, hn::Abs(hn::Mul(n, unit))));
    }
    const auto finite = greater(infinite, size);
    r = hn::Or(r, sign);
    if (HWY_UNLIKELY(!hn::AllTrue(du, finite))) {
      const VU inf = hn::Set(du, std::bit_cast<U>(std::numeric_limits<T>::infinity()));
      const VU nan = hn::Set(du, std::bit_cast<U>(std::numeric_limits<T>::quiet_NaN()));
      const VU special = hn::IfThenElse(hn::Eq(size, infinite), hn::Or(inf, sign), nan);
      r = hn::IfThenElse(finite, r, special);
    }
    return hn::BitCast(d, r);
  }

 private:
  static HWY_INLINE auto greater(VU a, VU b) {  // of integers below the sign bit
    const hn::RebindToSigned<DU> di;
    return hn::RebindMask(DU(), hn::Gt(hn::BitCast(di, a), hn::BitCast(di, b)));
  }

  DT d;
  DU du;
  int left, sign_left;
  bool aligned;
  VU magnitude, infinite, subnormal, rebias;
  V unit;
};

// U's as wider lanes.
template <class DTo, class U>
HWY_INLINE auto load_wider(DTo d, const U* x) {
  if constexpr (std::is_same_v<hn::TFromD<DTo>, U>) {
    return hn::LoadU(d, x);
  } else if constexpr (sizeof(hn::TFromD<DTo>) == 8 && sizeof(U) < 4) {
    const hn::Rebind<std::uint32_t, DTo> d32;
    return hn::PromoteTo(d, load_wider(d32, x));
  } else {
    return hn::PromoteTo(d, hn::LoadU(hn::Rebind<U, DTo>(), x));
  }
}

// A vector of floats as doubles.
HWY_INLINE void store_wider(hn::Vec<hn::ScalableTag<float>> x, double* out) {
  [[maybe_unused]] const hn::ScalableTag<float> df;
#if HWY_TARGET == HWY_SCALAR
  *out = static_cast<double>(hn::GetLane(x));
#else
  const hn::Half<decltype(df)> half;
  const hn::Repartition<double, decltype(df)> d;
  hn::StoreU(hn::PromoteTo(d, hn::LowerHalf(half, x)), d, out);
  hn::StoreU(hn::PromoteTo(d, hn::UpperHalf(half, x)), d, out + hn::Lanes(d));
#endif
}

// Whether processors convert binary16 themselves, infinities and NaNs included.
#if HWY_ARCH_X86 && !defined(HWY_DISABLE_F16C)
constexpr bool converts_halves = HWY_TARGET <= HWY_AVX2;
#else
constexpr bool converts_halves = HWY_ARCH_ARM_A64 != 0;
#endif

void decode_halves(const std::uint16_t* x, double* out, std::size_t n) {
  const hn::ScalableTag<float> df;
  const hn::Rebind<hwy::float16_t, decltype(df)> dh;
  const auto nan = hn::Set(df, std::numeric_limits<float>::quiet_NaN());
  for (std::size_t i = 0; i < n; i += hn::Lanes(df)) {
    const auto a = hn::PromoteTo(df, hn::LoadU(dh, reinterpret_cast<const hwy::float16_t*>(x + i)));
    const auto number = hn::Eq(a, a);
    store_wider(hn::AllTrue(df, number) ? a : hn::IfThenElse(number, a, nan), out + i);
  }
}

// Formats within binary32 are decoded in lanes of 32 bits.
template <class U>
void decode(const U* x, Shape f, double* out, std::size_t n) {
  const D d;
  const hn::ScalableTag<float> df;
  const hn::ScalableTag<std::uint32_t> d32;
  if constexpr (sizeof(U) <= 4) {
    if (f.e <= 8 && f.m <= 23) {
      const Decoder<decltype(df)> decoder(f);
      for (std::size_t i = 0; i < n; i += hn::Lanes(df)) {
        store_wider(decoder(load_wider(d32, x + i)), out + i);
      }
      return;
    }
  }
  const Decoder<D> decoder(f);
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    hn::StoreU(decoder(load_wider(DU(), x + i)), d, out + i);
  }
}

void DecodeToDoubles(const void* x, Type type, Shape f, double* out, std::size_t n) {
  switch (type) {
    case Type::u8:
      return decode(static_cast<const std::uint8_t*>(x), f, out, n);
    case Type::u16:
      return converts_halves && f.e == 5 && f.m == 10
                 ? decode_halves(static_cast<const std::uint16_t*>(x), out, n)
                 : decode(static_cast<const std::uint16_t*>(x), f, out, n);
    case Type::u32:
      return decode(static_cast<const std::uint32_t*>(x), f, out, n);
    default:
      return decode(static_cast<const std::uint64_t*>(x), f, out, n);
  }
}

template <class U>
void narrow_to(const std::uint64_t* x, U* out, std::size_t n) {
  const DU du;
  const hn::Rebind<U, DU> d;
  for (std::size_t i = 0; i < n; i += hn::Lanes(du)) {
    hn::StoreU(hn::TruncateTo(d, hn::LoadU(du, x + i)), d, out + i);
  }
}

void NarrowPatterns(const std::uint64_t* x, Type type, void* out, std::size_t n) {
  switch (type) {
    case Type::u8:
      return narrow_to(x, static_cast<std::uint8_t*>(out), n);
    case Type::u16:
      return narrow_to(x, static_cast<std::uint16_t*>(out), n);
    default:
      return narrow_to(x, static_cast<std::uint32_t*>(out), n);
  }
}

void Widen(const float* x, double* out, std::size_t n) {
  const D d;
  const hn::Rebind<float, D> df;
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    hn::StoreU(hn::PromoteTo(d, hn::LoadU(df, x + i)), d, out + i);
  }
}

// Of values of binary32. Where there are no vectors, DemoteTo has no infinities.
void Narrow(const double* x, float* out, std::size_t n) {
#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
  std::transform(x, x + n, out, [](double a) { return static_cast<float>(a); });
#else
  const D d;
  const hn::Rebind<float, D> df;
  for (std::size_t i = 0; i < n; i += hn::Lanes(d)) {
    hn::StoreU(hn::DemoteTo(df, hn::LoadU(d, x + i)), df, out + i);
  }
#endif
}

// The product of the low halves of lanes.
HWY_INLINE hn::Vec<DU> multiply_low(hn::Vec<DU> x, hn::Vec<DU> y) {
#if HWY_TARGET == HWY_SCALAR
  const auto low = [](hn::Vec<DU> a) { return hn::GetLane(a) & 0xFFFFFFFF; };
  return hn::Set(DU(), low(x) * low(y));
#else
  const hn::Repartition<std::uint32_t, DU> d32;
  return hn::MulEven(hn::BitCast(d32, x), hn::BitCast(d32, y));
#endif
}

// A lane has a counter; its words are in the low halves of lanes. What is in the upper halves of
// the first and third plays no part in products, and is cut off in the end.
void Draw(std::uint64_t seed, std::uint64_t first, std::uint64_t* out, std::size_t n) {
  const DU d;
  const auto low = hn::Set(d, 0xFFFFFFFF), step = hn::Set(d, hn::Lanes(d));
  const auto m0 = hn::Set(d, Philox::multiplier[0]), m1 = hn::Set(d, Philox::multiplier[1]);
  const auto counters = hn::Set(d, ~std::uint64_t{0} / 2);  // they have 63 bits
  auto number = hn::Add(hn::Iota(d, 0), hn::Set(d, first / 2));
  for (std::size_t i = 0; i < n; i += 2 * hn::Lanes(d), number = hn::Add(number, step)) {
    auto c0 = hn::And(number, counters), c1 = hn::ShiftRight<32>(c0);
    auto c2 = hn::Zero(d), c3 = c2;
    auto k0 = static_cast<std::uint32_t>(seed), k1 = static_cast<std::uint32_t>(seed >> 32);
    for (int round = 0; round < Philox::rounds; ++round) {
      const auto p = multiply_low(c0, m0), q = multiply_low(c2, m1);
      c0 = hn::Xor(hn::ShiftRight<32>(q), hn::Xor(c1, hn::Set(d, k0)));
      c2 = hn::Xor(hn::ShiftRight<32>(p), hn::Xor(c3, hn::Set(d, k1)));
      c1 = q;
      c3 = p;
      k0 += Philox::weyl[0];
      k1 += Philox::weyl[1];
    }
    const auto even = hn::Or(hn::ShiftLeft<32>(c1), hn::And(c0, low));
    const auto odd = hn::Or(hn::ShiftLeft<32>(c3), hn::And(c2, low));
    hn::StoreInterleaved2(even, odd, d, out + i);
  }
}

}  // namespace zelk::arrays::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zelk::arrays::detail {

HWY_EXPORT(DecodeToDoubles);
HWY_EXPORT(NarrowPatterns);
HWY_EXPORT(Widen);
HWY_EXPORT(Narrow);
HWY_EXPORT(Draw);

void decode_to_doubles(const void* x, Type type, Shape f, double* out, std::size_t n) {
  HWY_DYNAMIC_DISPATCH(DecodeToDoubles)(x, type, f, out, n);
}
void narrow(const std::uint64_t* x, Type type, void* out, std::size_t n) {
  HWY_DYNAMIC_DISPATCH(NarrowPatterns)(x, type, out, n);
}
void widen(const float* x, double* out, std::size_t n) { HWY_DYNAMIC_DISPATCH(Widen)(x, out, n); }
void narrow(const double* x, float* out, std::size_t n) { HWY_DYNAMIC_DISPATCH(Narrow)(x, out, n); }
void draw(std::uint64_t seed, std::uint64_t first, std::uint64_t* out, std::size_t n) {
  HWY_DYNAMIC_DISPATCH(Draw)(seed, first, out, n);
}

}  // namespace zelk::arrays::detail
#endif  // HWY_ONCE
