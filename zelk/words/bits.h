// Bit fields of patterns of any number of words, the lowest first: classes and order of patterns in
// formats of any widths, without arithmetic.
#ifndef ZELK_WORDS_BITS_H_
#define ZELK_WORDS_BITS_H_

#include <cstdint>

#include "zelk/rules/rounding.h"
#include "zelk/rules/special.h"

namespace zelk::words {

/// Bit `place`.
inline bool test_bit(const std::uint64_t* words, unsigned long place) {
  return (words[place / 64] >> place % 64 & 1) != 0;
}

inline void flip_bit(std::uint64_t* words, unsigned long place) {
  words[place / 64] ^= std::uint64_t{1} << place % 64;
}

/// Sets the `count` bits from `place` on.
void fill_bits(std::uint64_t* words, unsigned long place, unsigned long count);

/// Whether these bits are all ones.
bool are_ones(const std::uint64_t* words, unsigned long place, unsigned long count);
/// Whether they are all zeros.
bool are_zeros(const std::uint64_t* words, unsigned long place, unsigned long count);

/// Class and sign of a pattern.
rules::Operand operand_of(const std::uint64_t* x, rules::Widths f);

/// -1, 0 or 1 as the magnitude of x, all bits below its sign, is less than that of y, equal to it
/// or greater.
int compare_magnitudes(const std::uint64_t* x, const std::uint64_t* y, rules::Widths f);

/// The same for patterns, in the order of their values and with -0 below +0.
int compare_patterns(const std::uint64_t* x, const std::uint64_t* y, rules::Widths f);

/// -1, 0 or 1 as x < y, x == y or x > y; 2 when either is a NaN.
int compare(const std::uint64_t* x, const std::uint64_t* y, rules::Widths f);

}  // namespace zelk::words

#endif  // ZELK_WORDS_BITS_H_
