#include "zelk/float/environment.h"

#include <memory>
#include <vector>

#include "zelk/float/read_text.h"
#include "zelk/float/value_access.h"
#include "zelk/limbs/copy.h"
#include "zelk/limbs/limbs.h"
#include "zelk/words/integers.h"

namespace zelk {

using detail::OwnPattern;
using detail::ValueAccess;
using exact::Source;
using exact::Target;
using rules::Class;

namespace {

std::string decimal(const QNumber& q) {
  Exception e("");
  e.msg_stream << q;
  return e.get_msg();
}

void require_integer(const QNumber& n, const char* what) {
  if (!n.is_integer()) {
    detail::throw_error(std::string(what) + " is not an integer: " + decimal(n));
  }
}

void require_rounding(const Environment& env) {
  if (env.rounding > Rounding::to_odd) {
    detail::throw_bad_mode(static_cast<unsigned>(env.rounding));
  }
}

void require_arithmetic(const IEEEFloat::format& f) {
  if (f.exp_width < 2 || f.mant_width < 1) {
    detail::throw_error("format without arithmetic: (" + std::to_string(f.exp_width) + ", " +
                        std::to_string(f.mant_width) + ')');
  }
}

// The errors of an operation without a format of its own.
template <class... Others>
void require_one_format(const Environment& env, const IEEEFloat& x, const Others&... others) {
  require_rounding(env);
  (require_arithmetic(x.get_format()), ..., require_arithmetic(others.get_format()));
  if (((x.get_format() != others.get_format()) || ...)) {
    detail::throw_error("operands of different formats");
  }
}

// Those of one with a format.
template <class... Operands>
void require_formats(const Environment& env, const IEEEFloat::format& f,
                     const Operands&... operands) {
  require_rounding(env);
  (require_arithmetic(operands.get_format()), ...);
  require_arithmetic(f);
}

rules::Exceptions exceptions_of(const Environment& env) {
  return {env.tininess == Tininess::before_rounding, env.flush_results, 0};
}

void raise(Environment& env, unsigned flags) {
  env.flags = static_cast<unsigned char>(env.flags | flags);
}

rules::Direction direction_of(const Environment& env) {
  return static_cast<rules::Direction>(env.rounding);
}

// Calls compute(target), whose target is the value `out`.
template <class Compute>
void round_to(Environment& env, IEEEFloat& out, Compute compute) {
  rules::Exceptions exceptions = exceptions_of(env);
  // A packed word of another format has room for the low bits of a pattern.
  const bool foreign = ValueAccess::is_foreign(out);
  IEEEFloat target = foreign ? ValueAccess::generic_copy(out) : std::move(out);
  detail::within_limits([&] {
    compute(Target{ValueAccess::words(target), detail::widths(target.get_format()),
                   direction_of(env), &exceptions});
  });
  if (foreign) {
    target.self_specialize_repr(out.get_repr());
  }
  out = std::move(target);
  raise(env, exceptions.flags);
}

// An operation on numbers, of operands of any formats into format f.
template <class Compute, class... Others>
IEEEFloat on_numbers(Environment& env, const IEEEFloat::format& f, Compute compute,
                     const IEEEFloat& x, const Others&... others) {
  IEEEFloat result = ValueAccess::zero_like(x, f);
  round_to(env, result, [&](const Target& t) {
    const bool flush = env.flush_operands;
    compute(OwnPattern(x, flush), OwnPattern(others, flush)..., t);
  });
  return result;
}

template <class Compute, class... Operands>
IEEEFloat into_format(Environment& env, const IEEEFloat::format& f, Compute compute,
                      const Operands&... operands) {
  require_formats(env, f, operands...);
  return on_numbers(env, f, compute, operands...);
}

}  // namespace

// ---- Rounded operations ----

namespace {

// Calls compute(env, x) with an environment that flushes no operands and x flushed; x keeps its
// representation.
template <class Compute>
void with_flushed(Environment& env, IEEEFloat& x, Compute compute) {
  Environment inner = env;
  inner.flush_operands = false;
  IEEEFloat result = *OwnPattern(x, true);
  compute(inner, result);
  result.self_specialize_repr(x.get_repr());
  x = std::move(result);
  env.flags = inner.flags;
}

}  // namespace

void Environment::apply_otherwise(const detail::RoundedOperations<detail::OnTwo>& operation,
                                  IEEEFloat& x, const IEEEFloat& y) {
  require_one_format(*this, x, y);
  if (flush_operands) {
    const OwnPattern b(y, true);
    with_flushed(*this, x, [&](Environment& env, IEEEFloat& a) { env.apply(operation, a, *b); });
  } else {
    x = on_numbers(*this, x.get_format(), operation.on_numbers, x, y);
  }
}
void Environment::apply_otherwise(const detail::RoundedOperations<detail::OnThree>& operation,
                                  IEEEFloat& x, const IEEEFloat& y, const IEEEFloat& z) {
  require_one_format(*this, x, y, z);
  if (flush_operands) {
    const OwnPattern b(y, true);
    const OwnPattern c(z, true);
    with_flushed(*this, x,
                 [&](Environment& env, IEEEFloat& a) { env.apply(operation, a, *b, *c); });
  } else {
    x = on_numbers(*this, x.get_format(), operation.on_numbers, x, y, z);
  }
}

IEEEFloat Environment::add(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, exact::plus, x, y);
}

IEEEFloat Environment::subtract(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, exact::minus, x, y);
}

IEEEFloat Environment::multiply(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, exact::times, x, y);
}

IEEEFloat Environment::divide(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, exact::over, x, y);
}

IEEEFloat Environment::sqrt(IEEEFloat x, format f) { return into_format(*this, f, exact::root, x); }

IEEEFloat Environment::fma(IEEEFloat x, const IEEEFloat& y, const IEEEFloat& z, format f) {
  return into_format(*this, f, exact::fused, x, y, z);
}

IEEEFloat Environment::remainder(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, exact::remainder, x, y);
}

IEEEFloat Environment::modulo(IEEEFloat x, const IEEEFloat& y, format f) {
  return into_format(*this, f, exact::modulo, x, y);
}

IEEEFloat Environment::scale(IEEEFloat x, const QNumber& n) {
  const format f = x.get_format();
  return scale(std::move(x), n, f);
}
IEEEFloat Environment::scale(IEEEFloat x, const QNumber& n, format f) {
  require_formats(*this, f, x);
  require_integer(n, "exponent");
  return on_numbers(
      *this, f, [&n](const Source& a, const Target& t) { exact::scale(a, n, t); }, x);
}

IEEEFloat Environment::convert(IEEEFloat x, format f) {
  return into_format(*this, f, exact::convert, x);
}

IEEEFloat Environment::nearbyint(IEEEFloat x) {
  Environment env = *this;
  env.flags = 0;
  x = env.round_to_integral(std::move(x));
  const bool overflow = (env.flags & rules::overflow) != 0;
  raise(*this, overflow ? env.flags : env.flags & ~unsigned{rules::inexact});
  return x;
}

// ---- Selections ----

namespace {

struct Selection {
  bool largest;    // else the smallest
  bool magnitude;  // of the magnitudes, if these differ
  bool number;     // a number wins over a NaN
};

// What a selection gives.
enum class Selected : unsigned char { first, second, nan };

// By the orders of the magnitudes and of the values, -0 being below +0.
Selected choose(Selection s, bool first_nan, bool second_nan, int magnitudes, int values) {
  if (first_nan || second_nan) {
    return !s.number || (first_nan && second_nan) ? Selected::nan
           : first_nan                            ? Selected::second
                                                  : Selected::first;
  }
  const int order = s.magnitude && magnitudes != 0 ? magnitudes : values;
  return (s.largest ? order < 0 : order > 0) ? Selected::second : Selected::first;
}

// The same for two numbers in words: whether it is the second.
template <words::Shape S>
[[gnu::always_inline]] inline bool chooses_second(Selection s, S shape, words::Word<S> x,
                                                  words::Word<S> y) {
  using Key = words::Signed<words::Word<S>>;
  auto a = static_cast<Key>(words::magnitude(shape, x));
  auto b = static_cast<Key>(words::magnitude(shape, y));
  if (!s.magnitude || a == b) {
    a ^= static_cast<Key>(words::sign_mask(shape, x));
    b ^= static_cast<Key>(words::sign_mask(shape, y));
  }
  return s.largest ? a < b : b < a;
}

// x := the selected one of two numbers; false if one is a NaN. Which one it is is as good as random
// to a branch predictor.
template <words::Shape S>
[[gnu::always_inline]] inline bool select_number(Selection s, S shape, detail::Pattern& x,
                                                 const detail::Pattern& y) {
  const auto load = [](const detail::Pattern& p) {
    if constexpr (sizeof(words::Word<S>) == 8) {
      return p.words[0];
    } else {
      return words::uint128{p.words[1]} << 64 | p.words[0];
    }
  };
  if (words::is_nan(shape, load(x)) || words::is_nan(shape, load(y))) [[unlikely]] {
    return false;
  }
  const bool second = chooses_second(s, shape, load(x), load(y));
  const std::uint64_t mask = words::opaque(0 - std::uint64_t{second});
  x.words[0] ^= (x.words[0] ^ y.words[0]) & mask;
  if constexpr (sizeof(words::Word<S>) > 8) {
    x.words[1] ^= (x.words[1] ^ y.words[1]) & mask;
  }
  return true;
}

// The same in limbs; false too where the values do not decide.
bool select_in_limbs(Selection s, std::uint64_t* x, const std::uint64_t* y, rules::Widths f) {
  const int order = s.magnitude ? 0 : limbs::compare(x, y, f);
  if (order != 1 && order != -1) {
    return false;
  }
  if (s.largest ? order < 0 : order > 0) {
    limbs::copy(y, limbs::size(f), x);
  }
  return true;
}

// Of two patterns of any size.
Selected choose(Selection s, const OwnPattern& x, const OwnPattern& y) {
  const auto f = x.widths();
  return choose(s, x.operand().is(Class::nan), y.operand().is(Class::nan),
                words::compare_magnitudes(x.words(), y.words(), f),
                words::compare_patterns(x.words(), y.words(), f));
}

// x := the one that is selected, in the representation of x.
[[gnu::noinline]] void select_otherwise(const Environment& env, Selection s, IEEEFloat& x,
                                        const IEEEFloat& y) {
  require_one_format(env, x, y);
  const OwnPattern a(x, env.flush_operands);
  const OwnPattern b(y, env.flush_operands);
  const Selected selected = choose(s, a, b);
  const auto mode = x.get_mode();
  const auto repr = x.get_repr();
  x = selected == Selected::second ? *b : *a;
  if (selected == Selected::nan) {
    x.self_nan();
  }
  x.self_specialize_repr(repr);
  x.set_mode(mode);
}

template <Selection s>
[[gnu::always_inline]] inline IEEEFloat select(const Environment& env, IEEEFloat& x,
                                               const IEEEFloat& y) {
  const detail::Head& head = ValueAccess::head(x);
  const detail::Road road = head.kind.road();
  if (head.kind == ValueAccess::kind(y) && head.kind.names_format() &&
      road != detail::Road::numbers && !env.flush_operands && env.rounding <= Rounding::to_odd)
      [[likely]] {
    detail::Pattern& a = ValueAccess::pattern(x);
    const detail::Pattern& b = ValueAccess::pattern(y);
    const std::int64_t e = head.exp_width;
    const std::int64_t m = head.mant_width;
    if (e + m <= 63   ? select_number(s, words::RuntimeShape{e, m}, a, b)
        : e + m > 127 ? select_in_limbs(s, ValueAccess::words(x), ValueAccess::words(y),
                                        {head.exp_width, head.mant_width})
        : road == detail::Road::quad ? select_number(s, words::binary128, a, b)
                                     : select_number(s, words::DoubleShape{e, m}, a, b))
        [[likely]] {
      return std::move(x);
    }
  }
  select_otherwise(env, s, x, y);
  return std::move(x);
}

}  // namespace

IEEEFloat Environment::minimum(IEEEFloat x, const IEEEFloat& y) {
  return select<Selection{false, false, false}>(*this, x, y);
}
IEEEFloat Environment::maximum(IEEEFloat x, const IEEEFloat& y) {
  return select<Selection{true, false, false}>(*this, x, y);
}
IEEEFloat Environment::minimum_number(IEEEFloat x, const IEEEFloat& y) {
  return select<Selection{false, false, true}>(*this, x, y);
}
IEEEFloat Environment::maximum_number(IEEEFloat x, const IEEEFloat& y) {
  return select<Selection{true, false, true}>(*this, x, y);
}
IEEEFloat Environment::minimum_magnitude(IEEEFloat x, const IEEEFloat& y) {
  return select<Selection{false, true, false}>(*this, x, y);
}
IEEEFloat Environment::maximum_magnitude(IEEEFloat x, const IEEEFloat& y) {
  return select<Selection{true, true, false}>(*this, x, y);
}
IEEEFloat Environment::minimum_magnitude_number(IEEEFloat x, const IEEEFloat& y) {
  return select<Selection{false, true, true}>(*this, x, y);
}
IEEEFloat Environment::maximum_magnitude_number(IEEEFloat x, const IEEEFloat& y) {
  return select<Selection{true, true, true}>(*this, x, y);
}

// ---- From outside ----

namespace {

IEEEFloat make(Environment& env, const QNumber& q, const QNumber& k, const IEEEFloat::format& f) {
  IEEEFloat result(f, IEEEFloat::ROUND_NEAREST_EVEN);
  round_to(env, result, [&](const Target& t) { exact::from_scaled(q, k, t); });
  return result;
}

}  // namespace

IEEEFloat Environment::from_rational(const QNumber& q, format f) {
  require_formats(*this, f);
  return make(*this, q, 0, f);
}

IEEEFloat Environment::from_scaled(const QNumber& q, const QNumber& k, format f) {
  require_formats(*this, f);
  require_integer(k, "exponent");
  return make(*this, q, k, f);
}

IEEEFloat Environment::from_integer(const QNumber& n, format f) {
  require_formats(*this, f);
  require_integer(n, "number");
  return make(*this, n, 0, f);
}

IEEEFloat Environment::from_text(std::string_view text, format f) {
  require_formats(*this, f);
  const detail::TextValue v = detail::read_text(text, f);
  if (v.what == Class::finite) {
    return make(*this, v.negative ? -v.magnitude : v.magnitude, v.exponent, f);
  }
  IEEEFloat x(f, IEEEFloat::ROUND_NEAREST_EVEN);
  detail::set_special(x, v);
  return x;
}

// ---- To integers ----

namespace {

std::optional<QNumber> integer_of(Environment& env, const IEEEFloat& x, bool is_signed,
                                  unsigned long w) {
  const OwnPattern a(x, env.flush_operands);
  const rules::Operand o = a.operand();
  if (o.is(Class::zero)) {
    return 0;
  }
  exact::Integer n{0, false, false};
  if (o.is(Class::finite)) {
    n = detail::within_limits(
        [&] { return exact::to_integer(a, direction_of(env), is_signed, w); });
  }
  raise(env, !n.fits ? unsigned{rules::invalid} : n.changed ? unsigned{rules::inexact} : 0);
  return n.fits ? std::optional(std::move(n.value)) : std::nullopt;
}

std::optional<QNumber> bounded_integer(Environment& env, const IEEEFloat& x, bool is_signed,
                                       unsigned long w) {
  require_one_format(env, x);
  if (w == 0) {
    detail::throw_error("width of 0 bits");
  }
  return integer_of(env, x, is_signed, w);
}

}  // namespace

std::optional<QNumber> Environment::to_signed(const IEEEFloat& x, unsigned long w) {
  return bounded_integer(*this, x, true, w);
}
std::optional<QNumber> Environment::to_unsigned(const IEEEFloat& x, unsigned long w) {
  return bounded_integer(*this, x, false, w);
}
std::optional<QNumber> Environment::to_integer(const IEEEFloat& x) {
  require_one_format(*this, x);
  return integer_of(*this, x, true, 0);
}

// ---- Sums ----

namespace {

// The patterns of values, for as long as this is there.
struct Sources {
  std::vector<Source> sources;
  std::vector<std::unique_ptr<OwnPattern>> operands;  // those that are not as they are in values

  Sources(const Environment& env, std::span<const IEEEFloat> values) {
    sources.reserve(values.size());
    for (const IEEEFloat& x : values) {
      if (ValueAccess::is_foreign(x) || env.flush_operands) {
        operands.push_back(std::make_unique<OwnPattern>(x, env.flush_operands));
        sources.push_back(*operands.back());
      } else {
        sources.push_back({ValueAccess::words(x), detail::widths(x.get_format())});
      }
    }
  }
};

void require_terms(const Environment& env, std::span<const IEEEFloat> x,
                   std::span<const IEEEFloat> y, const IEEEFloat::format& f) {
  require_rounding(env);
  for (const auto& values : {x, y}) {
    for (const IEEEFloat& value : values) {
      require_arithmetic(value.get_format());
    }
  }
  require_arithmetic(f);
}

}  // namespace

IEEEFloat Environment::sum(std::span<const IEEEFloat> x, format f) {
  require_terms(*this, x, {}, f);
  IEEEFloat result(f, IEEEFloat::ROUND_NEAREST_EVEN);
  const Sources terms(*this, x);
  round_to(*this, result, [&](const Target& t) { exact::sum(terms.sources, t); });
  return result;
}

IEEEFloat Environment::dot(std::span<const IEEEFloat> x, std::span<const IEEEFloat> y, format f) {
  require_terms(*this, x, y, f);
  if (x.size() != y.size()) {
    detail::throw_error("spans of different lengths");
  }
  IEEEFloat result(f, IEEEFloat::ROUND_NEAREST_EVEN);
  const Sources left(*this, x);
  const Sources right(*this, y);
  round_to(*this, result, [&](const Target& t) { exact::dot(left.sources, right.sources, t); });
  return result;
}

}  // namespace zelk
