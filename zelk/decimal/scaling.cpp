#include "zelk/decimal/scaling.h"

#include <algorithm>
#include <bit>
#include <cassert>

#include "zelk/words/bits.h"

namespace zelk::decimal {

namespace {

using limbs::limb_bits;

// Limbs that 5^n fits: log2(5) < 2.322.
long size_of_power(std::int64_t n) { return static_cast<long>(n * 2322 / 1000 / limb_bits) + 1; }

// Limbs that a shift by k > 0 bits up may add.
long size_of_shift(std::int64_t k) { return k > 0 ? static_cast<long>(k / limb_bits) + 1 : 0; }

// A power of five: limbs, of which lower ones may have been cut off.
struct PowerOfFive {
  long size;
  long lost;
};

// out := 5^n, from the highest bits of n on, `kept` limbs of it at most. Two rooms of twice the
// limbs, and two more.
//
// A cut takes less than one part in u = 2^(64 (kept - 1)), a square doubles what is missing, and
// there are two cuts to each of at most 62 squares: less than 2^64 / u in all.
PowerOfFive power_of_five(Limb* out, Limb* other, std::int64_t n, long kept) {
  int bits = 0;
  while (n >> bits > 27) {
    ++bits;
  }
  Limb* from = bits % 2 == 0 ? out : other;
  Limb* to = bits % 2 == 0 ? other : out;
  from[0] = 1;
  for (std::int64_t i = n >> bits; i > 0; --i) {
    from[0] *= 5;
  }
  PowerOfFive power{1, 0};
  const auto cut = [&] {
    if (const long more = power.size - kept; more > 0) {
      mpn_copyi(to, to + more, kept);
      power.size = kept;
      power.lost += more;
    }
  };
  while (bits-- > 0) {
    mpn_sqr(to, from, power.size);
    power.size = limbs::trimmed(to, 2 * power.size);
    power.lost *= 2;
    cut();
    if ((n >> bits & 1) != 0) {
      const Limb carry = mpn_mul_1(to, to, power.size, 5);
      if (carry != 0) {
        to[power.size++] = carry;
        cut();
      }
    }
    std::swap(from, to);
  }
  return power;
}

// a := a * 2^k, in a room that has it; the size.
long shift_up(Limb* a, long n, std::int64_t k) {
  const auto whole = static_cast<long>(k / limb_bits);
  const auto part = static_cast<unsigned>(k % limb_bits);
  Limb carry = 0;
  if (part != 0) {
    carry = mpn_lshift(a + whole, a, n, part);
  } else {
    mpn_copyd(a + whole, a, n);
  }
  std::fill(a, a + whole, Limb{0});
  a[whole + n] = carry;
  return whole + n + static_cast<long>(carry != 0);
}

// What the k > 0 low bits of a are of 2^k.
Rest rest_of_bits(const Limb* a, long n, std::int64_t k) {
  const std::int64_t size = n * limb_bits;
  const bool half = k <= size && words::test_bit(a, static_cast<unsigned long>(k - 1));
  const auto below = static_cast<unsigned long>(std::min(k - 1, size));
  const bool rest = !words::are_zeros(a, 0, below);
  return half ? (rest ? Rest::above_half : Rest::half) : rest ? Rest::below_half : Rest::none;
}

// What a remainder is of a divisor.
Rest rest_of(const Limb* remainder, long n, const Limb* divisor, long size) {
  if (n == 0) {
    return Rest::none;
  }
  if (n < size - 1) {
    return Rest::below_half;
  }
  // remainder against divisor - remainder, from the top.
  const auto limb = [&](const Limb* p, long count, long i) { return i < count ? p[i] : 0; };
  for (long i = size - 1; i >= 0; --i) {
    const Limb low = i > 0 ? limb(remainder, n, i - 1) : 0;
    const Limb high = limb(remainder, n, i);
    if (i == size - 1 && high >> (limb_bits - 1) != 0) {
      return Rest::above_half;
    }
    const Limb twice = high << 1 | low >> (limb_bits - 1);
    if (twice != divisor[i]) {
      return twice > divisor[i] ? Rest::above_half : Rest::below_half;
    }
  }
  return Rest::half;
}

}  // namespace

Scaling::Scaling(std::int64_t k, std::int64_t p, long size)
    : multiplies(p <= 0),
      shift(k - p),
      power_size(size_of_power(multiplies ? -p : p)),
      power(power_size + 2 + (multiplies ? 0 : size_of_shift(-shift))),
      work(power_size + size + 2 + size_of_shift(multiplies ? 0 : shift)),
      quotient(power_size + size + 2 + size_of_shift(shift)) {
  power_size = power_of_five(power.data(), work.data(), multiplies ? -p : p, power_size + 1).size;
  if (!multiplies && shift < 0) {
    power_size = shift_up(power.data(), power_size, -shift);
  }
}

Scaling::Scaling(std::int64_t k, std::int64_t p, long size, long limbs)
    : multiplies(true),
      shift(k - p),
      kept(limbs),
      power_size(0),
      power(2 * limbs + 4),
      work(2 * limbs + 4),
      quotient(2 * limbs + size + 4) {
  const PowerOfFive five = power_of_five(power.data(), work.data(), p < 0 ? -p : p, limbs);
  power_size = five.size;
  shift += (p < 0 ? five.lost : -five.lost) * limb_bits;
  if (p > 0) {
    invert();
  }
}

// The power becomes a quotient of a power of two by it.
void Scaling::invert() {
  const long size = 2 * power_size;
  Limb* dividend = work.data();
  std::fill(dividend, dividend + size, Limb{0});
  dividend[size] = 1;
  mpn_tdiv_qr(quotient.data(), dividend, 0, dividend, size + 1, power.data(), power_size);
  shift -= size * limb_bits;
  power_size = limbs::trimmed(quotient.data(), power_size + 2);
  mpn_copyi(power.data(), quotient.data(), power_size);
}

long Scaling::limbs_to_keep(std::int64_t top, std::int64_t p) {
  const std::int64_t whole = size_of_power(p < 0 ? -p : p);
  // Of the quotient there are less than 2^bits, as log2(10) is between 3.3219 and 3.3220.
  const std::int64_t bits =
      std::max<std::int64_t>(top - p * (p < 0 ? 33220 : 33219) / 10000, 0) + 2;
  const std::int64_t needed = bits / limb_bits + 6;
  return needed < whole / 4 ? static_cast<long>(needed) : 0;
}

Scaling::Quotient Scaling::multiplied(const Limb* a, long n) {
  Limb* out = quotient.data();
  if (power_size >= n) {
    mpn_mul(out, power.data(), power_size, a, n);
  } else {
    mpn_mul(out, a, n, power.data(), power_size);
  }
  const long size = limbs::trimmed(out, n + power_size);
  if (shift >= 0) {
    return {out, kept == 0 ? shift_up(out, size, shift) : 0, Rest::none, kept == 0};
  }
  return cut(size);
}

// The quotient over 2^-shift.
Scaling::Quotient Scaling::cut(long size) const {
  Limb* out = quotient.data();
  const Rest rest = rest_of_bits(out, size, -shift);
  bool is_sure = true;
  if (kept != 0) {
    // Less than one part in 2^(64 (kept - 2) - 1) is missing or too much, which is below bit `low`.
    // The bits from there to the half, all zeros or all ones, are too close to tell.
    const std::int64_t low = (size - kept + 2) * limb_bits + 2;
    const std::int64_t count = -shift - 1 - low;
    const auto place = static_cast<unsigned long>(low);
    const auto width = static_cast<unsigned long>(count);
    is_sure = count > 0 && -shift <= size * limb_bits && !words::are_zeros(out, place, width) &&
              !words::are_ones(out, place, width);
  }
  const auto whole = -shift / limb_bits;
  if (whole >= size) {
    return {out, 0, rest, is_sure};
  }
  size -= static_cast<long>(whole);
  const auto part = static_cast<unsigned>(-shift % limb_bits);
  if (part != 0) {
    mpn_rshift(out, out + whole, size, part);
  } else {
    mpn_copyi(out, out + whole, size);
  }
  return {out, limbs::trimmed(out, size), rest, is_sure};
}

Scaling::Quotient Scaling::divided(const Limb* a, long n) {
  Limb* dividend = work.data();
  Limb* out = quotient.data();
  mpn_copyi(dividend, a, n);
  const long size = shift > 0 ? shift_up(dividend, n, shift) : n;
  assert(size >= power_size);
  // The remainder takes the dividend's place.
  mpn_tdiv_qr(out, dividend, 0, dividend, size, power.data(), power_size);
  const Rest rest =
      rest_of(dividend, limbs::trimmed(dividend, power_size), power.data(), power_size);
  return {out, limbs::trimmed(out, size - power_size + 1), rest};
}

Scaling::Quotient Scaling::operator()(const Limb* a, long n) {
  return multiplies ? multiplied(a, n) : divided(a, n);
}

namespace {

// The digits of a, not 0, without those before the first that is not 0.
long write_block(char* out, Limb* a, long n) {
  auto* digits = reinterpret_cast<unsigned char*>(out);
  const auto count = static_cast<long>(mpn_get_str(digits, 10, a, n));
  const long zeros = std::find_if(digits, digits + count, [](auto d) { return d != 0; }) - digits;
  std::transform(digits + zeros, digits + count, out,
                 [](auto d) { return static_cast<char>('0' + d); });
  return count - zeros;
}

// Of more limbs than this GMP takes a table of powers, which it allocates; of many that is worth
// it.
constexpr long block_limbs = 16;
constexpr long many_limbs = 640;
constexpr long block_digits = 304;  // fewer than that many limbs hold

// Writes blocks of digits from the last one on.
long write_blocks(char* out, Limb* a, long n) {
  Limb divisor[2 * block_limbs];
  Limb room[2 * block_limbs];
  const PowerOfFive five = power_of_five(divisor, room, block_digits, block_limbs);
  const long size = shift_up(divisor, five.size, block_digits);
  const long most = static_cast<long>(limbs::bit_size(a, n) * 1234 / 4096) + 1;
  char* end = out + most;
  Limb other[many_limbs];
  Limb* quotient = other;
  char block[20 * block_limbs + 1];
  while (n > block_limbs) {
    mpn_tdiv_qr(quotient, a, 0, a, n, divisor, size);
    const long rest = limbs::trimmed(a, size);
    const long count = rest == 0 ? 0 : write_block(block, a, rest);
    end = std::copy_backward(block, block + count, end);
    end -= block_digits - count;
    std::fill_n(end, block_digits - count, '0');
    n = limbs::trimmed(quotient, n - size + 1);
    std::swap(a, quotient);
  }
  const long count = write_block(block, a, n);
  end = std::copy_backward(block, block + count, end);
  return std::copy(end, out + most, out) - out;
}

}  // namespace

long write_digits(char* out, Limb* a, long n) {
  return n == 0                               ? 0
         : n <= block_limbs || n > many_limbs ? write_block(out, a, n)
                                              : write_blocks(out, a, n);
}

}  // namespace zelk::decimal
