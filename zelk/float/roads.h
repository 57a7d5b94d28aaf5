// The table of roads: which function computes an operation on patterns of a kind.
//
// An operation is a record of what computes it: on words of any shape, on limbs, on numbers. To add
// one, write these and the record, and name its table in roads.cpp.
#ifndef ZELK_FLOAT_ROADS_H_
#define ZELK_FLOAT_ROADS_H_

#include <cstdint>

#include "zelk/exact/exact.h"
#include "zelk/float/kind.h"
#include "zelk/limbs/limbs.h"
#include "zelk/rules/rounding.h"
#include "zelk/swflt/swflt.h"
#include "zelk/words/arithmetic.h"

namespace zelk::detail {

using Word = std::uint64_t;
using rules::Direction;
using rules::Widths;

/// The words of a pattern whose place only the widths tell.
inline Word* words_of(Pattern& x, Widths f) { return f.fit(128) ? x.words : x.limbs; }
inline const Word* words_of(const Pattern& x, Widths f) { return f.fit(128) ? x.words : x.limbs; }

/// The direction of a mode; nearest-even for one that is none of the four.
constexpr Direction direction_of(unsigned mode) {
  return rules::is_direction(mode) ? static_cast<Direction>(mode) : rules::nearest;
}

/// The shape of a pattern in one word.
template <class S>
constexpr S one_word(Widths f) {
  return S{{static_cast<std::int64_t>(f.exp_width), static_cast<std::int64_t>(f.mant_width)}};
}
template <>
constexpr words::RuntimeShape one_word<words::RuntimeShape>(Widths f) {
  return {static_cast<std::int64_t>(f.exp_width), static_cast<std::int64_t>(f.mant_width)};
}

/// A pattern in two words moved up, so that its sign is the highest bit, and back.
constexpr words::RaisedShape raised(Widths f) {
  return {static_cast<std::int64_t>(f.exp_width), static_cast<std::int64_t>(f.mant_width)};
}
constexpr words::uint128 raise(words::RaisedShape s, const Word* x) {
  return words::shift_left(words::double_word(x[1], x[0]), s.below());
}
constexpr void lower(words::RaisedShape s, words::uint128 a, Word* out) {
  const words::uint128 pattern = words::shift_right(a, s.below());
  out[0] = words::low_word(pattern);
  out[1] = words::high_word(pattern);
}

/// An operation of words on patterns: the usual way inline, the general one in a function of the
/// same kind, so that nothing has to be kept across its call.
template <class Op, class Place, class GeneralPlace = Place>
struct OnWords {
  static void usual(Pattern& x, const Pattern& y, unsigned long e, unsigned long m, unsigned mode) {
    const auto s = Place::shape({e, m});
    words::Word<decltype(s)> r;
    if (Op::usual(s, Place::load(s, x), Place::load(s, y), Place::direction(mode), r)) [[likely]] {
      Place::store(s, r, x);
    } else {
      OnWords<Op, GeneralPlace>::general(x, y, e, m, mode);
    }
  }
  [[gnu::noinline]] static void general(Pattern& x, const Pattern& y, unsigned long e,
                                        unsigned long m, unsigned mode) {
    const auto s = Place::shape({e, m});
    Place::store(s, Op::general(s, Place::load(s, x), Place::load(s, y), Place::direction(mode)),
                 x);
  }
};

/// What all patterns have but packed ones: no more than the four modes.
struct FourModes {
  static Direction direction(unsigned mode) { return static_cast<Direction>(mode); }
};

/// A pattern in one word.
template <class S>
struct OneWord : FourModes {
  static S shape(Widths f) { return one_word<S>(f); }
  static Word load(S /*shape*/, const Pattern& x) { return x.words[0]; }
  static void store(S /*shape*/, Word r, Pattern& x) { x.words[0] = r; }
};

/// One of a format whose widths are constants.
template <class S>
struct FixedWord : OneWord<S> {
  static S shape(Widths /*f*/) { return {}; }
};

/// A packed pattern. Results come without flags: the library never reports them.
template <class S>
struct Packed : FixedWord<S> {
  static Direction direction(unsigned mode) { return direction_of(mode); }
  static void store(S /*shape*/, Word r, Pattern& x) {
    x.words[0] = r;
    swflt::float_exception_flags = 0;
  }
};

/// A pattern in two words, as it is.
template <class S>
struct DoubleWord : FourModes {
  static S shape(Widths f) {
    return {static_cast<std::int64_t>(f.exp_width), static_cast<std::int64_t>(f.mant_width)};
  }
  static words::uint128 load(S /*shape*/, const Pattern& x) {
    return words::double_word(x.words[1], x.words[0]);
  }
  static void store(S /*shape*/, words::uint128 r, Pattern& x) {
    x.words[0] = words::low_word(r);
    x.words[1] = words::high_word(r);
  }
};

/// binary128.
struct Quad : DoubleWord<words::FixedShape<15, 112>> {
  using S = words::FixedShape<15, 112>;
  static S shape(Widths /*f*/) { return {}; }
};

/// A pattern in two words.
struct TwoWords : FourModes {
  using S = words::RaisedShape;
  static S shape(Widths f) { return raised(f); }
  static words::uint128 load(S s, const Pattern& x) { return raise(s, x.words); }
  static void store(S s, words::uint128 r, Pattern& x) { lower(s, r, x.words); }
};

/// An operation on two words: the usual way by the size of the significand.
template <class Op>
void on_two_words(Pattern& x, const Pattern& y, unsigned long e, unsigned long m, unsigned mode) {
  m >= 64 ? OnWords<Op, DoubleWord<words::LongShape>, TwoWords>::usual(x, y, e, m, mode)
          : OnWords<Op, DoubleWord<words::NarrowShape>, TwoWords>::usual(x, y, e, m, mode);
}

template <class Op>
struct OnOthers {
  static void limbs(Pattern& x, const Pattern& y, unsigned long e, unsigned long m, unsigned mode) {
    Op::on_limbs(words_of(x, {e, m}), words_of(y, {e, m}), {e, m}, static_cast<Direction>(mode));
  }
  static void numbers(Pattern& x, const Pattern& y, unsigned long e, unsigned long m,
                      unsigned mode) {
    Op::on_numbers(words_of(x, {e, m}), words_of(y, {e, m}), {e, m}, mode);
  }
};

/// The operation on the road of this number.
template <class Op>
constexpr Operation on_road(Road road) {
  switch (road) {
    case Road::packed32:
      return OnWords<typename Op::OnWords, Packed<words::FixedShape<8, 23>>>::usual;
    case Road::packed64:
      return OnWords<typename Op::OnWords, Packed<words::FixedShape<11, 52>>>::usual;
    case Road::short_word:
      return OnWords<typename Op::OnWords, OneWord<words::ShortShape>>::usual;
    case Road::word:
      return OnWords<typename Op::OnWords, OneWord<words::RuntimeShape>>::usual;
    case Road::half:
      return OnWords<typename Op::OnWords, FixedWord<words::FixedShape<5, 10>>>::usual;
    case Road::bfloat16:
      return OnWords<typename Op::OnWords, FixedWord<words::FixedShape<8, 7>>>::usual;
    case Road::quad:
      return OnWords<typename Op::OnWords, Quad>::usual;
    case Road::double_word:
      return on_two_words<typename Op::OnWords>;
    case Road::limbs:
      return OnOthers<Op>::limbs;
    default:
      return OnOthers<Op>::numbers;
  }
}

struct Addition {
  using OnWords = words::Addition;
  static constexpr auto on_limbs = limbs::add<Direction>;
  static constexpr auto on_numbers = exact::add;
};

struct Subtraction {
  using OnWords = words::Subtraction;
  static constexpr auto on_limbs = limbs::subtract<Direction>;
  static constexpr auto on_numbers = exact::subtract;
};

struct Multiplication {
  using OnWords = words::Multiplication;
  static constexpr auto on_limbs = limbs::multiply<Direction>;
  static constexpr auto on_numbers = exact::multiply;
};

struct Division {
  using OnWords = words::Division;
  static constexpr auto on_limbs = limbs::divide<Direction>;
  static constexpr auto on_numbers = exact::divide;
};

/// A record on all roads.
template <class Op>
constexpr Operations on_all_roads() {
  Operations all{};
  for (unsigned i = 0; i < road_count; ++i) {
    all.on[i] = on_road<Op>(Road{i});
  }
  return all;
}

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_ROADS_H_
