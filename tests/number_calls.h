// Calls on exact numbers beside the same on GMP's.
#ifndef ZELK_TESTS_NUMBER_CALLS_H_
#define ZELK_TESTS_NUMBER_CALLS_H_

#include <vector>

#include "tests/support.h"

namespace zelk_test {

using zelk::BVNumber;

inline mpz_class floor_div(const mpz_class& a, const mpz_class& b) {
  mpz_class q;
  mpz_fdiv_q(q.get_mpz_t(), a.get_mpz_t(), b.get_mpz_t());
  return q;
}

/// Whether words can hold the number.
inline bool fits(const mpq_class& v) {
  return abs(v.get_num()) < pow2(63) && v.get_den() < pow2(63);
}

/// Value, canonical form and every accessor; small only where the words can hold it.
inline void expect_value(const QNumber& q, const mpq_class& want, const std::string& what) {
  const bool integer = want.get_den() == 1;
  EXPECT_TRUE((std::ostringstream() << q).str() == want.get_str() &&
              q.get_num().to_mpq() == want.get_num() && q.get_den().to_mpq() == want.get_den() &&
              mpq_equal(q.to_mpq().get_mpq_t(), want.get_mpq_t()) && q.sign() == sgn(want) &&
              q.is_integer() == integer && q.fits_long() == (integer && fits(want)) &&
              (!q.fits_long() || q.to_long() == want.get_num()) && (!q.is_small() || fits(want)))
      << what << " = " << q << ", wanted " << want;
}

/// Numbers and their values. A call has two targets, the operands x and y, and a word or count.
struct Numbers {
  static constexpr unsigned long calls = 24;
  QNumber numbers[4];
  mpq_class values[4];

  /// Makes a call on numbers, then on values; false, and nothing done, where it is not allowed.
  bool call(unsigned long call, unsigned long i, unsigned long word) {
    QNumber &x = numbers[i % 4], &y = numbers[i / 4 % 4], &z = numbers[(i + 1) % 4];
    mpq_class &u = values[i % 4], &v = values[i / 4 % 4], &w = values[(i + 1) % 4];
    const mpz_class m = u.get_num(), n = v.get_num();
    if ((call >= 9 && call <= 12 && v != n) || (call >= 12 && call <= 15 && u != m)) return false;
    if (((call == 6 || call == 7) && n == 0) || (call == 8 && m == 0)) return false;
    const unsigned long count = word % 220;
    const mpz_class bit = pow2(count);
    const auto k = static_cast<long>(word);
    if (call == 0) x += y, u += v;
    if (call == 1) x -= y, u -= v;
    if (call == 2) x *= y, u *= v;
    if (call == 3) x = y, u = v;
    if (call == 4) x = -y, u = -v;
    if (call == 5)
      x = std::move(y), u = v, v = &x == &y ? v : mpq_class();  // NOLINT(bugprone-use-after-move)
    if (call == 6) x = y.inv(), u = 1 / v;
    if (call == 7) x.divmod(y, x, z), u = floor_div(m, n), w = m - u.get_num() * n;
    if (call == 8) y.divmod(x, z, x), w = floor_div(n, m), u = n - w.get_num() * m;
    if (call == 9) BVNumber::bit_left_shift(y, count, &x), u = n * bit;
    if (call == 10) BVNumber::bit_right_shift(y, count, &x), u = n >> count;
    if (call == 11) BVNumber::neg(count, y, &x), u = bit - n;
    if (call == 12) BVNumber::bit_op(x, y, BVNumber::bit_and_l, mpz_and, &x), u = m & n;
    if (call == 13) BVNumber::trim(x, count), u = m & (bit - 1);
    if (call == 14) BVNumber::set_bit(x, count, true), u = m | bit;
    if (call == 15) BVNumber::set_bit(x, count, false), u = m & ~bit;
    if (call == 16) BVNumber::pow2(count, &x), u = bit;
    if (call == 17) x = word, u = word;
    if (call == 18) x = k, u = k;
    if (call == 19)
      x = QNumber::scaled(k / 2, static_cast<long>(count) - 110), u = mpq_class(k / 2 * bit) >> 110;
    if (call == 20) {
      const std::uint64_t words[] = {word, count % 2 == 0 ? ~word : 0, word % 3 == 0 ? word : 0, 0};
      BVNumber::from_words(words, &x);
      u = (mpz_class(words[2]) * pow2(64) + words[1]) * pow2(64) + words[0];
    }
    if (call == 21) x -= k, u -= k;
    if (call == 22) x = QNumber(y.to_mpq()), u = v;
    if (call == 23) x = QNumber::from_text(y.to_mpq().get_str()), u = v;
    return true;
  }

  /// Makes a call and checks value and form of what it leaves.
  void check(unsigned long which, unsigned long i, unsigned long word) {
    const QNumber &x = numbers[i % 4], &y = numbers[i / 4 % 4], &z = numbers[(i + 1) % 4];
    const mpq_class u = values[i % 4], v = values[i / 4 % 4], &is = values[i % 4];
    const bool integers = u.get_den() == 1 && v.get_den() == 1;
    const unsigned long count = word % 220;
    // A big target stays big; of small operands the result is small where words can hold it.
    const bool room = abs(u.get_num() * v.get_num()) * u.get_den() * v.get_den() < pow2(30);
    const bool known =
        which < 22 && (which == 21 ? u.get_den() == 1 : which > 2 || integers || room);
    const bool subtracts_least = which == 21 && word == 1UL << 63;  // which is big as a number
    const bool words =
        x.is_small() && ((which > 12 && which < 22) || y.is_small()) && !subtracts_least;
    const bool becomes_zero = which == 2 && u.get_den() != 1 && v == 0 && y.is_small();
    bool form = words || (x.is_small() && ((which == 9 && count > 0) || which > 21));
    const bool z_form = words && z.is_small();
    if (!call(which, i, word)) return;

    const std::string what = "call " + std::to_string(which);
    for (const auto j : {i % 4, i / 4 % 4, (i + 1) % 4}) expect_value(numbers[j], values[j], what);
    form = form && fits(is);
    if ((which == 14 || which == 15) && is != u) form = form && count <= 62 && u >= 0;
    if (which == 11) form = form && count <= 62;
    if (becomes_zero) form = true;
    EXPECT_TRUE(x.is_small() == form || (!known && form)) << what << " gives " << x;
    EXPECT_TRUE((which != 7 && which != 8) || z.is_small() == z_form) << what << " gives " << z;
    const mpq_class& now = values[i / 4 % 4];
    EXPECT_TRUE((x < y) == (is < now) && (x <= y) == (is <= now) && (x == y) == (is == now))
        << x << ' ' << y;
    const mpz_class r = is.get_num();
    if (is != r) return;
    const unsigned long length = r == 0 ? 0 : mpz_sizeinbase(r.get_mpz_t(), 2);
    EXPECT_TRUE(BVNumber::bit_length(x) == length &&
                BVNumber::low_word(x) == mpz_class(r & (pow2(64) - 1)).get_ui() &&
                BVNumber::count_leading_zeros(x, count) ==
                    (r < 0 || length > count ? 0 : count - length) &&
                BVNumber::test_bit(x, count) == (mpz_tstbit(r.get_mpz_t(), count) != 0) &&
                BVNumber::lowest_one(x, count) == mpz_scan1(r.get_mpz_t(), count) &&
                BVNumber::lowest_zero(x, count) == mpz_scan0(r.get_mpz_t(), count))
        << x << " and " << count;
    std::vector<std::uint64_t> low(word % 6, 7);
    BVNumber::to_words(x, low);
    for (std::size_t j = 0; j < 8; ++j) {
      const std::uint64_t bits = mpz_class(abs(r) >> (64 * j) & (pow2(64) - 1)).get_ui();
      EXPECT_TRUE(BVNumber::word(x, j) == bits && (j >= low.size() || low[j] == bits)) << x;
    }
  }
};

}  // namespace zelk_test

#endif  // ZELK_TESTS_NUMBER_CALLS_H_
