// How environments compute: the errors of their operations, and results on numbers.
#ifndef ZELK_FLOAT_EVALUATION_H_
#define ZELK_FLOAT_EVALUATION_H_

#include <string>
#include <utility>

#include "zelk/float/environment.h"
#include "zelk/float/roads.h"
#include "zelk/float/value_access.h"
#include "zelk/rules/flags.h"
#include "zelk/rules/rounding.h"
#include "zelk/words/convert.h"
#include "zelk/words/rounding.h"

namespace zelk::detail {

inline void require_rounding(const Environment& env) {
  if (env.rounding > Rounding::to_odd) {
    throw_bad_mode(static_cast<unsigned>(env.rounding));
  }
}

inline void require_arithmetic(const IEEEFloat::format& f) {
  require_arithmetic(f.exp_width, f.mant_width);
}

/// The errors of an operation without a format of its own.
template <class... Others>
void require_one_format(const Environment& env, const IEEEFloat& x, const Others&... others) {
  require_rounding(env);
  (require_arithmetic(x.get_format()), ..., require_arithmetic(others.get_format()));
  if (((x.get_format() != others.get_format()) || ...)) {
    throw_error("operands of different formats");
  }
}

/// Those of one with a format.
template <class... Operands>
void require_formats(const Environment& env, const IEEEFloat::format& f,
                     const Operands&... operands) {
  require_rounding(env);
  (require_arithmetic(operands.get_format()), ...);
  require_arithmetic(f);
}

inline rules::Exceptions exceptions_of(const Environment& env) {
  return {env.tininess == Tininess::before_rounding, env.flush_results, 0};
}

inline void raise(Environment& env, unsigned flags) {
  env.flags = static_cast<unsigned char>(env.flags | flags);
}

inline rules::Direction direction_of(const Environment& env) {
  return static_cast<rules::Direction>(env.rounding);
}

/// Calls compute(target), whose target is the value `out`.
template <class Compute>
void round_to(Environment& env, IEEEFloat& out, Compute compute) {
  rules::Exceptions exceptions = exceptions_of(env);
  // A packed word of another format has room for the low bits of a pattern.
  const bool foreign = ValueAccess::is_foreign(out);
  IEEEFloat own = foreign ? ValueAccess::generic_copy(out) : IEEEFloat();
  IEEEFloat& target = foreign ? own : out;
  within_limits([&] {
    compute(exact::Target{ValueAccess::words(target), widths(target.get_format()),
                          direction_of(env), &exceptions});
  });
  if (foreign) {
    own.self_specialize_repr(out.get_repr());
    out = std::move(own);
  }
  raise(env, exceptions.flags);
}

/// An operation on numbers, of operands of any formats into format f.
template <class Compute, class... Others>
IEEEFloat on_numbers(Environment& env, const IEEEFloat::format& f, Compute compute,
                     const IEEEFloat& x, const Others&... others) {
  IEEEFloat result = ValueAccess::zero_like(x, f);
  round_to(env, result, [&](const exact::Target& t) {
    const bool flush = env.flush_operands;
    compute(OwnPattern(x, flush), OwnPattern(others, flush)..., t);
  });
  return result;
}

/// x := what compute(environment, x, others...) makes of x as it is read, for a result in format f:
/// of operands that are flushed if that is asked for, and in the best representation.
template <class Compute, class... Others>
void on_own(Environment& env, const IEEEFloat::format& f, Compute compute, IEEEFloat& x,
            const Others&... others) {
  const auto own = [flush = env.flush_operands](const IEEEFloat& value) {
    IEEEFloat copy = *OwnPattern(value, flush);
    copy.self_specialize_repr(IEEEFloat::get_best_repr(copy.get_format()));
    return copy;
  };
  Environment inner = env;
  inner.flush_operands = false;
  IEEEFloat result = own(x);
  compute(inner, result, own(others)...);
  result.self_specialize_repr(ValueAccess::repr_like(x, f));
  x = std::move(result);
  env.flags = inner.flags;
}

/// A shape of words whose operations tell the environment.
template <class S>
words::InEnvironment<S> in_environment(S s, Environment& env) {
  return {{s, &env.flags}, env.tininess == Tininess::before_rounding, env.flush_results};
}

/// out := the pattern that make(shape) gives, if its format is on words; else false.
template <class Make>
bool make_in_words(IEEEFloat& out, Make make) {
  const Head& head = ValueAccess::head(out);
  Pattern& pattern = ValueAccess::pattern(out);
  const auto store = [&](auto place) {
    const auto s = decltype(place)::shape({head.exp_width, head.mant_width});
    decltype(place)::store(s, make(s), pattern);
    return true;
  };
  switch (has_short_roads && head.kind.names_format() ? head.kind.road() : Road::numbers) {
    case Road::numbers:
    case Road::limbs:
      return false;
    case Road::quad:
      return store(Quad());
    case Road::double_word:
      return store(TwoWords());
    default:
      return store(OneWord<words::RuntimeShape>());
  }
}

/// +-sig / 2^127 * 2^exponent rounded to a shape of words, the leading bit of sig in the highest
/// place and the lowest one sticky.
template <class S>
words::Word<S> rounded_number(Environment& env, S shape, bool negative, std::int64_t exponent,
                              words::uint128 sig) {
  return words::from_magnitude(in_environment(shape, env), negative, {exponent, sig}, 0,
                               direction_of(env));
}

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_EVALUATION_H_
