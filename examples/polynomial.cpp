// Bounds of a polynomial by interval arithmetic: the lower ends round toward minus infinity, the
// upper ends toward plus infinity, so that the exact value is always between them.
//
// (x - 1)^5, multiplied out, loses nearly all digits near 1. Rounding to nearest gives a number and
// no hint of that; the width of the interval says how much of the number is left.
#include <iomanip>
#include <iostream>
#include <vector>

#include "zelk/float/native.h"
#include "zelk/zelk.h"

namespace {

using zelk::IEEEFloat;
using zelk::QNumber;
using Format = IEEEFloat::format;

constexpr auto nearest = IEEEFloat::ROUND_NEAREST_EVEN;
constexpr auto down = IEEEFloat::ROUND_TOWARD_NEGATIVE;
constexpr auto up = IEEEFloat::ROUND_TOWARD_POSITIVE;

// Each end keeps its mode: the left operand of an operation decides how it rounds.
struct Interval {
  IEEEFloat lower, upper;

  Interval(const QNumber& q, Format f)
      : lower(IEEEFloat::from_ratio(q, f, down)), upper(IEEEFloat::from_ratio(q, f, up)) {}

  Interval& operator+=(const Interval& other) {
    lower += other.lower;
    upper += other.upper;
    return *this;
  }

  // For a factor of positive numbers, an end moves outward by whichever end of it does so most.
  Interval& multiply_by_positive(const Interval& x) {
    lower *= lower.get_sign() ? x.upper : x.lower;
    upper *= upper.get_sign() ? x.lower : x.upper;
    return *this;
  }

  bool contains(const QNumber& q) const { return lower.to_number() <= q && q <= upper.to_number(); }
};

// Horner's rule, coefficients from the highest power down.
QNumber exactly(const std::vector<long>& coefficients, const QNumber& x) {
  QNumber value = 0;
  for (const long c : coefficients) {
    value = value * x + c;
  }
  return value;
}

IEEEFloat to_nearest(const std::vector<long>& coefficients, const QNumber& x, Format f) {
  const IEEEFloat point = IEEEFloat::from_ratio(x, f, nearest);
  IEEEFloat value(f, nearest);
  for (const long c : coefficients) {
    value *= point;
    value += IEEEFloat::from_ratio(c, f, nearest);
  }
  return value;
}

Interval bounds(const std::vector<long>& coefficients, const QNumber& x, Format f) {
  const Interval point(x, f);
  Interval value(0, f);
  for (const long c : coefficients) {
    value.multiply_by_positive(point) += Interval(c, f);
  }
  return value;
}

double rounded(const QNumber& q) {
  return zelk::to_native<double>(IEEEFloat::from_ratio(q, zelk::formats::double_, nearest));
}

}  // namespace

int main() {
  const std::vector<long> p = {1, -5, 10, -10, 5, -1};
  const QNumber x = QNumber(1001) / 1000;
  const QNumber exact = exactly(p, x);
  std::cout << "p(x) = x^5 - 5x^4 + 10x^3 - 10x^2 + 5x - 1 = (x - 1)^5 at x = " << x
            << "\nexactly  " << exact << "\n\n"
            << "format      to nearest      lower bound     upper bound\n";
  bool enclosed = true;
  for (const Format f : {Format{5, 10}, {8, 23}, {11, 52}, {15, 112}, {19, 236}}) {
    const Interval value = bounds(p, x, f);
    enclosed = enclosed && value.contains(exact);
    std::cout << '(' << f.exp_width << ", " << std::setw(3) << f.mant_width << ") "
              << std::scientific << std::setprecision(6) << std::setw(15)
              << rounded(to_nearest(p, x, f).to_number()) << ' ' << std::setw(15)
              << rounded(value.lower.to_number()) << ' ' << std::setw(15)
              << rounded(value.upper.to_number()) << '\n';
  }
  std::cout << (enclosed ? "\nevery interval holds the exact value\n" : "\nAN INTERVAL IS WRONG\n");
  return enclosed ? 0 : 1;
}
