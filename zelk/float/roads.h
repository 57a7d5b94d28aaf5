// The table of roads: which function computes an operation on patterns of a kind.
//
// An operation is a record of three functions: on words of any shape, on limbs, on numbers. To add
// one, write these and the record.
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

/// x := x op y, patterns of one kind. The mode is as stored: roads but for packed words and numbers
/// see one of the four only.
using Function = void (*)(Pattern& x, const Pattern& y, Widths f, unsigned mode);

/// The words of a pattern whose place only the widths tell.
inline Word* words_of(Pattern& x, Widths f) {
  return f.exp_width + f.mant_width < 128 ? x.words : x.limbs;
}
inline const Word* words_of(const Pattern& x, Widths f) {
  return f.exp_width + f.mant_width < 128 ? x.words : x.limbs;
}

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
  const std::int64_t n = s.below();
  const words::uint128 a = n < 64 ? words::double_word(x[1], x[0]) : words::double_word(x[0], 0);
  return words::shift_left(a, n & 63);
}
constexpr void lower(words::RaisedShape s, words::uint128 a, Word* out) {
  const std::int64_t n = s.below();
  const words::uint128 pattern = words::shift_right(a, n & 63);
  out[0] = n < 64 ? words::low_word(pattern) : words::high_word(pattern);
  out[1] = n < 64 ? words::high_word(pattern) : 0;
}

template <class Op>
struct OnRoad {
  // Packed results come without flags: the library never reports them.
  static void packed32(Pattern& x, const Pattern& y, Widths /*f*/, unsigned mode) {
    x.words[0] = Op::on_words(words::binary32, x.words[0], y.words[0], direction_of(mode));
    swflt::float_exception_flags = 0;
  }
  static void packed64(Pattern& x, const Pattern& y, Widths /*f*/, unsigned mode) {
    x.words[0] = Op::on_words(words::binary64, x.words[0], y.words[0], direction_of(mode));
    swflt::float_exception_flags = 0;
  }
  template <class S>
  static void word(Pattern& x, const Pattern& y, Widths f, unsigned mode) {
    x.words[0] = Op::on_words(one_word<S>(f), x.words[0], y.words[0], static_cast<Direction>(mode));
  }
  static void quad(Pattern& x, const Pattern& y, Widths /*f*/, unsigned mode) {
    const words::uint128 r =
        Op::on_words(words::binary128, words::double_word(x.words[1], x.words[0]),
                     words::double_word(y.words[1], y.words[0]), static_cast<Direction>(mode));
    x.words[0] = words::low_word(r);
    x.words[1] = words::high_word(r);
  }
  static void double_word(Pattern& x, const Pattern& y, Widths f, unsigned mode) {
    const words::RaisedShape s = raised(f);
    lower(s, Op::on_words(s, raise(s, x.words), raise(s, y.words), static_cast<Direction>(mode)),
          x.words);
  }
  static void limbs(Pattern& x, const Pattern& y, Widths f, unsigned mode) {
    Op::on_limbs(words_of(x, f), words_of(y, f), f, static_cast<Direction>(mode));
  }
  static void numbers(Pattern& x, const Pattern& y, Widths f, unsigned mode) {
    Op::on_numbers(words_of(x, f), words_of(y, f), f, mode);
  }
};

/// By the number of the road.
template <class Op>
inline constexpr Function functions[road_count] = {OnRoad<Op>::numbers,
                                                   OnRoad<Op>::packed32,
                                                   OnRoad<Op>::packed64,
                                                   OnRoad<Op>::limbs,
                                                   OnRoad<Op>::template word<words::ShortShape>,
                                                   OnRoad<Op>::template word<words::RuntimeShape>,
                                                   OnRoad<Op>::quad,
                                                   OnRoad<Op>::double_word};

struct Addition {
  static constexpr auto on_words =
      [](auto s, auto a, auto b, Direction d) __attribute__((always_inline)) {
    return words::add(s, a, b, d);
  };
  static constexpr auto on_limbs = limbs::add;
  static constexpr auto on_numbers = exact::add;
};

struct Subtraction {
  static constexpr auto on_words =
      [](auto s, auto a, auto b, Direction d) __attribute__((always_inline)) {
    return words::sub(s, a, b, d);
  };
  static constexpr auto on_limbs = limbs::subtract;
  static constexpr auto on_numbers = exact::subtract;
};

struct Multiplication {
  static constexpr auto on_words =
      [](auto s, auto a, auto b, Direction d) __attribute__((always_inline)) {
    return words::mul(s, a, b, d);
  };
  static constexpr auto on_limbs = limbs::multiply;
  static constexpr auto on_numbers = exact::multiply;
};

struct Division {
  static constexpr auto on_words =
      [](auto s, auto a, auto b, Direction d) __attribute__((always_inline)) {
    return words::div(s, a, b, d);
  };
  static constexpr auto on_limbs = limbs::divide;
  static constexpr auto on_numbers = exact::divide;
};

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_ROADS_H_
