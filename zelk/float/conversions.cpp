#include "zelk/float/conversions.h"

#include "zelk/float/evaluation.h"
#include "zelk/words/convert.h"

namespace zelk::detail {

namespace {

using AnyWord = OneWord<words::RuntimeShape>;

// Any word; none but those that the usual way leaves get here.
[[gnu::noinline]] Word convert_any_word(Word x, ShortWidths f, ShortWidths g, Environment& env) {
  return words::convert_general(AnyWord::shape(f), in_environment(AnyWord::shape(g), env), x,
                                direction_of(env));
}

template <class From, class To>
Word convert_word(Word x, ShortWidths f, ShortWidths g, Environment& env) {
  Word r = 0;
  return words::convert_usual(From::shape(f), in_environment(To::shape(g), env), x,
                              direction_of(env), r)
             ? r
             : convert_any_word(x, f, g, env);
}

// The usual way inline, the general one in a function of the same kind.
template <class From, class To>
struct ConvertWords {
  static void usual(Pattern& x, ShortWidths f, ShortWidths g, Environment& env) {
    const auto from = From::shape(f);
    const auto to = To::shape(g);
    decltype(To::load(to, x)) r;
    if (words::convert_usual(from, in_environment(to, env), From::load(from, x), direction_of(env),
                             r)) [[likely]] {
      store(to, r, x);
    } else {
      general(x, f, g, env);
    }
  }
  [[gnu::noinline]] static void general(Pattern& x, ShortWidths f, ShortWidths g,
                                        Environment& env) {
    const auto from = From::shape(f);
    const auto to = To::shape(g);
    store(to,
          words::convert_general(from, in_environment(to, env), From::load(from, x),
                                 direction_of(env)),
          x);
  }
  static void store(auto to, auto r, Pattern& x) {
    To::store(to, r, x);
    if constexpr (sizeof r == sizeof(Word)) {
      x.words[1] = 0;
    }
  }
};

// Calls call(place) for the place that patterns have on a road of words.
template <class Call>
constexpr void with_place(Road road, Call call) {
  switch (road) {
    case Road::packed32:
      return call(FixedWord<words::FixedShape<8, 23>>());
    case Road::packed64:
      return call(FixedWord<words::FixedShape<11, 52>>());
    case Road::half:
      return call(FixedWord<words::FixedShape<5, 10>>());
    case Road::bfloat16:
      return call(FixedWord<words::FixedShape<8, 7>>());
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
constexpr bool is_word = sizeof(words::Word<decltype(Place::shape({}))>) == sizeof(Word);

constexpr Conversions all_conversions() {
  Conversions all{};
  for (unsigned i = 0; has_short_roads && i < road_count; ++i) {
    for (unsigned j = 0; j < road_count; ++j) {
      with_place(Road{i}, [&]<class From>(From /*from*/) {
        with_place(Road{j}, [&]<class To>(To /*to*/) {
          if constexpr (is_word<From> && is_word<To>) {
            all.words[i][j] = convert_word<From, To>;
          } else {
            all.patterns[i][j] = ConvertWords<From, To>::usual;
          }
        });
      });
    }
  }
  return all;
}

// With the direction as a constant, too.
template <class From, class To>
Word convert_to_nearest(From from, To to, Word a, Environment& env) {
  Word r = 0;
  return words::convert_usual(from, in_environment(to, env), a, rules::nearest, r)
             ? r
             : convert_any_word(a, {from.exp_width, from.mant_width}, {to.exp_width, to.mant_width},
                                env);
}

}  // namespace

constinit const Conversions conversions = all_conversions();

Word binary64_of(Word a, Environment& env) {
  return convert_to_nearest(words::binary32, words::binary64, a, env);
}
Word binary32_of(Word a, Environment& env) {
  return convert_to_nearest(words::binary64, words::binary32, a, env);
}

}  // namespace zelk::detail
