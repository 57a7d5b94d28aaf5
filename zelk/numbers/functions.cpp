// What numbers have beside their arithmetic: powers, integers near by, text, hashes.
#include <cmath>
#include <cstring>
#include <ostream>

#include "zelk/base/exception.h"
#include "zelk/base/quoted.h"
#include "zelk/numbers/bvnumber.h"
#include "zelk/numbers/qnumber.h"

namespace zelk {

namespace {

void require_integer(const QNumber& n, const char* what) {
  if (!n.is_integer()) {
    throw Exception(std::string(what) + " is not an integer: " + detail::quoted(n.to_string()));
  }
}

std::string decimal(mpz_srcptr z) {
  std::string text(mpz_sizeinbase(z, 10) + 2, '\0');  // a sign and the terminator
  mpz_get_str(text.data(), 10, z);
  text.resize(std::strlen(text.c_str()));
  return text;
}

// z^n, which has z's logarithm n times, give or take what a double loses.
mpz_class power(mpz_srcptr z, unsigned long n) {
  long exponent = 0;
  const double fraction = mpz_get_d_2exp(&exponent, z);
  const double bits =
      (std::log2(std::abs(fraction)) + static_cast<double>(exponent)) * static_cast<double>(n);
  if (bits + 2 > static_cast<double>(max_bits)) {
    throw Exception("number too large");
  }
  mpz_class result;
  mpz_pow_ui(result.get_mpz_t(), z, n);
  return result;
}

}  // namespace

QNumber operator%(const QNumber& a, const QNumber& b) {
  require_integer(a, "number");
  require_integer(b, "number");
  QNumber quotient;
  QNumber rest;
  a.divmod(b, quotient, rest);
  rest.shrink();
  return rest;
}

QNumber abs(QNumber q) {
  if (q.sign() < 0) {
    q.self_neg();
  }
  q.shrink();
  return q;
}

QNumber floor(const QNumber& q) {
  QNumber quotient;
  QNumber rest;
  q.get_num().divmod(q.get_den(), quotient, rest);
  quotient.shrink();
  return quotient;
}

QNumber ceil(const QNumber& q) { return -floor(-q); }

QNumber pow(const QNumber& q, const QNumber& n) {
  require_integer(n, "exponent");
  if (n.sign() < 0) {
    return pow(q.inv(), -n);
  }
  if (n.is_zero() || q == 1) {
    return 1;
  }
  if (q.is_zero()) {
    return 0;
  }
  if (q == -1) {
    return BVNumber::test_bit(n, 0) ? -1 : 1;
  }
  if (!n.fits_long()) {
    throw Exception("number too large");
  }
  const auto k = static_cast<unsigned long>(n.to_long());
  const mpz_class numerator = power(q.numerator(), k);
  const mpz_class denominator = power(q.denominator(), k);
  QNumber result;
  result.assign_ratio(numerator.get_mpz_t(), denominator.get_mpz_t());
  result.shrink();
  return result;
}

std::string QNumber::to_string() const {
  std::string text = is_small() ? std::to_string(num) : decimal(mpq_numref(gmp));
  if (!is_integer()) {
    text += '/';
    text += is_small() ? std::to_string(den) : decimal(mpq_denref(gmp));
  }
  return text;
}

std::ostream& operator<<(std::ostream& os, const QNumber& q) { return os << q.to_string(); }

std::size_t QNumber::hash() const noexcept {
  auto hash = static_cast<std::size_t>(sign());
  const auto mix = [&hash](std::uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15;
    hash ^= hash >> 32;
  };
  for (const detail::Operand& part : {numerator(), denominator()}) {
    for (std::size_t i = 0; i < mpz_size(part); ++i) {
      mix(mpz_getlimbn(part, static_cast<mp_size_t>(i)));
    }
    mix(mpz_size(part));
  }
  return hash;
}

}  // namespace zelk
