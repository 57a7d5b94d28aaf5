#include <span>

#include "zelk/limbs/convert.h"
#include "zelk/limbs/limbs.h"
#include "zelk/limbs/room.h"
#include "zelk/numbers/bvnumber.h"
#include "zelk/numbers/room.h"

namespace zelk::limbs {

void from_integer(const QNumber& n, Limb* out, rules::Widths f, Rounding r) {
  const Shape s{f};
  if (n.is_zero()) {
    pack_zero(s, 0, out);
    return;
  }
  const auto size = static_cast<long>((BVNumber::bit_length(n) - 1) / limb_bits) + 1;
  Room room(size);
  BVNumber::to_words(n, std::span(room.limbs(), static_cast<std::size_t>(size)));
  pack_scaled(s, r, Limb{n.sign() < 0}, 0, room.limbs(), size, out);
}

QNumber to_number(const Limb* x, rules::Widths f) {
  const Shape s{f};
  const long n = s.significand_size();
  const Number number = unpack(s, n, x);
  Room room(n);
  const long size = copy_significand(number, n, room.limbs());
  if (size == 0) {
    return 0;
  }
  const long k = number.exp - s.bias() - static_cast<long>(s.mant_width);
  detail::require_room_for_value(k, s.mant_width);
  return QNumber::scaled(room.limbs(), size, number.sign != 0, k);
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
