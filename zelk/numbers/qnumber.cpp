#include "zelk/numbers/qnumber.h"

#include <algorithm>
#include <new>
#include <numeric>

#include "zelk/base/exception.h"
#include "zelk/base/thread_scratch.h"
#include "zelk/numbers/bvnumber.h"

#ifndef ZELK_MAX_BITS
#define ZELK_MAX_BITS (1UL << 32)
#endif

namespace zelk {

const unsigned long max_bits = ZELK_MAX_BITS;
// Sums of two sizes must stay below GMP's 2^37 bits and far from the end of a word.
static_assert(ZELK_MAX_BITS >= 256 && ZELK_MAX_BITS <= (1UL << 36),
              "ZELK_MAX_BITS must be from 256 to 2^36");

long gcd_cache[1024][1024];

namespace {

// What fractions are computed in.
struct Integers {
  mpz_t numbers[4];
  int ready;

  // Each with a limb at least, as numbers want it that take them over.
  mpz_t (&get())[4] {
    for (; ready < 4; ++ready) {
      mpz_init2(numbers[ready], 64);
    }
    return numbers;
  }
  void release() noexcept {
    while (ready > 0) {
      mpz_clear(numbers[--ready]);
    }
  }
};
using Scratch = detail::ThreadScratch<Integers>;

bool has_storage(mpz_srcptr z) { return z->_mp_alloc != 0; }

// Gives z storage of its own for so many limbs; z keeps its value.
void reserve(mpz_ptr z, std::size_t limbs) {
  if (!has_storage(z)) {
    mpz_t own;
    mpz_init2(own, 64 * std::max({limbs, mpz_size(z), std::size_t{1}}));
    mpz_set(own, z);
    *z = *own;
  } else if (static_cast<std::size_t>(z->_mp_alloc) < limbs) {
    mpz_realloc2(z, 64 * limbs);
  }
}

// product := x * y. GMP may free the limbs of a product before it takes longer ones: there is room
// before, so that a failure leaves a product whole.
void multiply(mpz_ptr product, mpz_srcptr x, mpz_srcptr y) {
  reserve(product, mpz_size(x) + mpz_size(y));
  mpz_mul(product, x, y);
}

// Sets a part of a big number, wherever its limbs are.
void set_word(mpz_ptr z, bool negative, unsigned long magnitude) noexcept {
  z->_mp_d[0] = magnitude;
  z->_mp_size = magnitude == 0 ? 0 : negative ? -1 : 1;
}

// Sets the size of a part whose limbs are written, of which the highest may be 0.
void finish(mpz_ptr z, std::size_t size, bool negative) noexcept {
  const int n = static_cast<int>(size) - static_cast<int>(z->_mp_d[size - 1] == 0);
  z->_mp_size = negative ? -n : n;
}

// The most limbs in a block: where a part has left it, they are lost while the number lives.
constexpr std::size_t most_in_block = 512;

// A block for so many limbs, both parts in it and 0.
mpq_ptr new_block(std::size_t num_limbs, std::size_t den_limbs) {
  auto* q = static_cast<mpq_ptr>(
      ::operator new(sizeof(__mpq_struct) + sizeof(mp_limb_t) * (num_limbs + den_limbs)));
  auto* limbs = reinterpret_cast<mp_limb_t*>(q + 1);
  *mpq_numref(q) = {0, 0, limbs + den_limbs};
  *mpq_denref(q) = {0, 0, limbs};
  return q;
}

void copy_limbs(mpz_srcptr z, mp_limb_t* to) { std::copy_n(mpz_limbs_read(z), mpz_size(z), to); }

// n limbs of 0 to `to`, mostly few: the call that compilers make of it costs more. What is behind.
mp_limb_t* clear_limbs(mp_limb_t* to, std::size_t n) {
  if (n > 8) {
    return std::fill_n(to, n, 0);
  }
  for (; n > 0; --n) {
    *to++ = detail::opaque(mp_limb_t{0});
  }
  return to;
}

// To size + k / 64 + 1 limbs, and to size - k / 64.
void shift_left(const mp_limb_t* limbs, std::size_t size, unsigned long k, mp_limb_t* to) {
  to = clear_limbs(to, k / 64);
  mp_limb_t carry = 0;
  for (std::size_t i = 0; i < size; ++i) {
    to[i] = limbs[i] << k % 64 | carry;
    carry = limbs[i] >> 1 >> (63 - k % 64);
  }
  to[size] = carry;
}
void shift_right(const mp_limb_t* limbs, std::size_t size, unsigned long k, mp_limb_t* to) {
  mp_limb_t carry = 0;
  for (std::size_t i = size; i-- > k / 64;) {
    to[i - k / 64] = limbs[i] >> k % 64 | carry;
    carry = limbs[i] << 1 << (63 - k % 64);
  }
}

unsigned long bit_length(mpz_srcptr z) { return mpz_sgn(z) == 0 ? 0 : mpz_sizeinbase(z, 2); }

}  // namespace

namespace detail {

long fill_gcd_cache(long x, long y) {
  const long divisor = std::gcd(x, y);
  __atomic_store_n(&gcd_cache[x][y], divisor, __ATOMIC_RELAXED);
  __atomic_store_n(&gcd_cache[y][x], divisor, __ATOMIC_RELAXED);
  return divisor;
}

}  // namespace detail

void QNumber::require_bits(unsigned long bits) {
  if (bits > max_bits) {
    throw Exception("number too large");
  }
}

// What follows makes room before it changes anything: an allocator of GMP's may throw.

template <class Write>
void QNumber::init_parts(std::size_t num_limbs, std::size_t den_limbs, Write write) {
  QNumber big;
  if (num_limbs + den_limbs <= most_in_block) [[likely]] {
    big.gmp = new_block(num_limbs, den_limbs);
    big.den = 0;
  } else {
    big = big_zero(num_limbs);
    big.reserve_den(den_limbs);
  }
  const bool negative = write(mpq_numref(big.gmp)->_mp_d, mpq_denref(big.gmp)->_mp_d);
  finish(mpq_numref(big.gmp), num_limbs, negative);
  finish(mpq_denref(big.gmp), den_limbs, false);
  take(big);
}

void QNumber::init_big(bool negative, unsigned long magnitude) {
  init_parts(1, 1, [&](mp_limb_t* n, mp_limb_t* d) {
    *n = magnitude;
    *d = 1;
    return negative;
  });
}

void QNumber::init_wide(bool negative, detail::unsigned_int128 magnitude) {
  init_parts(2, 1, [&](mp_limb_t* n, mp_limb_t* d) {
    n[0] = static_cast<mp_limb_t>(magnitude);
    n[1] = static_cast<mp_limb_t>(magnitude >> 64);
    *d = 1;
    return negative;
  });
}

QNumber QNumber::big_zero(std::size_t limbs) {
  QNumber q;
  q.init_big(false, 0);
  reserve(mpq_numref(q.gmp), limbs);
  return q;
}

void QNumber::release() noexcept {
  for (mpz_ptr part : {mpq_numref(gmp), mpq_denref(gmp)}) {
    if (has_storage(part)) {
      mpz_clear(part);
    }
  }
  ::operator delete(gmp);
}

mpz_ptr QNumber::room(std::size_t limbs) {
  if (is_small()) {
    QNumber big = big_zero(limbs);
    set_word(mpq_numref(big.gmp), num < 0, static_cast<unsigned long>(detail::magnitude(num)));
    take(big);
  } else {
    reserve(mpq_numref(gmp), limbs);
  }
  return mpq_numref(gmp);
}

void QNumber::reserve_den(std::size_t limbs) {
  if (limbs > 1) {
    reserve(mpq_denref(gmp), limbs);
  }
}

void QNumber::set_den(mpz_srcptr d) noexcept {
  if (mpz_size(d) > 1) {
    mpz_abs(mpq_denref(gmp), d);
  } else {
    set_den(mpz_getlimbn(d, 0));
  }
}

void QNumber::set_den(unsigned long d) noexcept { set_word(mpq_denref(gmp), false, d); }

void QNumber::assign_ratio(mpz_srcptr n, mpz_srcptr d) {
  if (is_small()) {
    init_parts(std::max<std::size_t>(mpz_size(n), 1), mpz_size(d),
               [&](mp_limb_t* num_limbs, mp_limb_t* den_limbs) {
                 num_limbs[0] = 0;
                 copy_limbs(n, num_limbs);
                 copy_limbs(d, den_limbs);
                 return mpz_sgn(n) < 0;
               });
  } else {
    reserve(mpq_numref(gmp), mpz_size(n));
    reserve_den(mpz_size(d));
    mpz_set(mpq_numref(gmp), n);
    set_den(d);
  }
}

void QNumber::take_ratio(mpz_ptr n, mpz_srcptr d) {
  if (is_small() || !has_storage(mpq_numref(gmp))) {
    assign_ratio(n, d);
  } else {
    reserve_den(mpz_size(d));
    mpz_swap(mpq_numref(gmp), n);
    set_den(d);
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
    assign_ratio(n, d);
    if (mpz_sgn(d) < 0) {
      self_neg();
    }
  }
  normalize();
}

void QNumber::init_scaled(const mp_limb_t* limbs, long n, bool negative, long k) {
  const auto size = static_cast<std::size_t>(n);
  const auto shift = static_cast<unsigned long>(detail::magnitude(k));
  if (k >= 0) {
    require_bits(shift + 64 * size - static_cast<unsigned long>(std::countl_zero(limbs[n - 1])));
    init_parts(size + shift / 64 + 1, 1, [&](mp_limb_t* num_limbs, mp_limb_t* den_limbs) {
      shift_left(limbs, size, shift, num_limbs);
      *den_limbs = 1;
      return negative;
    });
    return;
  }
  require_bits(shift + 1);
  // Whether there are any is as good as random to a branch predictor.
  const unsigned long all_twos =
      limbs[0] != 0 ? static_cast<unsigned long>(std::countr_zero(limbs[0])) : mpn_scan1(limbs, 0);
  const unsigned long twos = std::min(all_twos, shift);
  const unsigned long left = shift - twos;
  init_parts(size - twos / 64, left / 64 + 1, [&](mp_limb_t* num_limbs, mp_limb_t* den_limbs) {
    shift_right(limbs, size, twos, num_limbs);
    *clear_limbs(den_limbs, left / 64) = mp_limb_t{1} << left % 64;
    return negative;
  });
}

QNumber QNumber::scaled(const mp_limb_t* limbs, long n, bool negative, long k) {
  if (n == 1 && limbs[0] <= static_cast<unsigned long>(detail::word_max)) {
    const auto word = static_cast<long>(limbs[0]);
    return scaled(negative ? -word : word, k);
  }
  QNumber q;
  q.init_scaled(limbs, n, negative, k);
  return q;
}

void QNumber::assign_big(const QNumber& other) {
  if (this == &other) {
    return;
  }
  if (other.is_small()) {
    assign_small_in_place(other);
  } else {
    assign_ratio(mpq_numref(other.gmp), mpq_denref(other.gmp));
  }
}

void QNumber::assign_small_in_place(const QNumber& other) noexcept {
  set_word(mpq_numref(gmp), other.num < 0,
           static_cast<unsigned long>(detail::magnitude(other.num)));
  set_den(static_cast<unsigned long>(other.den));
}

void QNumber::move_big(QNumber& other) noexcept {
  if (other.is_small()) {
    assign_small_in_place(other);
    other.clear();
  } else if (this != &other) {
    clear();
    take(other);
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
  if (!is_integer()) {
    const Scratch scratch;
    auto& [divisor, n, d, unused] = scratch->get();
    mpz_gcd(divisor, mpq_numref(gmp), mpq_denref(gmp));
    mpz_divexact(n, mpq_numref(gmp), divisor);
    mpz_divexact(d, mpq_denref(gmp), divisor);
    take_ratio(n, d);
  }
}

void QNumber::shrink() noexcept {
  if (!is_small() && big_fits_long() && mpz_sizeinbase(mpq_denref(gmp), 2) <= 63) {
    const long n = mpz_get_si(mpq_numref(gmp));
    const long d = mpz_get_si(mpq_denref(gmp));
    release();
    num = n;
    den = d;
  }
}

// The reduction of the small form, on GMP integers.
void QNumber::add_big(const QNumber& other, bool subtract) {
  const detail::Operand a = numerator();
  const detail::Operand p = other.numerator();
  if (is_integer() && other.is_integer()) {
    const bool grows = (sign() == other.sign()) != subtract;
    require_bits(std::max(bit_length(a), bit_length(p)) + static_cast<unsigned long>(grows));
    mpz_ptr sum = room(std::max(mpz_size(a), mpz_size(p)) + 1);
    (subtract ? mpz_sub : mpz_add)(sum, a, p);
    return;
  }
  const detail::Operand b = denominator();
  const detail::Operand q = other.denominator();
  const Scratch scratch;
  auto& [t0, t1, t2, t3] = scratch->get();
  mpz_gcd(t0, b, q);
  mpz_divexact(t1, b, t0);
  mpz_divexact(t3, q, t0);
  require_bits(std::max(bit_length(p) + bit_length(t1), bit_length(a) + bit_length(t3)) + 1);
  require_bits(bit_length(b) + bit_length(t3));
  multiply(t2, p, t1);
  if (subtract) {
    mpz_neg(t2, t2);
  }
  mpz_addmul(t2, a, t3);
  multiply(t3, t1, t3);
  mpz_gcd(t1, t2, t0);
  mpz_divexact(t2, t2, t1);
  mpz_divexact(t0, t0, t1);
  multiply(t3, t3, t0);
  take_ratio(t2, t3);
}

void QNumber::multiply_big(const QNumber& other) {
  const detail::Operand a = numerator();
  const detail::Operand p = other.numerator();
  if (is_integer() && other.is_integer()) {
    require_bits(bit_length(a) + bit_length(p));
    if (other.is_small()) {
      const long factor = other.num;
      mpz_mul_si(room(mpz_size(a) + 1), a, factor);
    } else {
      const Scratch scratch;  // for a product in place GMP would need memory, too
      mpz_ptr product = scratch->get()[0];
      multiply(product, a, p);
      mpz_set(room(mpz_size(product)), product);
    }
    return;
  }
  if (other.is_small() && other.num == 0) {
    clear();
    return;
  }
  const detail::Operand b = denominator();
  const detail::Operand q = other.denominator();
  const Scratch scratch;
  auto& [t0, t1, t2, t3] = scratch->get();
  mpz_gcd(t0, a, q);
  mpz_gcd(t1, p, b);
  mpz_divexact(t2, p, t1);
  mpz_divexact(t3, q, t0);
  require_bits(bit_length(a) + 1 - std::min(bit_length(a), bit_length(t0)) + bit_length(t2));
  require_bits(bit_length(b) + 1 - std::min(bit_length(b), bit_length(t1)) + bit_length(t3));
  mpz_divexact(t0, a, t0);
  multiply(t2, t0, t2);
  mpz_divexact(t0, b, t1);
  multiply(t0, t0, t3);
  take_ratio(t2, t0);
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
  QNumber r;
  if (is_small()) {
    r.num = num < 0 ? -den : den;
    r.den = detail::magnitude(num);
    return r;
  }
  r.assign_ratio(mpq_denref(gmp), mpq_numref(gmp));
  if (sign() < 0) {
    r.self_neg();
  }
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
  const detail::Operand dividend = numerator();
  const detail::Operand divisor = d.numerator();
  const Scratch scratch;
  auto& [quotient, rest, unused, unused_too] = scratch->get();
  mpz_fdiv_qr(quotient, rest, dividend, divisor);
  // Both have room before either changes: a big target its own, a small one that of another number.
  const auto make_room = [](QNumber& target, mpz_srcptr value) {
    if (target.is_small()) {
      return big_zero(mpz_size(value));
    }
    target.room(mpz_size(value));
    return QNumber();
  };
  QNumber big_q = make_room(q, quotient);
  QNumber big_r = make_room(r, rest);
  const auto assign = [](QNumber& target, QNumber& big, mpz_srcptr value) {
    if (target.is_small()) {
      target.take(big);
    }
    mpz_set(mpq_numref(target.gmp), value);
    target.set_den(1);
  };
  assign(q, big_q, quotient);
  assign(r, big_r, rest);
}

// An integer that is a part of a big number, in the form of construction from GMP's types.
QNumber QNumber::big_part(mpz_srcptr z) {
  if (mpz_fits_sint_p(z) != 0) {
    return mpz_get_si(z);
  }
  const detail::Operand one(1);
  QNumber part;
  part.assign_ratio(z, one);
  return part;
}

QNumber QNumber::big_num() const { return big_part(mpq_numref(gmp)); }

QNumber QNumber::big_den() const { return big_part(mpq_denref(gmp)); }

mpq_class QNumber::to_mpq() const { return is_small() ? mpq_class(num, den) : mpq_class(gmp); }

}  // namespace zelk
