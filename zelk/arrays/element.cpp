#include "zelk/arrays/element.h"

#include <cstring>

#include "zelk/float/native.h"

namespace zelk::arrays::detail {
namespace {

template <class T>
T read(const void* data, std::size_t i) {
  T x;
  std::memcpy(&x, static_cast<const char*>(data) + i * sizeof(T), sizeof(T));
  return x;
}

template <class T>
void write(void* data, std::size_t i, T x) {
  std::memcpy(static_cast<char*>(data) + i * sizeof(T), &x, sizeof(T));
}

constexpr double quiet_nan = std::numeric_limits<double>::quiet_NaN();
constexpr std::uint64_t sign64 = std::uint64_t{1} << 63;

}  // namespace

double decoded(std::uint64_t pattern, Shape f) {
  const std::uint64_t magnitude = pattern & (f.sign() - 1);
  double x = 0;
  if (magnitude >= f.infinity()) {
    x = magnitude == f.infinity() ? infinity : quiet_nan;
  } else if (magnitude >> f.m != 0) {
    const auto bias = static_cast<std::uint64_t>(1023 - f.emax()) << 52;
    x = std::bit_cast<double>((magnitude << (52 - f.m)) + bias);
  } else if (f.e == 11) {
    x = std::bit_cast<double>(magnitude << (52 - f.m));
  } else {
    x = static_cast<double>(magnitude) * pow2(f.emin() - f.m);
  }
  return (pattern & f.sign()) != 0 && x == x ? -x : x;
}

std::uint64_t encoded(double x, Shape f) {
  const auto bits = std::bit_cast<std::uint64_t>(x);
  const std::uint64_t magnitude = bits & ~sign64;
  const std::uint64_t sign = bits == magnitude ? 0 : f.sign();
  if (x != x) {
    return f.nan();
  }
  const auto size = std::bit_cast<double>(magnitude);
  if (size > f.largest()) {
    return sign | f.infinity();
  }
  if (f.e == 11) {
    return sign | magnitude >> (52 - f.m);
  }
  if (size < f.least_normal()) {
    return sign | static_cast<std::uint64_t>(size * pow2(f.m - f.emin()));
  }
  const auto bias = static_cast<std::uint64_t>(1023 - f.emax()) << 52;
  return sign | (magnitude - bias) >> (52 - f.m);
}

double load(const Source& a, std::size_t i, Shape f) {
  i = a.repeated ? 0 : i;
  switch (a.type) {
    case Type::u8:
      return decoded(read<std::uint8_t>(a.data, i), f);
    case Type::u16:
      return decoded(read<std::uint16_t>(a.data, i), f);
    case Type::u32:
      return decoded(read<std::uint32_t>(a.data, i), f);
    case Type::u64:
      return decoded(read<std::uint64_t>(a.data, i), f);
    case Type::f32:
      return static_cast<double>(read<float>(a.data, i));
    default:
      return read<double>(a.data, i);
  }
}

void store(const Target& a, std::size_t i, Shape f, double x) {
  if (is_number(a.type)) {
    x = x == x ? x : quiet_nan;
    a.type == Type::f32 ? write(a.data, i, static_cast<float>(x)) : write(a.data, i, x);
    return;
  }
  const std::uint64_t p = encoded(x, f);
  switch (a.type) {
    case Type::u8:
      return write(a.data, i, static_cast<std::uint8_t>(p));
    case Type::u16:
      return write(a.data, i, static_cast<std::uint16_t>(p));
    case Type::u32:
      return write(a.data, i, static_cast<std::uint32_t>(p));
    default:
      return write(a.data, i, p);
  }
}

double to_double(const IEEEFloat& x) {
  const Shape f(x.get_format());
  return decoded(zelk::detail::PatternAccess::words(x)[0], f);
}

IEEEFloat from_double(double x) { return from_native(x); }

}  // namespace zelk::arrays::detail
