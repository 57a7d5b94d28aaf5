// How environments and the functions of values reach the patterns of values.
#ifndef ZELK_FLOAT_VALUE_ACCESS_H_
#define ZELK_FLOAT_VALUE_ACCESS_H_

#include <memory>
#include <optional>
#include <utility>

#include "zelk/base/float_errors.h"
#include "zelk/exact/operations.h"
#include "zelk/float/environment.h"
#include "zelk/float/ieee_float.h"
#include "zelk/limbs/limbs.h"
#include "zelk/numbers/room.h"
#include "zelk/rules/special.h"
#include "zelk/words/bits.h"
#include "zelk/words/magnitude.h"

namespace zelk {

template <class Convert>
void IEEEFloat::replace_pattern(const format& f, detail::Kind to, Convert convert) {
  struct DeleteLimbs {
    void operator()(std::uint64_t* limbs) const { detail::delete_limbs(limbs); }
  };
  if (!to.is_wide()) {
    std::uint64_t result[2]{};
    convert(result);
    if (head.kind.is_wide()) {
      detail::delete_limbs(pattern.limbs);
    }
    pattern.words[0] = result[0];
    pattern.words[1] = result[1];
  } else if (const std::size_t size = (f.exp_width + f.mant_width) / 64 + 1;
             head.kind.is_wide() && word_count() == size) {
    // The limbs that there are serve a pattern of as many.
    convert(pattern.limbs);
  } else {
    std::unique_ptr<std::uint64_t, DeleteLimbs> limbs(detail::new_limbs(size));
    convert(limbs.get());
    if (head.kind.is_wide()) {
      detail::delete_limbs(pattern.limbs);
    }
    pattern.limbs = limbs.release();
  }
  set_kind(f, get_best_repr(f), to);
}

}  // namespace zelk

namespace zelk::detail {

using rules::Widths;

inline Widths widths(const IEEEFloat::format& f) { return {f.exp_width, f.mant_width}; }

/// Gives the private parts of values to the sources that include this.
struct ValueAccess {
  static std::uint64_t* words(IEEEFloat& x) { return x.words(); }
  static const std::uint64_t* words(const IEEEFloat& x) { return x.words(); }
  static Pattern& pattern(IEEEFloat& x) { return x.pattern; }
  static const Pattern& pattern(const IEEEFloat& x) { return x.pattern; }
  static Kind kind(const IEEEFloat& x) { return x.head.kind; }
  static const Head& head(const IEEEFloat& x) { return x.head; }
  /// Whether the pattern is not one of the value's own format: a packed word of another one.
  static bool is_foreign(const IEEEFloat& x) {
    return !x.is_generic() && !x.head.kind.names_format();
  }
  static IEEEFloat generic_copy(const IEEEFloat& x) { return x.generic_copy(); }
  /// x := a value of format f, on words, in the best representation, k being its kind.
  static void set_kind(IEEEFloat& x, const IEEEFloat::format& f, Kind k) {
    x.set_best_kind(static_cast<std::uint32_t>(f.exp_width),
                    static_cast<std::uint32_t>(f.mant_width), k, x.mode());
  }
  /// x := a value of format f, whose pattern convert(out) writes; it may have the place of x's own.
  template <class Convert>
  static void replace_pattern(IEEEFloat& x, const IEEEFloat::format& f, Kind to, Convert convert) {
    x.replace_pattern(f, to, convert);
  }
  /// x := the result of an operation on operands of one format.
  template <class Operation, class... Others>
  static void apply(Environment& env, const Operation& operation, IEEEFloat& x,
                    const Others&... others) {
    env.apply(operation, x, others...);
  }
  static void step_magnitude(IEEEFloat& x, bool grow) { x.step_magnitude(grow); }
  /// The representation of results in format f: that of x if it has the format, else the best one.
  static IEEEFloat::Repr repr_like(const IEEEFloat& x, const IEEEFloat::format& f) {
    return f == x.get_format() ? x.get_repr() : IEEEFloat::get_best_repr(f);
  }
  /// +0 in format f, in the best representation.
  static IEEEFloat zero(const IEEEFloat::format& f, IEEEFloat::rounding_mode rm) {
    if (const bool is64 = f == IEEEFloat::format{11, 52}; is64 || f == IEEEFloat::format{8, 23}) {
      IEEEFloat x;
      x.set_best_kind(is64 ? 11 : 8, is64 ? 52 : 23, is64 ? Kind::packed64() : Kind::packed32(),
                      rm);
      return x;
    }
    return {f, rm};
  }
  /// +0 in format f, like x if that has the format, else in the best representation; x's mode.
  static IEEEFloat zero_like(const IEEEFloat& x, const IEEEFloat::format& f) {
    return {f, repr_like(x, f), x.get_mode()};
  }
};

/// A pattern of a value's own format, whatever its representation, read-only. Flushed, a subnormal
/// is the zero of its sign.
class OwnPattern {
 public:
  /// \throws IEEEFloat::error "reached limit on float precision" for formats too wide for patterns.
  explicit OwnPattern(const IEEEFloat& x, bool flush = false) : value(&x) {
    sign_place(x.get_format().exp_width, x.get_format().mant_width);
    if (ValueAccess::is_foreign(x)) {
      own = ValueAccess::generic_copy(x);
      value = &*own;
    }
    if (flush && value->is_subnormal()) {
      const bool negative = value->get_sign();
      own = IEEEFloat(x.get_format(), value->get_repr(), x.get_mode());
      own->self_zero(negative);
      value = &*own;
    }
  }
  OwnPattern(const OwnPattern&) = delete;
  OwnPattern& operator=(const OwnPattern&) = delete;
  ~OwnPattern() = default;

  const IEEEFloat& operator*() const { return *value; }
  Widths widths() const { return detail::widths(value->get_format()); }
  const std::uint64_t* words() const { return ValueAccess::words(*value); }
  operator exact::Source() const { return {words(), widths()}; }

  rules::Operand operand() const { return words::operand_of(words(), widths()); }
  /// The magnitude of a finite value other than 0 in words.
  std::optional<words::Magnitude> magnitude() const {
    return has_short_roads && words::has_magnitudes(widths()) && operand().is(rules::Class::finite)
               ? std::optional(words::magnitude_of(widths(), words()))
               : std::nullopt;
  }
  /// -1, 0 or 1 as this is less than, equal to or greater than another operand; 2 for NaNs.
  int compare(const OwnPattern& other) const {
    if (widths() != other.widths()) {
      return compare_values(other);
    }
    const bool on_limbs = ValueAccess::kind(*value).road() == Road::limbs;
    return on_limbs ? limbs::compare(words(), other.words(), widths())
                    : words::compare(words(), other.words(), widths());
  }

 private:
  int compare_values(const OwnPattern& other) const {
    const bool negative = operand().negative;
    const auto x = magnitude();
    const auto y = other.magnitude();
    if (!x || !y || negative != other.operand().negative) {
      return exact::compare(*this, other);
    }
    return *x == *y ? 0 : (*x < *y) != negative ? -1 : 1;
  }

  const IEEEFloat* value;
  std::optional<IEEEFloat> own;
};

/// Throws what a number that passes `max_bits` on the way gives.
template <class Compute>
decltype(auto) within_limits(Compute compute) {
  try {
    return compute();
  } catch (const IEEEFloat::error&) {
    throw;
  } catch (const Exception&) {
    throw_precision_limit();
  }
}

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_VALUE_ACCESS_H_
