#include "zelk/limbs/convert.h"

#include <utility>

#include "zelk/limbs/limbs.h"
#include "zelk/limbs/many.h"
#include "zelk/limbs/room.h"
#include "zelk/limbs/window.h"

namespace zelk::limbs {

namespace {

// Whether the values of one format are all values of another.
constexpr bool widens(Shape from, Shape to) {
  return from.exp_width <= to.exp_width && from.mant_width <= to.mant_width;
}

// Whether a number is neither subnormal nor zero, an infinity or a NaN.
[[gnu::always_inline]] inline bool is_normal(Shape s, const Number& x) {
  return (x.top & s.hidden_bit()) != 0 && x.exp != s.exp_max();
}

// out := the pattern of a normal number in a format that has all values of its own: zeros behind
// the significand, and another bias. out may be where the limbs of x are.
[[gnu::always_inline]] inline void widen(Shape from, Shape to, const Number& x, Limb* out) {
  const long n = from.significand_size();
  const long size = to.significand_size();
  const unsigned long distance = to.mant_width - from.mant_width;
  const auto zeros = static_cast<long>(distance / limb_bits);
  const auto k = static_cast<unsigned>(distance % limb_bits);
  const auto shifted = [k](Limb high, Limb low) {
    return high << k | low >> 1 >> (limb_bits - 1 - k);
  };
  Limb top = shifted(x.top, n > 1 ? x.low[n - 2] : 0);
  if (size - zeros > n) {
    out[size - 2] = std::exchange(top, shifted(0, x.top));
  }
  if (n > 1) {
    shift_up(out + zeros + 1, x.low + 1, n - 2, k);
    out[zeros] = x.low[0] << k;
  }
  std::fill_n(out, zeros, 0);
  pack_top(to, size, x.sign, x.exp - from.bias() + to.bias() - 1, top, 0, out);
}

// Between two of the standard's wider formats, a normal number; false, and nothing done, for
// others.
template <class From, class To>
[[gnu::noinline]] bool convert_normal(From from_shape, To to_shape, Rounding r, const Limb* x,
                                      Limb* out) {
  const Shape from = from_shape;
  const Shape to = to_shape;
  const Number number = unpack(from, From::size, x);
  if (!is_normal(from, number)) [[unlikely]] {
    return false;
  }
  if constexpr (widens(From::widths, To::widths)) {
    widen(from, to, number, out);
  } else {
    Window<To::size> window;
    load(window, to, {number.low, From::size, number.top}, from.top_bit());
    round_and_pack(to, r, number.sign, number.exp - from.bias() + to.bias(), window, out);
  }
  return true;
}

// Calls `serve` with the widths of a format, if they are constants: the standard's from binary64
// on.
template <class Serve>
[[gnu::always_inline]] inline bool with_fixed_shape(rules::Widths f, Serve serve) {
  return Binary128::is(f)   ? serve(Binary128())
         : Binary256::is(f) ? serve(Binary256())
         : Binary64::is(f)  ? serve(Binary64())
                            : false;
}

// Any pattern.
[[gnu::noinline]] void convert_any(Shape from, Shape to, Rounding r, const Limb* x, Limb* out) {
  const long n = from.significand_size();
  const Number number = unpack(from, n, x);
  if (is_normal(from, number) && widens(from, to)) [[likely]] {
    widen(from, to, number, out);
    return;
  }
  switch (operand_of(from, x).what) {
    case rules::Class::nan:
      pack_nan(to, out);
      break;
    case rules::Class::infinite:
      pack_infinity(to, number.sign, out);
      break;
    case rules::Class::zero:
      pack_zero(to, number.sign, out);
      break;
    case rules::Class::finite: {
      Room room(n);
      const long size = copy_significand(number, n, room.limbs());
      const std::int64_t k = number.exp - from.bias() - static_cast<long>(from.mant_width);
      pack_scaled(to, r, number.sign, k, room.limbs(), size, out);
      break;
    }
  }
}

}  // namespace

void pack_scaled(Shape s, Rounding r, Limb sign, std::int64_t k, const Limb* w, long size,
                 Limb* out) {
  with_size(
      s, [&](auto shape, auto n) __attribute__((always_inline)) {
        if constexpr (std::is_same_v<decltype(n), long>) {
          const std::int64_t exp = k + s.bias() + static_cast<long>(s.mant_width);
          normalize_and_pack(shape, n, r, sign, exp, w, size, false, out);
        } else {
          Window<n> window;
          load(window, s, {w, size, w[size - 1]});
          round_and_pack(shape, r, sign, k + s.bias() + bit_size(w, size) - 1, window, out);
        }
      });
}

void convert(const Limb* x, rules::Widths from, Limb* out, rules::Widths to, Rounding r) {
  const bool done = with_fixed_shape(
      from, [&](auto from_shape) __attribute__((always_inline)) {
        return with_fixed_shape(
            to, [&](auto to_shape) __attribute__((always_inline)) {
              return convert_normal(from_shape, to_shape, r, x, out);
            });
      });
  if (!done) {
    convert_any(Shape{from}, Shape{to}, r, x, out);
  }
}

}  // namespace zelk::limbs
