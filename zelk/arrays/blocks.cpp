#include "zelk/arrays/blocks.h"

#include <algorithm>
#include <cstring>

#include "zelk/arrays/element.h"

namespace zelk::arrays::detail {
namespace {

const char* place(const Source& a, std::size_t i) {
  return static_cast<const char*>(a.data) + i * size_of(a.type);
}
char* place(const Target& a, std::size_t i) {
  return static_cast<char*>(a.data) + i * size_of(a.type);
}

// Calls convert(out) with the place of `count` elements if they need no padding, else with room on
// the stack, from which they are copied.
template <class Convert>
void write_by(const Target& out, std::size_t begin, std::size_t count, Convert convert) {
  if (count % granule == 0) {
    convert(place(out, begin));
  } else {
    char room[block_size * sizeof(double)];
    convert(room);
    std::memcpy(place(out, begin), room, count * size_of(out.type));
  }
}

}  // namespace

Reader::Reader(const Source& array, Shape format, double flush_below)
    : source(array), f(format), least(flush_below) {
  if (source.repeated) {
    value = least != 0 ? flushed(load(source, 0, f), f) : load(source, 0, f);
  }
}

const double* Reader::block(std::size_t begin, std::size_t count) {
  if (source.repeated) {
    if (filled != count) {
      std::fill_n(buffer, count, value);
      std::fill(buffer + count, buffer + padded(count), 1.0);
      filled = count;
    }
    return buffer;
  }
  if (source.type == Type::f64 && least == 0 && count % granule == 0) {
    return static_cast<const double*>(source.data) + begin;
  }
  convert(begin, count);
  if (least != 0) {
    flush_doubles(least, buffer, buffer, padded(count));
  }
  return buffer;
}

void Reader::convert(std::size_t begin, std::size_t count) {
  const std::size_t whole = count - count % granule;
  const void* const x = place(source, begin);
  if (source.type == Type::f64) {
    std::memcpy(buffer, x, count * sizeof(double));
  } else {
    source.type == Type::f32 ? widen(static_cast<const float*>(x), buffer, whole)
                             : decode_to_doubles(x, source.type, f, buffer, whole);
    for (std::size_t i = whole; i < count; ++i) {
      buffer[i] = load(source, begin + i, f);
    }
  }
  std::fill(buffer + count, buffer + padded(count), 1.0);
}

void write(const Target& out, std::size_t begin, std::size_t count, const double* x) {
  if (out.type == Type::f64) {
    std::memcpy(place(out, begin), x, count * sizeof(double));
    return;
  }
  write_by(out, begin, count, [&](void* to) { narrow(x, static_cast<float*>(to), padded(count)); });
}

void write(const Target& out, std::size_t begin, std::size_t count, const std::uint64_t* x) {
  if (out.type == Type::u64) {
    std::memcpy(place(out, begin), x, count * sizeof(std::uint64_t));
    return;
  }
  write_by(out, begin, count, [&](void* to) { narrow(x, out.type, to, padded(count)); });
}

unsigned write_rounded(const RoundingPlan& plan, const Target& out, std::size_t begin,
                       std::size_t count, const double* x, const std::uint64_t* draws) {
  const std::size_t n = padded(count);
  if (!is_number(out.type)) {
    std::uint64_t patterns[block_size];
    const unsigned flags = round_to_patterns(plan, x, draws, patterns, n);
    write(out, begin, count, patterns);
    return flags;
  }
  if (out.type == Type::f64 && n == count) {
    return round_doubles(plan, x, draws, static_cast<double*>(out.data) + begin, n);
  }
  double results[block_size];
  const unsigned flags = round_doubles(plan, x, draws, results, n);
  write(out, begin, count, results);
  return flags;
}

void write_values(const Target& out, Shape f, std::size_t begin, std::size_t count,
                  const double* x) {
  if (is_number(out.type)) {
    write(out, begin, count, x);
    return;
  }
  std::uint64_t patterns[block_size];
  std::transform(x, x + count, patterns, [f](double value) { return encoded(value, f); });
  write(out, begin, count, patterns);
}

}  // namespace zelk::arrays::detail
