// Operands of any formats, and results in another one.
//
// Two steps that formats share with nothing else: operands are taken over, exactly, into a format
// that has all their values, where the operation has its usual road; its result is rounded there
// once, to odd, with two digits more than the last format keeps, and then into that.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <tuple>
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
using detail::Word;
using rules::Widths;
using Format = IEEEFloat::format;

// ---- Conversions ----

namespace {

// x := its value as a pattern of another format, both on words; one of the two is in two.
using Conversion = void (*)(Pattern& x, Widths f, Widths g, Environment& env);
// The same of patterns in one word.
using WordConversion = Word (*)(Word x, Widths f, Widths g, Environment& env);

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

using One = detail::OneWord<words::RuntimeShape>;

// Any word; none but those that the usual way leaves get here.
[[gnu::noinline]] Word convert_any_word(Word x, Widths f, Widths g, Environment& env) {
  return words::convert_general(One::shape(f), detail::in_environment(One::shape(g), env), x,
                                detail::direction_of(env));
}
template <class From, class To>
Word convert_word(Word x, Widths f, Widths g, Environment& env) {
  Word r = 0;
  return words::convert_usual(From::shape(f), detail::in_environment(To::shape(g), env), x,
                              detail::direction_of(env), r)
             ? r
             : convert_any_word(x, f, g, env);
}

// The places that patterns have on words, with the widths of some as constants.
using Half = detail::FixedWord<words::FixedShape<5, 10>>;
using BFloat16 = detail::FixedWord<words::FixedShape<8, 7>>;
using Single = detail::FixedWord<words::FixedShape<8, 23>>;
using Double = detail::FixedWord<words::FixedShape<11, 52>>;
using detail::Quad;
using detail::TwoWords;
constexpr unsigned char one_word_places = 5;  // the first
constexpr unsigned char places = 7;

// The place of a pattern by its road; `places` for other roads.
constexpr std::array<unsigned char, detail::road_count> places_of_roads = [] {
  std::array<unsigned char, detail::road_count> all{};
  all.fill(places);
  const std::array<Road, places> roads{Road::word,     Road::half, Road::bfloat16,   Road::packed32,
                                       Road::packed64, Road::quad, Road::double_word};
  for (unsigned char i = 0; detail::has_short_roads && i < places; ++i) {
    all[static_cast<unsigned>(roads[i])] = i;
  }
  if (detail::has_short_roads) {
    all[static_cast<unsigned>(Road::short_word)] = 0;
  }
  return all;
}();
unsigned place_of(Kind k) { return places_of_roads[static_cast<unsigned>(k.road())]; }

// The kind of the best representation of a format.
[[gnu::always_inline]] inline Kind kind_of(const Format& f) {
  return f == Format{8, 23}    ? Kind::packed32()
         : f == Format{11, 52} ? Kind::packed64()
                               : Kind::of(f.exp_width, f.mant_width, IEEEFloat::REPR_GENERIC);
}

template <class From>
constexpr std::array<WordConversion, one_word_places> word_conversions_from{
    convert_word<From, One>, convert_word<From, Half>, convert_word<From, BFloat16>,
    convert_word<From, Single>, convert_word<From, Double>};
constexpr std::array<std::array<WordConversion, one_word_places>, one_word_places> word_conversions{
    word_conversions_from<One>, word_conversions_from<Half>, word_conversions_from<BFloat16>,
    word_conversions_from<Single>, word_conversions_from<Double>};

template <class From>
constexpr std::array<Conversion, places> conversions_to_two{nullptr,
                                                            nullptr,
                                                            nullptr,
                                                            nullptr,
                                                            nullptr,
                                                            ConvertWords<From, Quad>::usual,
                                                            ConvertWords<From, TwoWords>::usual};
template <class From>
constexpr std::array<Conversion, places> conversions_from_two{
    ConvertWords<From, One>::usual,     ConvertWords<From, One>::usual,
    ConvertWords<From, One>::usual,     ConvertWords<From, Single>::usual,
    ConvertWords<From, Double>::usual,  ConvertWords<From, Quad>::usual,
    ConvertWords<From, TwoWords>::usual};
constexpr std::array<std::array<Conversion, places>, places> conversions{
    conversions_to_two<One>,       conversions_to_two<One>,    conversions_to_two<One>,
    conversions_to_two<Single>,    conversions_to_two<Double>, conversions_from_two<Quad>,
    conversions_from_two<TwoWords>};

// Whether patterns of a kind need no numbers.
bool on_short_road(Kind k) { return detail::has_short_roads && k.road() != Road::numbers; }

// x := its pattern in a format of the kind `to`, both on words.
void convert_pattern(Environment& env, Pattern& x, Kind from, Widths f, Kind to, Widths g) {
  const unsigned i = place_of(from);
  const unsigned j = place_of(to);
  if (i < one_word_places && j < one_word_places) {
    x.words[0] = word_conversions[i][j](x.words[0], f, g, env);
  } else {
    conversions[i][j](x, f, g, env);
  }
}

Widths widths_of(const detail::Head& head) { return {head.exp_width, head.mant_width}; }

// x := its value in another format, from a kind that names its own; all on words or limbs.
void convert_in_place(Environment& env, IEEEFloat& x, const Format& f, Kind to) {
  const Kind kind = ValueAccess::kind(x);
  const Widths from = widths_of(ValueAccess::head(x));
  if (place_of(kind) < places && place_of(to) < places) [[likely]] {
    ValueAccess::set_kind(x, f, to);
    convert_pattern(env, ValueAccess::pattern(x), kind, from, to, detail::widths(f));
    return;
  }
  rules::Exceptions exceptions = detail::exceptions_of(env);
  ValueAccess::replace_pattern(x, f, to, [&](Word* out) {
    limbs::convert(ValueAccess::words(x), from, out, detail::widths(f),
                   {detail::direction_of(env), &exceptions});
  });
  detail::raise(env, exceptions.flags);
}
// The same of a value that stays.
IEEEFloat converted(Environment& env, IEEEFloat x, const Format& f, Kind to) {
  convert_in_place(env, x, f, to);
  return x;
}

// Any value into any format.
[[gnu::noinline]] void convert_otherwise(Environment& env, IEEEFloat& x, const Format& f) {
  const detail::Head head = ValueAccess::head(x);
  const Kind to = kind_of(f);
  // Arithmetic is defined for all formats on words and on limbs.
  const bool ready = on_short_road(head.kind) && on_short_road(to) && head.kind.names_format() &&
                     !env.flush_operands && env.rounding <= Rounding::to_odd;
  const bool same = widths_of(head) == detail::widths(f);
  if (ready && !same) {
    convert_in_place(env, x, f, to);
    return;
  }
  if (ready && place_of(head.kind) < places) {
    convert_pattern(env, ValueAccess::pattern(x), head.kind, widths_of(head), to,
                    detail::widths(f));
    return;
  }
  detail::require_formats(env, f, x);
  if (env.flush_operands) {
    Environment inner = env;
    inner.flush_operands = false;
    const IEEEFloat::Repr repr = ValueAccess::zero_like(x, f).get_repr();
    IEEEFloat result = inner.convert(*detail::OwnPattern(x, true), f);
    result.self_specialize_repr(repr);
    x = std::move(result);
    env.flags = inner.flags;
    return;
  }
  x = detail::on_numbers(
      env, f, [](const exact::Source& a, const exact::Target& t) { exact::convert(a, t); }, x);
}

// The same; the usual way of values in two words.
[[gnu::noinline]] void convert_two_words(Environment& env, IEEEFloat& x, const Format& f, Kind to) {
  const detail::Head& head = ValueAccess::head(x);
  const unsigned i = place_of(head.kind);
  const unsigned j = place_of(to);
  const Widths from = widths_of(head);
  if (i < places && j < places && std::max(i, j) >= one_word_places && head.kind.names_format() &&
      !env.flush_operands && env.rounding <= Rounding::to_odd && from != detail::widths(f))
      [[likely]] {
    ValueAccess::set_kind(x, f, to);
    conversions[i][j](ValueAccess::pattern(x), from, detail::widths(f), env);
  } else {
    convert_otherwise(env, x, f);
  }
}

}  // namespace

// With the direction as a constant, too.
template <class From, class To>
static Word convert_to_nearest(From from, To to, Word a, Environment& env) {
  Word r = 0;
  return words::convert_usual(from, detail::in_environment(to, env), a, rules::nearest, r)
             ? r
             : convert_any_word(a, {from.exp_width, from.mant_width}, {to.exp_width, to.mant_width},
                                env);
}
Word detail::binary64_of(Word a, Environment& env) {
  return convert_to_nearest(words::binary32, words::binary64, a, env);
}
Word detail::binary32_of(Word a, Environment& env) {
  return convert_to_nearest(words::binary64, words::binary32, a, env);
}

void Environment::convert_value(IEEEFloat& x, const format& f) {
  const detail::Head& head = ValueAccess::head(x);
  const Kind to = kind_of(f);
  const unsigned i = place_of(head.kind);
  const unsigned j = place_of(to);
  const Widths from = widths_of(head);
  if (i < one_word_places && j < one_word_places && head.kind.names_format() && !flush_operands &&
      rounding <= Rounding::to_odd && from != detail::widths(f)) [[likely]] {
    const Word a = ValueAccess::pattern(x).words[0];
    ValueAccess::set_word(x, word_conversions[i][j](a, from, detail::widths(f), *this), f, to);
    return;
  }
  convert_two_words(*this, x, f, to);
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

// r := the word of x in a packed format; false if x is not in one word, or has other values.
template <class S>
[[gnu::always_inline]] inline bool take_over(const IEEEFloat& x, S to, Kind packed, Word& r) {
  const detail::Head& head = ValueAccess::head(x);
  const Word a = ValueAccess::pattern(x).words[0];
  if (head.kind == packed) {
    r = a;
    return true;
  }
  if (head.kind.road() == Road::half) {  // with widths as constants
    r = words::convert(Half::shape({}), to, a, rules::nearest);
    return true;
  }
  if (!head.kind.is_one_word() && head.kind != Kind::packed32()) {
    return false;
  }
  const words::RuntimeShape from{head.exp_width, head.mant_width};
  if (from.exp_width > to.exp_width || from.mant_width > to.mant_width) {
    return false;
  }
  r = words::convert(from, to, a, rules::nearest);
  return true;
}

// x := the result in a packed format that has all operands' values, in registers.
template <class S, class Operation, class... Others>
[[gnu::always_inline]] inline bool compute_packed(S to, Kind packed, Environment& env,
                                                  Operation nearest, IEEEFloat& x,
                                                  const Others&... others) {
  std::array<Word, 1 + sizeof...(others)> words;
  std::size_t i = 0;
  if (!take_over(x, to, packed, words[0]) || !(take_over(others, to, packed, words[++i]) && ...)) {
    return false;
  }
  const Widths f{to.exp_width, to.mant_width};
  const Word result = std::apply([&env, nearest](auto... w) { return nearest(w..., env); }, words);
  if (widths_of(ValueAccess::head(x)) != f) {
    ValueAccess::set_kind(x, {f.exp_width, f.mant_width}, packed);
  }
  ValueAccess::pattern(x).words[0] = result;
  return true;
}

template <class Operation, class... Others>
[[gnu::always_inline]] inline void into_format(Environment& env, const Format& f,
                                               const Operation& operation, IEEEFloat& x,
                                               const Others&... others) {
  if (detail::has_short_roads && env.rounding == Rounding::nearest_even && !env.flush_operands) {
    if (f == Format{8, 23}) {
      if (compute_packed(words::binary32, Kind::packed32(), env, operation.nearest32, x,
                         others...)) {
        return;
      }
    } else if (f == Format{11, 52} && compute_packed(words::binary64, Kind::packed64(), env,
                                                     operation.nearest64, x, others...)) {
      return;
    }
  }
  if (!compute_in(f, env, operation, x, others...)) {
    compute_otherwise(env, f, operation, x, others...);
  }
}

}  // namespace

void Environment::apply_into(const format& f,
                             const detail::RoundedOperations<detail::OnTwo>& operation,
                             IEEEFloat& x, const IEEEFloat& y) {
  into_format(*this, f, operation, x, y);
}
void Environment::apply_into(const format& f,
                             const detail::RoundedOperations<detail::OnThree>& operation,
                             IEEEFloat& x, const IEEEFloat& y, const IEEEFloat& z) {
  into_format(*this, f, operation, x, y, z);
}

}  // namespace zelk
