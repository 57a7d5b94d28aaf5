#include <span>

#include "zelk/limbs/convert.h"
#include "zelk/limbs/limbs.h"
#include "zelk/limbs/room.h"
#include "zelk/numbers/bvnumber.h"
#include "zelk/numbers/room.h"

namespace zelk::limbs {

void from_integer(bool negative, const detail::Magnitude& n, Limb* out, rules::Widths f,
                  Rounding r) {
  pack_scaled(Shape{f}, r, Limb{negative}, 0, n.limbs, n.size, out);
}

namespace {

// The significand w of so many limbs, times 2^exp.
struct Digits {
  const Limb* w;
  long size;
  std::int64_t exp;
};

// The most limbs that the processor divides faster than GMP.
constexpr long few_digits = 5;

// n / d, with a leading bit in the highest place.
Digits divide_words(Limb n, Limb d, Limb* quotient, long size) {
  const int n_zeros = std::countl_zero(n);
  const int d_zeros = std::countl_zero(d);
  const Limb divisor = d << d_zeros;
  const auto halved = static_cast<int>(n << n_zeros >= divisor);
  DoubleLimb rest = double_limb(n << n_zeros, 0) >> halved;
  for (long i = size; i-- > 0;) {
    const words::Quotient digit = words::divide_word(rest, divisor);
    quotient[i] = digit.q;
    rest = double_limb(digit.rest, 0);
  }
  quotient[0] |= Limb{rest != 0};
  return {quotient, size, d_zeros - n_zeros + halved - size * limb_bits};
}

// Calls use(digits) with `size` limbs of the magnitude of q, or more; the lowest bit is sticky.
template <class Use>
void with_quotient(const detail::Parts& q, long size, Use use) {
  const detail::Magnitude n = q.num;
  const detail::Magnitude d = q.den;
  if (d.is_one()) {
    use(Digits{n.limbs, n.size, 0});
    return;
  }
  if (q.in_words() && size <= few_digits) {
    Limb quotient[few_digits];
    use(divide_words(n.limbs[0], d.limbs[0], quotient, size));
    return;
  }
  size = std::max(size, n.size - d.size + 1);
  Room room(2 * size + 1 + 3 * d.size);
  Limb* quotient = room.limbs();
  Limb* divisor = quotient + size + 1;
  std::copy_n(d.limbs, d.size, divisor);
  const bool sticky =
      divide_integers(quotient, size, n.limbs, n.size, divisor, d.size, divisor + d.size);
  quotient[0] |= Limb{sticky};
  use(Digits{quotient, trimmed(quotient, size + 1),
             n.bit_length() - d.bit_length() + 1 - size * limb_bits});
}

}  // namespace

void from_ratio(const detail::Parts& q, std::int64_t k, Limb* out, rules::Widths f, Rounding r) {
  const Shape s{f};
  // The significand, a half below it and the sticky bit, of a quotient that has a zero above.
  const long size = static_cast<long>((f.mant_width + 3) / limb_bits) + 1;
  with_quotient(q, size, [&](const Digits& x) {
    pack_scaled(s, r, Limb{q.negative}, k + x.exp, x.w, x.size, out);
  });
}

words::Magnitude quotient(const detail::Parts& q) {
  words::Magnitude result{};
  with_quotient(q, 3, [&](const Digits& x) {
    const auto limb = [&](long i) { return i <= x.size ? x.w[x.size - i] : 0; };
    const int zeros = std::countl_zero(limb(1));
    const Limb below = limb(3);
    const DoubleLimb sig = words::shift_left(double_limb(limb(1), limb(2)), zeros) |
                           below >> 1 >> (limb_bits - 1 - zeros);
    const bool lost = below << zeros != 0 || (x.size > 3 && mpn_zero_p(x.w, x.size - 3) == 0);
    result = {x.exp + x.size * limb_bits - 1 - zeros, sig | DoubleLimb{lost}};
  });
  return result;
}

// w has room for n limbs.
[[gnu::always_inline]] static inline QNumber number_of(Shape s, long n, const Limb* x, Limb* w) {
  const Number number = unpack(s, n, x);
  if (number.exp == s.exp_max()) [[unlikely]] {
    const bool nan = operand_of(s, x).is(rules::Class::nan);
    detail::throw_error(nan ? "can't convert NaN to a Number"
                            : "can't convert infinity to a Number");
  }
  const long size = copy_significand(number, n, w);
  if (size == 0) {
    return 0;
  }
  const long k = number.exp - s.bias() - static_cast<long>(s.mant_width);
  detail::require_room_for_value(k, s.mant_width);
  return QNumber::scaled(w, size, number.sign != 0, k);
}

// The same with widths that are constants.
template <class S>
static QNumber fixed_number_of(S s, const Limb* x) {
  Limb w[S::size];
  return number_of(s, S::size, x, w);
}

QNumber to_number(const Limb* x, rules::Widths f) {
  if (Binary128::is(f)) {
    return fixed_number_of(Binary128(), x);
  }
  if (Binary256::is(f)) {
    return fixed_number_of(Binary256(), x);
  }
  const Shape s{f};
  Room room(s.significand_size());
  return number_of(s, s.significand_size(), x, room.limbs());
}

QNumber to_integer(const Limb* x, rules::Widths f, Direction d, unsigned long w) {
  const Shape s{f};
  const long n = s.significand_size();
  const Number number = unpack(s, n, x);
  const bool finite = number.exp != s.exp_max();
  if ((number.top & s.hidden_bit()) == 0 || (w == 0 && !finite)) {
    return 0;
  }
  Room room(n + 1);
  Limb* sig = room.limbs();
  long size = copy_significand(number, n, sig);
  const std::int64_t right = s.bias() + static_cast<long>(s.mant_width) - number.exp;
  if (right > 0) {
    const Limb guard = shift_right(sig, n, sig, size, static_cast<std::uint64_t>(right));
    if (w > 0 && rounds_up(d, number.sign, sig[0] % 2 != 0, guard)) {
      increment(sig, n, 1);
    }
    size = trimmed(sig, n);
  }
  const auto left = static_cast<unsigned long>(right < 0 ? -right : 0);
  if (w == 0) {
    detail::require_room_for_value(static_cast<long>(left), s.mant_width);
  } else if (left >= w) {
    return 0;
  } else if (const unsigned long kept = w - left;
             kept < static_cast<unsigned long>(size * limb_bits)) {
    const auto limb = static_cast<long>(kept / limb_bits);
    sig[limb] &= (Limb{1} << kept % limb_bits) - 1;
    size = trimmed(sig, limb + 1);
  }
  if (size == 0) {
    return 0;
  }
  detail::require_bits(static_cast<unsigned long>(bit_size(sig, size)) + left);
  return QNumber::scaled(sig, size, number.sign != 0, static_cast<long>(left));
}

}  // namespace zelk::limbs
