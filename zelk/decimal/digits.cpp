#include "zelk/decimal/digits.h"

#include <algorithm>
#include <string_view>

namespace zelk::decimal {

namespace {

using rules::Direction;

// The rest of a number cut below a place, of which this is the first digit that goes.
Rest rest_after(char first, bool others) {
  return first > '5'             ? Rest::above_half
         : first == '5'          ? (others ? Rest::above_half : Rest::half)
         : first > '0' || others ? Rest::below_half
                                 : Rest::none;
}

// The digits plus one; a carry past the first one makes them one more.
void increment(Decimal& d) {
  long i = d.count;
  while (i > 0 && d.digits[i - 1] == '9') {
    d.digits[--i] = '0';
  }
  if (i > 0) {
    ++d.digits[i - 1];
    return;
  }
  d.digits[d.count++] = '0';
  d.digits[0] = '1';
}

}  // namespace

void Decimal::cut(long n) {
  if (count <= n) {
    return;
  }
  const bool others = rest != Rest::none ||
                      std::any_of(digits + n + 1, digits + count, [](char c) { return c != '0'; });
  rest = rest_after(digits[n], others);
  exponent += count - n;
  count = n;
}

void Decimal::round(Direction d, bool negative) {
  const bool odd = count > 0 && (digits[count - 1] & 1) != 0;
  const bool half = rest >= Rest::half;
  const bool others = rest == Rest::below_half || rest == Rest::above_half;
  if (rules::increments(d, negative, odd, half, others)) {
    increment(*this);
  }
  rest = Rest::none;
}

void Decimal::strip() {
  while (count > 0 && digits[count - 1] == '0') {
    --count;
    ++exponent;
  }
}

std::int64_t place_of_digits(const Binary& x, long n) {
  return std::max(log10_of_power(x.top()) - n + 1, last_place(x));
}

long digits_room(const Binary& x, std::int64_t p) {
  return static_cast<long>(std::max<std::int64_t>(log10_of_power(x.top() + 1) + 3 - p, 0)) + 24;
}

Decimal digits_above(const Binary& x, std::int64_t p, char* room) {
  const auto digits = [&](Scaling&& scaling, Decimal& d) {
    const Scaling::Quotient q = scaling(x.limbs, x.size);
    d = {room, q.is_sure ? write_digits(room, q.limbs, q.size) : 0, p, q.rest};
    return q.is_sure;
  };
  Decimal d{};
  const long kept = Scaling::limbs_to_keep(x.top(), p);
  if (kept == 0 || !digits(Scaling(x.exponent, p, x.size, kept), d)) {
    digits(Scaling(x.exponent, p, x.size), d);
  }
  return d;
}

// ---- The shortest digits ----
//
// Three numbers are cut to multiples of a power of ten of which ten and more lie between the
// midpoints: the midpoints, to those inside, and x. The rest is about their digits.

namespace {

// Digits of one length, with zeros before them.
struct Bounds {
  const char* low;
  const char* value;
  const char* high;
  long count;
};

// The most digits that a number from low to high can have as zeros at its end.
long most_zeros(const Bounds& b) {
  const long same = std::mismatch(b.low, b.low + b.count, b.high).first - b.low;
  long zeros = 0;
  while (zeros < b.count && b.low[b.count - 1 - zeros] == '0') {
    ++zeros;
  }
  return std::max(zeros, b.count - 1 - same);
}

// out := the multiple of 10^zeros from low to high that is closest to the value, of two as close
// the even one. Whether there is one.
bool closest(const Bounds& b, long zeros, Rest rest, char* out) {
  const long kept = b.count - zeros;
  Decimal d{out, b.count, 0, rest};
  std::copy(b.value, b.value + b.count, out);
  d.cut(kept);
  const auto in_bounds = [&](Direction direction) {
    std::copy(b.value, b.value + kept, out);
    Decimal rounded = d;
    rounded.round(direction, false);
    std::fill(out + kept, out + b.count, '0');
    const std::string_view text(out, static_cast<std::size_t>(b.count));
    return text >= std::string_view(b.low, text.size()) &&
           text <= std::string_view(b.high, text.size());
  };
  // Below a value there is never more between the midpoints than above it.
  return in_bounds(Direction::nearest) || in_bounds(Direction::upward);
}

using Limbs = Room<Limb, 4>;
using Digits = Room<char, 64>;

}  // namespace

long shortest_room(const Binary& x) { return digits_of_limbs(x.size + 1) + 4; }

namespace {

// Of which ten and more lie between the midpoints: their distance is at least 3/4 of 2^exponent.
std::int64_t shortest_place(const Binary& x) { return log10_of_power(x.exponent - 1) - 1; }

// d := the shortest digits; whether the quotients are sure.
bool shortest(const Binary& x, Scaling&& scaling, char* room, Decimal& d) {
  const bool closed = x.is_even();
  const long size = x.size + 1;
  Limbs fourfold(size);
  Limbs midpoint(size);
  Limb* s = fourfold.data();
  s[x.size] = mpn_lshift(s, x.limbs, x.size, 2);

  const long space = shortest_room(x);
  Digits low(space);
  Digits value(space);
  Digits high(space);
  bool is_sure = true;
  // The digits of a number, moved by one multiple if that is where it is not inside.
  const auto digits = [&](const Limb* number, char* out, bool up, bool down) {
    Scaling::Quotient q = scaling(number, limbs::trimmed(number, size));
    is_sure = is_sure && q.is_sure;
    const bool exact = q.rest == Rest::none;
    q.limbs[q.size++] = 0;
    if (up && !(exact && closed)) {
      mpn_add_1(q.limbs, q.limbs, q.size, 1);
    } else if (down && exact && !closed) {
      mpn_sub_1(q.limbs, q.limbs, q.size, 1);
    }
    const long count = write_digits(out, q.limbs, limbs::trimmed(q.limbs, q.size));
    return Decimal{out, count, 0, q.rest};
  };
  mpn_sub_1(midpoint.data(), s, size, x.closer_below ? 1 : 2);
  const Decimal least = digits(midpoint.data(), low.data(), true, false);
  const Decimal middle = digits(s, value.data(), false, false);
  mpn_add_1(midpoint.data(), s, size, 2);
  const Decimal most = digits(midpoint.data(), high.data(), false, true);
  if (!is_sure) {
    return false;
  }

  // One zero before the highest, which a carry may need.
  const long count = most.count + 1;
  const auto pad = [&](const Decimal& digits_of_one) {
    const long zeros = count - digits_of_one.count;
    char* const first = digits_of_one.digits;
    std::copy_backward(first, first + digits_of_one.count, first + count);
    std::fill(first, first + zeros, '0');
  };
  pad(least);
  pad(middle);
  pad(most);
  const Bounds bounds{least.digits, middle.digits, most.digits, count};
  closest(bounds, most_zeros(bounds), middle.rest, room);
  const auto is_zero = [](char c) { return c == '0'; };
  long first = std::find_if_not(room, room + count, is_zero) - room;
  if (room[first] == '1' && std::all_of(room + first + 1, room + count, is_zero)) {
    // Below a power of ten, multiples of the next lower one have one digit as well.
    std::fill(high.data(), high.data() + count, '0');
    high.data()[first + 1] = '9';
    if (closest(bounds, count - first - 2, middle.rest, room)) {
      ++first;
    } else {
      std::fill(room, room + count, '0');
      room[first] = '1';
    }
  }
  std::copy(room + first, room + count, room);
  d = {room, count - first, shortest_place(x)};
  d.strip();
  return true;
}

}  // namespace

Decimal shortest(const Binary& x, char* room) {
  const std::int64_t k = x.exponent - 2;
  const std::int64_t p = shortest_place(x);
  const long kept = Scaling::limbs_to_keep(x.top(), p);
  Decimal d{};
  if (kept == 0 || !shortest(x, Scaling(k, p, x.size + 1, kept), room, d)) {
    shortest(x, Scaling(k, p, x.size + 1), room, d);
  }
  return d;
}

}  // namespace zelk::decimal
