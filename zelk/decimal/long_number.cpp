#include "zelk/decimal/long_number.h"

#include <gmp.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <utility>

#include "zelk/base/float_errors.h"
#include "zelk/decimal/powers.h"
#include "zelk/limbs/patterns.h"
#include "zelk/numbers/qnumber.h"

namespace zelk::decimal {

// ---- Digits ----

DigitReader::DigitReader(const Literal& x) : p(x.first), last(x.last), rest(last), rest_last(last) {
  if (const char* point = std::find(p, last, '.'); point != last) {
    last = point;
    rest = point + 1;
  }
}

std::uint64_t DigitReader::take(long n) {
  std::uint64_t word = 0;
  while (n > 0) {
    if (p == last) {
      p = rest;
      last = rest_last;
    }
    long run = std::min(n, static_cast<long>(last - p));
    n -= run;
    for (; run >= 8; run -= 8, p += 8) {
      word = word * 100000000 + eight_digits(as_digits(load_characters<std::uint64_t>(p)));
    }
    for (; run > 0; --run, ++p) {
      word = word * 10 + static_cast<unsigned>(*p - '0');
    }
  }
  return word;
}

bool DigitReader::any_left() const {
  const auto is_zero = [](char c) { return c == '0'; };
  return !std::all_of(p, last, is_zero) ||
         (last != rest_last && !std::all_of(rest, rest_last, is_zero));
}

namespace {

constexpr long digits_of_limb = Literal::word_digits;
constexpr Limb ten_to_that = 10000000000000000000U;

// Limbs that n digits need at most.
constexpr long limbs_of_digits(long n) { return n / digits_of_limb + 2; }
// Limbs that 5^q needs at most, and one more, for q >= 0.
constexpr long limbs_of_power(long q) { return q * 149 / 4096 + 3; }

// out := the next n digits as an integer; its limbs.
long read_integer(DigitReader& digits, long n, Limb* out) {
  constexpr long many = 2000;  // from here on GMP's conversion is faster
  if (n > many) {
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[static_cast<std::size_t>(n)]);
    for (long i = 0; i < n; ++i) {
      bytes[static_cast<std::size_t>(i)] = static_cast<unsigned char>(digits.take(1));
    }
    return limbs::trimmed(out, mpn_set_str(out, bytes.get(), static_cast<std::size_t>(n), 10));
  }
  long size = 0;
  for (long next = n % digits_of_limb; n > 0; n -= next, next = digits_of_limb) {
    if (next == 0) next = digits_of_limb;
    const Limb word = digits.take(next);
    Limb carry = word;
    if (size > 0) {
      carry = mpn_mul_1(out, out, size, ten_to_that);
      carry += mpn_add_1(out, out, size, word);
    }
    if (carry != 0) out[size++] = carry;
  }
  return size;
}

// out := the n leading limbs of w, moved up to set the highest bit and cut off, or with zeros
// below; w is that times 2^k, and k is returned.
std::int64_t take_leading(const Limb* w, long size, long n, Limb* out) {
  const auto zeros = static_cast<unsigned>(std::countl_zero(w[size - 1]));
  const long cut = size - n;
  std::fill_n(out, std::max(-cut, 0L), 0);
  const Limb* from = w + std::max(cut, 0L);
  Limb* to = out + std::max(-cut, 0L);
  if (zeros == 0) {
    std::copy(from, w + size, to);
  } else {
    mpn_lshift(to, from, w + size - from, zeros);
    if (cut > 0) *to |= from[-1] >> (limbs::limb_bits - zeros);
  }
  return cut * limbs::limb_bits - zeros;
}

// ---- Approximately ----

// A number from limbs * 2^exponent to that times 1 + error / 2^(64 n) for n limbs, of which the
// highest bit is set.
struct Approximation {
  Limb* limbs;
  std::int64_t exponent;
  std::uint64_t error;
};

// What cutting off adds to an error, and what the small products of errors do.
constexpr std::uint64_t cut_off = 4;

// power := 5^q for q >= 0; `square` has room for 2 n limbs.
void approximate_power(long q, long n, Approximation& power, Limb* square) {
  int steps = 0;
  while (q >> steps > 2 * tables::stride) ++steps;  // where the table has all digits
  power.exponent = binary_exponent(q >> steps) - 255;
  power.exponent += take_leading(wide_power_of_five(q >> steps).limb, 4, n, power.limbs);
  power.error = n < 4 ? cut_off : 0;
  while (steps > 0) {
    --steps;
    mpn_sqr(square, power.limbs, n);
    power.exponent = 2 * power.exponent + take_leading(square, 2 * n, n, power.limbs);
    power.error = 2 * power.error + cut_off;
    if ((q >> steps & 1) != 0) {
      const Limb carry = mpn_mul_1(power.limbs, power.limbs, n, 5);
      const auto k = static_cast<int>(std::bit_width(carry));
      mpn_rshift(power.limbs, power.limbs, n, static_cast<unsigned>(k));
      power.limbs[n - 1] |= carry << (limbs::limb_bits - k);
      power.exponent += k;
      power.error += cut_off;
    }
  }
}

// The number in n limbs, if that is enough to round to any format whose significand has less than
// 64 (n - 1) bits.
bool approximate(const Literal& x, long n, Workspace& space, Significand& result) {
  // So many digits are n limbs at least: there the next ones are less than a unit.
  const long digits = std::min(x.count, n * digits_of_limb * 103 / 100 + 4);
  Limb* const integer = space.emplace(limbs_of_digits(digits) + 8 * n + 1).data();
  Approximation left{integer + limbs_of_digits(digits), 0, 0};
  Approximation right{left.limbs + n, 0, 0};
  Limb* const room = right.limbs + n;   // 2 n limbs
  Limb* const quotient = room + 2 * n;  // n + 1
  Limb* const out = quotient + n + 1;   // n
  Limb* const remainder = out + n;      // n
  DigitReader reader(x);
  const long size = read_integer(reader, digits, integer);
  left.exponent = take_leading(integer, size, n, left.limbs);
  left.error = (size > n ? cut_off : 0) + (digits < x.count ? cut_off : 0);
  const long q = x.exponent + (x.count - digits);
  approximate_power(q < 0 ? -q : q, n, right, room);
  if (q >= 0) {
    mpn_mul_n(room, left.limbs, right.limbs, n);
    left.exponent += right.exponent + take_leading(room, 2 * n, n, out);
  } else {
    std::fill_n(room, n, 0);
    std::copy_n(left.limbs, n, room + n);
    mpn_tdiv_qr(quotient, remainder, 0, room, 2 * n, right.limbs, n);
    left.exponent -= right.exponent + n * limbs::limb_bits;
    left.exponent += take_leading(quotient, n + (quotient[n] != 0 ? 1 : 0), n, out);
  }
  // The lowest limb is all below what rounding looks at.
  const std::uint64_t error = left.error + right.error + cut_off;
  if (out[0] < error || out[0] > ~error) return false;
  out[0] |= 1;
  result = {out, n, left.exponent + q};
  return true;
}

// ---- Exactly ----

// power := 5^q for q >= 0; its limbs. `other` has as much room, and may be exchanged with it.
long compute_power(long q, Limb*& power, Limb*& other) {
  int steps = 0;
  while (q >> steps > tables::stride) ++steps;
  const long start = q >> steps;
  const uint128 first = power_of_five(start) >> (127 - binary_exponent(start));
  power[0] = words::low_word(first);
  power[1] = words::high_word(first);
  long size = power[1] != 0 ? 2 : 1;
  while (steps > 0) {
    --steps;
    mpn_sqr(other, power, size);
    std::swap(power, other);
    size = limbs::trimmed(power, 2 * size);
    if ((q >> steps & 1) != 0) {
      const Limb carry = mpn_mul_1(power, power, size, 5);
      if (carry != 0) power[size++] = carry;
    }
  }
  return size;
}

Significand compute(const Literal& x, long m, Workspace& space) {
  const long q = x.exponent;
  const long integer_room = limbs_of_digits(x.count);
  const long power_room = limbs_of_power(q < 0 ? -q : q);
  const long wanted = (m + 2) / limbs::limb_bits + 2;  // limbs of m + 3 bits, and the top one
  Limb* const integer = space.emplace(3 * (integer_room + power_room + wanted)).data();
  Limb* power = integer + integer_room;
  Limb* other = power + power_room;
  Limb* const room = other + power_room;
  DigitReader reader(x);
  const long size = read_integer(reader, x.count, integer);
  const long power_size = compute_power(q < 0 ? -q : q, power, other);
  if (q >= 0) {
    size >= power_size ? mpn_mul(room, integer, size, power, power_size)
                       : mpn_mul(room, power, power_size, integer, size);
    return {room, limbs::trimmed(room, size + power_size), q};
  }
  const long shift = std::max(power_size + wanted - size, 0L);
  const long dividend_size = size + shift;
  Limb* const quotient = room + dividend_size;
  std::fill_n(room, shift, 0);
  std::copy_n(integer, size, room + shift);
  mpn_tdiv_qr(quotient, other, 0, room, dividend_size, power, power_size);
  quotient[0] |= Limb{mpn_zero_p(other, power_size) == 0};
  return {quotient, limbs::trimmed(quotient, dividend_size - power_size + 1),
          q - shift * limbs::limb_bits};
}

// ---- Hexadecimal ----

unsigned hex_digit(char c) { return (static_cast<unsigned char>(c) & 15U) + (c > '9' ? 9 : 0); }

Significand take_hexadecimal(const Literal& x, long m, Workspace& space) {
  constexpr long digits_per_limb = limbs::limb_bits / 4;
  const long digits = std::min(x.count, m / 4 + 3);
  const long size = (digits - 1) / digits_per_limb + 1;
  Limb* const out = space.emplace(size).data();
  std::fill_n(out, size, 0);
  const char* p = x.first;
  for (long i = digits; i > 0; ++p) {
    if (*p != '.') {
      --i;
      out[i / digits_per_limb] |= Limb{hex_digit(*p)} << 4 * (i % digits_per_limb);
    }
  }
  const bool any_left = std::any_of(p, x.last, [](char c) { return c != '.' && c != '0'; });
  out[0] |= Limb{any_left};
  return {out, size, x.exponent + 4 * (x.count - digits)};
}

}  // namespace

Significand significand_of(const Literal& literal, rules::Widths f, Workspace& space) {
  Literal x = literal;
  x.skip_zeros();
  const auto m = static_cast<long>(f.mant_width);
  if (x.form == Form::hexadecimal) return take_hexadecimal(x, m, space);
  // The number is 10^(places - 1) at least, and below 10^places; log2(10) is above 3.321.
  const auto bits = [](long places) { return words::int128{places} * 3321 / 1000; };
  const long places = x.count + x.exponent;
  // That of more than 62 bits of exponent is beyond all literals that there are for them.
  const long bias = f.exp_width > 62 ? LONG_MAX / 2 : limbs::Shape{f}.bias();
  const bool large = places > 0 && bits(places - 1) > bias + 1;
  const bool small = places < 0 && bits(places) < -bias - m - 1;
  if (large || small) {
    Limb* const out = space.emplace(1).data();
    out[0] = 3;
    return {out, 1, large ? bias + 2 : -bias - m - 4};
  }
  const long q = x.exponent < 0 ? -x.exponent : x.exponent;
  const long in_full = (x.count * 10 / 3 + q * 7 / 3 + m) / limbs::limb_bits + 4;
  const auto limit = static_cast<long>(max_bits / limbs::limb_bits);
  for (long n = (m + 2) / limbs::limb_bits + 2; in_full > 2 * n && n <= limit; n *= 2) {
    if (Significand result{}; approximate(x, n, space, result)) return result;
  }
  if (in_full > limit) {
    detail::throw_precision_limit();
  }
  return compute(x, m, space);
}

}  // namespace zelk::decimal
