// Arrays as blocks of doubles, to and from which elements of any type are converted.
#ifndef ZELK_ARRAYS_BLOCKS_H_
#define ZELK_ARRAYS_BLOCKS_H_

#include "zelk/arrays/simd/kernels.h"

namespace zelk::arrays::detail {

/// A length that kernels take.
constexpr std::size_t padded(std::size_t n) { return (n + granule - 1) / granule * granule; }

/// Reads the blocks of an operand. What pads one is 1, on which all operations are exact.
class Reader {
 public:
  /// Patterns have format f; magnitudes below `flush_below` become zeros.
  Reader(const Source& array, Shape format, double flush_below);
  /// `count` doubles and what pads them: where they are, or in the reader until the next call.
  const double* block(std::size_t begin, std::size_t count);

 private:
  void convert(std::size_t begin, std::size_t count);

  const Source& source;
  Shape f;
  double least;
  double value = 0;        // of a repeated source
  std::size_t filled = 0;  // the doubles of the buffer that have it
  double buffer[block_size];
};

/// out[begin...] := doubles that its elements hold.
void write(const Target& out, std::size_t begin, std::size_t count, const double* x);
/// The same of patterns.
void write(const Target& out, std::size_t begin, std::size_t count, const std::uint64_t* x);
/// The same of doubles, rounded by a plan; the control word is as that says. Returns the flags.
unsigned write_rounded(const RoundingPlan& plan, const Target& out, std::size_t begin,
                       std::size_t count, const double* x, const std::uint64_t* draws);
/// The same of doubles that are values of f, of which elements that are patterns have format f.
void write_values(const Target& out, Shape f, std::size_t begin, std::size_t count,
                  const double* x);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_BLOCKS_H_
