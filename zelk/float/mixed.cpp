// Operands of any formats, and results in another one.
//
// Two steps that formats share with nothing else: operands are taken over, exactly, into a format
// that has all their values, where the operation has its usual road; its result is rounded there
// once, to odd, with two digits more than the last format keeps, and then into that.

#include <algorithm>
#include <bit>
#include <utility>

#include "zelk/float/environment.h"
#include "zelk/float/evaluation.h"
#include "zelk/float/roads.h"
#include "zelk/words/convert.h"

namespace zelk {

using detail::Kind;
using detail::Pattern;
using detail::Road;
using detail::ValueAccess;
using rules::Widths;
using Format = IEEEFloat::format;

// ---- Conversions ----

namespace {

// x := its value as a pattern of another format, both on words.
using Conversion = void (*)(Pattern& x, Widths f, Widths g, Environment& env);

template <class From, class To>
void convert_words(Pattern& x, Widths f, Widths g, Environment& env) {
  const auto s = detail::in_environment(From::shape(f), env);
  const auto t = detail::in_environment(To::shape(g), env);
  To::store(t, words::convert(s, t, From::load(s, x), detail::direction_of(env)), x);
  if constexpr (sizeof(To::load(t, x)) == sizeof(std::uint64_t)) {
    x.words[1] = 0;
  }
}

// The places that patterns have on words, with the widths of some as constants.
using One = detail::OneWord<words::RuntimeShape>;
using Single = detail::FixedWord<words::FixedShape<8, 23>>;
using Double = detail::FixedWord<words::FixedShape<11, 52>>;
using detail::Quad;
using detail::TwoWords;
constexpr unsigned places = 5;

unsigned place_of(Kind k) {
  switch (k.road()) {
    case Road::packed32:
      return 1;
    case Road::packed64:
      return 2;
    case Road::quad:
      return 3;
    case Road::double_word:
      return 4;
    case Road::numbers:
    case Road::limbs:
      return places;
    default:
      return 0;
  }
}

template <class From>
struct ConversionsFrom {
  static constexpr Conversion to[places] = {convert_words<From, One>, convert_words<From, Single>,
                                            convert_words<From, Double>, convert_words<From, Quad>,
                                            convert_words<From, TwoWords>};
};
constexpr const Conversion* conversions[places] = {
    ConversionsFrom<One>::to, ConversionsFrom<Single>::to, ConversionsFrom<Double>::to,
    ConversionsFrom<Quad>::to, ConversionsFrom<TwoWords>::to};

// Whether values of these formats and kinds are converted without numbers.
bool on_short_roads(Kind a, Kind b) {
  return detail::has_short_roads && a.road() != Road::numbers && b.road() != Road::numbers;
}

// The same value in another format, from a kind that names its own.
IEEEFloat converted(Environment& env, IEEEFloat x, const Format& f) {
  const detail::Head head = ValueAccess::head(x);
  const Widths from{head.exp_width, head.mant_width};
  const IEEEFloat::Repr repr = IEEEFloat::get_best_repr(f);
  const Kind to = Kind::of(f.exp_width, f.mant_width, repr);
  const unsigned place = place_of(head.kind);
  const unsigned target = place_of(to);
  if (place < places && target < places) [[likely]] {
    conversions[place][target](ValueAccess::pattern(x), from, detail::widths(f), env);
    ValueAccess::set_kind(x, f, repr, to);
    return x;
  }
  IEEEFloat result(f, repr, x.get_mode());
  rules::Exceptions exceptions = detail::exceptions_of(env);
  limbs::convert(ValueAccess::words(x), from, ValueAccess::words(result), detail::widths(f),
                 {detail::direction_of(env), &exceptions});
  detail::raise(env, exceptions.flags);
  return result;
}

}  // namespace

IEEEFloat Environment::convert(IEEEFloat x, format f) {
  detail::require_formats(*this, f, x);
  const Kind kind = ValueAccess::kind(x);
  const Kind to = Kind::of(f.exp_width, f.mant_width, IEEEFloat::get_best_repr(f));
  if (!flush_operands && kind.names_format() && f != x.get_format() && on_short_roads(kind, to))
      [[likely]] {
    return converted(*this, std::move(x), f);
  }
  return detail::on_numbers(
      *this, f, [](const exact::Source& a, const exact::Target& t) { exact::convert(a, t); }, x);
}

// ---- Operations ----

namespace {

bool has_values_of(const Format& f, const Format& g) {
  return g.exp_width <= f.exp_width && g.mant_width <= f.mant_width;
}

// A format that has all values of the operands' formats and of f, and results of all operations
// as normal values with two digits more than f keeps; {0, 0} where exponents have no end in words.
template <class... Formats>
Format wide_format(const Format& f, const Formats&... operands) {
  const unsigned long exp_width = std::max({operands.exp_width...});
  const unsigned long mant_width = std::max({operands.mant_width...});
  if (exp_width > 58 || mant_width >= 1UL << 58) {
    return {};
  }
  // Values are within 2^-reach and 2^reach, products and quotients within the squares of these.
  const unsigned long reach = (1UL << (exp_width - 1)) + mant_width + 2;
  return {static_cast<unsigned long>(std::bit_width(2 * reach + 3)) + 1,
          std::max(mant_width, f.mant_width + 2)};
}

// x in a format that has its value, in the best representation.
IEEEFloat widened(const IEEEFloat& x, const Format& f) {
  Environment env;
  IEEEFloat same = x;
  if (x.get_format() == f) {
    same.self_specialize_repr(IEEEFloat::get_best_repr(f));
    return same;
  }
  return converted(env, std::move(same), f);
}

// An operation of two or three operands, or of one that is given twice, in format g, and from there
// into f.
template <class Operation, class... Others>
IEEEFloat by_way_of(Environment& env, const Format& g, const Format& f, const Operation& operation,
                    const IEEEFloat& x, const Others&... others) {
  if (g == f) {
    IEEEFloat result = widened(x, g);
    ValueAccess::apply(env, operation, result, widened(others, g)...);
    return result;
  }
  Environment odd;
  odd.rounding = Rounding::to_odd;
  IEEEFloat result = widened(x, g);
  ValueAccess::apply(odd, operation, result, widened(others, g)...);
  if (result.is_zero() && env.rounding == Rounding::toward_negative) {  // which decides on its sign
    odd.rounding = env.rounding;
    result = widened(x, g);
    ValueAccess::apply(odd, operation, result, widened(others, g)...);
  }
  // What is inexact in g is so in f, too.
  detail::raise(env, odd.flags & ~unsigned{rules::inexact});
  return converted(env, std::move(result), f);
}

template <class Operation, class... Others>
IEEEFloat into_format(Environment& env, const Format& f, const Operation& operation,
                      const IEEEFloat& x, const Others&... others) {
  detail::require_formats(env, f, x, others...);
  const bool ready = !env.flush_operands && ValueAccess::kind(x).names_format() &&
                     (ValueAccess::kind(others).names_format() && ...);
  const bool fits =
      has_values_of(f, x.get_format()) && (has_values_of(f, others.get_format()) && ...);
  const Format g = fits ? f : wide_format(f, x.get_format(), others.get_format()...);
  const auto road_of = [](const Format& format) {
    return Kind::of(format.exp_width, format.mant_width, IEEEFloat::get_best_repr(format)).road();
  };
  const auto on_road = [&](Kind k) { return detail::has_short_roads && k.road() != Road::numbers; };
  if (ready && detail::has_short_roads && g.exp_width > 0 && road_of(f) != Road::numbers &&
      road_of(g) != Road::numbers && on_road(ValueAccess::kind(x)) &&
      (on_road(ValueAccess::kind(others)) && ...)) {
    IEEEFloat result = by_way_of(env, g, f, operation, x, others...);
    if (f == x.get_format()) {
      result.self_specialize_repr(x.get_repr());
    }
    result.set_mode(x.get_mode());
    return result;
  }
  return detail::on_numbers(env, f, operation.on_numbers, x, others...);
}

}  // namespace

IEEEFloat Environment::add(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, detail::rounded_sum, x, y);
}
IEEEFloat Environment::subtract(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, detail::rounded_difference, x, y);
}
IEEEFloat Environment::multiply(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, detail::rounded_product, x, y);
}
IEEEFloat Environment::divide(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, detail::rounded_quotient, x, y);
}
IEEEFloat Environment::sqrt(IEEEFloat x, format f) {
  return into_format(*this, f, detail::rounded_root, x, x);
}
IEEEFloat Environment::fma(IEEEFloat x, const IEEEFloat& y, const IEEEFloat& z, format f) {
  return into_format(*this, f, detail::rounded_fused, x, y, z);
}
IEEEFloat Environment::remainder(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, detail::rounded_remainder, x, y);
}
IEEEFloat Environment::modulo(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, detail::rounded_modulo, x, y);
}

}  // namespace zelk
