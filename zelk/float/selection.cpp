// Minima and maxima: one of two operands, as it is.

#include "zelk/float/environment.h"
#include "zelk/float/evaluation.h"
#include "zelk/limbs/copy.h"
#include "zelk/limbs/limbs.h"
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

template <bool largest, bool magnitude, bool number>
[[gnu::always_inline]] inline IEEEFloat select(const Environment& env, IEEEFloat& x,
                                               const IEEEFloat& y) {
  constexpr Selection s{largest, magnitude, number};
  const detail::Head& head = ValueAccess::head(x);
  const detail::Road road = head.kind.road();
  if (head.kind == ValueAccess::kind(y) && head.kind.names_format() &&
      road != detail::Road::numbers && !env.flush_operands && env.rounding <= Rounding::to_odd)
      [[likely]] {
    detail::Pattern& a = ValueAccess::pattern(x);
    const detail::Pattern& b = ValueAccess::pattern(y);
    const std::int64_t e = head.exp_width;
    const std::int64_t m = head.mant_width;
    bool done = false;
    if (e + m <= 63) {
      const words::RuntimeShape shape{e, m};
      done = select_number(s, shape, a, b);
    } else if (e + m > 127) {
      done = select_in_limbs(s, ValueAccess::words(x), ValueAccess::words(y),
                             {head.exp_width, head.mant_width});
    } else if (road == detail::Road::quad) {
      done = select_number(s, words::binary128, a, b);
    } else {
      const words::DoubleShape shape{e, m};
      done = select_number(s, shape, a, b);
    }
    if (done) [[likely]] {
      return std::move(x);
    }
  }
  select_otherwise(env, s, x, y);
  return std::move(x);
}

}  // namespace

IEEEFloat Environment::minimum(IEEEFloat x, const IEEEFloat& y) {
  return select<false, false, false>(*this, x, y);
}
IEEEFloat Environment::maximum(IEEEFloat x, const IEEEFloat& y) {
  return select<true, false, false>(*this, x, y);
}
IEEEFloat Environment::minimum_number(IEEEFloat x, const IEEEFloat& y) {
  return select<false, false, true>(*this, x, y);
}
IEEEFloat Environment::maximum_number(IEEEFloat x, const IEEEFloat& y) {
  return select<true, false, true>(*this, x, y);
}
IEEEFloat Environment::minimum_magnitude(IEEEFloat x, const IEEEFloat& y) {
  return select<false, true, false>(*this, x, y);
}
IEEEFloat Environment::maximum_magnitude(IEEEFloat x, const IEEEFloat& y) {
  return select<true, true, false>(*this, x, y);
}
IEEEFloat Environment::minimum_magnitude_number(IEEEFloat x, const IEEEFloat& y) {
  return select<false, true, true>(*this, x, y);
}
IEEEFloat Environment::maximum_magnitude_number(IEEEFloat x, const IEEEFloat& y) {
  return select<true, true, true>(*this, x, y);
}

}  // namespace zelk
