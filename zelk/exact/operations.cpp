#include "zelk/exact/operations.h"

#include <utility>

#include "zelk/exact/codec.h"
#include "zelk/exact/numbers.h"
#include "zelk/exact/patterns.h"
#include "zelk/exact/rounding.h"
#include "zelk/exact/values.h"

namespace zelk::exact {

using rules::Class;
using rules::Outcome;

Value read(const Source& x) {
  Value v;
  QNumber bits;
  v.operand = read_operand(x.words, x.widths, bits, v.term.exponent, v.term.significand);
  if (v.operand.is(Class::zero) || v.operand.is(Class::finite)) {
    decompose(x.widths, bias(x.widths), v.term.exponent, v.term.significand);
    v.term.exponent -= x.widths.mant_width;
    v.term.negative = v.operand.negative;
  }
  return v;
}

namespace {

void store(QNumber& pattern, const Target& t) { exact::store(pattern, t.words, t.widths); }

}  // namespace

void round(Term x, const Target& t) {
  Scratch n;
  n->exp1 = std::move(x.exponent);
  n->exp1 += t.widths.mant_width;
  n->mant1 = std::move(x.significand);
  QNumber& out = n->patterns(t.widths).out;
  round_and_pack_float(*n, t.widths, {t.direction, t.exceptions}, x.negative, n->exp1, n->mant1,
                       out);
  store(out, t);
}

bool settle(rules::Result r, const Target& t) {
  QNumber out;
  unsigned flags = 0;
  switch (r.outcome) {
    case Outcome::computed:
      return false;
    case Outcome::zero:
      pack_zero(t.widths, r.negative, out);
      break;
    case Outcome::pole:
      flags = rules::divide_by_zero;
      [[fallthrough]];
    case Outcome::infinity:
      pack_inf(t.widths, r.negative, out);
      break;
    case Outcome::invalid:
      flags = rules::invalid;
      [[fallthrough]];
    default:
      pack_nan(t.widths, out);
  }
  store(out, t);
  t.exceptions->raise(flags);
  return true;
}

Term with_zero_sign(Term x, const Target& t) {
  if (x.significand.is_zero()) {
    x.negative = rules::zero_sum_is_negative(t.direction);
  }
  return x;
}

namespace {

void add_values(const Value& a, const Value& b, const Target& t) {
  if (!settle(rules::sum(a.operand, b.operand, t.direction), t)) {
    round(with_zero_sign(add(a.term, b.term, precision(t)), t), t);
  }
}

void leave(const Source& x, const Source& y, bool nearest, const Target& t) {
  const Value a = read(x);
  const Value b = read(y);
  if (!settle(rules::remainder(a.operand, b.operand), t)) {
    round(b.operand.is(Class::infinite) ? a.term : remainder(a.term, b.term, nearest), t);
  }
}

// The term rounded to an integer; whether that changed it.
bool make_integral(Term& x, rules::Direction d) {
  if (x.exponent.sign() >= 0) {
    return false;
  }
  const QNumber places = -x.exponent;
  const unsigned long length = BVNumber::bit_length(x.significand);
  // Further down than its length, a significand is below a quarter whatever it is.
  const unsigned long k =
      places < length + 2 ? static_cast<unsigned long>(places.to_long()) : length + 2;
  const Remainder lost = shift_right(x.significand, k);
  x.exponent = 0;
  if (rules::increments(d, x.negative, BVNumber::test_bit(x.significand, 0), lost.half,
                        lost.rest)) {
    x.significand += 1;
  }
  return lost.half || lost.rest;
}

}  // namespace

void plus(const Source& x, const Source& y, const Target& t) { add_values(read(x), read(y), t); }

void minus(const Source& x, const Source& y, const Target& t) {
  Value b = read(y);
  b.operand.negative = !b.operand.negative;
  b.term.negative = b.operand.negative;
  add_values(read(x), b, t);
}

void times(const Source& x, const Source& y, const Target& t) {
  const Value a = read(x);
  const Value b = read(y);
  if (!settle(rules::product(a.operand, b.operand), t)) {
    round(multiply(a.term, b.term), t);
  }
}

void over(const Source& x, const Source& y, const Target& t) {
  const Value a = read(x);
  const Value b = read(y);
  if (!settle(rules::quotient(a.operand, b.operand), t)) {
    round(divide(a.term, b.term, precision(t)), t);
  }
}

void root(const Source& x, const Target& t) {
  const Value a = read(x);
  if (!settle(rules::root(a.operand), t)) {
    round(sqrt(a.term, precision(t)), t);
  }
}

void fused(const Source& x, const Source& y, const Source& z, const Target& t) {
  const Value a = read(x);
  const Value b = read(y);
  const Value c = read(z);
  if (!settle(rules::fused(a.operand, b.operand, c.operand, t.direction), t)) {
    round(with_zero_sign(add(multiply(a.term, b.term), c.term, precision(t)), t), t);
  }
}

void convert(const Source& x, const Target& t) {
  Value a = read(x);
  if (!settle(rules::same(a.operand), t)) {
    round(std::move(a.term), t);
  }
}

void scale(const Source& x, const QNumber& n, const Target& t) {
  Value a = read(x);
  if (!settle(rules::same(a.operand), t)) {
    a.term.exponent += n;
    round(std::move(a.term), t);
  }
}

void remainder(const Source& x, const Source& y, const Target& t) { leave(x, y, true, t); }
void modulo(const Source& x, const Source& y, const Target& t) { leave(x, y, false, t); }

void round_to_integral(const Source& x, const Target& t) {
  Value a = read(x);
  if (!settle(rules::same(a.operand), t)) {
    const bool changed = make_integral(a.term, t.direction);
    round(std::move(a.term), t);
    t.exceptions->raise(changed ? unsigned{rules::inexact} : 0);
  }
}

void from_scaled(const QNumber& q, const QNumber& k, const Target& t) {
  Term x{q.sign() < 0, q.get_num(), k};
  if (x.negative) {
    x.significand.self_neg();
  }
  round(q.is_integer() ? std::move(x) : divide(x, Term{false, q.get_den(), 0}, precision(t)), t);
}

// ---- Integers, order ----

Integer to_integer(const Source& x, rules::Direction d, bool is_signed, unsigned long w) {
  Value a = read(x);
  Integer result{0, make_integral(a.term, d), true};
  QNumber& n = a.term.significand;
  if (n.is_zero()) {
    return result;
  }
  // Of a length that is at most w, or that a number can have.
  const QNumber length = a.term.top();
  const bool least = is_signed && a.operand.negative &&
                     BVNumber::lowest_one(n) + 1 == BVNumber::bit_length(n);  // a power of two
  result.fits =
      w == 0 || (length <= (is_signed && !least ? w - 1 : w) && (is_signed || !a.operand.negative));
  if (result.fits) {
    detail::require_bits(length.fits_long() ? static_cast<unsigned long>(length.to_long())
                                            : BVNumber::npos);
    BVNumber::bit_left_shift(n, static_cast<unsigned long>(a.term.exponent.to_long()), &n);
    result.value = a.operand.negative ? -n : n;
  }
  return result;
}

bool is_integral(const Source& x) {
  Term a = read(x).term;
  return !make_integral(a, rules::toward_zero);
}

QNumber exponent_of(const Source& x) { return read(x).term.top() - 1; }

int compare(const Source& x, const Source& y) {
  const rules::Operand a = words::operand_of(x.words, x.widths);
  const rules::Operand b = words::operand_of(y.words, y.widths);
  if (a.is(Class::nan) || b.is(Class::nan)) {
    return 2;
  }
  const auto rank = [](const rules::Operand& o) {
    const int magnitude = o.is(Class::zero) ? 0 : o.is(Class::finite) ? 1 : 2;
    return o.negative ? -magnitude : magnitude;
  };
  if (rank(a) != rank(b)) {
    return rank(a) < rank(b) ? -1 : 1;
  }
  if (!a.is(Class::finite)) {
    return 0;
  }
  const int order = compare_magnitudes(read(x).term, read(y).term);
  return a.negative ? -order : order;
}

}  // namespace zelk::exact
