#include "zelk/swflt/swflt.h"

#include "zelk/rules/flags.h"
#include "zelk/words/arithmetic.h"
#include "zelk/words/convert.h"

namespace zelk::swflt {

constinit thread_local unsigned char float_exception_flags = 0;

static_assert(flag_invalid == rules::invalid && flag_divide_by_zero == rules::divide_by_zero &&
              flag_overflow == rules::overflow && flag_underflow == rules::underflow &&
              flag_inexact == rules::inexact);

namespace detail {

std::uint64_t nearest_add32(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return words::add(words::binary32, a, b, rules::nearest);
}
std::uint64_t nearest_sub32(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return words::sub(words::binary32, a, b, rules::nearest);
}
std::uint64_t nearest_mul32(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return words::mul(words::binary32, a, b, rules::nearest);
}
std::uint64_t nearest_div32(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return words::div(words::binary32, a, b, rules::nearest);
}

std::uint64_t nearest_add64(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return words::add(words::binary64, a, b, rules::nearest);
}
std::uint64_t nearest_sub64(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return words::sub(words::binary64, a, b, rules::nearest);
}
std::uint64_t nearest_mul64(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return words::mul(words::binary64, a, b, rules::nearest);
}
std::uint64_t nearest_div64(std::uint64_t a, std::uint64_t b) noexcept {
  float_exception_flags = 0;
  return words::div(words::binary64, a, b, rules::nearest);
}

}  // namespace detail

namespace {

// The shapes whose operations raise the flags of this thread.
words::Flagged<words::FixedShape<8, 23>> single() { return {{}, &float_exception_flags}; }
words::Flagged<words::FixedShape<11, 52>> twice() { return {{}, &float_exception_flags}; }

// The directions other than to nearest are in the opposite order.
static_assert(mode_toward_negative + rules::downward == 4 &&
              mode_toward_positive + rules::upward == 4 &&
              mode_toward_zero + rules::toward_zero == 4);

rules::Direction direction(int mode) {
  return mode >= mode_toward_negative && mode <= mode_toward_zero
             ? static_cast<rules::Direction>(4 - mode)
             : rules::nearest;
}

}  // namespace

std::uint32_t float32_add(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(words::add(single(), a, b, direction(mode)));
}
std::uint64_t float64_add(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return words::add(twice(), a, b, direction(mode));
}

std::uint32_t float32_sub(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(words::sub(single(), a, b, direction(mode)));
}
std::uint64_t float64_sub(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return words::sub(twice(), a, b, direction(mode));
}

std::uint32_t float32_mul(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(words::mul(single(), a, b, direction(mode)));
}
std::uint64_t float64_mul(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return words::mul(twice(), a, b, direction(mode));
}

std::uint32_t float32_div(std::uint32_t a, std::uint32_t b, int mode) noexcept {
  return static_cast<std::uint32_t>(words::div(single(), a, b, direction(mode)));
}
std::uint64_t float64_div(std::uint64_t a, std::uint64_t b, int mode) noexcept {
  return words::div(twice(), a, b, direction(mode));
}

std::uint32_t float64_to_float32(std::uint64_t a, int mode) noexcept {
  return static_cast<std::uint32_t>(words::convert(twice(), single(), a, direction(mode)));
}
std::uint64_t float32_to_float64(std::uint32_t a) noexcept {
  return words::convert(single(), twice(), a, rules::nearest);
}

}  // namespace zelk::swflt
