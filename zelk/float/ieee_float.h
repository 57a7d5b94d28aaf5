// IEEE-754 binary floating-point values in formats chosen at run time.
//
// A value carries its format, a rounding mode and its bit pattern. Every operation but
// `from_number` of a fraction computes the exact result and rounds it once, in the mode of its left
// operand. A pattern of up to 128 bits is in the value, a longer one in limbs that the value owns.
// Distinct values may be used from distinct threads at the same time, and one value may be read by
// many; no call from a signal handler.
#ifndef ZELK_FLOAT_IEEE_FLOAT_H_
#define ZELK_FLOAT_IEEE_FLOAT_H_

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "zelk/base/exception.h"
#include "zelk/float/kind.h"
#include "zelk/numbers/bvnumber.h"
#include "zelk/numbers/qnumber.h"
#include "zelk/swflt/swflt.h"
#include "zelk/words/shape.h"

namespace zelk {

struct Environment;

namespace detail {
struct PatternAccess;
struct ValueAccess;
}  // namespace detail

/// A floating-point value.
///
/// Operations on a format whose patterns (1 + e + m bits) reach `max_bits`, and operations whose
/// exact intermediates would, throw `IEEEFloat::error` "reached limit on float precision".
/// Arithmetic is defined for e >= 2 and m >= 1.
///
/// Values of up to 128 bits with e <= 62 and a mode that is one of the four allocate nothing in
/// construction, but from numbers of more than 2,000 bits, nor in copies, arithmetic, comparison,
/// steps and conversions among them; wider ones own their limbs, which assignment between values of
/// one size and arithmetic use again. Otherwise an operation has on the heap, beside 16 KB, at most
/// 10 (e + m) bits, of both formats if there are two; `from_ratio` and `from_scaled` of numbers of
/// s bits 10 (e + m + s); `from_text` of n characters 10 (e + m + 4n + |k|), k being the exponent
/// of the last place; `to_integer` of w bits 4 (e + m + w); `to_number` and `to_integer(0)` 4 (e +
/// m + |k|). Whatever is thrown, allocation failure included, the value keeps what it was.
class ZELK_EXPORT IEEEFloat {
 public:
  /// What kind of value this is. Generic ones pass on the patterns of NaN operands and report
  /// modes that are none of the four; packed ones do neither. Operands of operators, but `<=>`,
  /// must agree in it. A stored 3 acts as `REPR_GENERIC` everywhere.
  enum Repr : unsigned {
    REPR_FLOAT32 = 0,  ///< a packed 32-bit word, for (8, 23)
    REPR_FLOAT64 = 1,  ///< a packed 64-bit word, for (11, 52)
    REPR_GENERIC = 2,  ///< as many words as it needs, for any format
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
    error(const std::string& m);  // NOLINT(google-explicit-constructor): a text is an error
    /// A copy carries the text.
    error(const error&) = default;
    /// The same for a text that is replaced.
    error& operator=(const error&) = default;
    ~error() noexcept override;
  };

  /// A placeholder to be assigned: format {0, 0}, nearest-even, a packed 0.
  IEEEFloat() noexcept = default;

  /// +0 in the given representation.
  ///
  /// In a packed one of another format the pattern is a word of binary32 or binary64 for
  /// `get_bits`, for the members and operators that compute, ask for signs, classes or order, or
  /// set special values and neighbours, and for `set_format` into the other of the two. All else
  /// reads its low 1 + e + m bits as a pattern of f: numbers, text, other conversions,
  /// environments, `compare` and all functions of values. `to_str`, `to_float_str` and
  /// `to_integer(0)` take the word's class; the first two give zero when f has no exponent.
  /// \param f the format
  /// \param r the representation, which is not held against the format; the low 2 bits are kept
  /// \param rm the mode, of which the low 30 bits are kept
  IEEEFloat(format f, Repr r, rounding_mode rm);

  /// +0 in the best representation for f.
  IEEEFloat(format f, rounding_mode rm) : IEEEFloat(f, get_best_repr(f), rm) {}

  /// A copy owns a pattern of its own.
  IEEEFloat(const IEEEFloat& other) : head(other.head), pattern(other.pattern) {
    if (head.kind.is_wide()) [[unlikely]] {
      pattern.limbs = copied_limbs(other);
    }
  }

  /// The moved-from value is the default placeholder.
  IEEEFloat(IEEEFloat&& other) noexcept : head(other.head), pattern(other.pattern) {
    other.forget();
  }

  /// Format, mode and representation become the source's. The target is unchanged when an
  /// allocation fails.
  IEEEFloat& operator=(const IEEEFloat& other) {
    if (detail::Kind::any_wide(head.kind, other.head.kind)) [[unlikely]] {
      assign_wide(other);
    } else {
      take_fields(other);
    }
    return *this;
  }

  /// Takes the source's format, mode, representation and pattern; the source is the placeholder.
  IEEEFloat& operator=(IEEEFloat&& other) noexcept {
    if (this != &other) {
      if (head.kind.is_wide()) [[unlikely]] {
        detail::delete_limbs(pattern.limbs);
      }
      take_fields(other);
      other.forget();
    }
    return *this;
  }

  ~IEEEFloat() {
    if (head.kind.is_wide()) [[unlikely]] {
      detail::delete_limbs(pattern.limbs);
    }
  }

  /// `REPR_FLOAT32` for {8, 23}, `REPR_FLOAT64` for {11, 52}, `REPR_GENERIC` for all others.
  static constexpr Repr get_best_repr(const format& f) {
    return f == format{8, 23} ? REPR_FLOAT32 : f == format{11, 52} ? REPR_FLOAT64 : REPR_GENERIC;
  }

  /// The value with the given pattern, rounding in mode rm, in the best representation.
  /// The only NaN accepted is the canonical one: sign 1, exponent all ones, significand 1.
  /// \throws error "bad rounding mode: <rm>" when rm is not 0 to 3; "invalid bit pattern for
  ///   IEEEFloat: <bits>" for any other NaN, and for what is not an integer from 0 to
  ///   2^(1+e+m) - 1. Here and elsewhere what is bad is quoted in up to 200 characters and "...".
  static IEEEFloat from_bits(const QNumber& bits, format f, rounding_mode rm = ROUND_NEAREST_EVEN);

  /// The same, but any pattern of a NaN is taken for the canonical one.
  /// \throws error as `from_scaled` for formats without arithmetic, too.
  static IEEEFloat from_encoding(const QNumber& bits, format f,
                                 rounding_mode rm = ROUND_NEAREST_EVEN);

  /// The largest finite value of f, rounding in mode rm.
  /// \throws error "bad rounding mode: <rm>" when rm is not 0 to 3; "invalid bit pattern for
  /// IEEEFloat: -1" when f has no exponent.
  static IEEEFloat max_value(format f, rounding_mode rm = ROUND_NEAREST_EVEN);

  /// q in format f. Numerator and denominator are rounded to f on their own, then divided: the
  /// result is correctly rounded when both are representable (an integer always is rounded
  /// once), and can carry three roundings otherwise. A part beyond the range of f counts as the
  /// infinity or largest finite value that it rounds to.
  /// \throws error "bad rounding mode: <rm>" when rm is not 0 to 3 and rounding a part is inexact,
  ///   in every format; for a generic value also when the division is.
  static IEEEFloat from_number(const QNumber& q, format f, rounding_mode rm);

  /// q * 2^k in format f, rounded once, whatever q and k are; +0 for q = 0.
  /// \throws error "format without arithmetic: (<e>, <m>)" for e < 2, m < 1 and widths from 2^63
  ///   on; "exponent is not an integer: <k>"; "bad rounding mode: <rm>" when rm is not 0 to 3 and
  ///   the result is inexact or the format without arithmetic; "reached limit on float precision".
  static IEEEFloat from_scaled(const QNumber& q, const QNumber& k, format f, rounding_mode rm);

  /// q in format f, rounded once.
  static IEEEFloat from_ratio(const QNumber& q, format f, rounding_mode rm) {
    return from_scaled(q, 0, f, rm);
  }

  /// The number that a text stands for, in format f, rounded once, however long it is. Of a power
  /// of ten no more is built than decides the rounding; only for e > 62 and exponents of 2^60 and
  /// more it may reach the limit. Taken is what `QNumber::from_text` takes, or inf, infinity or nan
  /// in letters of either case, with a sign, which a NaN does without; or what SMT-LIB writes for
  /// values of f, "(fp #b0 #b01111 #b1000000000)", "(_ NaN 5 11)", "(_ +oo 5 11)" and its like,
  /// with single blanks, digits "#x" if need be, and any NaN for the canonical one. -0 is the
  /// negative zero.
  /// \throws error "invalid number at position <p>: <text>", "text of another format: (<e>, <m>)",
  ///   and what `from_scaled` throws.
  static IEEEFloat from_text(std::string_view text, format f, rounding_mode rm);

  /// The widths of exponent and significand.
  format get_format() const {
    return head.kind.is_huge() ? huge_format() : format{head.exp_width, head.mant_width};
  }
  /// The mode that operations with this value on the left round in.
  rounding_mode get_mode() const { return static_cast<rounding_mode>(mode()); }
  /// What kind of value this is.
  Repr get_repr() const { return static_cast<Repr>(repr()); }

  /// Of rm the low 30 bits are kept.
  void set_mode(rounding_mode rm) {
    head.control = (head.control & ~detail::mode_mask) | (rm & detail::mode_mask);
  }

  /// The pattern as an integer from 0 to 2^(1+e+m) - 1: small below 2^63, else big.
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

  /// The next value: both zeros step to the smallest subnormals, the largest finite values to the
  /// infinities, and a NaN and an infinity in its own direction stay. A step back from an infinity
  /// is a whole assignment of `max_value`: it also sets nearest-even and the best representation.
  /// \param up whether to step toward plus infinity, else toward minus infinity
  void next_representable(bool up);

  /// The next pattern in sign-magnitude order, -0 and +0 being neighbours and nothing else
  /// special. Outward from the two patterns of largest magnitude there is none: they stay.
  /// \param up whether to step toward the largest pattern of sign +, else to that of sign -
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
    return apply<swflt::detail::nearest_add32, swflt::detail::nearest_add64>(detail::addition,
                                                                             other);
  }
  IEEEFloat& operator-=(const IEEEFloat& other) {
    return apply<swflt::detail::nearest_sub32, swflt::detail::nearest_sub64>(detail::subtraction,
                                                                             other);
  }
  IEEEFloat& operator*=(const IEEEFloat& other) {
    return apply<swflt::detail::nearest_mul32, swflt::detail::nearest_mul64>(detail::multiplication,
                                                                             other);
  }
  IEEEFloat& operator/=(const IEEEFloat& other) {
    return apply<swflt::detail::nearest_div32, swflt::detail::nearest_div64>(detail::division,
                                                                             other);
  }
  /// \}

  /// The exact value; both zeros give 0. Its parts have at most |k| + m + 2 bits, k being the
  /// exponent of the last place.
  /// \throws error "can't convert NaN to a Number", "can't convert infinity to a Number";
  ///   "reached limit on float precision" when the number would pass `max_bits`.
  QNumber to_number() const;

  /// For w = 0 the exact value truncated toward zero, 0 for infinities and NaNs; small exactly when
  /// it fits a signed 32-bit integer.
  ///
  /// For w > 0 the value rounded to an integer in its own mode (a mode outside 0 to 3 rounds toward
  /// zero), its magnitude reduced modulo 2^w and the sign put back. By definition zeros and
  /// subnormals then give 0 in every mode, and infinities and NaNs count as
  /// (2^m + T) * 2^(bias + 1 - m). Needs no more than max(m, w) bits for w > 0.
  /// \param w the width of the result in bits, or 0 for as many as it needs
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
  friend Environment;
  friend detail::PatternAccess;
  friend detail::ValueAccess;

  unsigned mode() const { return head.control & detail::mode_mask; }
  unsigned repr() const { return head.control >> 30; }
  bool is_generic() const { return repr() >= REPR_GENERIC; }
  const std::uint64_t* words() const { return head.kind.is_wide() ? pattern.limbs : pattern.words; }
  std::uint64_t* words() { return head.kind.is_wide() ? pattern.limbs : pattern.words; }
  std::span<const std::uint64_t> all_words() const { return {words(), word_count()}; }
  std::size_t word_count() const;
  words::RuntimeShape shape() const {
    return {std::int64_t{head.exp_width}, std::int64_t{head.mant_width}};
  }

  void set_kind(const format& f, unsigned r, detail::Kind k) {
    head.set(static_cast<std::uint32_t>(f.exp_width), static_cast<std::uint32_t>(f.mant_width),
             r << 30 | mode(), k);
    if (k.is_huge()) [[unlikely]] {
      set_huge_format(f);
    }
  }
  // The same for formats on words, in the best representation, with this mode.
  void set_best_kind(std::uint32_t e, std::uint32_t m, detail::Kind k, unsigned mode) {
    head.set(e, m, k.repr() << 30 | mode, k);
  }
  // +0 of such a format, with the mode of this value.
  IEEEFloat zero_like(std::uint32_t e, std::uint32_t m, detail::Kind k) const {
    IEEEFloat x;
    x.set_best_kind(e, m, k, mode());
    return x;
  }
  format huge_format() const;
  void set_huge_format(const format& f);
  void take_fields(const IEEEFloat& other) {
    head = other.head;
    pattern = other.pattern;
  }
  // Becomes the placeholder, without a look at the limbs.
  void forget() {
    head = detail::Head();
    pattern = detail::Pattern();
  }
  void swap(IEEEFloat& other) noexcept {
    std::swap(head, other.head);
    std::swap(pattern, other.pattern);
  }
  static std::uint64_t* copied_limbs(const IEEEFloat& x);
  void assign_wide(const IEEEFloat& other);
  ZELK_HIDDEN void assign_otherwise(const IEEEFloat& other);
  ZELK_HIDDEN format pattern_format() const;
  ZELK_HIDDEN IEEEFloat generic_copy() const;
  ZELK_HIDDEN void step_magnitude(bool grow);
  ZELK_HIDDEN bool is_own_word() const;
  ZELK_HIDDEN void convert_otherwise(format f, detail::Kind to);
  ZELK_HIDDEN void convert_wide(const format& f, detail::Kind to);
  template <class Convert>
  void replace_pattern(const format& f, detail::Kind to, Convert convert);
  void convert_to(const format& f, detail::Kind to, std::uint64_t* out) const;
  ZELK_HIDDEN QNumber number_otherwise() const;
  ZELK_HIDDEN QNumber integer_otherwise(unsigned direction, unsigned long w) const;

  // Packed values that round to nearest-even have functions of their own, all others the road of
  // their kind.
  template <auto nearest32, auto nearest64>
  IEEEFloat& apply(const detail::Operations& operation, const IEEEFloat& other);
  void apply_otherwise(const detail::Operations& operation, const IEEEFloat& other);

  bool generic_get_sign() const;
  bool generic_is_inf() const;
  bool generic_is_nan() const;
  bool generic_is_zero() const;
  bool generic_is_subnormal() const;
  static bool less_otherwise(const IEEEFloat& a, const IEEEFloat& b);
  static int order_otherwise(const IEEEFloat& a, const IEEEFloat& b);
  bool same_kind(const IEEEFloat& other) const {
    return head.kind == other.head.kind && head.kind.names_format();
  }
  ZELK_HIDDEN void require_same_kind(const IEEEFloat& other) const;
  // The answer of a packed comparison, whose flags are never reported.
  static bool compared(bool answer) {
    swflt::float_exception_flags = 0;
    return answer;
  }

  detail::Head head;
  detail::Pattern pattern;
};

template <auto nearest32, auto nearest64>
[[gnu::always_inline]] inline IEEEFloat& IEEEFloat::apply(const detail::Operations& operation,
                                                          const IEEEFloat& other) {
  const bool same = head.kind == other.head.kind;
  if (same && head.is_nearest(REPR_FLOAT64, detail::Kind::packed64())) {
    pattern.words[0] = nearest64(pattern.words[0], other.pattern.words[0]);
  } else if (same && head.is_nearest(REPR_FLOAT32, detail::Kind::packed32())) {
    pattern.words[0] = nearest32(pattern.words[0], other.pattern.words[0]);
  } else if (same && head.kind.names_format() && mode() <= ROUND_TOWARD_NEGATIVE) [[likely]] {
    operation[head.kind.road()](pattern, other.pattern, head.exp_width, head.mant_width, mode());
  } else {
    apply_otherwise(operation, other);
  }
  return *this;
}

inline bool IEEEFloat::get_sign() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_sign(pattern.words[0]);
    case REPR_FLOAT32:
      return swflt::float32_sign(static_cast<std::uint32_t>(pattern.words[0]));
    default:
      return head.kind.is_one_word() ? words::sign_of(shape(), pattern.words[0]) != 0
                                     : generic_get_sign();
  }
}

inline bool IEEEFloat::is_inf() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_is_inf(pattern.words[0]);
    case REPR_FLOAT32:
      return swflt::float32_is_inf(static_cast<std::uint32_t>(pattern.words[0]));
    default:
      return head.kind.is_one_word() ? words::is_inf(shape(), pattern.words[0]) : generic_is_inf();
  }
}

inline bool IEEEFloat::is_nan() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_is_nan(pattern.words[0]);
    case REPR_FLOAT32:
      return swflt::float32_is_nan(static_cast<std::uint32_t>(pattern.words[0]));
    default:
      return head.kind.is_one_word() ? words::is_nan(shape(), pattern.words[0]) : generic_is_nan();
  }
}

inline bool IEEEFloat::is_zero() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_is_zero(pattern.words[0]);
    case REPR_FLOAT32:
      return swflt::float32_is_zero(static_cast<std::uint32_t>(pattern.words[0]));
    default:
      return head.kind.is_one_word() ? words::is_zero(shape(), pattern.words[0])
                                     : generic_is_zero();
  }
}

inline bool IEEEFloat::is_subnormal() const {
  switch (repr()) {
    case REPR_FLOAT64:
      return swflt::float64_is_subnormal(pattern.words[0]);
    case REPR_FLOAT32:
      return swflt::float32_is_subnormal(static_cast<std::uint32_t>(pattern.words[0]));
    default:
      return head.kind.is_one_word() ? words::is_subnormal(shape(), pattern.words[0])
                                     : generic_is_subnormal();
  }
}

/// IEEE 754 order: a NaN is unordered, -0 equals +0. The operands must have the same format and
/// representation.
/// \throws IEEEFloat::error "operands of different formats", "operands of different
///   representations".
inline bool operator<(const IEEEFloat& a, const IEEEFloat& b) {
  const std::uint64_t x = a.pattern.words[0];
  const std::uint64_t y = b.pattern.words[0];
  if (a.head.kind == b.head.kind) [[likely]] {
    if (a.head.kind == detail::Kind::packed64()) {
      return IEEEFloat::compared(swflt::float64_lt(x, y));
    }
    if (a.head.kind == detail::Kind::packed32()) {
      return IEEEFloat::compared(
          swflt::float32_lt(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)));
    }
    if (a.head.kind.is_one_word()) {
      return words::less(a.shape(), x, y);
    }
  }
  return IEEEFloat::less_otherwise(a, b);
}

/// The same order: -0 <= +0, and false with a NaN.
inline bool operator<=(const IEEEFloat& a, const IEEEFloat& b) {
  const std::uint64_t x = a.pattern.words[0];
  const std::uint64_t y = b.pattern.words[0];
  if (a.head.kind == b.head.kind) [[likely]] {
    if (a.head.kind == detail::Kind::packed64()) {
      return IEEEFloat::compared(swflt::float64_le(x, y));
    }
    if (a.head.kind == detail::Kind::packed32()) {
      return IEEEFloat::compared(
          swflt::float32_le(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)));
    }
    if (a.head.kind.is_one_word()) {
      return words::less_equal(a.shape(), x, y);
    }
  }
  return IEEEFloat::order_otherwise(a, b) <= 0;
}

/// IEEE 754 equality: -0 == +0, and a NaN equals nothing, itself included.
inline bool operator==(const IEEEFloat& a, const IEEEFloat& b) {
  const std::uint64_t x = a.pattern.words[0];
  const std::uint64_t y = b.pattern.words[0];
  if (a.head.kind == b.head.kind) [[likely]] {
    if (a.head.kind == detail::Kind::packed64()) {
      return IEEEFloat::compared(swflt::float64_eq_signaling(x, y));
    }
    if (a.head.kind == detail::Kind::packed32()) {
      return IEEEFloat::compared(swflt::float32_eq_signaling(static_cast<std::uint32_t>(x),
                                                             static_cast<std::uint32_t>(y)));
    }
    if (a.head.kind.is_one_word()) {
      return words::equal(a.shape(), x, y);
    }
  }
  return IEEEFloat::order_otherwise(a, b) == 0;
}

/// b < a.
inline bool operator>(const IEEEFloat& a, const IEEEFloat& b) { return b < a; }
/// b <= a.
inline bool operator>=(const IEEEFloat& a, const IEEEFloat& b) { return b <= a; }

/// The order of the values of any two formats and representations, exactly: a NaN is unordered, -0
/// equals +0.
ZELK_EXPORT std::partial_ordering compare(const IEEEFloat& a, const IEEEFloat& b);
/// The same. Pairs, tuples and vectors of values compare by it.
inline std::partial_ordering operator<=>(const IEEEFloat& a, const IEEEFloat& b) {
  return compare(a, b);
}

/// -1 when a < b, 0 when a == b, 1 when b < a, -2 when a NaN makes the pair unordered.
ZELK_EXPORT int ieee_cmp(const IEEEFloat& a, const IEEEFloat& b);

/// \{
/// A copy of a, then the compound operation: a's format and mode.
inline IEEEFloat operator+(IEEEFloat a, const IEEEFloat& b) { return std::move(a += b); }
inline IEEEFloat operator-(IEEEFloat a, const IEEEFloat& b) { return std::move(a -= b); }
inline IEEEFloat operator*(IEEEFloat a, const IEEEFloat& b) { return std::move(a *= b); }
inline IEEEFloat operator/(IEEEFloat a, const IEEEFloat& b) { return std::move(a /= b); }
/// \}

/// The value with its sign flipped, in its mode and representation; of a NaN the canonical one.
ZELK_EXPORT IEEEFloat operator-(IEEEFloat a);

/// Writes `to_str()`.
ZELK_EXPORT std::ostream& operator<<(std::ostream& os, const IEEEFloat& x);

}  // namespace zelk

#endif  // ZELK_FLOAT_IEEE_FLOAT_H_
