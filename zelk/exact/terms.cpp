#include "zelk/exact/terms.h"

#include <gmpxx.h>

#include <algorithm>

#include "zelk/numbers/room.h"

namespace zelk::exact {

namespace {

QNumber shifted(const QNumber& n, unsigned long k) {
  detail::require_bits(BVNumber::bit_length(n) + std::min(k, max_bits));
  QNumber out;
  BVNumber::bit_left_shift(n, k, &out);
  return out;
}

// A distance of exponents that is known to be within the limit.
unsigned long distance(const QNumber& high, const QNumber& low) {
  const QNumber d = high - low;
  return d.fits_long() ? static_cast<unsigned long>(d.to_long()) : BVNumber::npos;
}

mpz_class integer(const QNumber& n) { return n.to_mpq().get_num(); }
QNumber number(const mpz_class& n) { return {n, 1}; }

// The same value with p digits at least.
void widen(Term& t, unsigned long p) {
  const unsigned long length = BVNumber::bit_length(t.significand);
  if (const unsigned long k = p > length ? p - length : 0; k > 0) {
    t.significand = shifted(t.significand, k);
    t.exponent -= k;
  }
}

// The value plus less than one unit, or less if `below` is negative: one digit more, which is 1.
void append_sticky(Term& t, int below) {
  if (below != 0) {
    t.significand = shifted(t.significand, 1);
    t.significand += below;
    t.exponent -= 1;
  }
}

}  // namespace

Term add(const Term& a, const Term& b) {
  const bool swap = a.exponent < b.exponent;
  Term sum = swap ? a : b;  // the one of the lower exponent
  const Term& other = swap ? b : a;
  const QNumber addend = shifted(other.significand, distance(other.exponent, sum.exponent));
  sum.significand += sum.negative != other.negative ? -addend : addend;
  if (sum.significand.sign() < 0) {
    sum.significand.self_neg();
    sum.negative = !sum.negative;
  }
  return sum;
}

Term add(const Term& a, const Term& b, unsigned long p) {
  if (a.significand.is_zero() || b.significand.is_zero()) {
    return a.significand.is_zero() ? b : a;
  }
  const bool swap = a.top() < b.top();
  Term large = swap ? b : a;
  const Term& small = swap ? a : b;
  widen(large, p + 1);  // a difference may have one digit less
  if (small.top() < large.exponent) {
    append_sticky(large, large.negative != small.negative ? -1 : 1);
    return large;
  }
  return add(large, small);  // exponents are no further apart than a significand is long
}

Term multiply(const Term& a, const Term& b) {
  detail::require_bits(BVNumber::bit_length(a.significand) + BVNumber::bit_length(b.significand));
  return {a.negative != b.negative, a.significand * b.significand, a.exponent + b.exponent};
}

Term divide(const Term& a, const Term& b, unsigned long p) {
  Term t = a;
  widen(t, p + BVNumber::bit_length(b.significand));
  t.negative = a.negative != b.negative;
  t.exponent -= b.exponent;
  QNumber rest;
  const QNumber dividend = t.significand;
  dividend.divmod(b.significand, t.significand, rest);
  append_sticky(t, static_cast<int>(!rest.is_zero()));
  return t;
}

Term sqrt(const Term& a, unsigned long p) {
  Term t = a;
  widen(t, 2 * p);
  if (BVNumber::test_bit(t.exponent, 0)) {
    t.significand = shifted(t.significand, 1);
    t.exponent -= 1;
  }
  mpz_class root;
  mpz_class rest;
  mpz_sqrtrem(root.get_mpz_t(), rest.get_mpz_t(), integer(t.significand).get_mpz_t());
  t.significand = number(root);
  BVNumber::bit_right_shift(t.exponent, 1, &t.exponent);
  append_sticky(t, static_cast<int>(rest != 0));
  return t;
}

Term remainder(const Term& a, const Term& b, bool nearest) {
  // With |a| below a quarter of |b|, the quotient is 0.
  if (a.significand.is_zero() || a.top() + 1 < b.exponent) {
    return a;
  }
  Term r = a;
  mpz_class divisor = integer(b.significand);
  mpz_class x = integer(a.significand);
  if (a.exponent < b.exponent) {
    divisor = integer(shifted(b.significand, distance(b.exponent, a.exponent)));
  } else {
    // a over the unit of b: the power of two modulo twice the divisor, which keeps the parity of
    // the quotient.
    const mpz_class modulus = 2 * divisor;
    const mpz_class two = 2;
    const mpz_class k = integer(a.exponent - b.exponent);
    mpz_class power;
    mpz_powm(power.get_mpz_t(), two.get_mpz_t(), k.get_mpz_t(), modulus.get_mpz_t());
    x = x * power % modulus;
    r.exponent = b.exponent;
  }
  mpz_class quotient;
  mpz_class rest;
  mpz_tdiv_qr(quotient.get_mpz_t(), rest.get_mpz_t(), x.get_mpz_t(), divisor.get_mpz_t());
  if (const mpz_class twice = 2 * rest;
      nearest && (twice > divisor || (twice == divisor && quotient % 2 != 0))) {
    rest = divisor - rest;
    r.negative = !r.negative;
  }
  r.significand = number(rest);
  return r;
}

int compare_magnitudes(const Term& a, const Term& b) {
  const QNumber a_top = a.top();
  const QNumber b_top = b.top();
  if (a_top != b_top) {
    return a_top < b_top ? -1 : 1;
  }
  Term x = a;
  Term y = b;
  const unsigned long length =
      std::max(BVNumber::bit_length(a.significand), BVNumber::bit_length(b.significand));
  widen(x, length);
  widen(y, length);
  return x.significand < y.significand ? -1 : static_cast<int>(y.significand < x.significand);
}

}  // namespace zelk::exact
