#include "zelk/swflt/swflt.h"

#include "zelk/swflt/words.h"

namespace zelk::swflt {

unsigned char float_exception_flags = 0;

namespace detail {

std::uint32_t add_nearest(std::uint32_t a, std::uint32_t b) noexcept {
  float_exception_flags = 0;
  return static_cast<std::uint32_t>(add(binary32, a, b, nearest));
}
std::uint64_t add_nearest(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return add(binary64, a, b, nearest);
}

std::uint32_t sub_nearest(std::uint32_t a, std::uint32_t b) noexcept {
  float_exception_flags = 0;
  return static_cast<std::uint32_t>(sub(binary32, a, b, nearest));
}
std::uint64_t sub_nearest(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return sub(binary64, a, b, nearest);
}

std::uint32_t mul_nearest(std::uint32_t a, std::uint32_t b) noexcept {
  float_exception_flags = 0;
  return static_cast<std::uint32_t>(mul(binary32, a, b, nearest));
}
std::uint64_t mul_nearest(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return mul(binary64, a, b, nearest);
}

std::uint32_t div_nearest(std::uint32_t a, std::uint32_t b) noexcept {
  float_exception_flags = 0;
  return static_cast<std::uint32_t>(div(binary32, a, b, nearest));
}
std::uint64_t div_nearest(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return div(binary64, a, b, nearest);
}

}  // namespace detail

namespace {

constexpr detail::Flagged<detail::FixedShape<8, 23>> single;
constexpr detail::Flagged<detail::FixedShape<11, 52>> twice;

detail::Direction direction(int mode) {
  return static_cast<detail::Direction>(mode >= 1 && mode <= 3 ? 4 - mode : 0);
}

}  // namespace

std::uint32_t float32_add(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(detail::add(single, a, b, direction(mode)));
}
std::uint64_t float64_add(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return detail::add(twice, a, b, direction(mode));
}

std::uint32_t float32_sub(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(detail::sub(single, a, b, direction(mode)));
}
std::uint64_t float64_sub(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return detail::sub(twice, a, b, direction(mode));
}

std::uint32_t float32_mul(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(detail::mul(single, a, b, direction(mode)));
}
std::uint64_t float64_mul(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return detail::mul(twice, a, b, direction(mode));
}

std::uint32_t float32_div(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(detail::div(single, a, b, direction(mode)));
}
std::uint64_t float64_div(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return detail::div(twice, a, b, direction(mode));
}

std::uint32_t float64_to_float32(std::uint64_t a, int mode) noexcept {
  return static_cast<std::uint32_t>(detail::convert(twice, single, a, direction(mode)));
}
std::uint64_t float32_to_float64(std::uint32_t a) noexcept {
  return detail::convert(single, twice, a, detail::nearest);
}

}  // namespace zelk::swflt
