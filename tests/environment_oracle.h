// The operations of environments and values as IEEE 754 defines them, on rationals: what tests hold
// the library against.
#ifndef ZELK_TESTS_ENVIRONMENT_ORACLE_H_
#define ZELK_TESTS_ENVIRONMENT_ORACLE_H_

#include <array>
#include <utility>
#include <vector>

#include "tests/exact_oracle.h"

namespace zelk_test {

/// Of operations, whose results before rounding follow.
using Operands = std::vector<Exact>;

inline bool any_nan(const Operands& v) {
  return std::ranges::any_of(v, [](const Exact& x) { return x.kind == Exact::nan; });
}

inline Exact negated(Exact x) { return x.negative = !x.negative, x; }

inline Exact plus(const Exact& a, const Exact& b, Rounding d) {
  if (a.kind == Exact::infinite && b.kind == Exact::infinite) {
    return a.negative == b.negative ? a : invalid_result();
  }
  if (a.kind == Exact::infinite || b.kind == Exact::infinite) {
    return a.kind == Exact::infinite ? a : b;
  }
  const bool both = a.is_zero() && b.is_zero() && a.negative == b.negative;
  return number(a.value() + b.value(), both ? a.negative : d == Rounding::toward_negative);
}

inline Exact times(const Exact& a, const Exact& b) {
  const bool negative = a.negative != b.negative;
  if (a.kind == Exact::finite && b.kind == Exact::finite) {
    return {Exact::finite, negative, a.q * b.q, a.k + b.k};
  }
  return a.is_zero() || b.is_zero() ? invalid_result() : infinity(negative);
}

inline Exact fused(const Exact& a, const Exact& b, const Exact& c, Rounding d) {
  const Exact product = times(a, b);
  return product.kind == Exact::nan ? product : plus(product, c, d);
}

inline Exact over(const Exact& a, const Exact& b) {
  const bool negative = a.negative != b.negative;
  if (a.kind == b.kind && (a.kind == Exact::infinite || (a.is_zero() && b.is_zero()))) {
    return invalid_result();
  }
  if (a.kind == Exact::infinite) return infinity(negative);
  if (b.kind == Exact::infinite) return number(0, negative);
  if (b.is_zero()) return {.kind = Exact::infinite, .negative = negative, .flags = pole};
  return {Exact::finite, negative, a.q / b.q, a.k - b.k};
}

inline Exact left_by(const Exact& a, const Exact& b, Rounding quotient) {
  if (a.kind == Exact::infinite || b.is_zero()) return invalid_result();
  if (b.kind == Exact::infinite || a.is_zero()) return a;
  const mpq_class n = neighbours(number(abs(a.value() / b.value())), 0).chosen(quotient, false);
  const mpq_class left = abs(a.value()) - n * abs(b.value());
  return number(a.negative ? mpq_class(-left) : left, a.negative);
}

inline Exact root_of(Exact a) {
  if (a.is_zero()) return a;
  if (a.negative) return invalid_result();
  a.root = a.kind == Exact::finite;
  return a;
}

inline Exact to_integral(const Exact& a, Rounding d, unsigned flags) {
  if (a.kind != Exact::finite || a.is_zero()) return a;
  const Neighbours n = neighbours(a, 0);
  return {.kind = Exact::finite,
          .negative = a.negative,
          .q = n.chosen(d, a.negative),
          .flags = n.exact ? 0 : flags};
}

using Values = std::vector<IEEEFloat>;

/// The order of any two values.
inline std::partial_ordering order(const Exact& a, const Exact& b) {
  const auto sign = [](const Exact& x) { return x.is_zero() ? 0 : x.negative ? -1 : 1; };
  if (any_nan({a, b})) return std::partial_ordering::unordered;
  if (sign(a) != sign(b) || sign(a) == 0) return sign(a) <=> sign(b);
  int o = static_cast<int>(a.kind == Exact::infinite) - static_cast<int>(b.kind == Exact::infinite);
  if (a.kind == Exact::finite && b.kind == Exact::finite) {
    const long e = a.exponent() - b.exponent();  // far ones are not scaled
    o = e != 0 ? (e < 0 ? -1 : 1) : cmp(scaled(a.q, a.k - b.k), b.q);
  }
  return o * sign(a) <=> 0;
}

/// An operation in one format, or into another one, and what it means.
struct Operation {
  const char* name;
  std::size_t operands;
  IEEEFloat (*call)(Environment& env, const Values& v);
  IEEEFloat (*into)(Environment& env, const Values& v, Format f);
  Exact (*numbers)(const Operands& v, Rounding d);

  Operation(const char* text, std::size_t count, auto both, decltype(numbers) meaning)
      : name(text), operands(count), call(both), into(both), numbers(meaning) {}
  Exact exact(const Operands& v, Rounding d) const { return any_nan(v) ? Exact() : numbers(v, d); }
};

inline Format given(Format own) { return own; }
inline Format given(Format /*own*/, Format f) { return f; }

#define ZELK_OPERATION(call, count, ...)                                                       \
  {                                                                                            \
#call, count,                                                                              \
        [](Environment & env, const Values& v,                                                 \
           auto... f) { return env.call; }, [](const Operands& v, [[maybe_unused]] Rounding d) \
                                                 -> Exact { return __VA_ARGS__; }              \
  }
inline const Operation operations[] = {
    ZELK_OPERATION(add(v[0], v[1], f...), 2, plus(v[0], v[1], d)),
    ZELK_OPERATION(subtract(v[0], v[1], f...), 2, plus(v[0], negated(v[1]), d)),
    ZELK_OPERATION(multiply(v[0], v[1], f...), 2, times(v[0], v[1])),
    ZELK_OPERATION(divide(v[0], v[1], f...), 2, over(v[0], v[1])),
    ZELK_OPERATION(remainder(v[0], v[1], f...), 2, left_by(v[0], v[1], Rounding::nearest_even)),
    ZELK_OPERATION(modulo(v[0], v[1], f...), 2, left_by(v[0], v[1], Rounding::toward_zero)),
    ZELK_OPERATION(fma(v[0], v[1], v[2], f...), 3, fused(v[0], v[1], v[2], d)),
    ZELK_OPERATION(sqrt(v[0], f...), 1, root_of(v[0])),
    ZELK_OPERATION(convert(v[0], given(v[0].get_format(), f...)), 1, v[0]),
    ZELK_OPERATION(scale(v[0], 1, f...), 1, times(v[0], power_of_two(1))),
    ZELK_OPERATION(scale(v[0], -3, f...), 1, times(v[0], power_of_two(-3))),
    ZELK_OPERATION(scale(v[0], 4000, f...), 1, times(v[0], power_of_two(4000))),
    ZELK_OPERATION(scale(v[0], -4000, f...), 1, times(v[0], power_of_two(-4000)))};

inline IEEEFloat in_mode(IEEEFloat x, IEEEFloat::rounding_mode m) { return x.set_mode(m), x; }

/// A value as operations read it: as it is, and flushed.
struct Operand {
  IEEEFloat x;
  std::array<Exact, 2> exact;
  bool subnormal;

  Operand(const Target& t, IEEEFloat value)
      : x(std::move(value)),
        exact{t.decode(bits(x)), t.decode(bits(x), true)},
        subnormal(!exact[0].is_zero() && exact[1].is_zero()) {}
};

inline std::string name(const Values& v) {
  std::string text;
  for (const IEEEFloat& x : v) text += name(x) + "; ";
  return text;
}

/// Bits of an environment's flags that are none of the five.
inline constexpr unsigned other_bits = 0xA0;

inline thread_local unsigned long cases = 0;

/// A result with its flags, beside which other bits stay, and its form; `from` says where from.
void check_answer(auto call, Environment env, const Answer& want, const IEEEFloat& like,
                  auto from) {
  ++cases;
  const IEEEFloat r = [&] {
    try {
      return call(env);
    } catch (const std::exception& e) {
      ADD_FAILURE() << name(env) << from() << " throws " << e.what();
      throw;
    }
  }();
  ASSERT_TRUE(bits(r) == want.bits && env.flags == (other_bits | want.flags))
      << name(env) << from() << " is " << name(r) << " with flags " << env.flags % 32U
      << ", wanted 0x" << std::hex << want.bits << " with " << std::dec << want.flags;
  ASSERT_TRUE(r.get_format() == like.get_format() && r.get_mode() == like.get_mode() &&
              r.get_repr() == like.get_repr())
      << from();
}

/// One operation in all roundings, under both rules of tininess and, where they matter, in all
/// flush settings; elsewhere these take turns. Into the format `to`, or without one if that is the
/// operands'.
inline void check_operation(const Operation& op, const std::vector<const Operand*>& operands,
                            const auto& to, bool into) {
  Values v;
  bool subnormal = false;
  for (const Operand* o : operands) v.push_back(o->x), subnormal = subnormal || o->subnormal;
  IEEEFloat like = v[0];
  if (to.f != like.get_format()) like = IEEEFloat(to.f, like.get_mode());
  for (const bool flush : {false, true}) {
    if (flush && !subnormal) continue;
    Operands numbers;
    for (const Operand* o : operands) numbers.push_back(o->exact[flush]);
    Placed exact;
    for (unsigned d = 0; d < 6; ++d) {
      // The direction decides on the sign of a zero, and on integers that are near.
      if (d == 0 || exact.x.is_zero() || v.size() == 1)
        exact = to.place(op.exact(numbers, static_cast<Rounding>(d)));
      for (unsigned i = 0; i < (exact.below ? 4 : 2); ++i) {
        const Environment env{static_cast<Rounding>(d), static_cast<Tininess>(i % 2),
                              (exact.below ? i / 2 : (i + d) % 2) == 1,
                              flush || (!subnormal && cases % 5 == 0), other_bits};
        const Answer want = exact.round(to, env);
        check_answer([&](auto& e) { return into ? op.into(e, v, to.f) : op.call(e, v); }, env, want,
                     like, [&] { return std::string(op.name) + " of " + name(v); });
      }
    }
  }
}

/// The comparisons and operators of values, which a table of operations begins with.
void check_pair(const auto& t, const auto& table, const IEEEFloat& x, const IEEEFloat& y) {
  const mpz_class a = bits(x), b = bits(y);
  const bool nan = a % t.sign > t.inf || b % t.sign > t.inf;
  const auto key = [&](const mpz_class& p) { return p < t.sign ? p : mpz_class(t.sign - p); };
  const int order = nan ? -2 : sgn(key(a) - key(b));
  ASSERT_TRUE(ieee_cmp(x, y) == order && (x < y) == (order == -1) && (x > y) == (order == 1) &&
              (x <= y) == (order == -1 || order == 0) && (x >= y) == (order >= 0) &&
              (x == y) == (order == 0))
      << name(x) << " against " << name(y) << ", wanted " << order;
  const Environment env{static_cast<Rounding>(x.get_mode())};
  const Operands operands = {t.decode(a), t.decode(b)};
  for (std::size_t op = 0; op < 4; ++op) {
    mpz_class want = t.place(table[op].exact(operands, env.rounding)).round(t, env).bits;
    if (nan && x.get_repr() == IEEEFloat::REPR_GENERIC) want = a % t.sign > t.inf ? a : b;
    IEEEFloat r = y;
    r = x;
    ASSERT_BITS(apply(static_cast<int>(op), r, &x == &y ? r : y), want)
        << name(x) << "+-*/"[op] << name(y);
  }
}

/// There and back, or nowhere.
void check_conversion(const auto& from, const auto& to, const IEEEFloat& x) {
  const auto check = [&](const auto& f, const auto& g, IEEEFloat r) {
    const IEEEFloat was = r;
    r.set_format(g.f);
    const Environment env{static_cast<Rounding>(x.get_mode())};
    const bool same = f.f == g.f;
    ASSERT_BITS(r, same ? bits(was) : g.place(f.decode(bits(was))).round(g, env).bits) << name(was);
    ASSERT_TRUE(r.get_format() == g.f && r.get_mode() == x.get_mode() &&
                r.get_repr() == (same ? was.get_repr() : IEEEFloat::get_best_repr(g.f)));
  };
  check(from, to, x);
  IEEEFloat there = x;
  there.set_format(to.f);
  check(to, from, there);
}

/// Class, special values, neighbours, exact value, integers and text of one value.
inline void check_value(const Layout& t, const IEEEFloat& x) {
  const mpz_class p = bits(x), magnitude = p % t.sign;
  const bool negative = p >= t.sign, zero = magnitude == 0;
  const bool inf = magnitude == t.inf, nan = magnitude > t.inf;
  ASSERT_TRUE(x.get_sign() == negative && x.is_nan() == nan && x.is_inf() == inf &&
              x.is_zero() == zero && x.is_subnormal() == (!zero && magnitude < t.hidden))
      << name(x);
  ASSERT_EQ(message([&] { return IEEEFloat::from_bits(QNumber(p, 1), t.f); }),
            nan && p != t.nan
                ? "invalid bit pattern for IEEEFloat: " + zelk::detail::quoted(p.get_str())
                : "");
  const auto check = [&](const char* what, const mpz_class& want, auto change, auto... to) {
    IEEEFloat r = x;
    (r.*change)(to...);
    ASSERT_BITS(r, want) << name(x) << what << (testing::Message() << ... << to);
  };
  check(" self_neg", nan ? p : mpz_class(p ^ t.sign), &IEEEFloat::self_neg);
  check(" self_nan", t.nan, &IEEEFloat::self_nan);
  for (const bool b : {false, true}) {
    const mpz_class sign = b ? t.sign : mpz_class(0);
    check(" set_sign ", sign + magnitude, &IEEEFloat::set_sign, b);
    check(" self_inf ", sign + t.inf, &IEEEFloat::self_inf, b);
    check(" self_zero ", sign, &IEEEFloat::self_zero, b);
    // Places in sign-magnitude order: one step up moves to the next larger value, if there is one.
    const mpz_class place = negative ? mpz_class(t.sign - 1 - p) : p;  // -1 for -0
    const mpz_class moved = std::clamp<mpz_class>(place + (b ? 1 : -1), -t.sign, t.sign - 1);
    const mpz_class packed = moved < 0 ? mpz_class(t.sign - 1 - moved) : moved;
    const bool stays = nan || (inf && b != negative);
    const mpz_class next = zero ? mpz_class(t.sign - sign + 1) : stays ? p : packed;
    check(" next_representable ", next, &IEEEFloat::next_representable, b);
    check(" packed_next ", packed, &IEEEFloat::packed_next, b);
  }
  if (abs(t.exponent(p)) > 1L << 20) return;  // the exact value is too large

  const mpq_class q = t.value(p);
  std::string text = nan ? "NaN" : negative ? "-Inf" : "+Inf";
  if (!nan && !inf) {
    ASSERT_EQ(x.to_number().to_mpq(), q) << name(x);
    text = x.to_float_str();
    ASSERT_TRUE(t.f.exp_width > 11 || t.f.mant_width > 52 ||
                (std::strtod(text.c_str(), nullptr) == q.get_d() && (text[0] == '-') == negative &&
                 text.find_first_not_of("-0123456789.") == std::string::npos &&
                 (text.back() != '0' || text.find('.') == std::string::npos) &&
                 (abs(q) >= 1 || text[negative ? 1 : 0] == '0')))
        << name(x) << " is " << text;
  }
  std::string pattern = mpz_class(p + 2 * t.sign).get_str(2).substr(1);
  pattern.insert(t.f.exp_width + 1, "_").insert(1, "_");
  ASSERT_EQ(x.to_str(), "[" + std::to_string(t.f.exp_width) + ':' + std::to_string(t.f.mant_width) +
                            ']' + text + '{' + pattern + '}');

  const Neighbours n = neighbours(number(q), 0);
  const int s = negative ? -1 : 1;
  ASSERT_EQ(x.to_integer(0).to_mpq(), nan || inf ? mpz_class(0) : mpz_class(s * n.below))
      << name(x);
  const mpz_class integer = s * n.chosen(static_cast<Rounding>(x.get_mode()), negative);
  for (const unsigned long w : {1UL, 2UL, 3UL, 8UL, 64UL, 70UL, 113UL, 300UL}) {
    const mpz_class want = integer % (mpz_class(1) << w) * static_cast<int>(magnitude >= t.hidden);
    const QNumber got = x.to_integer(w);
    ASSERT_TRUE(got.to_mpq() == want && (got.is_small() || w > 60)) << name(x) << " to " << w;
  }
}

/// All orders; the total one is that of the places of patterns.
inline void check_orders(const Target& t, const Operand& x, const Operand& y) {
  const auto place = [&](const mpz_class& p) { return p < t.sign ? p : mpz_class(t.sign - 1 - p); };
  const auto o = order(x.exact[0], y.exact[0]);
  using Pair = std::pair<IEEEFloat, IEEEFloat>;
  using Vector = std::vector<IEEEFloat>;
  static const IEEEFloat one = Environment().from_integer(1, {8, 7});
  ++cases;
  ASSERT_TRUE(total_order(x.x, y.x) == (cmp(place(bits(x.x)), place(bits(y.x))) <=> 0) &&
              (x.x <=> y.x) == o && (Pair(one, x.x) <=> Pair(one, y.x)) == o &&
              (Vector{x.x} <=> Vector{y.x, one}) ==
                  (std::is_eq(o) ? std::partial_ordering::less : o))
      << name({x.x, y.x});
}

/// All functions that round nothing.
inline void check_functions(const Target& t, const Operand& x) {
  const auto encoded = [&](const mpz_class& pattern) {
    return IEEEFloat::from_encoding(QNumber(pattern, 1), t.f);
  };
  const mpz_class p = bits(x.x), magnitude = p % t.sign;
  const Exact& a = x.exact[0];
  const bool nan = a.kind == Exact::nan, inf = a.kind == Exact::infinite;
  const int what = nan ? 1 : inf ? 9 : a.is_zero() ? 6 : x.subnormal ? 7 : 8;
  const bool integral = a.kind == Exact::finite && a.value().get_den() == 1;
  ASSERT_TRUE(static_cast<int>(classify(x.x)) == (nan || !a.negative ? what : 11 - what) &&
              is_normal(x.x) == (what == 8) && is_finite(x.x) == (a.kind == Exact::finite) &&
              is_integral(x.x) == integral)
      << name(x.x);
  const auto check = [&](const char* function, const IEEEFloat& r, const mpz_class& want) {
    ASSERT_BITS(r, nan ? t.nan : want) << function << ' ' << name(x.x);
    ASSERT_TRUE(r.get_mode() == x.x.get_mode() && r.get_repr() == x.x.get_repr()) << function;
  };
  check("abs", abs(x.x), magnitude);
  check("-", -x.x, p ^ t.sign);
  check("copy_sign", copy_sign(x.x, encoded(t.sign)), magnitude + t.sign);
  check("next_up", next_up(x.x),
        p < t.sign       ? std::min<mpz_class>(p + 1, t.inf)
        : magnitude == 0 ? mpz_class(1)
                         : p - 1);
  check("next_down", next_down(x.x),
        p >= t.sign      ? std::min<mpz_class>(p + 1, t.sign + t.inf)
        : magnitude == 0 ? mpz_class(t.sign + 1)
                         : p - 1);
  ASSERT_EQ(bits(encoded(p)), nan ? t.nan : p);
  const std::string none = nan ? "NaN" : inf ? "infinity" : a.is_zero() ? "zero" : "";
  ASSERT_EQ(message([&] { return exponent_of(x.x); }),
            none.empty() ? "" : none + " has no exponent");
  ASSERT_TRUE(!none.empty() || exponent_of(x.x) == a.exponent()) << name(x.x);
}

inline Exact magnitude_of(Exact x) { return x.negative = false, x; }

/// One of two operands.
template <auto member>
IEEEFloat selected_by(Environment& env, const IEEEFloat& x, const IEEEFloat& y) {
  return (env.*member)(x, y);
}

struct Selection {
  std::string name;
  IEEEFloat (*call)(Environment& env, const IEEEFloat& x, const IEEEFloat& y);
  bool largest, magnitude, number;

  bool takes_first(const Exact& a, const Exact& b) const {
    if (any_nan({a, b})) return any_nan({b}) == number;
    auto o = order(magnitude_of(a), magnitude_of(b));
    if (!magnitude || std::is_eq(o)) o = order(a, b);
    if (std::is_eq(o)) o = static_cast<int>(b.negative) <=> static_cast<int>(a.negative);
    return largest ? std::is_gt(o) : std::is_lt(o);
  }
};
inline const Selection selections[] = {
    {"minimum", selected_by<&Environment::minimum>, false, false, false},
    {"maximum", selected_by<&Environment::maximum>, true, false, false},
    {"minimum_number", selected_by<&Environment::minimum_number>, false, false, true},
    {"maximum_number", selected_by<&Environment::maximum_number>, true, false, true},
    {"minimum_magnitude", selected_by<&Environment::minimum_magnitude>, false, true, false},
    {"maximum_magnitude", selected_by<&Environment::maximum_magnitude>, true, true, false},
    {"minimum_magnitude_number", selected_by<&Environment::minimum_magnitude_number>, false, true,
     true},
    {"maximum_magnitude_number", selected_by<&Environment::maximum_magnitude_number>, true, true,
     true}};

/// In every `step`-th of the roundings under both rules of tininess, which have no say.
inline void check_selections(const auto& t, const Operand& x, const Operand& y, unsigned first,
                             unsigned step) {
  const bool subnormal = x.subnormal || y.subnormal;
  for (const Selection& s : selections) {
    for (const bool flush : {false, true}) {
      if (flush && !subnormal) continue;
      const Exact &a = x.exact[flush], &b = y.exact[flush];
      const Answer want = t.place(s.takes_first(a, b) ? a : b).round(t, {});
      for (unsigned i = first; i < 12; i += step) {
        const Environment env{Rounding(i % 6), Tininess(i / 6), i % 2 == i / 6,
                              flush || (!subnormal && i % 3 == 1), other_bits};
        check_answer([&](auto& e) { return s.call(e, x.x, y.x); }, env, want, x.x,
                     [&] {
                       return s.name + " of " + name({x.x, y.x});
                     });
      }
    }
  }
}

/// These have the first form only.
inline const IEEEFloat& own(const IEEEFloat& x, auto... /*f*/) { return x; }
inline const Operation to_integers[] = {
    ZELK_OPERATION(round_to_integral(own(v[0], f...)), 1, to_integral(v[0], d, inexact)),
    ZELK_OPERATION(nearbyint(own(v[0], f...)), 1, to_integral(v[0], d, 0))};

inline void check_integers(const Operand& x) {
  for (unsigned i = 0; i < 12 * (x.subnormal ? 2 : 1); ++i) {
    const Environment start{static_cast<Rounding>(i % 6), Tininess::after_rounding, i / 6 % 2 == 0,
                            i / 12 == 1, other_bits};
    const Exact n = to_integral(x.exact[i / 12], start.rounding, inexact);
    for (const unsigned long w : {1UL, 3UL, 6UL, 70UL, ~0UL}) {
      for (const bool is_signed : {true, false}) {
        Environment env = start;
        const auto got = w == ~0UL && is_signed ? env.to_integer(x.x)
                         : is_signed            ? env.to_signed(x.x, w)
                                                : env.to_unsigned(x.x, w);
        const mpq_class q = n.kind == Exact::finite ? n.value() : mpq_class(0);
        const mpq_class end = mpq_class(1) << (w == ~0UL ? 20000 : is_signed ? w - 1 : w);
        const bool fits =
            n.kind == Exact::finite && q < end && q >= (is_signed ? mpq_class(-end) : mpq_class(0));
        const unsigned flags = other_bits | (fits ? n.flags : invalid);
        ++cases;
        ASSERT_TRUE(got.has_value() == fits && (!fits || got->to_mpq() == q) && env.flags == flags)
            << name(start) << name(x.x) << " to " << w << " bits, signed " << is_signed
            << ", wanted " << (fits ? q.get_str() : "none") << ' ' << flags << ", not "
            << env.flags;
      }
    }
  }
}

/// What the standard makes of a sum of terms, from the definition.
inline Exact sum_of(const Operands& terms, Rounding d) {
  bool zeros[2] = {false, false}, infinities[2] = {false, false}, other = false, bad = false,
       nan = false;
  mpq_class total = 0;
  for (const Exact& x : terms) {
    nan = nan || (x.kind == Exact::nan && x.flags == 0);
    bad = bad || x.flags != 0;
    if (x.kind == Exact::infinite) infinities[x.negative] = true;
    if (x.is_zero()) zeros[x.negative] = true;
    other = other || (x.kind == Exact::finite && x.q != 0);
    if (x.kind == Exact::finite) total += x.value();
  }
  if (nan) return {};
  if (bad || (infinities[0] && infinities[1])) return invalid_result();
  if (infinities[0] || infinities[1]) return infinity(infinities[1]);
  const bool mixed_signs = other || (zeros[0] && zeros[1]);
  return number(total, mixed_signs ? d == Rounding::toward_negative : zeros[1]);
}

inline void check_sum(const Target& to, const Environment& start, const Exact& exact,
                      const Values& x, const Values& y) {
  check_answer([&](auto& e) { return y.empty() ? e.sum(x, to.f) : e.dot(x, y, to.f); }, start,
               to.round(exact, start), {to.f, modes[0]},
               [&] { return "sum of " + name(x) + " times " + name(y); });
}

/// The sum of x, and the dot product of x and y.
inline void check_sums(const Target& to, const Environment& env, const std::vector<Operand>& x,
                       const std::vector<Operand>& y) {
  Values a, b;
  Operands terms, products;
  for (std::size_t i = 0; i < x.size(); ++i) {
    const Exact &p = x[i].exact[env.flush_operands], &q = y[i].exact[env.flush_operands];
    a.push_back(x[i].x), b.push_back(y[i].x);
    terms.push_back(p), products.push_back(any_nan({p, q}) ? Exact() : times(p, q));
  }
  check_sum(to, env, sum_of(terms, env.rounding), a, {});
  check_sum(to, env, sum_of(products, env.rounding), a, b);
}

/// Any settings, with flags to be kept.
inline Environment any_environment(auto& random) {
  return {static_cast<Rounding>(random.below(6)), static_cast<Tininess>(random.below(2)),
          random.below(4) == 0, random.below(4) == 0, other_bits};
}

/// q, its numerator, and these times 2^k, as numbers and as text.
inline void check_factories(const auto& to, const Environment& start, const mpq_class& q, long k) {
  const mpz_class n = q.get_num();
  const std::string text =
      (n < 0 ? "-0x" : "0x") + mpz_class(abs(n)).get_str(16) + 'p' + std::to_string(k);
  const auto check = [&](const std::string& what, const mpq_class& number_, long scale, auto call) {
    const Exact exact{Exact::finite, number_ < 0, abs(number_), scale};
    check_answer(call, start, to.place(exact).round(to, start), {to.f, modes[0]},
                 [&] { return what + number_.get_str() + " p " + std::to_string(scale); });
  };
  check("from_rational ", q, 0, [&](auto& e) { return e.from_rational(QNumber(q), to.f); });
  check("from_scaled ", q, k, [&](auto& e) { return e.from_scaled(QNumber(q), k, to.f); });
  check("from_integer ", n, 0, [&](auto& e) { return e.from_integer(QNumber(n, 1), to.f); });
  check("from_text ", n, k, [&](auto& e) { return e.from_text(text, to.f); });
}

}  // namespace zelk_test

#endif  // ZELK_TESTS_ENVIRONMENT_ORACLE_H_
