#include "zelk/numbers/qnumber.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <ostream>
#include <string>

#include "zelk/base/exception.h"

#ifndef ZELK_MAX_BITS
#define ZELK_MAX_BITS (1UL << 32)
#endif

namespace zelk {

const unsigned long max_bits = ZELK_MAX_BITS;
// Sums of two sizes must stay below GMP's 2^37 bits and far from the end of a word.
static_assert(ZELK_MAX_BITS >= 256 && ZELK_MAX_BITS <= (1UL << 36));

long gcd_cache[1024][1024];
mpz_t QNumber::gmp_tmp[4];
constinit static mp_limb_t no_limb = 0;  // read, never written
constinit const __mpq_struct QNumber::none{{1, 0, &no_limb}, {1, 0, &no_limb}};
constinit QNumber::SparePlace* QNumber::spare_places = nullptr;
constinit int QNumber::spare_place_count = 0;

namespace {

// GMP rationals that their numbers gave up, as 0/0 and with their storage: the next big numbers
// start from them. A few, and none of more than a few limbs.
constexpr int spare_max = 32;
constexpr int spare_limbs = 32;
constinit mpq_ptr spares[spare_max];
constinit int spare_count = 0;

constinit int scratch_users = 0;

mpq_ptr new_gmp() {
  if (spare_count > 0) {
    return spares[--spare_count];
  }
  auto* q = new __mpq_struct;
  mpz_init(mpq_numref(q));
  mpz_init(mpq_denref(q));
  return q;
}

void delete_gmp(mpq_ptr q) {
  mpz_clear(mpq_numref(q));
  mpz_clear(mpq_denref(q));
  delete q;
}

// Makes room in z for the value of another integer; z keeps its own.
void reserve(mpz_ptr z, mpz_srcptr value) {
  if (z->_mp_alloc < static_cast<int>(mpz_size(value))) {
    mpz_realloc2(z, mpz_size(value) * 64);
  }
}

// z := the integer of |size| limbs with the sign of `size`. Writes to the fields, whose meaning the
// GMP manual gives under "Integer Internals": for a few limbs calls cost more than the copy.
void set_limbs(mpz_ptr z, const mp_limb_t* limbs, int size) {
  const int n = size < 0 ? -size : size;
  if (z->_mp_alloc < n) {
    mpz_realloc2(z, static_cast<unsigned long>(n) * 64);
  }
  if (n == 1 || n == 2) {
    z->_mp_d[0] = limbs[0];
    z->_mp_d[n - 1] = limbs[n - 1];
  } else if (n != 0) {
    mpn_copyi(z->_mp_d, limbs, n);
  }
  z->_mp_size = size;
}

// z := the word n, other than -2^63.
void assign_word(mpz_ptr z, long n) {
  const auto limb = static_cast<mp_limb_t>(detail::magnitude(n));
  set_limbs(z, &limb, (n > 0) - (n < 0));
}

bool is_one(mpz_srcptr z) { return mpz_cmp_ui(z, 1) == 0; }

unsigned long bit_length(mpz_srcptr z) { return mpz_sgn(z) == 0 ? 0 : mpz_sizeinbase(z, 2); }

std::string decimal(mpz_srcptr z) {
  std::string text(mpz_sizeinbase(z, 10) + 2, '\0');  // a sign and the terminator
  mpz_get_str(text.data(), 10, z);
  text.resize(std::strlen(text.c_str()));
  return text;
}

}  // namespace

namespace detail {

ScratchUser::ScratchUser() noexcept {
  if (scratch_users++ == 0) {
    for (auto& z : QNumber::gmp_tmp) {
      mpz_init(z);
    }
  }
}

// Initialised again after the last user, the integers own nothing and yet serve whoever comes
// later still, such as the destructor of an object that was built before this file.
ScratchUser::~ScratchUser() {
  if (--scratch_users == 0) {
    for (auto& z : QNumber::gmp_tmp) {
      mpz_clear(z);
      mpz_init(z);
    }
    while (spare_count > 0) {
      delete_gmp(spares[--spare_count]);
    }
    while (QNumber::spare_places != nullptr) {
      ::operator delete(QNumber::take_spare_place());
    }
  }
}

long fill_gcd_cache(long x, long y) { return gcd_cache[x][y] = gcd_cache[y][x] = std::gcd(x, y); }

}  // namespace detail

void QNumber::require_bits(unsigned long bits) {
  if (bits > max_bits) {
    throw Exception("number too large");
  }
}

void QNumber::init_big(bool negative, unsigned long magnitude) {
  make_big();
  mpz_set_ui(mpq_numref(gmp), magnitude);
  if (negative) {
    self_neg();
  }
}

void QNumber::init_ratio(mpz_srcptr n, mpz_srcptr d) {
  if (mpz_sgn(d) == 0) {
    throw Exception("division by zero");
  }
  if (mpz_fits_sint_p(n) != 0 && mpz_fits_sint_p(d) != 0) {
    num = mpz_get_si(n);
    den = mpz_get_si(d);
  } else {
    require_bits(bit_length(n));
    require_bits(bit_length(d));
    QNumber big;
    big.make_big();
    mpz_set(mpq_numref(big.gmp), n);
    mpz_set(mpq_denref(big.gmp), d);
    take(big);
  }
  normalize();
}

// k < 0 only for an odd n.
void QNumber::init_scaled(long n, long k) {
  const auto shift = static_cast<unsigned long>(detail::magnitude(k));
  const auto length =
      static_cast<unsigned long>(std::bit_width(static_cast<unsigned long>(detail::magnitude(n))));
  require_bits(k < 0 ? shift + 1 : shift + length);
  QNumber big;
  big.make_big();
  mpz_set_si(mpq_numref(big.gmp), n);
  if (k < 0) {
    mpz_set_ui(mpq_denref(big.gmp), 0);
    mpz_setbit(mpq_denref(big.gmp), shift);
  } else {
    mpz_mul_2exp(mpq_numref(big.gmp), mpq_numref(big.gmp), shift);
  }
  take(big);
}

QNumber QNumber::scaled(const mp_limb_t* limbs, long n, bool negative, long k) {
  if (n == 1 && limbs[0] <= static_cast<unsigned long>(detail::word_max)) {
    const auto word = static_cast<long>(limbs[0]);
    return scaled(negative ? -word : word, k);
  }
  const auto shift = static_cast<unsigned long>(detail::magnitude(k));
  const unsigned long twos = k < 0 ? std::min(mpn_scan1(limbs, 0), shift) : 0;
  require_bits(k < 0 ? shift + 1
                     : shift + static_cast<unsigned long>(n) * 64 -
                           static_cast<unsigned long>(std::countl_zero(limbs[n - 1])));
  mpz_t significand;
  QNumber q;
  q.make_big();
  mpz_ptr z = mpq_numref(q.gmp);
  mpz_roinit_n(significand, limbs, negative ? -n : n);
  if (k < 0) {
    mpz_tdiv_q_2exp(z, significand, twos);
    mpz_set_ui(mpq_denref(q.gmp), 0);
    mpz_setbit(mpq_denref(q.gmp), shift - twos);
  } else {
    mpz_mul_2exp(z, significand, shift);
  }
  return q;
}

// Both parts are there before this number changes: an allocator of GMP's may throw.

void QNumber::init_copy(const QNumber& other) {
  QNumber copy;
  copy.gmp = new_gmp();
  copy.den = 0;
  mpz_set(mpq_numref(copy.gmp), mpq_numref(other.gmp));
  mpz_set(mpq_denref(copy.gmp), mpq_denref(other.gmp));
  take(copy);
}

void QNumber::make_big() {
  if (is_small()) {
    QNumber big;
    big.gmp = new_gmp();
    big.den = 0;
    mpz_set_si(mpq_numref(big.gmp), num);
    mpz_set_si(mpq_denref(big.gmp), den);
    take(big);
  }
}

void QNumber::assign_big(const QNumber& other) {
  if (this == &other) {
    return;
  }
  if (!is_small() && !other.is_small() && is_integer() && other.is_integer()) [[likely]] {
    set_limbs(mpq_numref(gmp), mpq_numref(other.gmp)->_mp_d, mpq_numref(other.gmp)->_mp_size);
  } else if (is_small()) {
    init_copy(other);
  } else if (other.is_small()) {
    assign_word(mpq_numref(gmp), other.num);
    if (other.den != 1 || !is_integer()) {
      mpz_set_si(mpq_denref(gmp), other.den);
    }
  } else {
    reserve(mpq_numref(gmp), mpq_numref(other.gmp));
    reserve(mpq_denref(gmp), mpq_denref(other.gmp));
    mpz_set(mpq_numref(gmp), mpq_numref(other.gmp));
    mpz_set(mpq_denref(gmp), mpq_denref(other.gmp));
  }
}

void QNumber::assign_big(mpz_srcptr integer) {
  make_big();
  mpz_set(mpq_numref(gmp), integer);
  mpz_set_ui(mpq_denref(gmp), 1);
}

void QNumber::assign_big(unsigned long n) {
  make_big();
  mpz_set_ui(mpq_numref(gmp), n);
  mpz_set_ui(mpq_denref(gmp), 1);
}

void QNumber::assign_limbs(const mp_limb_t* limbs, long n) {
  while (n > 1 && limbs[n - 1] == 0) {
    --n;
  }
  if (n == 1) {
    assign(limbs[0]);
    return;
  }
  make_big();
  set_limbs(mpq_numref(gmp), limbs, static_cast<int>(n));
  if (!is_integer()) {
    mpz_set_ui(mpq_denref(gmp), 1);
  }
}

void QNumber::move_big(QNumber& other) noexcept {
  if (other.is_small()) {
    assign_big(other);  // into storage that this number has
    other.reset();
  } else if (this != &other) {
    reset();
    take(other);
  }
}

void QNumber::release() noexcept {
  mpz_ptr n = mpq_numref(gmp);
  mpz_ptr d = mpq_denref(gmp);
  if (scratch_users > 0 && spare_count < spare_max &&
      std::max(n->_mp_alloc, d->_mp_alloc) <= spare_limbs) {
    n->_mp_size = 0;
    d->_mp_size = 0;
    spares[spare_count++] = gmp;
  } else {
    delete_gmp(gmp);
  }
}

void* QNumber::allocate(std::size_t size) { return ::operator new(size); }

void QNumber::operator delete(void* place, std::size_t size) noexcept {
  if (size == sizeof(QNumber) && scratch_users > 0 && spare_place_count < spare_max) {
    spare_places = new (place) SparePlace{spare_places};
    ++spare_place_count;
  } else {
    ::operator delete(place);
  }
}

bool QNumber::big_fits_long() const { return mpz_sizeinbase(mpq_numref(gmp), 2) <= 63; }

void QNumber::normalize() {
  if (is_small()) {
    const long g = detail::gcd(detail::magnitude(num), detail::magnitude(den));
    const long divisor = den < 0 ? -g : g;
    num /= divisor;
    den /= divisor;
    return;
  }
  mpz_ptr n = mpq_numref(gmp);
  mpz_ptr d = mpq_denref(gmp);
  if (mpz_cmpabs_ui(d, 1) != 0) {
    mpz_gcd(gmp_tmp[0], n, d);
    mpz_divexact(n, n, gmp_tmp[0]);
    mpz_divexact(d, d, gmp_tmp[0]);
  }
  if (mpz_sgn(d) < 0) {
    mpz_neg(n, n);
    mpz_neg(d, d);
  }
}

// The reduction of the small form, on GMP integers. Whatever other refers to is read before the
// target changes, so that other may be the target.
void QNumber::add_big(const QNumber& other, bool subtract) {
  make_big();
  const auto add = subtract ? mpz_sub : mpz_add;
  auto& [t0, t1, t2, t3] = gmp_tmp;
  mpz_srcptr p = t2;
  mpz_srcptr q = t3;
  if (other.is_small()) {
    mpz_set_si(t2, other.num);
    mpz_set_si(t3, other.den);
  } else {
    p = mpq_numref(other.gmp);
    q = mpq_denref(other.gmp);
  }
  mpz_ptr a = mpq_numref(gmp);
  mpz_ptr b = mpq_denref(gmp);
  if (is_one(b) && is_one(q)) {
    const bool grows = (mpz_sgn(a) == mpz_sgn(p)) != subtract;
    require_bits(std::max(bit_length(a), bit_length(p)) + static_cast<unsigned long>(grows));
    add(a, a, p);
    return;
  }
  mpz_gcd(t0, b, q);
  mpz_divexact(t1, b, t0);
  mpz_divexact(t3, q, t0);
  require_bits(std::max(bit_length(p) + bit_length(t1), bit_length(a) + bit_length(t3)) + 1);
  require_bits(bit_length(b) + bit_length(t3));
  mpz_mul(t2, p, t1);
  mpz_mul(a, a, t3);
  add(a, a, t2);
  mpz_gcd(t2, a, t0);
  mpz_divexact(a, a, t2);
  mpz_divexact(t0, t0, t2);
  mpz_mul(b, t1, t3);
  mpz_mul(b, b, t0);
}

void QNumber::multiply_big(const QNumber& other) {
  make_big();
  mpz_ptr a = mpq_numref(gmp);
  mpz_ptr b = mpq_denref(gmp);
  auto& [t0, t1, t2, t3] = gmp_tmp;
  mpz_srcptr p = t2;
  mpz_srcptr q = t3;
  if (other.is_small()) {
    if (other.num == 0 && !is_one(b)) {
      reset();
      return;
    }
    mpz_set_si(t2, other.num);
    mpz_set_si(t3, other.den);
  } else {
    p = mpq_numref(other.gmp);
    q = mpq_denref(other.gmp);
  }
  if (is_one(b) && is_one(q)) {
    require_bits(bit_length(a) + bit_length(p));
    mpz_mul(a, a, p);
    return;
  }
  mpz_gcd(t0, a, q);
  mpz_gcd(t1, p, b);
  mpz_divexact(t2, p, t1);
  mpz_divexact(t3, q, t0);
  require_bits(bit_length(a) + 1 - std::min(bit_length(a), bit_length(t0)) + bit_length(t2));
  require_bits(bit_length(b) + 1 - std::min(bit_length(b), bit_length(t1)) + bit_length(t3));
  mpz_divexact(a, a, t0);
  mpz_mul(a, a, t2);
  mpz_divexact(b, b, t1);
  mpz_mul(b, b, t3);
}

int QNumber::compare_big(const QNumber& a, const QNumber& b) {
  if (a.is_small()) {
    return -compare_big(b, a);
  }
  return b.is_small() ? mpq_cmp_si(a.gmp, b.num, static_cast<unsigned long>(b.den))
                      : mpq_cmp(a.gmp, b.gmp);
}

QNumber QNumber::inv() const {
  if (is_zero()) {
    throw Exception("division by zero");
  }
  QNumber r(*this);
  if (r.is_small()) {
    std::swap(r.num, r.den);
  } else {
    mpz_swap(mpq_numref(r.gmp), mpq_denref(r.gmp));
  }
  r.normalize();
  return r;
}

void QNumber::divmod(const QNumber& d, QNumber& q, QNumber& r) const {
  if (d.is_zero()) {
    throw Exception("division by zero");
  }
  if (is_small() && d.is_small()) {
    long quotient = num / d.num;
    long rest = num % d.num;
    if (rest != 0 && (rest < 0) != (d.num < 0)) {
      --quotient;
      rest += d.num;
    }
    q = quotient;
    r = rest;
    return;
  }
  // Both targets get their storage, at their old values, before either takes its new one.
  q.make_big();
  r.make_big();
  auto& [t0, t1, t2, t3] = gmp_tmp;
  const auto numerator = [](const QNumber& n, mpz_ptr scratch) -> mpz_srcptr {
    if (!n.is_small()) {
      return mpq_numref(n.gmp);
    }
    mpz_set_si(scratch, n.num);
    return scratch;
  };
  mpz_fdiv_qr(t2, t3, numerator(*this, t0), numerator(d, t1));
  q.assign_big(t2);
  r.assign_big(t3);
}

QNumber QNumber::big_num() const {
  mpz_set_ui(gmp_tmp[1], 1);
  QNumber n;
  n.init_ratio(mpq_numref(gmp), gmp_tmp[1]);
  return n;
}

QNumber QNumber::big_den() const {
  mpz_set_ui(gmp_tmp[1], 1);
  QNumber d;
  d.init_ratio(mpq_denref(gmp), gmp_tmp[1]);
  return d;
}

mpq_class QNumber::to_mpq() const { return is_small() ? mpq_class(num, den) : mpq_class(gmp); }

std::ostream& operator<<(std::ostream& os, const QNumber& q) {
  std::string text = q.is_small() ? std::to_string(q.num) : decimal(mpq_numref(q.gmp));
  if (!q.is_integer()) {
    text += '/';
    text += q.is_small() ? std::to_string(q.den) : decimal(mpq_denref(q.gmp));
  }
  return os << text;
}

}  // namespace zelk
