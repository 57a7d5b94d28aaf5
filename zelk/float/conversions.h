// Conversions between patterns on words: a table by the roads of both.
#ifndef ZELK_FLOAT_CONVERSIONS_H_
#define ZELK_FLOAT_CONVERSIONS_H_

#include "zelk/float/ieee_float.h"
#include "zelk/float/roads.h"
#include "zelk/words/convert.h"

namespace zelk::detail {

/// Whether a road is one of words, and whether it is so in one word.
constexpr bool on_words(Road road) { return road != Road::numbers && road != Road::limbs; }
constexpr bool in_one_word(Road road) {
  return on_words(road) && road != Road::quad && road != Road::double_word;
}

/// The kind of the best representation of a format.
[[gnu::always_inline]] inline Kind best_kind(const IEEEFloat::format& f) {
  return f == IEEEFloat::format{8, 23}    ? Kind::packed32()
         : f == IEEEFloat::format{11, 52} ? Kind::packed64()
                                          : Kind::of(f.exp_width, f.mant_width, 2);
}

// A context is what rounds: with context.shape(s) as the last shape, in context.direction().

/// What rounds values: a direction.
struct InDirection {
  Direction d;

  Direction direction() const { return d; }
  template <class S>
  S shape(S s) const {
    return s;
  }
};

/// x := its value as a pattern of another format; one of the two is in two words.
template <class Context>
using Conversion = void (*)(Pattern& x, Widths f, Widths g, Context c);
/// The same of patterns in one word.
template <class Context>
using WordConversion = Word (*)(Word x, Widths f, Widths g, Context c);

using AnyWord = OneWord<words::RuntimeShape>;

/// Any word; none but those that the usual way leaves get here.
template <class Context>
[[gnu::noinline]] Word convert_any_word(Word x, Widths f, Widths g, Context c) {
  return words::convert_general(AnyWord::shape(f), c.shape(AnyWord::shape(g)), x, c.direction());
}

template <class From, class To, class Context>
Word convert_word(Word x, Widths f, Widths g, Context c) {
  Word r = 0;
  return words::convert_usual(From::shape(f), c.shape(To::shape(g)), x, c.direction(), r)
             ? r
             : convert_any_word(x, f, g, c);
}

/// The usual way inline, the general one in a function of the same kind.
template <class From, class To, class Context>
struct ConvertWords {
  static void usual(Pattern& x, Widths f, Widths g, Context c) {
    const auto from = From::shape(f);
    const auto to = To::shape(g);
    decltype(To::load(to, x)) r;
    if (words::convert_usual(from, c.shape(to), From::load(from, x), c.direction(), r)) [[likely]] {
      store(to, r, x);
    } else {
      general(x, f, g, c);
    }
  }
  [[gnu::noinline]] static void general(Pattern& x, Widths f, Widths g, Context c) {
    const auto from = From::shape(f);
    const auto to = To::shape(g);
    store(to, words::convert_general(from, c.shape(to), From::load(from, x), c.direction()), x);
  }
  static void store(auto to, auto r, Pattern& x) {
    To::store(to, r, x);
    if constexpr (sizeof r == sizeof(Word)) {
      x.words[1] = 0;
    }
  }
};

/// The conversions of a context.
template <class Context>
class Conversions {
 public:
  constexpr Conversions() {
    for (unsigned i = 0; has_short_roads && i < road_count; ++i) {
      for (unsigned j = 0; j < road_count; ++j) {
        with_place(Road{i}, [&](auto from) {
          with_place(Road{j}, [&](auto to) { add(from, to, words[i][j], patterns[i][j]); });
        });
      }
    }
  }

  /// Of patterns in one word; null for all others.
  WordConversion<Context> of_words(Kind from, Kind to) const {
    return words[static_cast<unsigned>(from.road())][static_cast<unsigned>(to.road())];
  }
  /// Of patterns on words of which one is in two; null for all others.
  Conversion<Context> of_patterns(Kind from, Kind to) const {
    return patterns[static_cast<unsigned>(from.road())][static_cast<unsigned>(to.road())];
  }
  /// x := its pattern in a format of another kind, both on words.
  void operator()(Pattern& x, Kind from, Widths f, Kind to, Widths g, Context c) const {
    if (const auto convert = of_words(from, to); convert != nullptr) {
      x.words[0] = convert(x.words[0], f, g, c);
    } else {
      of_patterns(from, to)(x, f, g, c);
    }
  }

 private:
  template <class Call>
  static constexpr void with_place(Road road, Call call) {
    switch (road) {
      case Road::packed32:
        return call(FixedWord<zelk::words::FixedShape<8, 23>>());
      case Road::packed64:
        return call(FixedWord<zelk::words::FixedShape<11, 52>>());
      case Road::half:
        return call(FixedWord<zelk::words::FixedShape<5, 10>>());
      case Road::bfloat16:
        return call(FixedWord<zelk::words::FixedShape<8, 7>>());
      case Road::short_word:
      case Road::word:
        return call(AnyWord());
      case Road::quad:
        return call(Quad());
      case Road::double_word:
        return call(TwoWords());
      default:
        return;
    }
  }
  template <class Place>
  static constexpr bool is_word = sizeof(zelk::words::Word<decltype(Place::shape({}))>) ==
                                  sizeof(Word);

  template <class From, class To>
  static constexpr void add(From /*from*/, To /*to*/, WordConversion<Context>& of_words,
                            Conversion<Context>& of_patterns) {
    if constexpr (is_word<From> && is_word<To>) {
      of_words = convert_word<From, To, Context>;
    } else {
      of_patterns = ConvertWords<From, To, Context>::usual;
    }
  }

  WordConversion<Context> words[road_count][road_count]{};
  Conversion<Context> patterns[road_count][road_count]{};
};

inline constexpr Conversions<InDirection> conversions_of_values;

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_CONVERSIONS_H_
