#include "zelk/words/bits.h"

namespace zelk::words {

namespace {

// Calls part(word, mask) for every word that has bits of the field, until one call is false.
template <class Part>
bool for_each_word(unsigned long place, unsigned long count, Part part) {
  for (const unsigned long end = place + count; place < end;) {
    const unsigned long from = place % 64;
    const unsigned long here = end - place < 64 - from ? end - place : 64 - from;
    if (!part(place / 64, ~std::uint64_t{0} >> (64 - here) << from)) {
      return false;
    }
    place += here;
  }
  return true;
}

}  // namespace

void fill_bits(std::uint64_t* words, unsigned long place, unsigned long count) {
  for_each_word(place, count, [&](unsigned long i, std::uint64_t mask) {
    words[i] |= mask;
    return true;
  });
}

bool are_ones(const std::uint64_t* words, unsigned long place, unsigned long count) {
  return for_each_word(
      place, count, [&](unsigned long i, std::uint64_t mask) { return (words[i] & mask) == mask; });
}

bool are_zeros(const std::uint64_t* words, unsigned long place, unsigned long count) {
  return for_each_word(place, count,
                       [&](unsigned long i, std::uint64_t mask) { return (words[i] & mask) == 0; });
}

rules::Operand operand_of(const std::uint64_t* x, rules::Widths f) {
  const bool negative = test_bit(x, f.exp_width + f.mant_width);
  const bool whole = are_zeros(x, 0, f.mant_width);
  // A zero first: without an exponent its bits are all ones, too.
  if (whole && are_zeros(x, f.mant_width, f.exp_width)) {
    return {rules::Class::zero, negative};
  }
  if (!are_ones(x, f.mant_width, f.exp_width)) {
    return {rules::Class::finite, negative};
  }
  return {whole ? rules::Class::infinite : rules::Class::nan, negative};
}

int compare_magnitudes(const std::uint64_t* x, const std::uint64_t* y, rules::Widths f) {
  const unsigned long sign = f.exp_width + f.mant_width;
  std::uint64_t mask = (std::uint64_t{1} << sign % 64) - 1;
  for (unsigned long i = sign / 64 + 1; i-- > 0; mask = ~std::uint64_t{0}) {
    if ((x[i] & mask) != (y[i] & mask)) {
      return (x[i] & mask) < (y[i] & mask) ? -1 : 1;
    }
  }
  return 0;
}

int compare_patterns(const std::uint64_t* x, const std::uint64_t* y, rules::Widths f) {
  const bool negative = test_bit(x, f.exp_width + f.mant_width);
  if (negative != test_bit(y, f.exp_width + f.mant_width)) {
    return negative ? -1 : 1;
  }
  return negative ? compare_magnitudes(y, x, f) : compare_magnitudes(x, y, f);
}

int compare(const std::uint64_t* x, const std::uint64_t* y, rules::Widths f) {
  const rules::Operand a = operand_of(x, f);
  const rules::Operand b = operand_of(y, f);
  if (a.is(rules::Class::nan) || b.is(rules::Class::nan)) {
    return 2;
  }
  const bool zeros = a.is(rules::Class::zero) && b.is(rules::Class::zero);
  return zeros ? 0 : compare_patterns(x, y, f);
}

}  // namespace zelk::words
