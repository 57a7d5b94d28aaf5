// Binary numbers as multiples of a power of ten, exactly: what is left is known to be nothing, or
// less than half a multiple, half or more.
#ifndef ZELK_DECIMAL_SCALING_H_
#define ZELK_DECIMAL_SCALING_H_

#include <cstdint>

#include "zelk/decimal/room.h"
#include "zelk/limbs/integers.h"

namespace zelk::decimal {

using limbs::Limb;

/// What lies beyond the digits that there are, in units of their last place.
enum class Rest : unsigned char { none, below_half, half, above_half };

/// floor(n log10(2)), or one less.
constexpr std::int64_t log10_of_power(std::int64_t n) {
  constexpr words::int128 log10_of_2 = 0x4D104D427DE7FBCC;  // * 2^-64, cut off
  return static_cast<std::int64_t>((n * log10_of_2 - (n < 0 ? -words::int128{n} : n)) >> 64);
}

/// The digits that n limbs can have, and one.
constexpr long digits_of_limbs(long n) { return static_cast<long>(n * 1234 / 64) + 2; }

/// Divides integers times 2^k by 10^p. Its rooms are for the numbers of formats of up to 128 bits
/// with e <= 15.
class Scaling {
 public:
  /// Of integers of up to `size` limbs, by the whole power.
  /// \throws std::bad_alloc
  Scaling(std::int64_t k, std::int64_t p, long size);
  /// By so many limbs of the power, at a cost that grows with the logarithm of p only.
  /// \throws std::bad_alloc
  Scaling(std::int64_t k, std::int64_t p, long size, long limbs);
  /// The limbs of a power to keep, so that quotients are as good as always sure, for a number below
  /// 2^(top + 1); 0 where the whole power is not much longer.
  static long limbs_to_keep(std::int64_t top, std::int64_t p);

  /// A quotient cut off, in limbs that the next one uses again.
  struct Quotient {
    Limb* limbs;
    long size;  // without zeros on top
    Rest rest;
    bool is_sure = true;  // else the part of the power that was not kept decides
  };
  /// a * 2^k / 10^p, a of n limbs, the highest not 0; for p > 0 it is 1 at least.
  Quotient operator()(const Limb* a, long n);

 private:
  static constexpr long local_size = 616;  // 113 bits times 5^16494, and a little

  Quotient multiplied(const Limb* a, long n);
  Quotient divided(const Limb* a, long n);
  Quotient cut(long size) const;
  void invert();

  bool multiplies;     // p <= 0, by 5^-p; else divides by 5^p
  std::int64_t shift;  // and the power of two that goes with it
  long kept = 0;       // limbs of a power that is not whole
  long power_size;
  Room<Limb, local_size> power;  // of five; with twos where those would divide
  Room<Limb, local_size> work;
  mutable Room<Limb, local_size> quotient;
};

/// Writes an integer as ASCII digits without zeros before them, none for 0, and changes its limbs;
/// their number. Needs room for `digits_of_limbs(n)`.
long write_digits(char* out, Limb* a, long n);

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_SCALING_H_
