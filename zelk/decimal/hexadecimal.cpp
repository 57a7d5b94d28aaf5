#include "zelk/decimal/hexadecimal.h"

#include <algorithm>

namespace zelk::decimal {

void write_hexadecimal(const Limb* a, long count, const char* letters, char* out) {
  for (long i = 0; i < count; ++i) {
    *out++ = letters[a[(count - 1 - i) / 16] >> (count - 1 - i) % 16 * 4 & 15];
  }
}

Hexadecimal hexadecimal(const Binary& x, long places, rules::Direction d, bool negative,
                        char* out) {
  Room<Limb, 4> room(x.size + 2);
  Limb* s = room.data();
  const long bits = limbs::bit_size(x.limbs, x.size) - 1;
  const long down = bits - 4 * places;
  if (down <= 0) {  // by less than a digit
    s[x.size] = down == 0 ? 0 : mpn_lshift(s, x.limbs, x.size, static_cast<unsigned>(-down));
    if (down == 0) {
      mpn_copyi(s, x.limbs, x.size);
    }
    write_hexadecimal(s, places, small_letters, out);
    return {places, false};
  }
  const long size = places / 16 + 1;
  s[size] = 0;
  const Limb guard = limbs::shift_right(s, size, x.limbs, x.size, static_cast<std::uint64_t>(down));
  const bool half = guard >= limbs::half_limb;
  const bool rest = (guard << 1) != 0;
  if (rules::increments(d, negative, (s[0] & 1) != 0, half, rest)) {
    limbs::increment(s, size + 1, 1);
  }
  write_hexadecimal(s, places, small_letters, out);
  return {places, (s[places / 16] >> places % 16 * 4) > 1};
}

}  // namespace zelk::decimal
