#include "zelk/float/environment.h"

#include <memory>
#include <vector>

#include "zelk/float/read_text.h"
#include "zelk/float/value_access.h"

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

void Environment::apply_otherwise(const detail::RoundedOperations<detail::OnTwo>& operation,
                                  IEEEFloat& x, const IEEEFloat& y) {
  require_one_format(*this, x, y);
  x = on_numbers(*this, x.get_format(), operation.on_numbers, x, y);
}
void Environment::apply_otherwise(const detail::RoundedOperations<detail::OnThree>& operation,
                                  IEEEFloat& x, const IEEEFloat& y, const IEEEFloat& z) {
  require_one_format(*this, x, y, z);
  x = on_numbers(*this, x.get_format(), operation.on_numbers, x, y, z);
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

// Whether the second operand is selected; both are numbers.
bool selects_second(Selection s, const OwnPattern& a, const OwnPattern& b) {
  const bool a_sign = a.operand().negative;
  const bool b_sign = b.operand().negative;
  int order = a.compare(b);
  if (order == 0) {
    order = static_cast<int>(b_sign) - static_cast<int>(a_sign);  // -0 is below +0
  }
  if (s.magnitude && a_sign != b_sign) {
    // The order of the magnitudes is that of one value and the other with its sign changed.
    IEEEFloat opposite = *b;
    opposite.self_neg();
    if (const int of_magnitudes = a.compare(OwnPattern(opposite)); of_magnitudes != 0) {
      order = a_sign ? -of_magnitudes : of_magnitudes;
    }
  } else if (s.magnitude && a_sign) {
    order = -order;
  }
  return s.largest ? order < 0 : order > 0;
}

IEEEFloat select(const Environment& env, Selection s, IEEEFloat x, const IEEEFloat& y) {
  require_one_format(env, x, y);
  const OwnPattern a(x, env.flush_operands);
  const OwnPattern b(y, env.flush_operands);
  const bool a_nan = a.operand().is(Class::nan);
  const bool b_nan = b.operand().is(Class::nan);
  IEEEFloat result = ValueAccess::zero_like(x, x.get_format());
  if ((a_nan || b_nan) && !(s.number && a_nan != b_nan)) {
    result.self_nan();
    return result;
  }
  IEEEFloat chosen = a_nan || (!b_nan && selects_second(s, a, b)) ? *b : *a;
  chosen.self_specialize_repr(x.get_repr());
  chosen.set_mode(x.get_mode());
  return chosen;
}

}  // namespace

IEEEFloat Environment::minimum(IEEEFloat x, const IEEEFloat& y) {
  return select(*this, {false, false, false}, std::move(x), y);
}
IEEEFloat Environment::maximum(IEEEFloat x, const IEEEFloat& y) {
  return select(*this, {true, false, false}, std::move(x), y);
}
IEEEFloat Environment::minimum_number(IEEEFloat x, const IEEEFloat& y) {
  return select(*this, {false, false, true}, std::move(x), y);
}
IEEEFloat Environment::maximum_number(IEEEFloat x, const IEEEFloat& y) {
  return select(*this, {true, false, true}, std::move(x), y);
}
IEEEFloat Environment::minimum_magnitude(IEEEFloat x, const IEEEFloat& y) {
  return select(*this, {false, true, false}, std::move(x), y);
}
IEEEFloat Environment::maximum_magnitude(IEEEFloat x, const IEEEFloat& y) {
  return select(*this, {true, true, false}, std::move(x), y);
}
IEEEFloat Environment::minimum_magnitude_number(IEEEFloat x, const IEEEFloat& y) {
  return select(*this, {false, true, true}, std::move(x), y);
}
IEEEFloat Environment::maximum_magnitude_number(IEEEFloat x, const IEEEFloat& y) {
  return select(*this, {true, true, true}, std::move(x), y);
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
