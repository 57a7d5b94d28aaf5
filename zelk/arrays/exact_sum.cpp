#include "zelk/arrays/exact_sum.h"

#include <algorithm>
#include <cmath>

#include "zelk/arrays/element.h"
#include "zelk/float/native.h"
#include "zelk/rules/flags.h"

namespace zelk::arrays::detail {

using words::uint128;

void ExactSum::add(double x, double y) {
  const bool negative = std::signbit(x) != std::signbit(y);
  if (!std::isfinite(x) || !std::isfinite(y)) {
    const bool is_nan = x != x || y != y;
    any_nan = any_nan || is_nan;
    any_invalid = any_invalid || (!is_nan && (x == 0 || y == 0));
    any_infinity[negative ? 1 : 0] |= !is_nan;
    return;
  }
  if (x == 0 || y == 0) {
    any_zero[negative ? 1 : 0] = true;
    return;
  }
  any_other = true;
  const Wide a = wide(x), b = wide(y);
  const uint128 product = a.significand * b.significand;
  const int place = a.exponent + b.exponent + low_bit;
  add_word(static_cast<std::uint64_t>(product), place, negative);
  add_word(static_cast<std::uint64_t>(product >> 64), place + 64, negative);
  if (++adds == adds_between_carries) {
    carry();
  }
}

// A digit gains less than 2^34 in an addition of both words.
void ExactSum::add_word(std::uint64_t x, int place, bool negative) {
  const auto first = static_cast<std::size_t>(place / 32);
  uint128 shifted = uint128{x} << (place % 32);
  for (std::size_t i = first; i < first + 3; ++i, shifted >>= 32) {
    const auto d = static_cast<std::int64_t>(static_cast<std::uint32_t>(shifted));
    digit[i] += negative ? -d : d;
  }
  lowest = std::min(lowest, place / 32);
  highest = std::max(highest, place / 32 + 3);
}

// Makes all digits but the highest non-negative and less than 2^32.
void ExactSum::carry() {
  adds = 0;
  highest = std::min(highest + 2, size);
  for (int i = lowest; i < highest - 1; ++i) {
    std::int64_t& d = digit[static_cast<std::size_t>(i)];
    digit[static_cast<std::size_t>(i) + 1] += d >> 32;
    d &= 0xFFFFFFFF;
  }
}

Wide ExactSum::value() {
  if (lowest >= highest) {
    return {};
  }
  carry();
  const bool negative = digit[static_cast<std::size_t>(highest - 1)] < 0;
  if (negative) {
    for (std::int64_t& d : digit) {
      d = -d;
    }
    carry();
  }
  int top = highest - 1;
  while (top > lowest && digit[static_cast<std::size_t>(top)] == 0) {
    --top;
  }
  Wide r{negative, 0, 0};
  // Four digits, and what a fifth has to give for the zeros that lead: 128 bits, as the 53 of a
  // double and 64 below them ask for more than four digits always have.
  const auto at = [this](int i) {
    return i < 0 ? 0U : static_cast<std::uint32_t>(digit[static_cast<std::size_t>(i)]);
  };
  for (int i = 0; i < 4; ++i) {
    r.significand = r.significand << 32 | at(top - i);
  }
  const std::uint32_t fifth = at(top - 4);
  const int zeros = std::countl_zero(at(top));
  if (zeros != 0 && zeros != 32) {
    r.significand = r.significand << zeros | fifth >> (32 - zeros);
  }
  bool rest = zeros != 32 && (fifth << zeros) != 0;
  for (int i = lowest; i < top - 4 && !rest; ++i) {
    rest = at(i) != 0;
  }
  r.significand |= rest ? 1U : 0U;
  r.exponent = (top - 3) * 32 - low_bit - zeros;
  return r.significand == 0 ? Wide{} : r;
}

double ExactSum::rounded(Environment& env, Format f, const std::optional<std::uint64_t>& draw) {
  const bool clash = any_infinity[0] && any_infinity[1];
  if (any_nan || any_invalid || clash) {
    env.flags |= any_nan ? 0 : rules::invalid;
    return std::numeric_limits<double>::quiet_NaN();
  }
  if (any_infinity[0] || any_infinity[1]) {
    return any_infinity[1] ? -infinity : infinity;
  }
  Wide x = value();
  if (x.significand == 0) {
    const bool one_sign = !any_other && any_zero[0] != any_zero[1];
    const bool negative =
        one_sign ? any_zero[1] : !draw && env.rounding == Rounding::toward_negative;
    return negative && (any_other || any_zero[0] || any_zero[1]) ? -0.0 : 0.0;
  }
  if (draw) {
    return round_stochastic(env, x, Shape(f), *draw);
  }
  // Rounded to odd to the 113 digits of binary128, which a second rounding may follow.
  const Format quad{15, 112};
  const uint128 digits = x.significand >> 15 | (static_cast<unsigned>(x.significand & 0x7FFF) != 0);
  const uint128 field{static_cast<unsigned>(x.exponent + 127 + 16383)};
  const uint128 p = uint128{x.negative} << 127 | ((field << 112) + (digits - (uint128{1} << 112)));
  Environment plain = env;
  plain.flush_operands = false;
  const double r = to_double(
      plain.convert(zelk::detail::PatternAccess::make(quad, IEEEFloat::ROUND_NEAREST_EVEN,
                                                      static_cast<std::uint64_t>(p),
                                                      static_cast<std::uint64_t>(p >> 64)),
                    f));
  env.flags = plain.flags;
  return r;
}

}  // namespace zelk::arrays::detail
