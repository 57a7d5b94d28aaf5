// Which road a value takes, and where its pattern is.
//
// Included by ieee_float.h, whose inline functions ask; not for users.
#ifndef ZELK_FLOAT_KIND_H_
#define ZELK_FLOAT_KIND_H_

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "zelk/base/export.h"
#include "zelk/base/machine.h"
#include "zelk/words/shape.h"

namespace zelk::detail {

/// The roads. On words there is one for each shape that a pattern can have there: for a way of
/// computing, in one word or two, and with constants for the formats that are used most.
enum class Road : unsigned {
  numbers = 0,      ///< exact integers: the reference, for every format, mode and size
  packed32 = 1,     ///< binary32 in a packed word
  packed64 = 2,     ///< binary64 in a packed word
  limbs = 3,        ///< three limbs and more
  quad = 4,         ///< binary128 in two words
  double_word = 5,  ///< two words
  half = 8,         ///< binary16 in a word
  bfloat16 = 9,     ///< (8, 7) in a word
  short_word = 10,  ///< one word, and significands of which two fit it
  word = 11,        ///< one word
};
inline constexpr unsigned road_count = 12;

/// Whether anything but packed arithmetic leaves the road of numbers. A build without the short
/// roads gives the same results, but for what only they find room for under a very low `max_bits`.
#ifdef ZELK_REFERENCE_ONLY
inline constexpr bool has_short_roads = false;
#else
inline constexpr bool has_short_roads = true;
#endif
/// Whether one of them is that of words. A build without it has patterns of any size on limbs.
#ifdef ZELK_LIMBS_ONLY
inline constexpr bool has_word_road = false;
#else
inline constexpr bool has_word_road = has_short_roads;
#endif

/// The road of a value and the place of its pattern, with the widths of its format where there is
/// room for them. It follows from format and representation.
class Kind {
 public:
  /// Of the value that stands for none, of format (0, 0).
  constexpr Kind() noexcept : bits(with(Road::packed32)) {}

  /// Of values of format (e, m) in the representation `repr`: 0 and 1 are packed.
  static Kind of(unsigned long exp_width, unsigned long mant_width, unsigned repr) {
    return repr >= 2 && has_word_road && words::serves_in_one_word(exp_width, mant_width)
               ? Kind(with(word_road(widths_code(exp_width, mant_width), mant_width)) |
                      widths_code(exp_width, mant_width))
               : of_other(exp_width, mant_width, repr);
  }

  /// Of values of format (e, m) in its best representation.
  static Kind best(unsigned long exp_width, unsigned long mant_width) {
    const auto code = static_cast<std::uint32_t>(mant_width << 6 | exp_width);
    if (has_word_road && words::serves_in_one_word(exp_width, mant_width)) {
      return code == widths_code(8, 23)    ? packed32()
             : code == widths_code(11, 52) ? packed64()
                                           : Kind(with(word_road(code, mant_width)) | code);
    }
    const bool single = exp_width == 8 && mant_width == 23;
    const bool twice = exp_width == 11 && mant_width == 52;
    return of_other(exp_width, mant_width, single ? 0 : twice ? 1 : 2);
  }

  static constexpr Kind packed32() { return Kind(with(Road::packed32) | widths_code(8, 23)); }
  static constexpr Kind packed64() { return Kind(with(Road::packed64) | widths_code(11, 52)); }

  Road road() const { return static_cast<Road>(bits >> road_place & 15U); }
  /// The best representation of the format of a kind that `best` gave, on words.
  unsigned repr() const { return std::min(bits >> road_place & 15U, 3U) - 1; }
  /// Whether the pattern is in limbs on the heap; else it is in the two words of the value.
  bool is_wide() const { return bits >> 31 != 0; }
  /// Whether it is there on the road of limbs.
  bool is_wide_limbs() const {
    return bits >> road_place == (1U << 4 | static_cast<std::uint32_t>(Road::limbs));
  }
  /// Whether a width of the format needs more than 32 bits.
  bool is_huge() const { return (bits >> huge_place & 1) != 0; }
  /// Whether the pattern is in one word, and words serve its format.
  bool is_one_word() const { return bits >> (road_place + 3) == 1; }  // road 8 and above
  /// Whether either pattern is on the heap.
  static bool any_wide(Kind a, Kind b) { return (a.bits | b.bits) >> 31 != 0; }
  /// Whether values of this kind have one format; else only the widths tell.
  bool names_format() const { return (bits & code_mask) != 0; }

  bool operator==(const Kind&) const = default;

  /// All that it says, as a number.
  std::uint32_t code() const { return bits; }

 private:
  static constexpr int huge_place = 26;
  static constexpr int road_place = 27;
  static constexpr std::uint32_t code_mask = (1U << huge_place) - 1;

  explicit constexpr Kind(std::uint32_t b) noexcept : bits(b) {}
  ZELK_EXPORT static Kind of_other(unsigned long exp_width, unsigned long mant_width,
                                   unsigned repr);
  static constexpr Road word_road(std::uint32_t code, unsigned long m) {
    return code == widths_code(5, 10)  ? Road::half
           : code == widths_code(8, 7) ? Road::bfloat16
           : m <= words::short_width   ? Road::short_word
                                       : Road::word;
  }
  static constexpr std::uint32_t with(Road r) {
    return static_cast<std::uint32_t>(r) << road_place;
  }
  // 0 for widths that have no room.
  static constexpr std::uint32_t widths_code(unsigned long e, unsigned long m) {
    return e < 64 && m < 1UL << 20 ? static_cast<std::uint32_t>(m << 6 | e) : 0;
  }

  std::uint32_t bits;  // the code of the widths, bit 26: huge, from 27 the road, 31: wide
};

/// The low bits of a value's control word, which hold the mode; above is the representation.
inline constexpr std::uint32_t mode_mask = (1U << 30) - 1;

/// What a value is, beside its pattern. Widths of more than 32 bits have their upper halves in the
/// second word of the pattern, which such formats have no use for.
struct Head {
  std::uint32_t exp_width = 0;
  std::uint32_t mant_width = 0;
  std::uint32_t control = 0;
  Kind kind;  // follows from format and representation

  /// All at once: whoever moves a value next reads all at once, and waits for what was written in
  /// pieces.
  void set(std::uint32_t e, std::uint32_t m, std::uint32_t c, Kind k) {
#ifdef ZELK_EXTENSIONS
    using Words [[gnu::vector_size(16)]] = std::uint64_t;
    const auto word = [](std::uint32_t first, std::uint32_t second) {
      return std::bit_cast<std::uint64_t>(std::array{first, second});
    };
    const Words words{word(e, m), word(c, k.code())};
    static_assert(sizeof(Head) == sizeof words);
    std::memcpy(static_cast<void*>(this), &words, sizeof words);
#else
    *this = {e, m, c, k};
#endif
  }

  /// Whether this is a packed value of this kind that rounds to nearest-even.
  bool is_nearest(std::uint32_t repr, Kind k) const { return kind == k && control == repr << 30; }
};

/// The words of a pattern, the lowest first: two here, or as many as the format needs on the heap.
union Pattern {
  std::uint64_t words[2];
  std::uint64_t* limbs;  // owned by the value, where its kind is wide

  constexpr Pattern(std::uint64_t low = 0, std::uint64_t high = 0) : words{low, high} {}
  /// Copies go word by word: a result is written so, and a processor waits where two such words are
  /// read at once.
  constexpr Pattern(const Pattern& other)
      : words{zelk::words::opaque(other.words[0]), zelk::words::opaque(other.words[1])} {}
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): words are copied to themselves
  constexpr Pattern& operator=(const Pattern& other) {
    words[0] = zelk::words::opaque(other.words[0]);
    words[1] = zelk::words::opaque(other.words[1]);
    return *this;
  }
  ~Pattern() = default;
};

/// Limbs on the heap. Arrays would be allocated by way of the same operators, at a call more each.
inline std::uint64_t* new_limbs(std::size_t n) {
  return static_cast<std::uint64_t*>(::operator new(n * sizeof(std::uint64_t)));
}
inline void delete_limbs(std::uint64_t* limbs) { ::operator delete(limbs); }

/// An operation on a road: x := x op y, patterns of one format (e, m). The mode is as stored: roads
/// but for packed words and numbers see one of the four only.
using Operation = void (*)(Pattern& x, const Pattern& y, unsigned long exp_width,
                           unsigned long mant_width, unsigned mode);

/// An operation on all roads.
struct Operations {
  Operation on[road_count];

  Operation operator[](Road r) const { return on[static_cast<unsigned>(r)]; }
};

extern ZELK_EXPORT const Operations addition;        ///< of `+=`
extern ZELK_EXPORT const Operations subtraction;     ///< of `-=`
extern ZELK_EXPORT const Operations multiplication;  ///< of `*=`
extern ZELK_EXPORT const Operations division;        ///< of `/=`

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_KIND_H_
