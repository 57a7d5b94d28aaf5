// Conversions between patterns on words: a table by the roads of both.
#ifndef ZELK_FLOAT_CONVERSIONS_H_
#define ZELK_FLOAT_CONVERSIONS_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zelk/float/environment.h"
#include "zelk/float/roads.h"

namespace zelk::detail {

/// Whether a road is one of words, and whether it is so in one word.
constexpr bool on_words(Road road) { return road != Road::numbers && road != Road::limbs; }
constexpr bool in_one_word(Road road) {
  return on_words(road) && road != Road::quad && road != Road::double_word;
}

/// The kind of the best representation of a format.
[[gnu::always_inline]] inline Kind best_kind(const IEEEFloat::format& f) {
  return Kind::best(f.exp_width, f.mant_width);
}

/// The widths of a format on words: a pair that is in one register.
struct ShortWidths {
  std::uint32_t exp_width;
  std::uint32_t mant_width;

  operator Widths() const { return {exp_width, mant_width}; }
  bool operator==(const ShortWidths& other) const {
    return std::bit_cast<std::uint64_t>(*this) == std::bit_cast<std::uint64_t>(other);
  }
};
inline ShortWidths short_widths(Widths f) {
  return {static_cast<std::uint32_t>(f.exp_width), static_cast<std::uint32_t>(f.mant_width)};
}
inline ShortWidths short_widths(const IEEEFloat::format& f) {
  return short_widths(Widths{f.exp_width, f.mant_width});
}
inline ShortWidths short_widths(const Head& head) {
  ShortWidths f;
  static_assert(offsetof(Head, exp_width) == 0 && offsetof(Head, mant_width) == 4);
  std::memcpy(&f, static_cast<const void*>(&head), sizeof f);
  return f;
}

/// x := its value as a pattern of another format, rounded as the environment has it; both are on
/// words, and one is in two.
using Conversion = void (*)(Pattern& x, ShortWidths f, ShortWidths g, Environment& env);
/// The same of patterns in one word.
using WordConversion = Word (*)(Word x, ShortWidths f, ShortWidths g, Environment& env);

/// The conversions by the roads from and to which they lead.
struct Conversions {
  WordConversion words[road_count][road_count];
  Conversion patterns[road_count][road_count];

  /// Of patterns in one word; null for all others.
  WordConversion of_words(Kind from, Kind to) const {
    return words[static_cast<unsigned>(from.road())][static_cast<unsigned>(to.road())];
  }
  /// Of patterns on words of which one is in two; null for all others.
  Conversion of_patterns(Kind from, Kind to) const {
    return patterns[static_cast<unsigned>(from.road())][static_cast<unsigned>(to.road())];
  }
  /// x := its pattern in a format of another kind, both on words.
  void operator()(Pattern& x, Kind from, ShortWidths f, Kind to, ShortWidths g,
                  Environment& env) const {
    if (const auto convert = of_words(from, to); convert != nullptr) {
      x.words[0] = convert(x.words[0], f, g, env);
    } else {
      of_patterns(from, to)(x, f, g, env);
    }
  }
};

extern const Conversions conversions;

/// What rounds as values do: in a direction, and with all flags up, so that none is to be raised.
inline Environment in_direction(Direction d) {
  return {static_cast<Rounding>(d), Tininess::after_rounding, false, false, 0xff};
}

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_CONVERSIONS_H_
