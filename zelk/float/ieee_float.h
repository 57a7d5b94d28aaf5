// IEEE-754 binary floating-point values in formats chosen at run time.
//
// A value carries its format, a rounding mode and its bit pattern. Every operation but
// `from_number` of a fraction computes the exact result and rounds it once, in the mode of its left
// operand. Binary32 and binary64 patterns are packed words that the software float routines compute
// on; every other pattern is an integer of its own. Generic operations and `swflt` share scratch
// storage of the process without locks: one thread at a time, and no call from a signal handler.
#ifndef ZELK_FLOAT_IEEE_FLOAT_H_
#define ZELK_FLOAT_IEEE_FLOAT_H_

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

#include "zelk/base/exception.h"
#include "zelk/numbers/bvnumber.h"
#include "zelk/numbers/qnumber.h"
#include "zelk/swflt/swflt.h"

namespace zelk {

/// A floating-point value.
///
/// Operations on a format whose patterns (1 + e + m bits) reach `max_bits`, and operations whose
/// exact intermediates would, throw `IEEEFloat::error` "reached limit on float precision".
/// Arithmetic is defined for e >= 2 and m >= 1. It allocates nothing for patterns of up to 63 bits,
/// nor for wider ones once the value has held one as wide and scratch has grown. Otherwise an
/// operation has on the heap, beside 16 KB, at most 10 (e + m) bits, of both formats if there are
/// two; `from_ratio` and `from_scaled` of numbers of s bits 10 (e + m + s); `from_text` of n
/// characters 10 (e + m + 4n + |k|), k being the exponent of the last place; `to_integer` of w bits
/// 4 (e + m + w); `to_number` and `to_integer(0)` 4 (e + m + |k|). Whatever is thrown, allocation
/// failure included, the value keeps what it was.
class ZELK_EXPORT IEEEFloat {
 public:
  /// How the bit pattern is held. A stored 3 acts as `REPR_GENERIC` everywhere.
  enum Repr : unsigned {
    REPR_FLOAT32 = 0,  ///< a 32-bit word, for (8, 23)
    REPR_FLOAT64 = 1,  ///< a 64-bit word, for (11, 52)
    REPR_GENERIC = 2,  ///< a `QNumber` on the heap, for any format
  };

  /// The rounding directions of IEEE 754. Any other number may be stored. When a significand has to
  /// be rounded, it is reported ("bad rounding mode: <mode>") by the factories that take a mode,
  /// `set_format` and arithmetic on generic values. Arithmetic on packed values and `set_format`
  /// from packed binary64 to binary32 take it for nearest-even, `to_integer` for toward zero.
  enum rounding_mode : unsigned {
    ROUND_NEAREST_EVEN = 0,     ///< to the nearest value, of two to the even one
    ROUND_TOWARD_ZERO = 1,      ///< to the next value of smaller magnitude
    ROUND_TOWARD_POSITIVE = 2,  ///< to the next value above
    ROUND_TOWARD_NEGATIVE = 3,  ///< to the next value below
  };

  /// The widths of a format in bits: binary32 is {8, 23}. Not validated.
  ///
  /// From the most significant bit, a pattern is a sign bit, `exp_width` bits of biased exponent
  /// and `mant_width` bits of trailing significand (the hidden bit is not stored).
  struct format {
    unsigned long exp_width = 0;   ///< e, bits of biased exponent
    unsigned long mant_width = 0;  ///< m, bits of trailing significand

    /// 2^(e-1) - 1; 0 for e = 0.
    /// \throws error "reached limit on float precision", here and below, when the power of two
    ///   would pass `max_bits`.
    QNumber bias() const;
    /// 2^e - 1: the exponent field of infinities and NaNs.
    QNumber max_exponent() const;
    /// 2^m - 1: the largest trailing significand field.
    QNumber max_mantissa() const;

    /// Whether both widths agree.
    bool operator==(const format&) const = default;
  };

  /// What operations on values throw.
  class ZELK_EXPORT error : public Exception {
   public:
    /// With the text m.
    error(const std::string& m);
    /// A copy carries the text.
    error(const error&) = default;
    /// The same for a text that is replaced.
    error& operator=(const error&) = default;
    ~error() noexcept override;
  };

  /// A placeholder to be assigned: format {0, 0}, nearest-even, a packed 0.
  IEEEFloat() noexcept : IEEEFloat(format{}, ROUND_NEAREST_EVEN, REPR_FLOAT32, payload_type{0}) {}

  /// +0 in the given representation, which is not held against the format; of rm the low 30
  /// bits are kept, of r the low 2.
  IEEEFloat(format f, Repr r, rounding_mode rm);

  /// +0 in the best representation for f.
  IEEEFloat(format f, rounding_mode rm) : IEEEFloat(f, get_best_repr(f), rm) {}

  /// A copy owns a pattern of its own, in the same form. Copying packed values allocates nothing.
  IEEEFloat(const IEEEFloat& other)
      : fmt(other.fmt), control(other.control), kind(other.kind), payload(other.payload) {
    if (is_generic()) {
      payload.big = new QNumber(*other.payload.big);
    }
  }

  /// The moved-from value is the default placeholder.
  IEEEFloat(IEEEFloat&& other) noexcept : IEEEFloat() { swap(other); }

  /// Format, mode and representation become the source's. The target is unchanged when an
  /// allocation fails.
  IEEEFloat& operator=(const IEEEFloat& other) {
    if (((control | other.control) >> 31) == 0) {  // both packed
      copy_words(other);
    } else if (is_generic() && other.is_generic() && payload.big->is_small() &&
               other.payload.big->is_small()) {
      copy_kind(other);
      payload.big->assign_small(other.payload.big->to_small());
    } else {
      assign_generic(other);
    }
    return *this;
  }

  /// Takes the source's format, mode, representation and pattern; the source is the placeholder.
  IEEEFloat& operator=(IEEEFloat&& other) noexcept {
    IEEEFloat taken;
    taken.swap(other);
    swap(taken);
    return *this;
  }

  ~IEEEFloat() {
    if (is_generic()) {
      delete payload.big;
    }
  }

  /// `REPR_FLOAT32` for {8, 23}, `REPR_FLOAT64` for {11, 52}, `REPR_GENERIC` for all others.
  static constexpr Repr get_best_repr(const format& f) {
    return f == format{8, 23} ? REPR_FLOAT32 : f == format{11, 52} ? REPR_FLOAT64 : REPR_GENERIC;
  }

  /// The value with the given pattern, rounding to nearest-even, in the best representation.
  /// The only NaN accepted is the canonical one: sign 1, exponent all ones, significand 1.
  /// \throws error "invalid bit pattern for IEEEFloat: <bits>" for any other NaN, and for what is
  ///   not an integer from 0 to 2^(1+e+m) - 1.
  static IEEEFloat from_bits(const QNumber& bits, format f);

  /// The largest finite value of f, rounding to nearest-even.
  static IEEEFloat max_value(format f);

  /// q in format f. Numerator and denominator are rounded to f on their own, then divided: the
  /// result is correctly rounded when both are representable (an integer always is rounded
  /// once), and can carry three roundings otherwise. A part beyond the range of f counts as the
  /// infinity or largest finite value that it rounds to.
  /// \throws error "bad rounding mode: <rm>" when rm is not 0 to 3 and rounding a part is inexact,
  ///   in every format; for a generic value also when the division is.
  static IEEEFloat from_number(const QNumber& q, format f, rounding_mode rm);

  /// q * 2^k in format f, rounded once, whatever q and k are; +0 for q = 0.
  /// \throws error "exponent is not an integer: <k>"; "bad rounding mode: <rm>" when rm is not 0 to
  ///   3 and the result is inexact; "reached limit on float precision".
  static IEEEFloat from_scaled(const QNumber& q, const QNumber& k, format f, rounding_mode rm);

  /// q in format f, rounded once.
  static IEEEFloat from_ratio(const QNumber& q, format f, rounding_mode rm) {
    return from_scaled(q, 0, f, rm);
  }

  /// The number that a text stands for, in format f, rounded once, however long it is. A power of
  /// ten that is beyond the range of f is not built; one within it, 10^t, must have 5^|t| within
  /// `max_bits`. Taken is what `QNumber::from_text` takes, or inf, infinity or nan in letters of
  /// either case, with a sign, which a NaN does without. -0 is the negative zero.
  /// \throws error "invalid number at position <p>: <text>", and what `from_scaled` throws.
  static IEEEFloat from_text(std::string_view text, format f, rounding_mode rm);

  /// The widths of exponent and significand.
  format get_format() const { return fmt; }
  /// The mode that operations with this value on the left round in.
  rounding_mode get_mode() const { return static_cast<rounding_mode>(mode()); }
  /// How the pattern is held.
  Repr get_repr() const { return static_cast<Repr>(repr()); }

  /// Of rm the low 30 bits are kept.
  void set_mode(rounding_mode rm) { control = (control & ~mode_mask) | (rm & mode_mask); }

  /// The pattern as an integer from 0 to 2^(1+e+m) - 1.
  QNumber get_bits() const;

  /// Moves the pattern into another representation. A packed word takes its low 32 or 64 bits.
  void self_specialize_repr(Repr r);

  /// Converts the value to `f` in place, rounding once in the value's own mode.
  ///
  /// A value that already has format `f` is left as it is, representation included. Otherwise a
  /// NaN becomes the canonical NaN of the target, infinities and zeros keep their sign, and the
  /// value takes the best representation for `f`. Exact when neither width shrinks. The mode is
  /// kept.
  /// \throws error "bad rounding mode: <mode>" when the mode is not 0 to 3 and a conversion that
  ///   is not from packed binary64 to binary32 is inexact; "reached limit on float precision" when
  ///   the subnormal shift does not fit 64 bits.
  /// Example: a {5, 10} value 65504 converted to {4, 3} toward zero is 240.
  void set_format(format f);

  /// The sign bit, of NaNs too.
  bool get_sign() const;
  /// Sets (s true) or clears the sign bit, of NaNs too.
  void set_sign(bool s);

  /// Whether this is an infinity of either sign.
  bool is_inf() const;
  /// Whether this is a NaN, canonical or not.
  bool is_nan() const;
  /// Whether this is a zero of either sign.
  bool is_zero() const;
  /// Whether this is not zero, and smaller in magnitude than the smallest normal value.
  bool is_subnormal() const;

  /// Flips the sign; a NaN stays as it is.
  void self_neg();
  /// Becomes the canonical NaN: sign 1, exponent all ones, trailing significand 1.
  void self_nan();
  /// Becomes the infinity of this sign.
  void self_inf(bool negative);
  /// Becomes the zero of this sign.
  void self_zero(bool negative);

  /// The next value toward plus infinity (up) or minus infinity: both zeros step to the smallest
  /// subnormals, the largest finite values to the infinities, and a NaN and an infinity in its
  /// own direction stay. A step back from an infinity is a whole assignment of `max_value`: it
  /// also sets nearest-even and the best representation.
  void next_representable(bool up);

  /// The next pattern in sign-magnitude order, -0 and +0 being neighbours and nothing else
  /// special. Outward from the two patterns of largest magnitude there is none: they stay.
  void packed_next(bool up);

  /// \{
  /// Rounded arithmetic in this value's format and mode; the operand's mode plays no part, and it
  /// may be this value. Division by zero gives an infinity; an operation without a useful value
  /// (inf - inf, 0 * inf, 0 / 0, inf / inf) gives the canonical NaN. A NaN operand's pattern is
  /// passed on in generic values (the left one's first); packed values give the canonical NaN.
  /// \throws error "operands of different formats" or "operands of different representations";
  ///   on generic values "bad rounding mode: <mode>" when the mode is not 0 to 3 and the result is
  ///   inexact, and "reached limit on float precision" when the exponents of a sum differ by 2^63
  ///   or more, or the shift to a subnormal result does.
  IEEEFloat& operator+=(const IEEEFloat& other) {
    const auto sum = [](auto a, auto b) { return swflt::detail::add_nearest(a, b); };
    return apply_packed(other, sum) ? *this : add(other);
  }
  IEEEFloat& operator-=(const IEEEFloat& other) {
    const auto difference = [](auto a, auto b) { return swflt::detail::sub_nearest(a, b); };
    return apply_packed(other, difference) ? *this : subtract(other);
  }
  IEEEFloat& operator*=(const IEEEFloat& other) {
    const auto product = [](auto a, auto b) { return swflt::detail::mul_nearest(a, b); };
    return apply_packed(other, product) ? *this : multiply(other);
  }
  IEEEFloat& operator/=(const IEEEFloat& other) {
    const auto quotient = [](auto a, auto b) { return swflt::detail::div_nearest(a, b); };
    return apply_packed(other, quotient) ? *this : divide(other);
  }
  /// \}

  /// The exact value; both zeros give 0. Its parts have at most |k| + m + 2 bits, k being the
  /// exponent of the last place.
  /// \throws error "can't convert NaN to a Number", "can't convert infinity to a Number";
  ///   "reached limit on float precision" when the number would pass `max_bits`.
  QNumber to_number() const;

  /// For w = 0 the exact value truncated toward zero, 0 for infinities and NaNs. For w > 0 the
  /// value rounded to an integer in its own mode (a mode outside 0 to 3 rounds toward zero), its
  /// magnitude reduced modulo 2^w and the sign put back. By definition zeros and subnormals then
  /// give 0 in every mode, and infinities and NaNs count as (2^m + T) * 2^(bias + 1 - m). Needs no
  /// more than max(m, w) bits for w > 0.
  /// \throws error "reached limit on float precision" for w = 0 as `to_number`, but
  ///   for e <= 63 not below one; for w > 0 when neither w nor the shifted significand is within
  ///   `max_bits`.
  QNumber to_integer(unsigned long w) const;

  /// The decimal value, without an exponent part, with as many digits as GMP's default float
  /// precision carries; integers have zeros for the others.
  /// \throws error "can't convert NaN to float str", "can't convert Infinity to float str"; what
  ///   `to_number` throws.
  std::string to_float_str() const;

  /// Format, value and pattern: [5:10]-1.5{1_01111_1000000000}, [5:10]+Inf{0_11111_0000000000},
  /// [5:10]NaN{1_11111_0000000001}.
  std::string to_str() const;

 private:
  friend bool operator<(const IEEEFloat& a, const IEEEFloat& b);
  friend bool operator<=(const IEEEFloat& a, const IEEEFloat& b);
  friend bool operator==(const IEEEFloat& a, const IEEEFloat& b);

  union payload_type {
    std::uint32_t bits32;
    std::uint64_t bits64;
    QNumber* big;
  };
  static constexpr std::uint32_t mode_mask = (1U << 30) - 1;

  IEEEFloat(format f, unsigned rm, unsigned r, payload_type p) noexcept
      : fmt(f), control(r << 30 | (rm & mode_mask)), kind(kind_of(f, r)), payload(p) {}
  // The value with this pattern, in the best representation.
  IEEEFloat(format f, rounding_mode rm, const QNumber& pattern);
  static IEEEFloat from_limbs(const mp_limb_t* limbs, long n, format f, rounding_mode rm);
  static IEEEFloat from_integer(QNumber n, format f, rounding_mode rm);

  unsigned mode() const { return control & mode_mask; }
  unsigned repr() const { return control >> 30; }
  // Each width for itself: compilers that copy both at once send the argument through memory and
  // wait for it.
  void set_kind(const format& f, unsigned r, std::uint32_t k) {
    fmt.exp_width = f.exp_width;
    fmt.mant_width = f.mant_width;
    control = r << 30 | mode();
    kind = k;
  }
  void set_kind(const format& f, unsigned r) { set_kind(f, r, kind_of(f, r)); }
  bool is_generic() const { return repr() >= REPR_GENERIC; }
  const QNumber& pattern(QNumber& scratch) const;
  std::uint64_t low_word() const;
  // Values take short roads on words and limbs in front of the algorithms on numbers, which serve
  // every format, mode and size and stay the reference. A build without the short roads gives the
  // same results, but for what only they find room for under a very low `max_bits`.
#ifdef ZELK_REFERENCE_ONLY
  static constexpr bool short_roads = false;
#else
  static constexpr bool short_roads = true;
#endif
  // What operations choose their road by. Values of the same kind, unless that is `kind_other`,
  // have one format and act as of one representation.
  enum Kind : std::uint32_t {
    kind_other = 0,
    kind_packed32,             // (8, 23) in a word
    kind_packed64,             // (11, 52) in a word
    kind_quad,                 // (15, 112) in a number
    kind_in_number,            // from here on m << 8 | e: at most 63 bits, in a number
    kind_in_word = 1U << 30,   // from here on m << 8 | e: 64 bits, in a number
    kind_in_limbs = 1U << 31,  // from here on m << 8 | e: more than words serve, e <= 62
  };
  static constexpr std::uint32_t kind_of(const format& f, unsigned r) {
    if (r < REPR_GENERIC) {
      return r != get_best_repr(f) ? kind_other : r == REPR_FLOAT32 ? kind_packed32 : kind_packed64;
    }
    if (short_roads && swflt::detail::serves(f.exp_width, f.mant_width)) {
      return static_cast<std::uint32_t>(f.mant_width << 8 | f.exp_width) |
             (f.exp_width + f.mant_width == 63 ? kind_in_word : 0U);
    }
    if (f == format{15, 112}) {
      return short_roads ? kind_quad : kind_other;
    }
    return has_limb_road(f) && f.mant_width < 1U << 23
               ? kind_in_limbs | static_cast<std::uint32_t>(f.mant_width << 8 | f.exp_width)
               : kind_other;
  }
  static constexpr bool in_number(std::uint32_t k) {
    return k >= kind_in_number && k < kind_in_word;
  }
  // The bits of the mode in which the short roads serve it: the others are 0.
  static constexpr std::uint32_t direction_mask = 3;
  // Whether the pattern of a generic value has at most 64 bits; then `word` is the pattern.
  bool in_word() const {
    return short_roads && fmt.exp_width - 1 <= 62 && fmt.mant_width <= 63 - fmt.exp_width;
  }
  // Whether arithmetic on patterns of f in direction rm is done on words.
  static bool has_word_road(const format& f, unsigned rm);
  // Whether it is done on the limbs of GMP integers: exponents fit a word, and all that an
  // operation builds is well within `max_bits`.
  static constexpr bool has_limb_road(const format& f) {
    return short_roads && f.exp_width - 2 <= 60 && f.mant_width - 1 < max_bits / 4 - 64;
  }
  static bool has_limb_road(const format& f, unsigned rm) {
    return rm <= ROUND_TOWARD_NEGATIVE && has_limb_road(f);
  }
  std::uint64_t word() const { return payload.big->to_word(); }
  // The same where numbers are mostly of the small form.
  std::uint64_t small_word() const { return BVNumber::low_word(*payload.big); }
  static swflt::detail::RuntimeShape shape(const format& f) {
    return {static_cast<std::int64_t>(f.exp_width), static_cast<std::int64_t>(f.mant_width)};
  }
  swflt::detail::RuntimeShape shape() const { return shape(fmt); }

  bool is_word() const;
  bool generic_is_inf() const;
  bool generic_is_nan() const;
  bool generic_is_zero() const;
  bool generic_is_subnormal() const;
  bool generic_get_sign() const;
  void generic_set_sign(bool s);
  static int generic_order(const IEEEFloat& a, const IEEEFloat& b);
  static bool quad_less(const IEEEFloat& a, const IEEEFloat& b);
  static bool generic_less(const IEEEFloat& a, const IEEEFloat& b);
  static bool less_in_numbers(const IEEEFloat& a, const IEEEFloat& b);
  static bool generic_less_equal(const IEEEFloat& a, const IEEEFloat& b);
  static bool generic_equal(const IEEEFloat& a, const IEEEFloat& b);

  void require_same_kind(const IEEEFloat& other) const {
    if (!same_kind(other)) {
      require_both_generic(other);
    }
  }
  bool same_kind(const IEEEFloat& other) const {
    if (kind == other.kind && kind != kind_other) {
      return true;
    }
    return ((fmt.exp_width ^ other.fmt.exp_width) | (fmt.mant_width ^ other.fmt.mant_width)) == 0 &&
           repr() == other.repr();
  }
  void require_both_generic(const IEEEFloat& other) const;
  // The answer of a packed comparison, whose flags are never reported.
  static bool compared(bool answer) {
    swflt::float_exception_flags = 0;
    return answer;
  }
  void assign_generic(const IEEEFloat& other);
  void assign_otherwise(const IEEEFloat& other);
  void set_pattern(const QNumber& pattern);
  void set_word(const format& f, std::uint64_t word);
  void set_limbs(const format& f, const mp_limb_t* limbs, long n);
  bool convert_packed(const format& f);
  bool convert_word(const format& f);
  bool convert_in_limbs(const format& f);
  template <class From, class To>
  bool convert_between(From from, To to);
  void convert_in_number(format f);
  void convert_wide(format f);
  void convert_otherwise(format f);
  void convert_number(const format& f);
  // Packed values that round to nearest-even, the operation being inlined up to its routine.
  template <class Nearest>
  [[gnu::always_inline]] bool apply_packed(const IEEEFloat& other, Nearest nearest) {
    if (kind == kind_packed64 && other.kind == kind_packed64 && control == REPR_FLOAT64 << 30) {
      payload.bits64 = nearest(payload.bits64, other.payload.bits64);
      return true;
    }
    if (kind == kind_packed32 && other.kind == kind_packed32 && control == REPR_FLOAT32 << 30) {
      payload.bits32 = nearest(payload.bits32, other.payload.bits32);
      return true;
    }
    return false;
  }
  IEEEFloat& add(const IEEEFloat& other);
  IEEEFloat& subtract(const IEEEFloat& other);
  IEEEFloat& multiply(const IEEEFloat& other);
  IEEEFloat& divide(const IEEEFloat& other);
  template <class Op>
  IEEEFloat& apply(const IEEEFloat& other);
  template <class Op>
  IEEEFloat& apply64(const IEEEFloat& other, swflt::detail::Direction direction);
  template <class Op>
  IEEEFloat& apply32(const IEEEFloat& other, swflt::detail::Direction direction);
  template <class Op, class Shape>
  IEEEFloat& apply_in_number(const IEEEFloat& other, swflt::detail::Direction direction);
  template <class Op>
  IEEEFloat& apply_in_word(const IEEEFloat& other, swflt::detail::Direction direction);
  template <class Op>
  IEEEFloat& apply_quad(const IEEEFloat& other, swflt::detail::Direction direction);
  template <class Op>
  IEEEFloat& apply_limbs(const IEEEFloat& other, swflt::detail::Direction direction);
  template <class Op, class Shape, class Size>
  IEEEFloat& apply_in_limbs(const IEEEFloat& other, swflt::detail::Direction direction, Shape s,
                            Size n);
  template <class Op>
  IEEEFloat& apply_in_numbers(const IEEEFloat& other);
  template <class Op>
  IEEEFloat& apply_otherwise(const IEEEFloat& other);
  void step_magnitude(bool grow);
  bool has_largest_magnitude() const;

  void copy_kind(const IEEEFloat& other) {
    fmt = other.fmt;
    control = other.control;
    kind = other.kind;
  }

  void copy_words(const IEEEFloat& other) {
    copy_kind(other);
    payload = other.payload;
  }

  void swap(IEEEFloat& other) noexcept {
    std::swap(fmt, other.fmt);
    std::swap(control, other.control);
    std::swap(kind, other.kind);
    std::swap(payload, other.payload);
  }

  format fmt;
  std::uint32_t control;  // the mode in bits 0 to 29, the representation in bits 30 and 31
  std::uint32_t kind;     // kind_of(fmt, repr())
  payload_type payload;   // selected by the representation; from 2 on this value owns *big
};

inline bool IEEEFloat::get_sign() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_sign(payload.bits64);
    case REPR_FLOAT32:
      return swflt::float32_sign(payload.bits32);
    default:
      return in_word() ? (word() & swflt::detail::sign_bit(shape())) != 0 : generic_get_sign();
  }
}

inline void IEEEFloat::set_sign(bool s) {
  switch (repr()) {
    case REPR_FLOAT64:
      payload.bits64 = swflt::float64_set_sign(payload.bits64, static_cast<char>(s));
      break;
    case REPR_FLOAT32:
      payload.bits32 = swflt::float32_set_sign(payload.bits32, static_cast<char>(s));
      break;
    default:
      generic_set_sign(s);
  }
}

inline bool IEEEFloat::is_inf() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_is_inf(payload.bits64);
    case REPR_FLOAT32:
      return swflt::float32_is_inf(payload.bits32);
    default:
      return in_word() ? swflt::detail::is_inf(shape(), word()) : generic_is_inf();
  }
}

inline bool IEEEFloat::is_nan() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_is_nan(payload.bits64);
    case REPR_FLOAT32:
      return swflt::float32_is_nan(payload.bits32);
    default:
      return in_word() ? swflt::detail::is_nan(shape(), word()) : generic_is_nan();
  }
}

inline bool IEEEFloat::is_zero() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_is_zero(payload.bits64);
    case REPR_FLOAT32:
      return swflt::float32_is_zero(payload.bits32);
    default:
      return in_word() ? swflt::detail::is_zero(shape(), word()) : generic_is_zero();
  }
}

inline bool IEEEFloat::is_subnormal() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_is_subnormal(payload.bits64);
    case REPR_FLOAT32:
      return swflt::float32_is_subnormal(payload.bits32);
    default:
      return in_word() ? swflt::detail::is_subnormal(shape(), word()) : generic_is_subnormal();
  }
}

/// IEEE 754 order: a NaN is unordered, -0 equals +0. The operands must have the same format and
/// representation.
/// \throws IEEEFloat::error "operands of different formats", "operands of different
///   representations".
inline bool operator<(const IEEEFloat& a, const IEEEFloat& b) {
  a.require_same_kind(b);
  switch (a.repr()) {
    case IEEEFloat::REPR_FLOAT64:
      return IEEEFloat::compared(swflt::float64_lt(a.payload.bits64, b.payload.bits64));
    case IEEEFloat::REPR_FLOAT32:
      return IEEEFloat::compared(swflt::float32_lt(a.payload.bits32, b.payload.bits32));
    default:
      return a.kind == IEEEFloat::kind_quad ? IEEEFloat::quad_less(a, b)
             : a.kind < IEEEFloat::kind_quad || a.kind >= IEEEFloat::kind_in_word
                 ? IEEEFloat::generic_less(a, b)
                 : swflt::detail::less(a.shape(), a.small_word(), b.small_word());
  }
}

/// The same order: -0 <= +0, and false with a NaN.
inline bool operator<=(const IEEEFloat& a, const IEEEFloat& b) {
  a.require_same_kind(b);
  switch (a.repr()) {
    case IEEEFloat::REPR_FLOAT64:
      return IEEEFloat::compared(swflt::float64_le(a.payload.bits64, b.payload.bits64));
    case IEEEFloat::REPR_FLOAT32:
      return IEEEFloat::compared(swflt::float32_le(a.payload.bits32, b.payload.bits32));
    default:
      return a.in_word() ? !a.is_nan() && !b.is_nan() && !(b < a)
                         : IEEEFloat::generic_less_equal(a, b);
  }
}

/// IEEE 754 equality: -0 == +0, and a NaN equals nothing, itself included.
inline bool operator==(const IEEEFloat& a, const IEEEFloat& b) {
  a.require_same_kind(b);
  switch (a.repr()) {
    case IEEEFloat::REPR_FLOAT64:
      return IEEEFloat::compared(swflt::float64_eq_signaling(a.payload.bits64, b.payload.bits64));
    case IEEEFloat::REPR_FLOAT32:
      return IEEEFloat::compared(swflt::float32_eq_signaling(a.payload.bits32, b.payload.bits32));
    default:
      return a.in_word() ? swflt::detail::equal(a.shape(), a.word(), b.word())
                         : IEEEFloat::generic_equal(a, b);
  }
}

/// b < a.
inline bool operator>(const IEEEFloat& a, const IEEEFloat& b) { return b < a; }
/// b <= a.
inline bool operator>=(const IEEEFloat& a, const IEEEFloat& b) { return b <= a; }

/// -1 when a < b, 0 when a == b, 1 when b < a, -2 when a NaN makes the pair unordered.
ZELK_EXPORT int ieee_cmp(const IEEEFloat& a, const IEEEFloat& b);

/// \{
/// A copy of a, then the compound operation: a's format and mode.
inline IEEEFloat operator+(IEEEFloat a, const IEEEFloat& b) { return std::move(a += b); }
inline IEEEFloat operator-(IEEEFloat a, const IEEEFloat& b) { return std::move(a -= b); }
inline IEEEFloat operator*(IEEEFloat a, const IEEEFloat& b) { return std::move(a *= b); }
inline IEEEFloat operator/(IEEEFloat a, const IEEEFloat& b) { return std::move(a /= b); }
/// \}

/// Writes `to_str()`.
ZELK_EXPORT std::ostream& operator<<(std::ostream& os, const IEEEFloat& x);

}  // namespace zelk

#endif  // ZELK_FLOAT_IEEE_FLOAT_H_
