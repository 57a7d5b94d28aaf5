#include "zelk/numbers/bvnumber.h"

#include <algorithm>

#include "zelk/base/exception.h"

namespace zelk {

void BVNumber::from_words(std::span<const std::uint64_t> words, QNumber* out) {
  while (!words.empty() && words.back() == 0) {
    words = words.first(words.size() - 1);
  }
  if (words.empty()) {
    *out = 0;
    return;
  }
  QNumber::require_bits(64 * words.size() -
                        static_cast<unsigned long>(std::countl_zero(words.back())));
  out->assign_limbs(words.data(), static_cast<long>(words.size()));
}

void BVNumber::to_words(const QNumber& a, std::span<std::uint64_t> words) {
  if (a.is_small()) {
    const std::uint64_t word = magnitude(a);
    std::fill(std::copy_n(&word, std::min<std::size_t>(words.size(), 1), words.begin()),
              words.end(), 0);
    return;
  }
  const std::size_t size = std::min(words.size(), mpz_size(mpq_numref(a.gmp)));
  std::fill(std::copy_n(mpz_limbs_read(mpq_numref(a.gmp)), size, words.begin()), words.end(), 0);
}

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
