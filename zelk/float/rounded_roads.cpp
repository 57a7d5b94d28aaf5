#include "zelk/float/rounded_roads.h"

#include "zelk/exact/operations.h"
#include "zelk/float/environment.h"
#include "zelk/float/evaluation.h"
#include "zelk/float/roads.h"
#include "zelk/words/fused.h"
#include "zelk/words/integral.h"
#include "zelk/words/remainder.h"
#include "zelk/words/root.h"

namespace zelk::detail {

namespace {

// The word that an operand's pattern is.
template <class Operand>
using WordOf = Word;

// An operation of words on packed ones, to nearest-even: the usual way inline, the general one in a
// function of the same kind.
template <class Op, class S, class... Words>
struct NearestOnPacked {
  static Word usual(Word x, Words... others, Environment& env) {
    Word r = 0;
    return Op::usual(in_environment(S{}, env), x, others..., rules::nearest, r)
               ? r
               : general(x, others..., env);
  }
  [[gnu::noinline]] static Word general(Word x, Words... others, Environment& env) {
    return Op::general(in_environment(S{}, env), x, others..., rules::nearest);
  }
};

// The same on patterns, x and others.
template <class Op, class Place, class... Others>
struct RoundedOnWords {
  static void usual(Pattern& x, Others... others, unsigned long e, unsigned long m,
                    Environment& env) {
    const auto place = Place::shape({e, m});
    const auto s = in_environment(place, env);
    decltype(Place::load(place, x)) r;
    if (Op::usual(s, Place::load(place, x), Place::load(place, others)..., direction_of(env), r))
        [[likely]] {
      Place::store(place, r, x);
    } else {
      general(x, others..., e, m, env);
    }
  }
  [[gnu::noinline]] static void general(Pattern& x, Others... others, unsigned long e,
                                        unsigned long m, Environment& env) {
    const auto place = Place::shape({e, m});
    const auto s = in_environment(place, env);
    Place::store(
        place,
        Op::general(s, Place::load(place, x), Place::load(place, others)..., direction_of(env)), x);
  }
};

// The same of limbs.
template <class Op, class... Others>
struct RoundedOnLimbs {
  static void limbs(Pattern& x, Others... others, unsigned long e, unsigned long m,
                    Environment& env) {
    rules::Exceptions exceptions = exceptions_of(env);
    const Widths f{e, m};
    const zelk::limbs::Rounding r(direction_of(env), &exceptions);
    Op::on_limbs(words_of(x, f), words_of(others, f)..., f, r);
    raise(env, exceptions.flags);
  }
};

// The operation on the road of this number. A packed word is like any other here: flags go to the
// environment.
template <class Op, class Operands, class... Others>
constexpr typename Operands::OnRoad on_rounded_road(Road road) {
  using OnWords = typename Op::OnWords;
  switch (road) {
    case Road::packed32:
      return RoundedOnWords<OnWords, FixedWord<words::FixedShape<8, 23>>, Others...>::usual;
    case Road::packed64:
      return RoundedOnWords<OnWords, FixedWord<words::FixedShape<11, 52>>, Others...>::usual;
    case Road::short_word:
      return RoundedOnWords<OnWords, OneWord<words::ShortShape>, Others...>::usual;
    case Road::word:
      return RoundedOnWords<OnWords, OneWord<words::RuntimeShape>, Others...>::usual;
    case Road::half:
      return RoundedOnWords<OnWords, FixedWord<words::FixedShape<5, 10>>, Others...>::usual;
    case Road::bfloat16:
      return RoundedOnWords<OnWords, FixedWord<words::FixedShape<8, 7>>, Others...>::usual;
    case Road::quad:
      return RoundedOnWords<OnWords, Quad, Others...>::usual;
    case Road::double_word:
      return RoundedOnWords<OnWords, TwoWords, Others...>::usual;
    case Road::limbs:
      return RoundedOnLimbs<Op, Others...>::limbs;
    default:
      return nullptr;
  }
}

template <class Op, class Operands, class... Others>
constexpr RoundedOperations<Operands> on_rounded_roads() {
  using OnWords = typename Op::OnWords;
  RoundedOperations<Operands> all{};
  all.on_numbers = Op::on_numbers;
  if (has_short_roads) {
    all.nearest32 = NearestOnPacked<OnWords, words::FixedShape<8, 23>, WordOf<Others>...>::usual;
    all.nearest64 = NearestOnPacked<OnWords, words::FixedShape<11, 52>, WordOf<Others>...>::usual;
    for (unsigned i = 0; i < road_count; ++i) {
      all.on[i] = on_rounded_road<Op, Operands, Others...>(Road{i});
    }
  }
  return all;
}

// A record on all roads.
template <class Op>
constexpr RoundedOperations<OnOne> on_one() {
  return on_rounded_roads<Op, OnOne>();
}
template <class Op>
constexpr RoundedOperations<OnTwo> on_two() {
  return on_rounded_roads<Op, OnTwo, const Pattern&>();
}
template <class Op>
constexpr RoundedOperations<OnThree> on_three() {
  return on_rounded_roads<Op, OnThree, const Pattern&, const Pattern&>();
}

struct Sum {
  using OnWords = words::Addition;
  static constexpr auto on_limbs = limbs::add<limbs::Rounding>;
  static constexpr auto on_numbers = exact::plus;
};

struct Difference {
  using OnWords = words::Subtraction;
  static constexpr auto on_limbs = limbs::subtract<limbs::Rounding>;
  static constexpr auto on_numbers = exact::minus;
};

struct Product {
  using OnWords = words::Multiplication;
  static constexpr auto on_limbs = limbs::multiply<limbs::Rounding>;
  static constexpr auto on_numbers = exact::times;
};

struct Quotient {
  using OnWords = words::Division;
  static constexpr auto on_limbs = limbs::divide<limbs::Rounding>;
  static constexpr auto on_numbers = exact::over;
};

struct Root {
  using OnWords = words::SquareRoot;
  static constexpr auto on_limbs = limbs::root;
  static constexpr auto on_numbers = exact::root;
};

struct Remainder {
  using OnWords = words::Remainder;
  static constexpr auto on_limbs = limbs::remainder;
  static constexpr auto on_numbers = exact::remainder;
};

struct Modulo {
  using OnWords = words::Modulo;
  static constexpr auto on_limbs = limbs::modulo;
  static constexpr auto on_numbers = exact::modulo;
};

struct Integral {
  using OnWords = words::Integral;
  static constexpr auto on_limbs = limbs::round_to_integral;
  static constexpr auto on_numbers = exact::round_to_integral;
};

struct Fused {
  using OnWords = words::FusedMultiplyAdd;
  static constexpr auto on_limbs = limbs::fused;
  static constexpr auto on_numbers = exact::fused;
};

}  // namespace

constinit const RoundedOperations<OnTwo> rounded_sum = on_two<Sum>();
constinit const RoundedOperations<OnTwo> rounded_difference = on_two<Difference>();
constinit const RoundedOperations<OnTwo> rounded_product = on_two<Product>();
constinit const RoundedOperations<OnTwo> rounded_quotient = on_two<Quotient>();
constinit const RoundedOperations<OnOne> rounded_root = on_one<Root>();
constinit const RoundedOperations<OnTwo> rounded_remainder = on_two<Remainder>();
constinit const RoundedOperations<OnTwo> rounded_modulo = on_two<Modulo>();
constinit const RoundedOperations<OnOne> rounded_integral = on_one<Integral>();
constinit const RoundedOperations<OnThree> rounded_fused = on_three<Fused>();

}  // namespace zelk::detail
