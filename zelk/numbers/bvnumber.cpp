#include "zelk/numbers/bvnumber.h"

#include <algorithm>

#include "zelk/base/exception.h"

namespace zelk {

// Operands are taken before room is made: they may be the target.

void BVNumber::from_words(std::span<const std::uint64_t> words, QNumber* out) {
  while (!words.empty() && words.back() == 0) {
    words = words.first(words.size() - 1);
  }
  if (words.empty()) {
    *out = 0;
  } else if (words.size() == 1 && words[0] <= static_cast<std::uint64_t>(detail::word_max)) {
    *out = words[0];
  } else {
    QNumber::require_bits(64 * words.size() -
                          static_cast<unsigned long>(std::countl_zero(words.back())));
    const auto size = static_cast<mp_size_t>(words.size());
    mpz_ptr z = out->room(words.size());
    std::copy(words.begin(), words.end(), mpz_limbs_write(z, size));
    mpz_limbs_finish(z, size);
    out->set_den(1);
  }
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
  mpz_ptr z = out->room(k / 64 + 1);
  mpz_set_ui(z, 0);
  mpz_setbit(z, k);
  out->set_den(1);
}

void BVNumber::set_bit_big(QNumber& n, unsigned long i, bool value) {
  if (test_bit(n, i) == value) {
    return;
  }
  QNumber::require_bits(i < npos ? i + 1 : npos);
  if (n.sign() < 0 && !value && lowest_one(n) == i) {
    QNumber::require_bits(lowest_one(n, i + 1) + 1);  // may be all that is left: -2^k
  }
  const detail::Operand old = n.numerator();
  mpz_ptr z = n.room(std::max(mpz_size(old), i / 64 + 1) + 1);
  (value ? mpz_setbit : mpz_clrbit)(z, i);
}

void BVNumber::trim_big(QNumber& n, unsigned long w) {
  if (n.sign() >= 0 && bit_length(n) <= w) {
    return;
  }
  if (n.sign() < 0) {
    QNumber::require_bits(w);  // 2^w + n, unlike the low bits of a positive n, can be longer
  }
  mpz_ptr z = n.room(w / 64 + 1);
  mpz_fdiv_r_2exp(z, z, w);
}

void BVNumber::right_shift_big(const QNumber& a, unsigned long k, QNumber* out) {
  if (k == 0) {
    *out = a;
    return;
  }
  mpz_srcptr operand = mpq_numref(a.gmp);
  const std::size_t size = mpz_size(operand);
  mpz_ptr z = out->room(size - std::min(size, k / 64) + 1);
  mpz_fdiv_q_2exp(z, operand, k);
  out->set_den(1);
}

void BVNumber::left_shift_big(const QNumber& a, unsigned long k, QNumber* out) {
  if (k == 0) {
    *out = a;
    return;
  }
  const unsigned long length = bit_length(a);
  const unsigned long shift = length == 0 ? 0 : k;
  QNumber::require_bits(shift < npos - length ? length + shift : npos);
  const detail::Operand operand = a.numerator();
  if (length + shift < 64) {
    *out = mpz_get_si(operand) * (1L << shift);
    return;
  }
  mpz_ptr z = out->room(mpz_size(operand) + shift / 64 + 1);
  mpz_mul_2exp(z, operand, shift);
  out->set_den(1);
}

unsigned long BVNumber::bit_length_big(const QNumber& a) {
  return a.is_zero() ? 0 : mpz_sizeinbase(mpq_numref(a.gmp), 2);
}

}  // namespace zelk
