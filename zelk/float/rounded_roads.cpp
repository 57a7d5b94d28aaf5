#include "zelk/float/rounded_roads.h"

#include <type_traits>

#include "zelk/float/roads.h"
#include "zelk/words/fused.h"
#include "zelk/words/integral.h"
#include "zelk/words/remainder.h"
#include "zelk/words/root.h"

namespace zelk::detail {

namespace {

using rules::Exceptions;

// An operation of words on patterns, x and others: the usual way inline, the general one in a
// function of the same kind.
template <class Op, class Place, class... Others>
struct RoundedOnWords {
  static auto shape(unsigned long e, unsigned long m, Exceptions& exceptions) {
    const auto s = Place::shape({e, m});
    return words::InEnvironment<std::remove_const_t<decltype(s)>>{s, &exceptions};
  }
  static void usual(Pattern& x, Others... others, unsigned long e, unsigned long m, Direction d,
                    Exceptions& exceptions) {
    const auto s = shape(e, m, exceptions);
    words::Word<std::remove_const_t<decltype(s)>> r;
    if (Op::usual(s, Place::load(s, x), Place::load(s, others)..., d, r)) [[likely]] {
      Place::store(s, r, x);
    } else {
      general(x, others..., e, m, d, exceptions);
    }
  }
  [[gnu::noinline]] static void general(Pattern& x, Others... others, unsigned long e,
                                        unsigned long m, Direction d, Exceptions& exceptions) {
    const auto s = shape(e, m, exceptions);
    Place::store(s, Op::general(s, Place::load(s, x), Place::load(s, others)..., d), x);
  }
};

// The same on limbs; of an operation on one pattern the other means nothing.
template <auto operation, class... Others>
void on_limbs(Pattern& x, Others... others, unsigned long e, unsigned long m, Direction d,
              Exceptions& exceptions) {
  const Widths f{e, m};
  const limbs::Rounding r(d, &exceptions);
  if constexpr (std::is_invocable_v<decltype(operation), Word*, Widths, limbs::Rounding>) {
    operation(words_of(x, f), f, r);
  } else {
    operation(words_of(x, f), words_of(others, f)..., f, r);
  }
}

// The operation on the road of this number, of type F; packed words are as others here: flags go
// to the environment.
template <class Op, class F, class... Others>
constexpr F on_rounded_road(Road road) {
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
      return on_limbs<Op::on_limbs, Others...>;
    default:
      return nullptr;
  }
}

template <class Op, class F, class... Others>
constexpr RoundedOperations<F> on_rounded_roads() {
  RoundedOperations<F> all{};
  for (unsigned i = 0; i < road_count; ++i) {
    all.on[i] = on_rounded_road<Op, F, Others...>(Road{i});
  }
  return all;
}

// A record on all roads.
template <class Op>
constexpr RoundedOperations<RoundedOperation> on_two() {
  return on_rounded_roads<Op, RoundedOperation, const Pattern&>();
}
template <class Op>
constexpr RoundedOperations<FusedOperation> on_three() {
  return on_rounded_roads<Op, FusedOperation, const Pattern&, const Pattern&>();
}

struct RoundedSum {
  using OnWords = words::Addition;
  static constexpr auto on_limbs = limbs::add<limbs::Rounding>;
};

struct RoundedDifference {
  using OnWords = words::Subtraction;
  static constexpr auto on_limbs = limbs::subtract<limbs::Rounding>;
};

struct RoundedProduct {
  using OnWords = words::Multiplication;
  static constexpr auto on_limbs = limbs::multiply<limbs::Rounding>;
};

struct RoundedQuotient {
  using OnWords = words::Division;
  static constexpr auto on_limbs = limbs::divide<limbs::Rounding>;
};

struct RoundedRoot {
  using OnWords = words::SquareRoot;
  static constexpr auto on_limbs = limbs::root;
};

struct RoundedRemainder {
  using OnWords = words::Remainder;
  static constexpr auto on_limbs = limbs::remainder;
};

struct RoundedModulo {
  using OnWords = words::Modulo;
  static constexpr auto on_limbs = limbs::modulo;
};

struct RoundedIntegral {
  using OnWords = words::Integral;
  static constexpr auto on_limbs = limbs::round_to_integral;
};

struct RoundedFused {
  using OnWords = words::FusedMultiplyAdd;
  static constexpr auto on_limbs = limbs::fused;
};

}  // namespace

constinit const RoundedOperations<RoundedOperation> rounded_sum = on_two<RoundedSum>();
constinit const RoundedOperations<RoundedOperation> rounded_difference =
    on_two<RoundedDifference>();
constinit const RoundedOperations<RoundedOperation> rounded_product = on_two<RoundedProduct>();
constinit const RoundedOperations<RoundedOperation> rounded_quotient = on_two<RoundedQuotient>();
constinit const RoundedOperations<RoundedOperation> rounded_root = on_two<RoundedRoot>();
constinit const RoundedOperations<RoundedOperation> rounded_remainder = on_two<RoundedRemainder>();
constinit const RoundedOperations<RoundedOperation> rounded_modulo = on_two<RoundedModulo>();
constinit const RoundedOperations<RoundedOperation> rounded_integral = on_two<RoundedIntegral>();
constinit const RoundedOperations<FusedOperation> rounded_fused = on_three<RoundedFused>();

}  // namespace zelk::detail
