// The calls of arrays, with the types of elements as values: what the templates of arrays.h pass
// on. Not for users, but for the two structs that are in arrays.h's signatures.
#ifndef ZELK_ARRAYS_CALLS_H_
#define ZELK_ARRAYS_CALLS_H_

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "zelk/base/export.h"
#include "zelk/float/environment.h"

namespace zelk::arrays {

/// Stochastic rounding: a magnitude goes up where d < 2^64 * the fraction of a place that is cut
/// off. Element i has draw n = first + i: of Philox4x32-10 with `seed` as key and n / 2 as counter,
/// the first two words for an even n, the others for an odd one, the low word first.
///
/// From 2^(emax + 1) on the result is an infinity. Tiny is judged before rounding; an environment's
/// rounding and tininess play no part.
struct Stochastic {
  std::uint64_t seed = 0;   ///< the key
  std::uint64_t first = 0;  ///< the number of the first draw
};

/// Draws, or rounding as the environment says.
using Draws = std::optional<Stochastic>;

/// How sums are rounded on the way.
///
/// The exact sum of the first `block` products is rounded into `result`, then each next block's
/// with the running sum as one more term: block 1 is a chain of fma. `pairwise`: blocks are rounded
/// alone, then neighbours added, an odd last one carried up, until one is left. Of no terms +0.
/// Roundings draw in this order; element (i, j) of a product of matrices begins with draw
/// `first` + (i * columns + j) * r, where a sum has r roundings.
struct Accumulation {
  IEEEFloat::format result;  ///< the format of sums
  std::size_t block = 0;     ///< products between roundings; 0: all
  bool pairwise = false;     ///< blocks apart, then in pairs
  Draws stochastic = {};     ///< draws, for stochastic rounding
};

}  // namespace zelk::arrays

namespace zelk::arrays::detail {

/// The types of elements.
enum class Type : unsigned char { u8, u16, u32, u64, f32, f64 };

template <class T>
inline constexpr Type type_of = std::same_as<T, float>    ? Type::f32
                                : std::same_as<T, double> ? Type::f64
                                : sizeof(T) == 1          ? Type::u8
                                : sizeof(T) == 2          ? Type::u16
                                : sizeof(T) == 4          ? Type::u32
                                                          : Type::u64;

constexpr bool is_number(Type t) { return t >= Type::f32; }
constexpr std::size_t size_of(Type t) {
  return t == Type::f32 ? 4 : t == Type::f64 ? 8 : std::size_t{1} << static_cast<unsigned>(t);
}

/// An array to read; repeated, it is one element for every place.
struct Source {
  const void* data;
  std::size_t size;
  Type type;
  bool repeated;
};

/// An array to write.
struct Target {
  void* data;
  std::size_t size;
  Type type;
};

/// A matrix to read or write.
template <class Array>
struct Table {
  Array array;
  std::size_t rows, columns, stride;
};

enum class Operation : unsigned char {
  add,
  subtract,
  multiply,
  divide,
  minimum,
  maximum,
  sqrt,
  fma,
};

using Format = IEEEFloat::format;

ZELK_EXPORT void round(Environment& env, const Source& x, Format f, const Target& out,
                       const Draws& draws);
ZELK_EXPORT void convert(Environment& env, const Source& x, Format f, const Target& out, Format g,
                         const Draws& draws);
ZELK_EXPORT void decode(const Source& x, Format f, const Target& out);
ZELK_EXPORT void compute(Environment& env, Operation op, const Source& x, Format f,
                         const Target& out);
ZELK_EXPORT void compute(Environment& env, Operation op, const Source& x, const Source& y, Format f,
                         const Target& out);
ZELK_EXPORT void compute(Environment& env, Operation op, const Source& x, const Source& y,
                         const Source& z, Format f, const Target& out);
ZELK_EXPORT IEEEFloat dot(Environment& env, const Source& x, const Source& y, Format f,
                          const Accumulation& sum);
ZELK_EXPORT void matmul(Environment& env, const Table<Source>& a, const Table<Source>& b, Format f,
                        const Accumulation& sum, const Table<Target>& c);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_CALLS_H_
