// The operations of IEEE 754 in every format, with its roundings and flags.
#ifndef ZELK_FLOAT_ENVIRONMENT_H_
#define ZELK_FLOAT_ENVIRONMENT_H_

#include <optional>
#include <span>
#include <string_view>

#include "zelk/base/export.h"
#include "zelk/float/ieee_float.h"
#include "zelk/float/rounded_roads.h"

namespace zelk {

/// A rounding direction of IEEE 754, clause 4.3, or rounding to odd.
enum class Rounding : unsigned char {
  nearest_even,     ///< to the nearest value, of two to the even one
  toward_zero,      ///< to the next value of smaller magnitude
  toward_positive,  ///< to the next value above
  toward_negative,  ///< to the next value below
  nearest_away,     ///< to the nearest value, of two to the one of larger magnitude
  /// To the neighbour whose last bit is 1; overflow gives the largest finite value. A value rounded
  /// to odd to m + 2 bits or more, with a wider exponent field, can be rounded again, to m bits.
  to_odd,
};

/// When a result counts as tiny: below the smallest normal value.
enum class Tininess : unsigned char {
  after_rounding,   ///< rounded to the format's precision as if exponents had no end; x86 does
  before_rounding,  ///< as it is; Arm does
};

/// What operations round by, and the flags that they have raised.
///
/// An aggregate without ties to anything else: copy it, keep one for each thread, or one for each
/// task. The flags are the bits `swflt::flag_invalid`, `flag_divide_by_zero`, `flag_overflow`,
/// `flag_underflow` and `flag_inexact`; operations only set them, and leave other bits alone.
///
/// Rounded operations come in two forms. Without a last format all operands have one format, packed
/// and generic ones mixed, and so has the result, in the first operand's representation. With a
/// last format `f` operands may be of any formats: the result is exact inside and rounded once into
/// `f`, in the first operand's representation where that has format f, else in the best one. A
/// result keeps the first operand's stored mode, which plays no part, nor do those of the others.
///
/// A NaN operand is quiet: the result is the canonical NaN, and nothing is raised. Invalid are
/// inf - inf, 0 * inf, 0 / 0, inf / inf, square roots below zero, remainders of an infinity or by
/// zero: each gives the canonical NaN. Underflow is raised by results that are tiny and inexact.
///
/// The first operand comes by value, that of `convert` by reference: `x = env.add(std::move(x), y)`
/// uses its storage again. A moved operand is no other operand of the same call, and lost when the
/// call throws; all else, the flags included, is then what it was.
///
/// \throws IEEEFloat::error in every member, first of all "bad rounding mode: <n>" for a rounding
///   that is none of the six, "format without arithmetic: (<e>, <m>)" for e < 2, m < 1 and
///   widths from 2^63 on, and "operands of different formats"; then what the member names; "reached
///   limit on float precision" where a pattern or a number that has to be built passes `max_bits`.
struct ZELK_EXPORT Environment {
  Rounding rounding = Rounding::nearest_even;    ///< the direction of every rounding
  Tininess tininess = Tininess::after_rounding;  ///< what underflow and flushing of results go by
  /// Results that are tiny and not zero become the zero of their sign, with underflow and inexact:
  /// of rounded operations, conversions, factories and sums, exact subnormal results too.
  bool flush_results = false;
  /// Operands that are subnormal in their own format are read as the zero of their sign, by every
  /// member; it raises nothing.
  bool flush_operands = false;
  /// The exceptions raised; clear it at will.
  unsigned char flags = 0;

  /// The widths of a format.
  using format = IEEEFloat::format;

  /// \{
  /// x + y. An exact zero of terms that differ in sign is +0, toward negative -0.
  IEEEFloat add(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat add(IEEEFloat x, const IEEEFloat& y, format f);
  /// \}
  /// \{
  /// x - y, as x + (-y).
  IEEEFloat subtract(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat subtract(IEEEFloat x, const IEEEFloat& y, format f);
  /// \}
  /// \{
  /// x * y.
  IEEEFloat multiply(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat multiply(IEEEFloat x, const IEEEFloat& y, format f);
  /// \}
  /// \{
  /// x / y. A finite x other than zero over zero raises divide-by-zero.
  IEEEFloat divide(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat divide(IEEEFloat x, const IEEEFloat& y, format f);
  /// \}
  /// \{
  /// The square root; of -0 it is -0.
  IEEEFloat sqrt(IEEEFloat x);
  IEEEFloat sqrt(IEEEFloat x, format f);
  /// \}
  /// \{
  /// x * y + z, rounded once. A NaN z makes 0 * inf quiet, too.
  IEEEFloat fma(IEEEFloat x, const IEEEFloat& y, const IEEEFloat& z);
  IEEEFloat fma(IEEEFloat x, const IEEEFloat& y, const IEEEFloat& z, format f);
  /// \}
  /// \{
  /// x - n * y, n being the integer nearest to x / y, of two the even one. A zero has x's sign. The
  /// cost does not depend on how far the exponents are apart, but for powers modulo y.
  IEEEFloat remainder(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat remainder(IEEEFloat x, const IEEEFloat& y, format f);
  /// \}
  /// \{
  /// The same with x / y cut off: fmod of C.
  IEEEFloat modulo(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat modulo(IEEEFloat x, const IEEEFloat& y, format f);
  /// \}
  /// \{
  /// x * 2^n for an integer n of any size.
  /// \throws IEEEFloat::error "exponent is not an integer: <n>".
  IEEEFloat scale(IEEEFloat x, const QNumber& n);
  IEEEFloat scale(IEEEFloat x, const QNumber& n, format f);
  /// \}
  /// \{
  /// x in format f. Into its own format it is flushed, and a NaN made the canonical one.
  IEEEFloat convert(const IEEEFloat& x, format f);
  IEEEFloat convert(IEEEFloat&& x, format f);
  /// \}

  /// x rounded to an integer; raises inexact when that changes it. An integer beyond the largest
  /// finite value, as 4 in {2, 2}, is an overflow. A zero keeps the sign of x.
  IEEEFloat round_to_integral(IEEEFloat x);
  /// The same without inexact.
  IEEEFloat nearbyint(IEEEFloat x);

  /// \{
  /// One of the operands: the smaller or larger, -0 being below +0. A NaN wins.
  IEEEFloat minimum(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat maximum(IEEEFloat x, const IEEEFloat& y);
  /// \}
  /// \{
  /// The same, but a number wins over a NaN.
  IEEEFloat minimum_number(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat maximum_number(IEEEFloat x, const IEEEFloat& y);
  /// \}
  /// \{
  /// The operand of smaller or larger magnitude; of two the minimum or maximum. A NaN wins.
  IEEEFloat minimum_magnitude(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat maximum_magnitude(IEEEFloat x, const IEEEFloat& y);
  /// \}
  /// \{
  /// The same, but a number wins over a NaN.
  IEEEFloat minimum_magnitude_number(IEEEFloat x, const IEEEFloat& y);
  IEEEFloat maximum_magnitude_number(IEEEFloat x, const IEEEFloat& y);
  /// \}

  /// \{
  /// Numbers rounded once into f, in the best representation, with nearest-even as stored mode: a
  /// rational, q * 2^k, an integer, and what `IEEEFloat::from_text` takes. A number 0 is +0.
  /// \throws IEEEFloat::error "exponent is not an integer: <k>", "number is not an integer: <n>",
  ///   "invalid number at position <p>: <text>", "text of another format: (<e>, <m>)".
  IEEEFloat from_rational(const QNumber& q, format f);
  IEEEFloat from_scaled(const QNumber& q, const QNumber& k, format f);
  IEEEFloat from_integer(const QNumber& n, format f);
  IEEEFloat from_text(std::string_view text, format f);
  /// \}

  /// \{
  /// x rounded to an integer of w bits, in two's complement or unsigned, or of any length; inexact
  /// when that changes it. For NaNs, infinities and what does not fit after rounding there is none,
  /// and invalid alone is raised.
  /// \throws IEEEFloat::error "width of 0 bits".
  std::optional<QNumber> to_signed(const IEEEFloat& x, unsigned long w);
  std::optional<QNumber> to_unsigned(const IEEEFloat& x, unsigned long w);
  std::optional<QNumber> to_integer(const IEEEFloat& x);
  /// \}

  /// \{
  /// The sum of all terms, or of the products x[i] * y[i], of any formats: exact inside, whatever
  /// the order, the number of terms and the exponents, and rounded once into f; in the best
  /// representation, with nearest-even as stored mode. Of no terms +0; of zeros of one sign that
  /// zero, any other exact zero +0, toward negative -0. Any NaN makes all else quiet.
  /// \throws IEEEFloat::error "spans of different lengths".
  IEEEFloat sum(std::span<const IEEEFloat> x, format f);
  IEEEFloat dot(std::span<const IEEEFloat> x, std::span<const IEEEFloat> y, format f);
  /// \}

 private:
  friend detail::ValueAccess;

  // x := the result of an operation on operands of one format: on its road where they are of one
  // kind, else on numbers.
  template <class Operands, class... Others>
  void apply(const detail::RoundedOperations<Operands>& operation, IEEEFloat& x,
             const Others&... others);
  template <bool largest, bool magnitude, bool number>
  void select(IEEEFloat& x, const IEEEFloat& y) const;
  template <bool largest, bool magnitude, bool number>
  void select_otherwise(IEEEFloat& x, const IEEEFloat& y) const;
  IEEEFloat converted(const IEEEFloat& x, format f);
  void apply_into(const format& f, const detail::RoundedOperations<detail::OnOne>& operation,
                  IEEEFloat& x);
  void apply_into(const format& f, const detail::RoundedOperations<detail::OnTwo>& operation,
                  IEEEFloat& x, const IEEEFloat& y);
  void apply_into(const format& f, const detail::RoundedOperations<detail::OnThree>& operation,
                  IEEEFloat& x, const IEEEFloat& y, const IEEEFloat& z);
  static std::uint64_t word(const IEEEFloat& x) { return x.pattern.words[0]; }
  void apply_otherwise(const detail::RoundedOperations<detail::OnOne>& operation, IEEEFloat& x);
  void apply_otherwise(const detail::RoundedOperations<detail::OnTwo>& operation, IEEEFloat& x,
                       const IEEEFloat& y);
  void apply_otherwise(const detail::RoundedOperations<detail::OnThree>& operation, IEEEFloat& x,
                       const IEEEFloat& y, const IEEEFloat& z);
};

template <class Operands, class... Others>
[[gnu::always_inline]] inline void Environment::apply(
    const detail::RoundedOperations<Operands>& operation, IEEEFloat& x, const Others&... others) {
  const detail::Head& head = x.head;
  std::uint64_t& low = x.pattern.words[0];
  const bool same = ((others.head.kind == head.kind) && ...) && !flush_operands;
  const bool nearest = detail::has_short_roads && same && rounding == Rounding::nearest_even;
  if (nearest && head.kind == detail::Kind::packed64()) {
    low = operation.nearest64(low, word(others)..., *this);
  } else if (nearest && head.kind == detail::Kind::packed32()) {
    low = operation.nearest32(low, word(others)..., *this);
  } else if (same && head.kind.names_format() && rounding <= Rounding::to_odd &&
             operation[head.kind.road()] != nullptr) [[likely]] {
    operation[head.kind.road()](x.pattern, others.pattern..., head.exp_width, head.mant_width,
                                *this);
  } else {
    apply_otherwise(operation, x, others...);
  }
}

inline IEEEFloat Environment::add(IEEEFloat x, const IEEEFloat& y) {
  apply(detail::rounded_sum, x, y);
  return x;
}
inline IEEEFloat Environment::subtract(IEEEFloat x, const IEEEFloat& y) {
  apply(detail::rounded_difference, x, y);
  return x;
}
inline IEEEFloat Environment::multiply(IEEEFloat x, const IEEEFloat& y) {
  apply(detail::rounded_product, x, y);
  return x;
}
inline IEEEFloat Environment::divide(IEEEFloat x, const IEEEFloat& y) {
  apply(detail::rounded_quotient, x, y);
  return x;
}
inline IEEEFloat Environment::sqrt(IEEEFloat x) {
  apply(detail::rounded_root, x);
  return x;
}
inline IEEEFloat Environment::fma(IEEEFloat x, const IEEEFloat& y, const IEEEFloat& z) {
  apply(detail::rounded_fused, x, y, z);
  return x;
}
inline IEEEFloat Environment::remainder(IEEEFloat x, const IEEEFloat& y) {
  apply(detail::rounded_remainder, x, y);
  return x;
}
inline IEEEFloat Environment::modulo(IEEEFloat x, const IEEEFloat& y) {
  apply(detail::rounded_modulo, x, y);
  return x;
}
inline IEEEFloat Environment::round_to_integral(IEEEFloat x) {
  apply(detail::rounded_integral, x);
  return x;
}

inline IEEEFloat Environment::add(IEEEFloat x, const IEEEFloat& y, format f) {
  apply_into(f, detail::rounded_sum, x, y);
  return x;
}
inline IEEEFloat Environment::subtract(IEEEFloat x, const IEEEFloat& y, format f) {
  apply_into(f, detail::rounded_difference, x, y);
  return x;
}
inline IEEEFloat Environment::multiply(IEEEFloat x, const IEEEFloat& y, format f) {
  apply_into(f, detail::rounded_product, x, y);
  return x;
}
inline IEEEFloat Environment::divide(IEEEFloat x, const IEEEFloat& y, format f) {
  apply_into(f, detail::rounded_quotient, x, y);
  return x;
}
inline IEEEFloat Environment::sqrt(IEEEFloat x, format f) {
  apply_into(f, detail::rounded_root, x);
  return x;
}
inline IEEEFloat Environment::fma(IEEEFloat x, const IEEEFloat& y, const IEEEFloat& z, format f) {
  apply_into(f, detail::rounded_fused, x, y, z);
  return x;
}
inline IEEEFloat Environment::remainder(IEEEFloat x, const IEEEFloat& y, format f) {
  apply_into(f, detail::rounded_remainder, x, y);
  return x;
}
inline IEEEFloat Environment::modulo(IEEEFloat x, const IEEEFloat& y, format f) {
  apply_into(f, detail::rounded_modulo, x, y);
  return x;
}

inline IEEEFloat Environment::convert(const IEEEFloat& x, format f) {
  const bool nearest = detail::has_short_roads && rounding == Rounding::nearest_even;
  if (x.head.kind == detail::Kind::packed32()) {
    if (f == format{11, 52} && nearest && !flush_operands) {
      IEEEFloat r = x.zero_like(11, 52, detail::Kind::packed64());
      r.pattern.words[0] = detail::binary64_of(word(x), *this);
      return r;
    }
  } else if (x.head.kind == detail::Kind::packed64()) {
    if (f == format{8, 23} && nearest && !flush_operands) {
      IEEEFloat r = x.zero_like(8, 23, detail::Kind::packed32());
      r.pattern.words[0] = detail::binary32_of(word(x), *this);
      return r;
    }
  }
  return converted(x, f);
}

template <bool largest, bool magnitude, bool number>
[[gnu::always_inline]] inline void Environment::select(IEEEFloat& x, const IEEEFloat& y) const {
  const detail::Kind kind = x.head.kind;
  if (!(kind == y.head.kind && kind.is_wide_limbs() && kind.names_format() && !flush_operands &&
        rounding <= Rounding::to_odd &&
        detail::select_limbs<largest, magnitude>(x.pattern.limbs, y.pattern.limbs, x.head.exp_width,
                                                 x.head.mant_width))) {
    select_otherwise<largest, magnitude, number>(x, y);
  }
}
inline IEEEFloat Environment::minimum(IEEEFloat x, const IEEEFloat& y) {
  select<false, false, false>(x, y);
  return x;
}
inline IEEEFloat Environment::maximum(IEEEFloat x, const IEEEFloat& y) {
  select<true, false, false>(x, y);
  return x;
}
inline IEEEFloat Environment::minimum_number(IEEEFloat x, const IEEEFloat& y) {
  select<false, false, true>(x, y);
  return x;
}
inline IEEEFloat Environment::maximum_number(IEEEFloat x, const IEEEFloat& y) {
  select<true, false, true>(x, y);
  return x;
}
inline IEEEFloat Environment::minimum_magnitude(IEEEFloat x, const IEEEFloat& y) {
  select<false, true, false>(x, y);
  return x;
}
inline IEEEFloat Environment::maximum_magnitude(IEEEFloat x, const IEEEFloat& y) {
  select<true, true, false>(x, y);
  return x;
}
inline IEEEFloat Environment::minimum_magnitude_number(IEEEFloat x, const IEEEFloat& y) {
  select<false, true, true>(x, y);
  return x;
}
inline IEEEFloat Environment::maximum_magnitude_number(IEEEFloat x, const IEEEFloat& y) {
  select<true, true, true>(x, y);
  return x;
}

}  // namespace zelk

#endif  // ZELK_FLOAT_ENVIRONMENT_H_
