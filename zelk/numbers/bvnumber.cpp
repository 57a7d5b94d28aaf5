#include "zelk/numbers/bvnumber.h"

#include "zelk/base/exception.h"

namespace zelk {

void BVNumber::pow2_big(unsigned long k, QNumber* out) {
  QNumber::require_bits(k < npos ? k + 1 : npos);
  mpz_ptr z = QNumber::gmp_tmp[0];
  mpz_set_ui(z, 1);
  mpz_mul_2exp(z, z, k);
  out->assign_big(z);
}

void BVNumber::set_bit_big(QNumber& n, unsigned long i, bool value) {
  if (test_bit(n, i) == value) {
    return;
  }
  QNumber::require_bits(i < npos ? i + 1 : npos);
  if (n.sign() < 0 && !value && lowest_one(n) == i) {
    QNumber::require_bits(lowest_one(n, i + 1) + 1);  // may be all that is left: -2^k
  }
  n.make_big();
  if (value) {
    mpz_setbit(mpq_numref(n.gmp), i);
  } else {
    mpz_clrbit(mpq_numref(n.gmp), i);
  }
}

void BVNumber::trim_big(QNumber& n, unsigned long w) {
  if (n.sign() >= 0 && bit_length(n) <= w) {
    return;
  }
  if (n.sign() < 0) {
    QNumber::require_bits(w);  // 2^w + n, unlike the low bits of a positive n, can be longer
  }
  n.make_big();
  mpz_fdiv_r_2exp(mpq_numref(n.gmp), mpq_numref(n.gmp), w);
}

void BVNumber::right_shift_big(const QNumber& a, unsigned long k, QNumber* out) {
  if (k == 0) {
    *out = a;
    return;
  }
  mpz_fdiv_q_2exp(QNumber::gmp_tmp[0], mpq_numref(a.gmp), k);
  out->assign_big(QNumber::gmp_tmp[0]);
}

void BVNumber::left_shift_big(const QNumber& a, unsigned long k, QNumber* out) {
  if (k == 0) {
    *out = a;
    return;
  }
  const unsigned long length = bit_length(a);
  const unsigned long shift = length == 0 ? 0 : k;
  QNumber::require_bits(shift < npos - length ? length + shift : npos);
  mpz_ptr z = QNumber::gmp_tmp[0];
  mpz_mul_2exp(z, integer(a), shift);
  if (mpz_fits_slong_p(z) != 0) {
    *out = mpz_get_si(z);
  } else {
    out->assign_big(z);
  }
}

unsigned long BVNumber::bit_length_big(const QNumber& a) {
  return a.is_zero() ? 0 : mpz_sizeinbase(mpq_numref(a.gmp), 2);
}

}  // namespace zelk
