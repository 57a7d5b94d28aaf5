// Operands of any formats, and results in another one.
//
// Two steps that formats share with nothing else: operands are taken over, exactly, into a format
// that has all their values, where the operation has its usual road; its result is rounded there
// once, to odd, with two digits more than the last format keeps, and then into that.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <optional>
#include <tuple>
#include <utility>

#include "zelk/base/thread_scratch.h"
#include "zelk/float/conversions.h"
#include "zelk/float/environment.h"
#include "zelk/float/evaluation.h"
#include "zelk/float/roads.h"
#include "zelk/limbs/room.h"
#include "zelk/words/convert.h"

namespace zelk {

using detail::conversions;
using detail::Kind;
using detail::Pattern;
using detail::Road;
using detail::short_widths;
using detail::ShortWidths;
using detail::ValueAccess;
using detail::Word;
using rules::Widths;
using Format = IEEEFloat::format;

namespace {

Widths widths_of(const detail::Head& head) { return {head.exp_width, head.mant_width}; }

// Whether patterns of a kind need no numbers; of values that have a pattern of their own format.
bool on_short_road(Kind k) { return detail::has_short_roads && k.road() != Road::numbers; }
bool is_ready(Kind k) { return on_short_road(k) && k.names_format(); }

bool on_words(Kind k) { return detail::has_short_roads && detail::on_words(k.road()); }

// Whether operations go by what is asked for on words and on limbs.
bool is_usual(const Environment& env) {
  return !env.flush_operands && env.rounding <= Rounding::to_odd;
}

// ---- Conversions ----

// r := x in another format, both on words or limbs; r may be x.
void convert_in_limbs(Environment& env, const IEEEFloat& x, const Format& f, Kind to,
                      IEEEFloat& r) {
  const Widths from = widths_of(ValueAccess::head(x));
  rules::Exceptions exceptions = detail::exceptions_of(env);
  ValueAccess::replace_pattern(r, f, to, [&](Word* out) {
    limbs::convert(ValueAccess::words(x), from, out, detail::widths(f),
                   {detail::direction_of(env), &exceptions});
  });
  detail::raise(env, exceptions.flags);
}

// Any value into any format.
void convert_otherwise(Environment& env, IEEEFloat& x, const Format& f, Kind to) {
  const detail::Head head = ValueAccess::head(x);
  const bool same = widths_of(head) == detail::widths(f);
  const bool ready = is_usual(env) && is_ready(head.kind) && on_short_road(to);
  if (ready && on_words(head.kind) && on_words(to)) {
    if (!same) {
      ValueAccess::set_kind(x, f, to);
    }
    conversions(ValueAccess::pattern(x), head.kind, short_widths(head), to, short_widths(f), env);
  } else if (ready && !same) {
    convert_in_limbs(env, x, f, to, x);
  } else {
    detail::require_formats(env, f, x);
    if (env.flush_operands) {
      const auto convert = [&](Environment& inner, IEEEFloat& own) {
        convert_otherwise(inner, own, f, to);
      };
      detail::on_own(env, f, convert, x);
    } else {
      const auto convert = [](const exact::Source& a, const exact::Target& t) {
        exact::convert(a, t);
      };
      x = detail::on_numbers(env, f, convert, x);
    }
  }
}

// The same of a value that stays: the usual way in limbs.
[[gnu::noinline]] IEEEFloat converted_otherwise(Environment& env, const IEEEFloat& x, Format f,
                                                Kind to) {
  const detail::Head& head = ValueAccess::head(x);
  const bool in_words = on_words(head.kind) && on_words(to);
  IEEEFloat r;
  if (is_usual(env) && is_ready(head.kind) && on_short_road(to) && !in_words &&
      widths_of(head) != detail::widths(f)) [[likely]] {
    r.set_mode(x.get_mode());
    convert_in_limbs(env, x, f, to, r);
  } else {
    r = x;
    convert_otherwise(env, r, f, to);
  }
  return r;
}

}  // namespace

IEEEFloat Environment::converted(const IEEEFloat& x, format f) {
  const detail::Head& head = ValueAccess::head(x);
  const Kind to = detail::best_kind(f);
  const ShortWidths from = short_widths(head);
  const ShortWidths g = short_widths(f);
  if (head.kind.names_format() && is_usual(*this) && from != g) [[likely]] {
    if (const auto convert = conversions.of_words(head.kind, to); convert != nullptr) {
      IEEEFloat r = x.zero_like(g.exp_width, g.mant_width, to);
      r.pattern.words[0] = convert(word(x), from, g, *this);
      return r;
    }
    if (const auto convert = conversions.of_patterns(head.kind, to); convert != nullptr) {
      IEEEFloat r = x.zero_like(g.exp_width, g.mant_width, to);
      r.pattern = x.pattern;
      convert(r.pattern, from, g, *this);
      return r;
    }
  }
  return converted_otherwise(*this, x, f, to);
}

IEEEFloat Environment::convert(IEEEFloat&& x, format f) {
  convert_otherwise(*this, x, f, detail::best_kind(f));
  return std::move(x);
}

// ---- Operations ----

namespace {

using detail::words_of;

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

// r := the word of x in a packed format; false if x is not in one word, or has other values.
template <class S>
[[gnu::always_inline]] inline bool packed_word(const IEEEFloat& x, Kind packed, S to, Word& r) {
  const detail::Head& head = ValueAccess::head(x);
  const Word a = ValueAccess::pattern(x).words[0];
  if (head.kind == packed) {
    r = a;
    return true;
  }
  const Widths f = widths_of(head);
  if (head.kind.road() == Road::half) {  // with widths as constants
    r = words::convert(words::FixedShape<5, 10>(), to, a, rules::nearest);
    return true;
  }
  if (!detail::in_one_word(head.kind.road()) || !head.kind.names_format() ||
      f.exp_width > to.exp_width || f.mant_width > to.mant_width) {
    return false;
  }
  r = words::convert(detail::OneWord<words::RuntimeShape>::shape(f), to, a, rules::nearest);
  return true;
}

// x := the result in a packed format that has all operands' values, in registers.
template <class S, class Operation, class... Others>
[[gnu::always_inline]] inline bool compute_packed(S to, Kind packed, Environment& env,
                                                  Operation nearest, IEEEFloat& x,
                                                  const Others&... others) {
  std::array<Word, 1 + sizeof...(others)> words;
  std::size_t i = 0;
  if (!packed_word(x, packed, to, words[0]) ||
      !(packed_word(others, packed, to, words[++i]) && ...)) {
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

// The pattern of x in a format of the kind `to` that has its value, both on words.
[[gnu::always_inline]] inline Pattern taken_over(const IEEEFloat& x, Kind to, Widths g) {
  const detail::Head& head = ValueAccess::head(x);
  Pattern p = ValueAccess::pattern(x);
  if (widths_of(head) != g) {
    Environment exact = detail::in_direction(rules::nearest);
    conversions(p, head.kind, short_widths(head), to, short_widths(g), exact);
  }
  return p;
}

// x := the result in format f, if it is on words and has all values of the operands' formats.
template <class Operation, class... Others>
[[gnu::always_inline]] inline bool compute_in(const Format& f, Environment& env,
                                              const Operation& operation, IEEEFloat& x,
                                              const Others&... others) {
  const Kind to = detail::best_kind(f);
  const auto fits = [&f](const IEEEFloat& value) {
    const detail::Head& head = ValueAccess::head(value);
    return on_words(head.kind) && head.kind.names_format() && head.exp_width <= f.exp_width &&
           head.mant_width <= f.mant_width;
  };
  if (!on_words(to) || !is_usual(env) || !fits(x) || !(fits(others) && ...)) [[unlikely]] {
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

// Limbs that a thread keeps for patterns.
struct Block : limbs::Block {};

// Patterns of one format to compute on: on the stack while they are short, else in the thread's
// block.
template <std::size_t count>
class Patterns {
 public:
  /// \throws std::bad_alloc
  explicit Patterns(Widths f) {
    const auto size = static_cast<std::size_t>(limbs::size(f));
    if (size > 2) {
      Word* limbs =
          size <= short_size ? local : scratch.emplace()->at_least(static_cast<long>(count * size));
      for (Pattern& p : patterns) {
        p.limbs = std::exchange(limbs, limbs + size);
      }
    }
  }
  Patterns(const Patterns&) = delete;
  Patterns& operator=(const Patterns&) = delete;
  ~Patterns() = default;

  Pattern& operator[](std::size_t i) { return patterns[i]; }

 private:
  static constexpr std::size_t short_size = 8;

  std::array<Pattern, count> patterns;
  std::optional<detail::ThreadScratch<Block>> scratch;
  Word local[count * short_size];
};

// out := the pattern of x in a format of the kind `to` that has its value.
void take_over(const IEEEFloat& x, Kind to, Widths g, Pattern& out) {
  const detail::Head& head = ValueAccess::head(x);
  const Widths f = widths_of(head);
  if (on_words(head.kind) && on_words(to)) {
    out = taken_over(x, to, g);
  } else if (f == g) {
    std::copy_n(ValueAccess::words(x), limbs::size(f), words_of(out, g));
  } else {
    limbs::convert(ValueAccess::words(x), f, words_of(out, g), g, rules::nearest);
  }
}

// x := the result in format f, by way of g, both on words or limbs.
template <class Operation, class... Others>
void compute_by_way_of(const Format& g, Environment& env, const Format& f,
                       const Operation& operation, IEEEFloat& x, const Others&... others) {
  const Kind wide = detail::best_kind(g);
  const Kind to = detail::best_kind(f);
  const Widths w = detail::widths(g);
  Patterns<1 + sizeof...(others)> operands(w);
  Pattern& result = operands[0];
  std::size_t i = 0;
  const auto taken = [&](const IEEEFloat& value) -> Pattern& {
    take_over(value, wide, w, operands[++i]);
    return operands[i];
  };
  Environment inner = env;  // what throws has raised nothing
  round_to_odd(
      inner, g == f,
      [&] { return words::are_zeros(words_of(result, w), 0, w.exp_width + w.mant_width); },
      [&](Environment& e) {
        i = 0;
        take_over(x, wide, w, result);
        operation[wide.road()](result, taken(others)..., w.exp_width, w.mant_width, e);
      });
  const IEEEFloat::Repr repr = ValueAccess::repr_like(x, f);
  ValueAccess::replace_pattern(x, f, to, [&](Word* out) {
    if (on_words(wide) && on_words(to)) {
      if (g != f) {
        conversions(result, wide, short_widths(g), to, short_widths(f), inner);
      }
      std::copy_n(result.words, 2, out);
    } else if (g == f) {
      std::copy_n(words_of(result, w), limbs::size(w), out);
    } else {
      rules::Exceptions exceptions = detail::exceptions_of(inner);
      limbs::convert(words_of(result, w), w, out, detail::widths(f),
                     {detail::direction_of(inner), &exceptions});
      detail::raise(inner, exceptions.flags);
    }
  });
  x.self_specialize_repr(repr);
  env.flags = inner.flags;
}

template <class Operation, class... Others>
[[gnu::noinline]] void compute_otherwise(Environment& env, const Format& f,
                                         const Operation& operation, IEEEFloat& x,
                                         const Others&... others) {
  detail::require_formats(env, f, x, others...);
  if (env.flush_operands) {
    detail::on_own(
        env, f,
        [&](Environment& inner, IEEEFloat& own, const auto&... rest) {
          compute_otherwise(inner, f, operation, own, rest...);
        },
        x, others...);
    return;
  }
  if (x.get_format() == f && ((others.get_format() == f) && ...)) {
    ValueAccess::apply(env, operation, x, others...);
    return;
  }
  if (on_short_road(detail::best_kind(f)) && is_ready(ValueAccess::kind(x)) &&
      (is_ready(ValueAccess::kind(others)) && ...)) {
    const bool fits =
        has_values_of(f, x.get_format()) && (has_values_of(f, others.get_format()) && ...);
    const Format g = fits ? f : wide_format(f, x.get_format(), others.get_format()...);
    if (on_short_road(detail::best_kind(g))) {
      compute_by_way_of(g, env, f, operation, x, others...);
      return;
    }
  }
  x = detail::on_numbers(env, f, operation.on_numbers, x, others...);
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
                             const detail::RoundedOperations<detail::OnOne>& operation,
                             IEEEFloat& x) {
  into_format(*this, f, operation, x);
}
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
