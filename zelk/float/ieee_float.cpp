#include "zelk/float/ieee_float.h"

#include <algorithm>

#include "zelk/base/float_errors.h"
#include "zelk/base/quoted.h"
#include "zelk/exact/codec.h"
#include "zelk/float/roads.h"
#include "zelk/limbs/copy.h"
#include "zelk/limbs/limbs.h"
#include "zelk/numbers/room.h"
#include "zelk/words/bits.h"
#include "zelk/words/rounding.h"
#include "zelk/words/shape.h"

namespace zelk {

using detail::Kind;
using detail::Road;
using rules::Class;
using rules::Widths;

// ---- Errors, formats ----

IEEEFloat::error::error(const std::string& m) : Exception(m) {}
IEEEFloat::error::~error() noexcept = default;

void detail::throw_error(const std::string& text) { throw IEEEFloat::error(text); }
void detail::throw_precision_limit() { throw_error("reached limit on float precision"); }
void detail::throw_bad_mode(unsigned mode) {
  throw_error("bad rounding mode: " + std::to_string(mode));
}
void detail::throw_without_arithmetic(unsigned long exp_width, unsigned long mant_width,
                                      unsigned mode) {
  if (!rules::is_direction(mode)) {
    throw_bad_mode(mode);
  }
  throw_error("format without arithmetic: (" + std::to_string(exp_width) + ", " +
              std::to_string(mant_width) + ')');
}

namespace {

Widths widths(const IEEEFloat::format& f) { return {f.exp_width, f.mant_width}; }

unsigned long sign_place(const IEEEFloat::format& f) {
  return detail::sign_place(f.exp_width, f.mant_width);
}

}  // namespace

QNumber IEEEFloat::format::bias() const { return exact::bias(widths(*this)); }
QNumber IEEEFloat::format::max_exponent() const { return exact::ones(exp_width); }
QNumber IEEEFloat::format::max_mantissa() const { return exact::ones(mant_width); }

// ---- Construction, assignment, representation ----

std::size_t IEEEFloat::word_count() const {
  if (!head.kind.is_wide()) {
    return head.kind.is_huge() ? 1 : 2;
  }
  const format f = get_format();
  return (f.exp_width + f.mant_width) / 64 + 1;
}

IEEEFloat::format IEEEFloat::huge_format() const {
  return {(pattern.words[1] >> 32) << 32 | head.exp_width,
          pattern.words[1] << 32 | head.mant_width};
}

void IEEEFloat::set_huge_format(const format& f) {
  pattern.words[1] = f.exp_width >> 32 << 32 | f.mant_width >> 32;
}

IEEEFloat::IEEEFloat(format f, Repr r, rounding_mode rm) {
  set_mode(rm);
  set_kind(f, r & 3U, Kind::of(f.exp_width, f.mant_width, r & 3U));
  if (head.kind.is_wide()) {
    const std::size_t size = word_count();
    pattern.limbs = detail::new_limbs(size);
    std::fill_n(pattern.limbs, size, 0);
  }
}

std::uint64_t* IEEEFloat::copied_limbs(const IEEEFloat& x) {
  const std::size_t size = x.word_count();
  std::uint64_t* const own = detail::new_limbs(size);
  limbs::copy(x.pattern.limbs, static_cast<long>(size), own);
  return own;
}

void IEEEFloat::assign_wide(const IEEEFloat& other) {
  if (!same_kind(other)) [[unlikely]] {
    assign_otherwise(other);
    return;
  }
  const std::size_t size = (std::size_t{head.exp_width} + head.mant_width) / 64 + 1;
  head = other.head;
  limbs::copy(other.pattern.limbs, static_cast<long>(size), pattern.limbs);
}

[[gnu::noinline]] void IEEEFloat::assign_otherwise(const IEEEFloat& other) {
  const bool wide = head.kind.is_wide();
  const std::size_t size = other.word_count();
  if (wide && other.head.kind.is_wide() && word_count() == size) {
    limbs::copy(other.pattern.limbs, static_cast<long>(size), pattern.limbs);
    head = other.head;
    pattern.words[1] = other.pattern.words[1];
    return;
  }
  std::uint64_t* const own = other.head.kind.is_wide() ? detail::new_limbs(size) : nullptr;
  if (wide) {
    detail::delete_limbs(pattern.limbs);
  }
  take_fields(other);
  if (own != nullptr) {
    limbs::copy(other.pattern.limbs, static_cast<long>(size), own);
    pattern.limbs = own;
  }
}

void IEEEFloat::self_specialize_repr(Repr r) {
  const unsigned target = r & 3U;
  if (repr() == target) {
    return;
  }
  const Kind k = Kind::of(get_format().exp_width, get_format().mant_width, target);
  if (is_generic() && target >= REPR_GENERIC) {
    set_kind(get_format(), target, k);
    return;
  }
  IEEEFloat x(get_format(), static_cast<Repr>(target), static_cast<rounding_mode>(mode()));
  x.words()[0] = target == REPR_FLOAT32 ? words()[0] & 0xFFFFFFFF : words()[0];
  swap(x);
}

// ---- Patterns ----

QNumber IEEEFloat::get_bits() const {
  QNumber bits;
  BVNumber::from_words(all_words(), &bits);
  return bits;
}

namespace {

// What factories that round nothing begin with.
void require_mode(unsigned mode) {
  if (!rules::is_direction(mode)) {
    detail::throw_bad_mode(mode);
  }
}

}  // namespace

IEEEFloat IEEEFloat::from_bits(const QNumber& bits, format f, rounding_mode rm) {
  require_mode(rm);
  const unsigned long width = sign_place(f) + 1;
  const auto refuse = [&bits] {
    Exception e("invalid bit pattern for IEEEFloat: ");
    e.msg_stream << detail::quoted(bits.to_string());
    throw error(e.get_msg());
  };
  if (!bits.is_integer() || bits.sign() < 0 || BVNumber::bit_length(bits) > width) {
    refuse();
  }
  IEEEFloat x(f, rm);
  BVNumber::to_words(bits, {x.words(), x.word_count()});
  if (x.is_nan()) {
    // Of the canonical one only the lowest bit is set below the exponent.
    if (!x.get_sign() || BVNumber::lowest_one(bits) != 0 ||
        BVNumber::lowest_one(bits, 1) < f.mant_width) {
      refuse();
    }
  }
  return x;
}

// For any pattern of a NaN the canonical one, else what the pattern says.
IEEEFloat IEEEFloat::from_encoding(const QNumber& bits, format f, rounding_mode rm) {
  require_mode(rm);
  detail::require_arithmetic(f.exp_width, f.mant_width);
  if (bits.is_integer() && bits.sign() >= 0 && BVNumber::bit_length(bits) <= sign_place(f) + 1) {
    IEEEFloat x(f, rm);
    BVNumber::to_words(bits, {x.words(), x.word_count()});
    if (x.is_nan()) {
      x.self_nan();
      return x;
    }
  }
  return from_bits(bits, f, rm);
}

IEEEFloat IEEEFloat::max_value(format f, rounding_mode rm) {
  require_mode(rm);
  if (sign_place(f); f.exp_width == 0) {
    return from_bits(-1, f);  // 2^(e + m) - 1 - 2^m
  }
  IEEEFloat x(f, rm);
  words::fill_bits(x.words(), 0, f.mant_width);
  words::fill_bits(x.words(), f.mant_width + 1, f.exp_width - 1);
  return x;
}

// ---- Sign, classes, special values ----

bool IEEEFloat::generic_get_sign() const {
  return words::test_bit(words(), sign_place(get_format()));
}

namespace {

// The class of a pattern that is not in one word.
Class class_of(Kind kind, const std::uint64_t* words, Widths f) {
  switch (kind.road()) {
    case Road::quad:
    case Road::double_word: {
      const words::DoubleShape s{static_cast<std::int64_t>(f.exp_width),
                                 static_cast<std::int64_t>(f.mant_width)};
      return words::operand_of(s, words::double_word(words[1], words[0])).what;
    }
    case Road::limbs:
      return limbs::operand_of(words, f).what;
    default:
      detail::sign_place(f.exp_width, f.mant_width);  // there is a pattern
      return words::operand_of(words, f).what;
  }
}

}  // namespace

bool IEEEFloat::generic_is_inf() const {
  return class_of(head.kind, words(), widths(get_format())) == Class::infinite;
}
bool IEEEFloat::generic_is_nan() const {
  return class_of(head.kind, words(), widths(get_format())) == Class::nan;
}
bool IEEEFloat::generic_is_zero() const {
  return class_of(head.kind, words(), widths(get_format())) == Class::zero;
}

bool IEEEFloat::generic_is_subnormal() const {
  return class_of(head.kind, words(), widths(get_format())) == Class::finite &&
         words::are_zeros(words(), get_format().mant_width, get_format().exp_width);
}

void IEEEFloat::set_sign(bool s) {
  if (get_sign() != s) {
    words::flip_bit(words(), repr() == REPR_FLOAT64   ? 63
                             : repr() == REPR_FLOAT32 ? 31
                                                      : sign_place(get_format()));
  }
}

void IEEEFloat::self_neg() {
  if (!is_nan()) {
    set_sign(!get_sign());
  }
}

// The format that a pattern is of: a packed one whatever the widths say.
IEEEFloat::format IEEEFloat::pattern_format() const {
  return repr() == REPR_FLOAT64   ? format{11, 52}
         : repr() == REPR_FLOAT32 ? format{8, 23}
                                  : get_format();
}

void IEEEFloat::self_zero(bool negative) {
  const unsigned long sign = sign_place(pattern_format());
  std::fill_n(words(), word_count(), 0);
  if (negative) {
    words::flip_bit(words(), sign);
  }
}

void IEEEFloat::self_inf(bool negative) {
  self_zero(negative);
  const format f = pattern_format();
  words::fill_bits(words(), f.mant_width, f.exp_width);
}

void IEEEFloat::self_nan() {
  self_inf(true);
  words()[0] |= 1;
}

// ---- Comparison ----

void IEEEFloat::require_same_kind(const IEEEFloat& other) const {
  if (same_kind(other)) {
    return;
  }
  if (get_format() != other.get_format()) {
    throw error("operands of different formats");
  }
  if (repr() != other.repr() && (!is_generic() || !other.is_generic())) {
    throw error("operands of different representations");
  }
}

// What the inline comparisons leave: more than a word, and formats that only the widths tell.
int IEEEFloat::order_otherwise(const IEEEFloat& a, const IEEEFloat& b) {
  a.require_same_kind(b);
  const std::uint64_t* x = a.words();
  const std::uint64_t* y = b.words();
  const Widths f = widths(a.get_format());
  const auto in_word = [&](auto shape) {
    swflt::float_exception_flags = 0;
    return words::order_of(shape, x[0], y[0]);
  };
  switch (a.head.kind.road()) {
    case Road::packed32:
      return in_word(words::binary32);
    case Road::packed64:
      return in_word(words::binary64);
    case Road::quad:
    case Road::double_word:
      return words::order_of(words::DoubleShape{static_cast<std::int64_t>(f.exp_width),
                                                static_cast<std::int64_t>(f.mant_width)},
                             words::double_word(x[1], x[0]), words::double_word(y[1], y[0]));
    case Road::limbs:
      return limbs::compare(x, y, f);
    default:
      sign_place(a.get_format());  // there are patterns
      return words::compare(x, y, f);
  }
}

bool IEEEFloat::less_otherwise(const IEEEFloat& a, const IEEEFloat& b) {
  if (a.head.kind == b.head.kind && a.head.kind.road() == Road::quad) {
    return words::less(words::binary128, words::double_word(a.pattern.words[1], a.pattern.words[0]),
                       words::double_word(b.pattern.words[1], b.pattern.words[0]));
  }
  const Widths f{a.head.exp_width, a.head.mant_width};
  if (a.same_kind(b) && a.head.kind.road() == Road::limbs) {
    return limbs::less(a.words(), b.words(), f);
  }
  if (a.same_kind(b) && a.head.kind.road() == Road::double_word) {
    const words::RaisedShape s = detail::raised(f);
    return words::less(s, detail::raise(s, a.pattern.words), detail::raise(s, b.pattern.words));
  }
  return order_otherwise(a, b) == -1;
}

int ieee_cmp(const IEEEFloat& a, const IEEEFloat& b) {
  return a < b ? -1 : b < a ? 1 : a == b ? 0 : -2;
}

// ---- Neighbours ----

// For a fixed sign the pattern one above is the value of next larger magnitude.
void IEEEFloat::step_magnitude(bool grow) {
  std::uint64_t* w = words();
  if (grow) {
    while (++*w == 0) {
      ++w;
    }
  } else {
    while ((*w)-- == 0) {
      ++w;
    }
  }
}

void IEEEFloat::next_representable(bool up) {
  if (is_nan()) {
    return;
  }
  const bool negative = get_sign();
  if (is_zero()) {
    self_zero(!up);
    step_magnitude(true);
  } else if (is_inf()) {
    if (negative == up) {
      IEEEFloat largest = max_value(get_format());
      largest.set_sign(negative);
      *this = std::move(largest);
    }
  } else {
    step_magnitude(up != negative);
  }
}

void IEEEFloat::packed_next(bool up) {
  const bool negative = get_sign();
  const bool grow = up != negative;
  const format f = pattern_format();
  if (!grow && is_zero()) {
    set_sign(!negative);
  } else if (!grow || !words::are_ones(words(), 0, f.exp_width + f.mant_width)) {
    step_magnitude(grow);
  }
}

// ---- Rounded arithmetic ----

// Formats that only the widths tell apart, and unknown modes, which numbers report.
void IEEEFloat::apply_otherwise(const detail::Operations& operation, const IEEEFloat& other) {
  require_same_kind(other);
  const bool on_road = !is_generic() || rules::is_direction(mode());
  const Road road = on_road ? head.kind.road() : Road::numbers;
  const format f = get_format();
  operation[road](pattern, other.pattern, f.exp_width, f.mant_width, mode());
}

}  // namespace zelk
