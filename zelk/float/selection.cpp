// Minima and maxima: one of two operands, as it is.

#include "zelk/float/environment.h"
#include "zelk/float/evaluation.h"
#include "zelk/limbs/copy.h"
#include "zelk/limbs/limbs.h"
#include "zelk/limbs/patterns.h"
#include "zelk/words/integers.h"

namespace zelk {

using detail::OwnPattern;
using detail::ValueAccess;
using rules::Class;

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

// Of two patterns of any size.
Selected choose(Selection s, const OwnPattern& x, const OwnPattern& y) {
  const auto f = x.widths();
  return choose(s, x.operand().is(Class::nan), y.operand().is(Class::nan),
                words::compare_magnitudes(x.words(), y.words(), f),
                words::compare_patterns(x.words(), y.words(), f));
}

// x := the one that is selected, in the representation of x.
[[gnu::noinline]] void select_any(const Environment& env, Selection s, IEEEFloat& x,
                                  const IEEEFloat& y) {
  detail::require_one_format(env, x, y);
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

// Whether two values can be looked at as they are.
bool are_ready(const Environment& env, const IEEEFloat& x, const IEEEFloat& y) {
  const detail::Kind kind = ValueAccess::kind(x);
  return kind == ValueAccess::kind(y) && kind.names_format() &&
         kind.road() != detail::Road::numbers && !env.flush_operands &&
         env.rounding <= Rounding::to_odd;
}

// x := the selected one of two patterns in limbs; false, and nothing done, where the upper 64 bits,
// which hold sign and exponent, are not enough. As binary64 patterns are, these are ordered without
// a look at the single fields.
template <class N>
[[gnu::always_inline]] inline bool select_in_limbs(Selection s, limbs::Shape shape, N n,
                                                   std::uint64_t* x, const std::uint64_t* y) {
  const std::uint64_t a = limbs::upper_limb(shape, shape.significand_size(), x);
  const std::uint64_t b = limbs::upper_limb(shape, shape.significand_size(), y);
  if (a << 1 == b << 1 || std::max(a << 1, b << 1) >= shape.upper_infinity()) [[unlikely]] {
    return false;
  }
  const auto second = words::opaque(std::uint64_t{chooses_second(s, words::binary64, a, b)});
  limbs::copy(second != 0 ? y : x, n, x);
  return true;
}

// The same whatever the format.
[[gnu::noinline]] bool select_in_any_limbs(Selection s, limbs::Shape shape, std::uint64_t* x,
                                           const std::uint64_t* y) {
  return select_in_limbs(s, shape, shape.pattern_size(), x, y);
}

}  // namespace

template <bool largest, bool magnitude>
bool detail::select_limbs(std::uint64_t* x, const std::uint64_t* y, unsigned long e,
                          unsigned long m) {
  constexpr Selection s{largest, magnitude, false};
  if (limbs::Binary256::is({e, m})) {
    return select_in_limbs(s, limbs::Binary256::widths, limbs::Fixed<4>(), x, y);
  }
  return select_in_any_limbs(s, limbs::Shape{{e, m}}, x, y);
}

template ZELK_EXPORT bool detail::select_limbs<false, false>(std::uint64_t*, const std::uint64_t*,
                                                             unsigned long, unsigned long);
template ZELK_EXPORT bool detail::select_limbs<false, true>(std::uint64_t*, const std::uint64_t*,
                                                            unsigned long, unsigned long);
template ZELK_EXPORT bool detail::select_limbs<true, false>(std::uint64_t*, const std::uint64_t*,
                                                            unsigned long, unsigned long);
template ZELK_EXPORT bool detail::select_limbs<true, true>(std::uint64_t*, const std::uint64_t*,
                                                           unsigned long, unsigned long);

template <bool largest, bool magnitude, bool number>
void Environment::select_otherwise(IEEEFloat& x, const IEEEFloat& y) const {
  constexpr Selection s{largest, magnitude, number};
  const detail::Head& head = ValueAccess::head(x);
  if (!head.kind.is_wide() && are_ready(*this, x, y)) [[likely]] {
    detail::Pattern& a = ValueAccess::pattern(x);
    const detail::Pattern& b = ValueAccess::pattern(y);
    const std::int64_t e = head.exp_width;
    const std::int64_t m = head.mant_width;
    bool done = false;
    if (e + m <= 63) {
      done = select_number(s, words::RuntimeShape{e, m}, a, b);
    } else if (head.kind.road() == detail::Road::quad) {
      done = select_number(s, words::binary128, a, b);
    } else {
      done = select_number(s, words::DoubleShape{e, m}, a, b);
    }
    if (done) [[likely]] {
      return;
    }
  }
  select_any(*this, s, x, y);
}

template ZELK_EXPORT void Environment::select_otherwise<false, false, false>(
    IEEEFloat&, const IEEEFloat&) const;
template ZELK_EXPORT void Environment::select_otherwise<false, false, true>(IEEEFloat&,
                                                                            const IEEEFloat&) const;
template ZELK_EXPORT void Environment::select_otherwise<false, true, false>(IEEEFloat&,
                                                                            const IEEEFloat&) const;
template ZELK_EXPORT void Environment::select_otherwise<false, true, true>(IEEEFloat&,
                                                                           const IEEEFloat&) const;
template ZELK_EXPORT void Environment::select_otherwise<true, false, false>(IEEEFloat&,
                                                                            const IEEEFloat&) const;
template ZELK_EXPORT void Environment::select_otherwise<true, false, true>(IEEEFloat&,
                                                                           const IEEEFloat&) const;
template ZELK_EXPORT void Environment::select_otherwise<true, true, false>(IEEEFloat&,
                                                                           const IEEEFloat&) const;
template ZELK_EXPORT void Environment::select_otherwise<true, true, true>(IEEEFloat&,
                                                                          const IEEEFloat&) const;

}  // namespace zelk
