#include "zelk/arrays/checks.h"

#include <functional>
#include <string>

#include "zelk/base/float_errors.h"

namespace zelk::arrays::detail {
namespace {

[[noreturn]] void refuse(const char* what) { throw IEEEFloat::error(what); }

[[noreturn]] void refuse(const char* what, const Format& f) {
  throw IEEEFloat::error(what + (": (" + std::to_string(f.exp_width)) + ", " +
                         std::to_string(f.mant_width) + ')');
}

bool holds(Type type, const Format& f) {
  return is_number(type) ? type == Type::f64 || (f.exp_width <= 8 && f.mant_width <= 23)
                         : 1 + f.exp_width + f.mant_width <= 8 * size_of(type);
}

struct Bytes {
  const char* begin;
  std::size_t size;
};

// Pointers into different objects are ordered by std::less.
bool overlap(const Bytes& a, const Bytes& b) {
  const std::less<> before;
  return a.size != 0 && b.size != 0 && before(a.begin, b.begin + b.size) &&
         before(b.begin, a.begin + a.size);
}

template <class Array>
Bytes bytes(const Array& a, std::size_t size) {
  return {static_cast<const char*>(a.data), size * size_of(a.type)};
}

// The elements from the first to the last of a matrix; more than any span has if it has no end.
template <class Array>
std::size_t extent(const Table<Array>& t) {
  if (t.rows == 0 || t.columns == 0) {
    return 0;
  }
  const std::size_t steps = t.rows - 1;
  const bool ends = t.stride == 0 || steps <= (SIZE_MAX - t.columns) / t.stride;
  return ends ? steps * t.stride + t.columns : SIZE_MAX;
}

}  // namespace

void require_rounding(const Environment& env) {
  if (env.rounding > Rounding::to_odd) {
    zelk::detail::throw_bad_mode(static_cast<unsigned>(env.rounding));
  }
}

void require_formats(std::initializer_list<Held> formats) {
  for (const auto& [f, type] : formats) {
    zelk::detail::require_arithmetic(f.exp_width, f.mant_width);
  }
  for (const auto& [f, type] : formats) {
    if (f.exp_width > 11 || f.mant_width > 52) {
      refuse("format too wide for arrays", f);
    }
  }
  for (const auto& [f, type] : formats) {
    if (type && !holds(*type, f)) {
      refuse("elements too narrow for the format", f);
    }
  }
}

void require_lengths(std::initializer_list<Source> operands, std::size_t size) {
  for (const Source& x : operands) {
    if (!x.repeated && x.size != size) {
      refuse("spans of different lengths");
    }
  }
}

void require_arrays(std::initializer_list<Source> operands, const Target& out) {
  require_lengths(operands, out.size);
  for (const Source& x : operands) {
    const bool in_place = x.data == out.data && x.type == out.type;
    if (!x.repeated && !in_place && overlap(bytes(x, x.size), bytes(out, out.size))) {
      refuse("result overlaps an operand");
    }
  }
}

void require_matrices(const Table<Source>& a, const Table<Source>& b, const Table<Target>& c) {
  if (a.columns != b.rows || a.rows != c.rows || b.columns != c.columns) {
    refuse("matrices of different shapes");
  }
  if (extent(a) > a.array.size || extent(b) > b.array.size || extent(c) > c.array.size) {
    refuse("matrix beyond its span");
  }
  const Bytes result = bytes(c.array, extent(c));
  if (overlap(bytes(a.array, extent(a)), result) || overlap(bytes(b.array, extent(b)), result)) {
    refuse("result overlaps an operand");
  }
}

}  // namespace zelk::arrays::detail
