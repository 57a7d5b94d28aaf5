// Operands of any formats, and results in another one.
//
// Two steps that formats share with nothing else: operands are taken over, exactly, into a format
// that has all their values, where the operation has its usual road; its result is rounded there
// once, to odd, with two digits more than the last format keeps, and then into that.

#include <algorithm>
#include <array>
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

// The usual way inline, the general one in a function of the same kind.
template <class From, class To>
struct ConvertWords {
  static void usual(Pattern& x, Widths f, Widths g, Environment& env) {
    const auto from = From::shape(f);
    const auto to = To::shape(g);
    decltype(To::load(to, x)) r;
    if (words::convert_usual(from, detail::in_environment(to, env), From::load(from, x),
                             detail::direction_of(env), r)) [[likely]] {
      store(to, r, x);
    } else {
      general(x, f, g, env);
    }
  }
  [[gnu::noinline]] static void general(Pattern& x, Widths f, Widths g, Environment& env) {
    const auto from = From::shape(f);
    const auto to = To::shape(g);
    store(to,
          words::convert_general(from, detail::in_environment(to, env), From::load(from, x),
                                 detail::direction_of(env)),
          x);
  }
  static void store(auto to, auto r, Pattern& x) {
    To::store(to, r, x);
    if constexpr (sizeof r == sizeof(std::uint64_t)) {
      x.words[1] = 0;
    }
  }
};

// The places that patterns have on words, with the widths of some as constants.
using One = detail::OneWord<words::RuntimeShape>;
using Single = detail::FixedWord<words::FixedShape<8, 23>>;
using Double = detail::FixedWord<words::FixedShape<11, 52>>;
using detail::Quad;
using detail::TwoWords;
constexpr unsigned char places = 5;
constexpr unsigned char one_word_places = 3;  // the first

// The place of a pattern by its road; `places` for other roads.
constexpr std::array<unsigned char, detail::road_count> places_of_roads = [] {
  std::array<unsigned char, detail::road_count> all{};
  const auto set = [&all](Road road, unsigned char place) {
    all[static_cast<unsigned>(road)] = detail::has_short_roads ? place : places;
  };
  for (const Road road : {Road::half, Road::bfloat16, Road::short_word, Road::word}) {
    set(road, 0);
  }
  set(Road::packed32, 1);
  set(Road::packed64, 2);
  set(Road::quad, 3);
  set(Road::double_word, 4);
  set(Road::numbers, places);
  set(Road::limbs, places);
  return all;
}();
unsigned place_of(Kind k) { return places_of_roads[static_cast<unsigned>(k.road())]; }

// The kind of the best representation of a format.
Kind kind_of(const Format& f) {
  return f == Format{8, 23}    ? Kind::packed32()
         : f == Format{11, 52} ? Kind::packed64()
                               : Kind::of(f.exp_width, f.mant_width, IEEEFloat::REPR_GENERIC);
}

template <class From>
constexpr std::array<Conversion, places> conversions_from{
    ConvertWords<From, One>::usual, ConvertWords<From, Single>::usual,
    ConvertWords<From, Double>::usual, ConvertWords<From, Quad>::usual,
    ConvertWords<From, TwoWords>::usual};
constexpr std::array<std::array<Conversion, places>, places> conversions{
    conversions_from<One>, conversions_from<Single>, conversions_from<Double>,
    conversions_from<Quad>, conversions_from<TwoWords>};

// Whether patterns of a kind need no numbers.
bool on_short_road(Kind k) { return detail::has_short_roads && k.road() != Road::numbers; }

// x := its pattern in a format of the kind `to`, both on words.
void convert_pattern(Environment& env, Pattern& x, Kind from, Widths f, Kind to, Widths g) {
  conversions[place_of(from)][place_of(to)](x, f, g, env);
}

Widths widths_of(const detail::Head& head) { return {head.exp_width, head.mant_width}; }

// The same value in another format, from a kind that names its own.
IEEEFloat converted(Environment& env, IEEEFloat x, const Format& f, Kind to) {
  const detail::Head head = ValueAccess::head(x);
  if (place_of(head.kind) < places && place_of(to) < places) {
    convert_pattern(env, ValueAccess::pattern(x), head.kind, widths_of(head), to,
                    detail::widths(f));
    ValueAccess::set_kind(x, f, to);
    return x;
  }
  IEEEFloat result(f, IEEEFloat::get_best_repr(f), x.get_mode());
  rules::Exceptions exceptions = detail::exceptions_of(env);
  limbs::convert(ValueAccess::words(x), widths_of(head), ValueAccess::words(result),
                 detail::widths(f), {detail::direction_of(env), &exceptions});
  detail::raise(env, exceptions.flags);
  return result;
}

}  // namespace

IEEEFloat Environment::convert(IEEEFloat x, format f) {
  const detail::Head head = ValueAccess::head(x);
  const Kind to = kind_of(f);
  // Arithmetic is defined for all formats on words and on limbs.
  const bool ready = on_short_road(head.kind) && on_short_road(to) && head.kind.names_format() &&
                     !flush_operands && rounding <= Rounding::to_odd;
  const bool same = widths_of(head) == detail::widths(f);
  if (ready && place_of(head.kind) < places && place_of(to) < places) [[likely]] {
    convert_pattern(*this, ValueAccess::pattern(x), head.kind, widths_of(head), to,
                    detail::widths(f));
    if (!same) {
      ValueAccess::set_kind(x, f, to);
    }
    return x;
  }
  if (ready && !same) {
    return converted(*this, std::move(x), f, to);
  }
  detail::require_formats(*this, f, x);
  if (flush_operands) {
    Environment inner = *this;
    inner.flush_operands = false;
    const IEEEFloat::Repr repr = ValueAccess::zero_like(x, f).get_repr();
    IEEEFloat result = inner.convert(*detail::OwnPattern(x, true), f);
    result.self_specialize_repr(repr);
    flags = inner.flags;
    return result;
  }
  x = detail::on_numbers(
      *this, f, [](const exact::Source& a, const exact::Target& t) { exact::convert(a, t); }, x);
  return x;
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

// Calls compute(environment) for a result in format g that is to be rounded again, unless g is the
// last format: to odd, and if it is zero in the direction asked for, which decides on its sign.
template <class IsZero, class Compute>
void round_to_odd(Environment& env, bool last, IsZero is_zero, Compute compute) {
  if (last) {
    compute(env);
    return;
  }
  Environment odd;
  odd.rounding = Rounding::to_odd;
  compute(odd);
  if (env.rounding == Rounding::toward_negative && is_zero()) {
    odd.rounding = env.rounding;
    compute(odd);
  }
  // What is inexact in g is so in the last format, too.
  detail::raise(env, odd.flags & ~unsigned{rules::inexact});
}

// An operand as it is read where operands are flushed.
IEEEFloat flushed(const IEEEFloat& x) { return *detail::OwnPattern(x, true); }

// The pattern of x in a format of the kind `to` that has its value, both on words.
[[gnu::always_inline]] inline Pattern taken_over(const IEEEFloat& x, Kind to, Widths g) {
  Pattern p = ValueAccess::pattern(x);
  const detail::Head& head = ValueAccess::head(x);
  const Widths f = widths_of(head);
  if (f == g) {
    return p;
  }
  if (detail::Word r = 0;
      place_of(head.kind) < one_word_places && place_of(to) < one_word_places &&
      words::convert_usual(One::shape(f), One::shape(g), p.words[0], rules::nearest, r)) {
    return r;
  }
  Environment exact;
  convert_pattern(exact, p, head.kind, f, to, g);
  return p;
}

// x := the result in format f, if it is on words and has all values of the operands' formats.
template <class Operation, class... Others>
[[gnu::always_inline]] inline bool compute_in(const Format& f, Environment& env,
                                              const Operation& operation, IEEEFloat& x,
                                              const Others&... others) {
  const Kind to = kind_of(f);
  const auto fits = [&f](const IEEEFloat& value) {
    const detail::Head& head = ValueAccess::head(value);
    return place_of(head.kind) < places && head.kind.names_format() &&
           head.exp_width <= f.exp_width && head.mant_width <= f.mant_width;
  };
  if (place_of(to) == places || env.flush_operands || env.rounding > Rounding::to_odd || !fits(x) ||
      !(fits(others) && ...)) [[unlikely]] {
    return false;
  }
  const Widths w = detail::widths(f);
  Pattern result = taken_over(x, to, w);
  operation[to.road()](result, taken_over(others, to, w)..., w.exp_width, w.mant_width, env);
  if (widths_of(ValueAccess::head(x)) != w) {
    ValueAccess::set_kind(x, f, to);
  }
  ValueAccess::pattern(x) = result;
  return true;
}

// x := the result in format f, by way of g, all formats being on words.
template <class Operation, class... Others>
void compute_in_words(Environment& env, const Format& g, const Format& f,
                      const Operation& operation, IEEEFloat& x, const Others&... others) {
  const Kind wide = kind_of(g);
  const Kind to = kind_of(f);
  const Widths w = detail::widths(g);
  const Pattern first = taken_over(x, wide, w);
  Pattern result;
  round_to_odd(
      env, g == f, [&] { return words::are_zeros(result.words, 0, w.exp_width + w.mant_width); },
      [&](Environment& e) {
        result = first;
        operation[wide.road()](result, taken_over(others, wide, w)..., w.exp_width, w.mant_width,
                               e);
      });
  if (g != f) {
    convert_pattern(env, result, wide, w, to, detail::widths(f));
  }
  ValueAccess::pattern(x) = result;
  ValueAccess::set_kind(x, f, to);
}

// The same on any roads but that of numbers.
template <class Operation, class... Others>
IEEEFloat compute_in_limbs(Environment& env, const Format& g, const Format& f,
                           const Operation& operation, const IEEEFloat& x,
                           const Others&... others) {
  const auto widened = [&g](IEEEFloat value) {
    Environment exact;
    value.self_specialize_repr(IEEEFloat::get_best_repr(value.get_format()));
    return value.get_format() == g ? value : converted(exact, std::move(value), g, kind_of(g));
  };
  IEEEFloat result;
  round_to_odd(
      env, g == f, [&] { return result.is_zero(); },
      [&](Environment& e) {
        result = widened(x);
        ValueAccess::apply(e, operation, result, widened(others)...);
      });
  return g == f ? result : converted(env, std::move(result), f, kind_of(f));
}

template <class Operation, class... Others>
[[gnu::noinline]] void compute_otherwise(Environment& env, const Format& f,
                                         const Operation& operation, IEEEFloat& x,
                                         const Others&... others) {
  detail::require_formats(env, f, x, others...);
  if (env.flush_operands) {
    Environment inner = env;
    inner.flush_operands = false;
    const IEEEFloat::Repr repr = ValueAccess::zero_like(x, f).get_repr();
    IEEEFloat result = flushed(x);
    compute_otherwise(inner, f, operation, result, flushed(others)...);
    result.self_specialize_repr(repr);
    x = std::move(result);
    env.flags = inner.flags;
    return;
  }
  if (x.get_format() == f && ((others.get_format() == f) && ...)) {
    ValueAccess::apply(env, operation, x, others...);
    return;
  }
  const bool ready =
      ValueAccess::kind(x).names_format() && on_short_road(ValueAccess::kind(x)) &&
      ((ValueAccess::kind(others).names_format() && on_short_road(ValueAccess::kind(others))) &&
       ...);
  if (ready && on_short_road(kind_of(f))) {
    const bool fits =
        has_values_of(f, x.get_format()) && (has_values_of(f, others.get_format()) && ...);
    const Format g = fits ? f : wide_format(f, x.get_format(), others.get_format()...);
    const auto in_words = [](Kind k) { return place_of(k) < places; };
    if (on_short_road(kind_of(g))) {
      const IEEEFloat::Repr repr = f == x.get_format() ? x.get_repr() : IEEEFloat::get_best_repr(f);
      if (in_words(kind_of(f)) && in_words(kind_of(g)) && in_words(ValueAccess::kind(x)) &&
          (in_words(ValueAccess::kind(others)) && ...)) {
        compute_in_words(env, g, f, operation, x, others...);
      } else {
        Environment inner = env;  // what throws later has raised nothing
        x = compute_in_limbs(inner, g, f, operation, x, others...);
        env.flags = inner.flags;
      }
      x.self_specialize_repr(repr);
      return;
    }
  }
  x = detail::on_numbers(env, f, operation.on_numbers, x, others...);
}

template <class Operation, class... Others>
[[gnu::always_inline]] inline void into_format(Environment& env, const Format& f,
                                               const Operation& operation, IEEEFloat& x,
                                               const Others&... others) {
  if (!compute_in(f, env, operation, x, others...)) {
    compute_otherwise(env, f, operation, x, others...);
  }
}

}  // namespace

IEEEFloat Environment::add(IEEEFloat x, const IEEEFloat& y, format f) {
  into_format(*this, f, detail::rounded_sum, x, y);
  return x;
}
IEEEFloat Environment::subtract(IEEEFloat x, const IEEEFloat& y, format f) {
  into_format(*this, f, detail::rounded_difference, x, y);
  return x;
}
IEEEFloat Environment::multiply(IEEEFloat x, const IEEEFloat& y, format f) {
  into_format(*this, f, detail::rounded_product, x, y);
  return x;
}
IEEEFloat Environment::divide(IEEEFloat x, const IEEEFloat& y, format f) {
  into_format(*this, f, detail::rounded_quotient, x, y);
  return x;
}
IEEEFloat Environment::sqrt(IEEEFloat x, format f) {
  into_format(*this, f, detail::rounded_root, x, x);
  return x;
}
IEEEFloat Environment::fma(IEEEFloat x, const IEEEFloat& y, const IEEEFloat& z, format f) {
  into_format(*this, f, detail::rounded_fused, x, y, z);
  return x;
}
IEEEFloat Environment::remainder(IEEEFloat x, const IEEEFloat& y, format f) {
  into_format(*this, f, detail::rounded_remainder, x, y);
  return x;
}
IEEEFloat Environment::modulo(IEEEFloat x, const IEEEFloat& y, format f) {
  into_format(*this, f, detail::rounded_modulo, x, y);
  return x;
}

}  // namespace zelk
