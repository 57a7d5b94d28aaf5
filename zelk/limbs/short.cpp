#include "zelk/limbs/short.h"

#include <algorithm>
#include <utility>

#include "zelk/limbs/few_integers.h"

namespace zelk::limbs {
namespace {

constexpr Limb high_limb(DoubleLimb x) { return static_cast<Limb>(x >> limb_bits); }

// ---- Columns ----

// A column is the products x[i] * y[j] of one i + j. They are summed up in registers, column by
// column, so that no sum goes through memory.

/// The sum of a column.
struct Sum : Accumulator {
  /// Takes x[0] * y[n - 1] + ... + x[n - 1] * y[0] in.
  [[gnu::always_inline]] void add_column(const Limb* x, const Limb* y, long n) {
    for (; n >= 4; n -= 4, x += 4) {
      add(x[0], y[n - 1]);
      add(x[1], y[n - 2]);
      add(x[2], y[n - 3]);
      add(x[3], y[n - 4]);
    }
    if ((n & 2) != 0) {
      add(x[0], y[n - 1]);
      add(x[1], y[n - 2]);
      x += 2;
    }
    if ((n & 1) != 0) {
      add(x[0], y[0]);
    }
  }
};

// ---- Products ----

// Measured: up to how many limbs columns are the fastest, from how many on a square is cut in
// parts, and from how many on the full product is taken.
constexpr long columns_limit = 56;
constexpr long square_parts = 16;
constexpr long full_limit = 1300;

/// The columns from n - 2 on. The limb of column n - 2 is dropped, and so are all columns below,
/// which are less than n - 2 units of limb n - 1: column n - 3 has n - 2 products, each below
/// 2^128, and the others do not reach what its products lack of that. Together less than n - 1
/// units.
void multiply_columns(Limb* out, const Limb* x, const Limb* y, long n) {
  Sum sum;
  sum.add_column(x, y, n - 1);
  sum.shift();
  for (long i = 0; i < n; ++i) {
    sum.add_column(x + i, y + i, n - i);
    out[i] = sum.shift();
  }
  out[n] = sum.low;
}

void multiply_fully(Limb* out, const Limb* x, const Limb* y, long n) {
  if (x == y) {
    mpn_sqr(out, x, n);
  } else {
    mpn_mul_n(out, x, y, n);
  }
}

/// The full product of the k upper limbs, and the short ones of the l lower limbs of one by the l
/// upper of the other (T. Mulders, On short multiplications and divisions, Applicable Algebra in
/// Engineering, Communication and Computing 11, 2000). All that is left beside them of the columns
/// from n - 2 on is two products.
///
/// The error is at most 2 n units of limb n - 1 if those of the two short products are at most 2 l
/// each. What is cut off from the full product and from those two is less than 3 units. Column
/// n - 3 lacks four products, less than 4, and the columns below add less than 1. 4 l + 8 <= 2 n.
void multiply_parts(Limb* out, const Limb* x, const Limb* y, long n, Limb* room) {
  const long k = n * 7 / 10;
  const long l = n - k;
  multiply_fully(room, x + l, y + l, k);
  std::copy_n(room + (k - l - 1), n + 1, out);
  for (int i = 0; i < 2; ++i) {
    if (i == 0 || x != y) {
      multiply_high(room, x, y + k, l, room + l + 2);
      const DoubleLimb between = DoubleLimb{x[l - 1]} * y[k - 1];
      room[l + 1] = mpn_add_1(room, room, l + 1, high_limb(between));
    }
    const Limb carry = mpn_add_n(out, out, room, l + 2);
    mpn_add_1(out + l + 2, out + l + 2, k - 1, carry);
    std::swap(x, y);
  }
}

// ---- Quotients ----

// Measured: from so many limbs on, the full division is faster.
constexpr long division_limit = 650;

/// The digits, from the highest on, each from what the columns up to the next one leave of x. False
/// if a digit is too large, which shows when later columns take away more than is left.
///
/// Count limbs of y and digits from the highest, from 0 on: column i has the products of digit j by
/// limb i - j. In units of column n + 2, the digits up to n + 1 leave `rest` in [0, divisor.y),
/// less what the columns after it take away: less than 2^64 for each of the n + 2 digits. A unit of
/// the last digit is divisor.y or more, so that the quotient is less than one unit off, up or down.
bool divide_columns(Limb* out, const Limb* x, const Limb* y, long n) {
  const Divisor divisor(y[n - 1], y[n - 2]);
  DoubleLimb rest = x[n - 1];
  Limb* digit = out + n + 1;
  for (long i = 0; i < n + 2; ++i, --digit) {
    Sum sum;  // column i + 1 of the digits before i
    const long first = std::max(i + 2 - n, 0L);
    sum.add_column(y + (n - 2 - i + first), digit + 1, i - first);
    const long at = n - 2 - i;
    const Limb low = at >= 0 ? x[at] : 0;
    const DoubleLimb taken = double_limb(sum.high, sum.middle) + Limb{low < sum.low};
    if (rest < taken) [[unlikely]] {
      return false;
    }
    rest -= taken;
    *digit = divisor.next_digit(rest, low - sum.low);
  }
  return true;
}

/// The quotient cut off.
void divide_fully(Limb* out, const Limb* x, const Limb* y, long n, Limb* room) {
  Limb* dividend = room + n;
  std::fill_n(dividend, n + 1, 0);
  std::copy_n(x, n, dividend + n + 1);
  mpn_tdiv_qr(out, room, 0, dividend, 2 * n + 1, y, n);
}

}  // namespace

void multiply_high(Limb* out, const Limb* x, const Limb* y, long n, Limb* room) {
  if (x != y && n < columns_limit) {
    multiply_columns(out, x, y, n);
  } else if (n >= square_parts && n < full_limit) {
    multiply_parts(out, x, y, n, room);
  } else {
    multiply_fully(room, x, y, n);
    std::copy_n(room + n - 1, n + 1, out);
  }
}

void divide_high(Limb* out, const Limb* x, const Limb* y, long n, Limb* room) {
  if (n < division_limit && divide_columns(out, x, y, n)) {
    mpn_sub_1(out, out, n + 2, 1);
  } else {
    divide_fully(out, x, y, n, room);
  }
}

}  // namespace zelk::limbs
