// What calls refuse, in the order of arrays.h.
#ifndef ZELK_ARRAYS_CHECKS_H_
#define ZELK_ARRAYS_CHECKS_H_

#include <initializer_list>

#include "zelk/arrays/calls.h"

namespace zelk::arrays::detail {

/// A format and the type that holds its values; one without elements is held against limits only.
struct Held {
  Format f;
  std::optional<Type> type;
};

void require_rounding(const Environment& env);
/// Each test is made for all formats before the next one.
void require_formats(std::initializer_list<Held> formats);
/// Operands as long as the result that it may begin with, but not otherwise overlap.
void require_arrays(std::initializer_list<Source> operands, const Target& out);
/// \throws IEEEFloat::error "spans of different lengths".
void require_lengths(std::initializer_list<Source> operands, std::size_t size);
void require_matrices(const Table<Source>& a, const Table<Source>& b, const Table<Target>& c);

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_CHECKS_H_
