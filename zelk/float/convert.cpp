// Values converted between formats, from exact numbers, and to them.

#include "zelk/words/convert.h"

#include "zelk/base/float_errors.h"
#include "zelk/base/quoted.h"
#include "zelk/exact/exact.h"
#include "zelk/float/conversions.h"
#include "zelk/float/ieee_float.h"
#include "zelk/float/ratio.h"
#include "zelk/float/roads.h"
#include "zelk/float/value_access.h"
#include "zelk/limbs/limbs.h"
#include "zelk/words/numbers.h"

namespace zelk {

using detail::in_one_word;
using detail::Kind;
using detail::on_words;
using detail::Road;
using rules::Direction;
using rules::Widths;

namespace {

Widths widths(const IEEEFloat::format& f) { return {f.exp_width, f.mant_width}; }

// The road that conversions to and from a kind take.
Road conversion_road(Kind k) { return detail::has_short_roads ? k.road() : Road::numbers; }

// Calls make(shape) for a road on words, and stores the pattern that it gives.
template <class Make>
[[gnu::always_inline]] inline void with_shape(Road road, Widths f, std::uint64_t* out, Make make) {
  if (in_one_word(road)) {
    out[0] = make(detail::one_word<words::RuntimeShape>(f));
    out[1] = 0;
  } else if (road == Road::quad) {
    const words::uint128 pattern = make(words::binary128);
    out[0] = words::low_word(pattern);
    out[1] = words::high_word(pattern);
  } else {
    const words::RaisedShape s = detail::raised(f);
    detail::lower(s, make(s), out);
  }
}

}  // namespace

// ---- Formats ----

void IEEEFloat::set_format(format f) {
  // Between packed words any mode serves, and no flag is left.
  if (head.kind == Kind::packed32() && f == format{11, 52}) {
    pattern.words[0] =
        words::convert(words::binary32, words::binary64, pattern.words[0], rules::nearest);
    set_kind(f, REPR_FLOAT64, Kind::packed64());
    swflt::float_exception_flags = 0;
    return;
  }
  if (head.kind == Kind::packed64() && f == format{8, 23}) {
    pattern.words[0] = words::convert(words::binary64, words::binary32, pattern.words[0],
                                      detail::direction_of(mode()));
    set_kind(f, REPR_FLOAT32, Kind::packed32());
    swflt::float_exception_flags = 0;
    return;
  }
  const Kind to = detail::best_kind(f);
  const detail::ShortWidths from = detail::short_widths(head);
  const detail::ShortWidths g = detail::short_widths(f);
  const auto convert = detail::conversions.of_words(head.kind, to);
  if (convert != nullptr && head.kind.names_format() && rules::is_direction(mode()) && from != g)
      [[likely]] {
    Environment env = detail::in_direction(static_cast<Direction>(mode()));
    const std::uint64_t a = pattern.words[0];
    set_best_kind(g.exp_width, g.mant_width, to, mode());
    pattern.words[0] = convert(a, from, g, env);
    return;
  }
  convert_otherwise(f, to);
}

void IEEEFloat::convert_otherwise(format f, Kind to) {
  if (f == get_format()) {
    return;
  }
  const detail::ShortWidths from = detail::short_widths(head);
  const detail::ShortWidths g = detail::short_widths(f);
  const auto convert = detail::conversions.of_patterns(head.kind, to);
  if (convert != nullptr && head.kind.names_format() && rules::is_direction(mode())) [[likely]] {
    Environment env = detail::in_direction(static_cast<Direction>(mode()));
    set_best_kind(g.exp_width, g.mant_width, to, mode());
    convert(pattern, from, g, env);
  } else {
    convert_wide(f, to);
  }
}

// To limbs or from them, and by way of numbers.
void IEEEFloat::convert_wide(const format& f, Kind to) {
  if (!is_generic() && !head.kind.names_format()) {
    IEEEFloat x = generic_copy();
    // Between packed words, whatever the format that they are said to have.
    if (repr() == REPR_FLOAT32 && to == Kind::packed64()) {
      x = zero_like(8, 23, Kind::packed32());
      x.pattern.words[0] = pattern.words[0];
    } else if (repr() == REPR_FLOAT64 && to == Kind::packed32()) {
      x = zero_like(11, 52, Kind::packed64());
      x.pattern.words[0] = pattern.words[0];
    }
    x.set_format(f);
    swap(x);
    return;
  }
  replace_pattern(f, to, [&](std::uint64_t* out) { convert_to(f, to, out); });
}

// out := the value as a pattern of another format, which may have the place of its own.
inline void IEEEFloat::convert_to(const format& f, Kind to, std::uint64_t* out) const {
  if (conversion_road(head.kind) != Road::numbers && conversion_road(to) != Road::numbers &&
      rules::is_direction(mode())) [[likely]] {
    limbs::convert(words(), widths(get_format()), out, widths(f), static_cast<Direction>(mode()));
  } else {
    exact::convert(words(), widths(get_format()), out, widths(f), mode());
  }
}

// ---- From exact numbers ----

IEEEFloat IEEEFloat::from_number(const QNumber& q, format f, rounding_mode rm) {
  IEEEFloat x(f, rm);
  const Road road = conversion_road(x.head.kind);
  const Widths w = widths(f);
  if (road == Road::numbers || !rules::is_direction(rm)) {
    exact::from_integer(q.get_num(), x.words(), w, rm);
    if (!q.is_integer()) {
      IEEEFloat divisor(f, rm);
      exact::from_integer(q.get_den(), divisor.words(), w, rm);
      x /= divisor;
    }
    return x;
  }
  const auto direction = static_cast<Direction>(rm);
  if (detail::WordParts word{}; on_words(road) && detail::Parts::in_words(q, word)) [[likely]] {
    const bool fraction = word.den != 1;
    const auto divide = [&](auto s) {
      const auto rounded = words::from_integer(s, word.negative, word.num, direction);
      return fraction ? words::div(s, rounded, words::from_integer(s, false, word.den, direction),
                                   direction)
                      : rounded;
    };
    if (road == Road::packed64) {
      x.pattern.words[0] = divide(words::binary64);
    } else if (road == Road::packed32) {
      x.pattern.words[0] = divide(words::binary32);
    } else {
      with_shape(road, w, x.pattern.words, divide);
    }
    if (fraction && !x.is_generic()) {
      swflt::float_exception_flags = 0;  // as by the division of packed values
    }
    return x;
  }
  const detail::Parts parts(q);
  if (parts.num.size == 0) {
    return x;
  }
  if (parts.den.is_one() || (limbs::holds(parts.num, w) && limbs::holds(parts.den, w))) {
    limbs::from_ratio(parts, 0, x.words(), w, direction);
  } else {
    IEEEFloat divisor(f, rm);
    limbs::from_integer(parts.negative, parts.num, x.words(), w, direction);
    limbs::from_integer(false, parts.den, divisor.words(), w, direction);
    x /= divisor;
  }
  return x;
}

IEEEFloat IEEEFloat::from_scaled(const QNumber& q, const QNumber& k, format f, rounding_mode rm) {
  detail::require_arithmetic(f.exp_width, f.mant_width, rm);
  if (!k.is_integer()) {
    throw error("exponent is not an integer: " + detail::quoted(k.to_string()));
  }
  IEEEFloat x(f, rm);
  const auto in_values = [](auto s) { return s; };
  if (!rules::is_direction(rm) ||
      !detail::round_ratio(x, q, k, static_cast<Direction>(rm), in_values)) {
    exact::from_scaled(q, k, x.words(), widths(f), rm);
  }
  return x;
}

// ---- To exact numbers ----

// Whether a pattern is in a word that is of the value's own format, for the conversions on words.
bool IEEEFloat::is_own_word() const {
  return detail::has_short_roads && in_one_word(head.kind.road()) && head.kind.names_format();
}

QNumber IEEEFloat::to_number() const {
  if (is_own_word() && words::magnitude(shape(), pattern.words[0]) < words::infinity(shape()))
      [[likely]] {
    return words::to_number(shape(), pattern.words[0]);
  }
  return number_otherwise();
}

QNumber IEEEFloat::number_otherwise() const {
  if (!is_generic() && !head.kind.names_format()) {
    return generic_copy().to_number();
  }
  const Widths w = widths(get_format());
  return conversion_road(head.kind) == Road::numbers ? exact::to_number(words(), w)
                                                     : limbs::to_number(words(), w);
}

QNumber IEEEFloat::to_integer(unsigned long w) const {
  // Any other mode rounds toward zero.
  const Direction direction =
      rules::is_direction(mode()) ? static_cast<Direction>(mode()) : rules::toward_zero;
  if (long n = 0; is_own_word() && words::to_integer(shape(), direction, pattern.words[0], w, n) &&
                  (w > 0 || static_cast<int>(n) == n)) [[likely]] {
    return n;
  }
  return integer_otherwise(direction, w);
}

QNumber IEEEFloat::integer_otherwise(unsigned direction, unsigned long w) const {
  if (!is_generic() && !head.kind.names_format()) {
    if (w > 0) {
      return generic_copy().to_integer(w);
    }
    const mpq_class q = is_zero() || is_nan() || is_inf() ? mpq_class() : to_number().to_mpq();
    return QNumber(mpz_class(q.get_num() / q.get_den()), 1);
  }
  const Widths f = widths(get_format());
  const bool on_numbers = conversion_road(head.kind) == Road::numbers;
  if (w > 0) {
    return on_numbers ? exact::to_integer(words(), f, direction, w)
                      : limbs::to_integer(words(), f, static_cast<Direction>(direction), w);
  }
  // Without a width the result is small exactly when it fits a signed 32-bit integer.
  if (!on_numbers) {
    QNumber n = limbs::to_integer(words(), f, static_cast<Direction>(direction), w);
    if (n.is_small() && static_cast<int>(n.to_long()) == n.to_long()) {
      return n;
    }
    return QNumber(n.to_mpq());
  }
  if (is_zero() || is_nan() || is_inf()) {
    return 0;
  }
  const mpq_class q = exact::to_number(words(), f, true).to_mpq();
  return QNumber(mpz_class(q.get_num() / q.get_den()), 1);  // truncating, as GMP's / does
}

// A packed word that is a pattern of another format than its own, as a generic value.
IEEEFloat IEEEFloat::generic_copy() const {
  IEEEFloat x = *this;
  x.self_specialize_repr(REPR_GENERIC);
  return x;
}

}  // namespace zelk
