#include "zelk/float/environment.h"

#include <bit>
#include <memory>
#include <vector>

#include "zelk/base/quoted.h"
#include "zelk/float/evaluation.h"
#include "zelk/float/ratio.h"
#include "zelk/float/read_text.h"

namespace zelk {

using detail::OwnPattern;
using detail::ValueAccess;
using exact::Source;
using exact::Target;
using rules::Class;

// ---- Rounded operations ----

namespace {

// Operands that are flushed, or of several kinds, get ready for their road; x keeps its
// representation. All others are for numbers.
template <class Operation, class... Others>
void apply_operation(Environment& env, const Operation& operation, IEEEFloat& x,
                     const Others&... others) {
  detail::require_one_format(env, x, others...);
  const bool one_kind = ((ValueAccess::kind(others) == ValueAccess::kind(x)) && ...);
  if (one_kind && !env.flush_operands) {
    x = detail::on_numbers(env, x.get_format(), operation.on_numbers, x, others...);
    return;
  }
  detail::on_own(
      env, x.get_format(),
      [&](Environment& inner, IEEEFloat& own, const auto&... rest) {
        ValueAccess::apply(inner, operation, own, rest...);
      },
      x, others...);
}

}  // namespace

void Environment::apply_otherwise(const detail::RoundedOperations<detail::OnOne>& operation,
                                  IEEEFloat& x) {
  apply_operation(*this, operation, x);
}
void Environment::apply_otherwise(const detail::RoundedOperations<detail::OnTwo>& operation,
                                  IEEEFloat& x, const IEEEFloat& y) {
  apply_operation(*this, operation, x, y);
}
void Environment::apply_otherwise(const detail::RoundedOperations<detail::OnThree>& operation,
                                  IEEEFloat& x, const IEEEFloat& y, const IEEEFloat& z) {
  apply_operation(*this, operation, x, y, z);
}

IEEEFloat Environment::nearbyint(IEEEFloat x) {
  Environment env = *this;
  env.flags = 0;
  x = env.round_to_integral(std::move(x));
  const bool overflow = (env.flags & rules::overflow) != 0;
  detail::raise(*this, overflow ? env.flags : env.flags & ~unsigned{rules::inexact});
  return x;
}

namespace {

void require_integer(const QNumber& n, const char* what) {
  if (!n.is_integer()) {
    detail::throw_error(std::string(what) + " is not an integer: " + detail::quoted(n.to_string()));
  }
}

}  // namespace

IEEEFloat Environment::scale(IEEEFloat x, const QNumber& n) {
  const format f = x.get_format();
  return scale(std::move(x), n, f);
}
IEEEFloat Environment::scale(IEEEFloat x, const QNumber& n, format f) {
  detail::require_formats(*this, f, x);
  require_integer(n, "exponent");
  const OwnPattern own(x, flush_operands);
  const rules::Operand o = own.operand();
  const auto number = own.magnitude();
  IEEEFloat result = ValueAccess::zero_like(x, f);
  if (!o.is(Class::finite) && !ValueAccess::is_foreign(result)) {
    detail::set_special(result, {o.what, o.negative, 0, 0});
    x = std::move(result);
    return x;
  }
  const auto round = [&](auto s) {
    return detail::rounded_number(*this, s, o.negative, number->exponent + n.to_long(),
                                  number->sig);
  };
  if (!(number && detail::is_near(n) && detail::make_in_words(result, round))) {
    detail::round_to(*this, result, [&](const Target& t) { exact::scale(own, n, t); });
  }
  x = std::move(result);
  return x;
}

// ---- From outside ----

namespace {

IEEEFloat make(Environment& env, const QNumber& q, const QNumber& k, const IEEEFloat::format& f) {
  IEEEFloat result(f, IEEEFloat::ROUND_NEAREST_EVEN);
  rules::Exceptions exceptions = detail::exceptions_of(env);
  const auto in_environment = [&](auto s) { return detail::in_environment(s, env); };
  if (detail::round_ratio(result, q, k, {detail::direction_of(env), &exceptions}, in_environment)) {
    detail::raise(env, exceptions.flags);
  } else {
    detail::round_to(env, result, [&](const Target& t) { exact::from_scaled(q, k, t); });
  }
  return result;
}

}  // namespace

IEEEFloat Environment::from_rational(const QNumber& q, format f) {
  detail::require_formats(*this, f);
  return make(*this, q, 0, f);
}

IEEEFloat Environment::from_scaled(const QNumber& q, const QNumber& k, format f) {
  detail::require_formats(*this, f);
  require_integer(k, "exponent");
  return make(*this, q, k, f);
}

IEEEFloat Environment::from_integer(const QNumber& n, format f) {
  detail::require_formats(*this, f);
  require_integer(n, "number");
  return make(*this, n, 0, f);
}

IEEEFloat Environment::from_text(std::string_view text, format f) {
  detail::require_formats(*this, f);
  constexpr auto mode = IEEEFloat::ROUND_NEAREST_EVEN;
  return detail::read_whole(text, f, mode, *this, [&] {
    const detail::TextValue v = detail::read_text(text, f);
    if (v.what == Class::finite) {
      return make(*this, v.negative ? -v.magnitude : v.magnitude, v.exponent, f);
    }
    IEEEFloat x(f, mode);
    detail::set_special(x, v);
    return x;
  });
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
  const auto number = a.magnitude();
  if (words::RoundedInteger small{};
      number && words::round_to_integer(*number, detail::direction_of(env), o.negative, small)) {
    const auto length = static_cast<unsigned long>(std::bit_width(small.value));
    const bool least = o.negative && std::has_single_bit(small.value);
    const bool fits = small.value == 0 || (is_signed ? length < w || (least && length == w)
                                                     : !o.negative && length <= w);
    const auto value = static_cast<long>(small.value);
    n = {o.negative ? -value : value, small.changed, w == 0 || fits};
  } else if (const bool beyond = number && w != 0 && number->exponent > 62 &&
                                 static_cast<unsigned long>(number->exponent) >= w;
             o.is(Class::finite) && !beyond) {
    n = detail::within_limits(
        [&] { return exact::to_integer(a, detail::direction_of(env), is_signed, w); });
  }
  detail::raise(env, !n.fits ? unsigned{rules::invalid} : n.changed ? unsigned{rules::inexact} : 0);
  return n.fits ? std::optional(std::move(n.value)) : std::nullopt;
}

std::optional<QNumber> bounded_integer(Environment& env, const IEEEFloat& x, bool is_signed,
                                       unsigned long w) {
  detail::require_one_format(env, x);
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
  detail::require_one_format(*this, x);
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
      if (ValueAccess::is_foreign(x) || (env.flush_operands && x.is_subnormal())) {
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
  detail::require_rounding(env);
  for (const auto& values : {x, y}) {
    for (const IEEEFloat& value : values) {
      detail::require_arithmetic(value.get_format());
    }
  }
  detail::require_arithmetic(f);
}

}  // namespace

IEEEFloat Environment::sum(std::span<const IEEEFloat> x, format f) {
  require_terms(*this, x, {}, f);
  IEEEFloat result(f, IEEEFloat::ROUND_NEAREST_EVEN);
  const Sources terms(*this, x);
  detail::round_to(*this, result, [&](const Target& t) { exact::sum(terms.sources, t); });
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
  detail::round_to(*this, result,
                   [&](const Target& t) { exact::dot(left.sources, right.sources, t); });
  return result;
}

}  // namespace zelk
