// Encloses rationals, their sum and their product between floating-point bounds, in formats from
// 8 bits to 256, and proves every enclosure with exact numbers.
//
//   enclosure [rational...]      a rational is what `QNumber::from_text` takes: 7, -1/3, 0.1,
//   0x1p-9
#include <algorithm>
#include <array>
#include <exception>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "zelk/zelk.h"

namespace {

using zelk::IEEEFloat;
using zelk::QNumber;
using Format = IEEEFloat::format;

constexpr auto nearest = IEEEFloat::ROUND_NEAREST_EVEN;
constexpr auto down = IEEEFloat::ROUND_TOWARD_NEGATIVE;
constexpr auto up = IEEEFloat::ROUND_TOWARD_POSITIVE;

struct Interval {
  IEEEFloat lower, upper;
};

// An infinite bound is beyond every number on its side.
bool is_below(const IEEEFloat& x, const QNumber& q) {
  return x.is_inf() ? x.get_sign() : x.to_number() <= q;
}
bool is_above(const IEEEFloat& x, const QNumber& q) {
  return x.is_inf() ? !x.get_sign() : x.to_number() >= q;
}

bool encloses(const Interval& x, const QNumber& q) {
  return is_below(x.lower, q) && is_above(x.upper, q);
}

// `from_number` rounds numerator, denominator and quotient, each in the given direction, and so
// may end on the wrong side of q: mostly by an ulp or two, but by any distance, or in a NaN, when
// a part is out of range. What a few steps do not mend is widened to a zero or an infinity.
IEEEFloat bound(const QNumber& q, Format f, IEEEFloat::rounding_mode direction) {
  const auto holds = direction == down ? is_below : is_above;
  IEEEFloat x = IEEEFloat::from_number(q, f, direction);
  for (int step = 0; step < 16 && !x.is_nan(); ++step) {
    if (holds(x, q)) {
      return x;
    }
    x.next_representable(direction == up);
    x.set_mode(direction);  // a step from an infinity is an assignment
  }
  const bool negative = direction == down;
  if ((q.sign() < 0) == negative && q.sign() != 0) {
    x.self_inf(negative);
  } else {
    x.self_zero(false);
  }
  return x;
}

Interval enclose(const QNumber& q, Format f) { return {bound(q, f, down), bound(q, f, up)}; }

Interval add(const Interval& a, const Interval& b) {
  return {a.lower + b.lower, a.upper + b.upper};
}

// The extremes of the four end products; zero times an infinite bound is zero.
Interval multiply(const Interval& a, const Interval& b) {
  const auto products = [&](IEEEFloat::rounding_mode direction) {
    std::array<IEEEFloat, 4> all = {a.lower, a.lower, a.upper, a.upper};
    for (std::size_t i = 0; i < all.size(); ++i) {
      all[i].set_mode(direction);
      all[i] *= i % 2 == 0 ? b.lower : b.upper;
      if (all[i].is_nan()) {
        all[i].self_zero(false);
      }
    }
    return all;
  };
  const auto low = products(down);
  const auto high = products(up);
  return {*std::min_element(low.begin(), low.end()), *std::max_element(high.begin(), high.end())};
}

// upper - lower, in units of the last place of the bound of larger magnitude.
std::string width(const Interval& x) {
  if (x.lower.is_inf() || x.upper.is_inf()) {
    return "unbounded";
  }
  const QNumber low = x.lower.to_number();
  const QNumber high = x.upper.to_number();
  IEEEFloat inward = low + high < 0 ? x.lower : x.upper;
  const QNumber outer = inward.to_number();
  inward.next_representable(outer.sign() <= 0);
  QNumber ulp = outer - inward.to_number();
  if (ulp.sign() < 0) {
    ulp.self_neg();
  }
  std::ostringstream text;
  text << (high - low) / ulp << " ulp";
  return text.str();
}

// Prints one quantity and says whether its enclosure is proven.
bool report(const std::string& what, const QNumber& q, const Interval& x, Format f) {
  const bool proven = encloses(x, q);
  std::cout << "  " << what << '\n'
            << "    lower    " << x.lower << '\n'
            << "    nearest  " << IEEEFloat::from_number(q, f, nearest) << '\n'
            << "    upper    " << x.upper << '\n'
            << "    width    " << width(x) << (proven ? ", proven" : ", NOT PROVEN") << '\n';
  return proven;
}

bool report_format(const std::vector<QNumber>& inputs, Format f) {
  std::cout << "format (" << f.exp_width << ", " << f.mant_width << ")\n";
  bool proven = true;
  QNumber sum = 0;
  QNumber product = 1;
  Interval sum_bounds = enclose(sum, f);
  Interval product_bounds = enclose(product, f);
  for (const QNumber& q : inputs) {
    const Interval x = enclose(q, f);
    std::ostringstream text;
    text << q;
    proven = report(text.str(), q, x, f) && proven;
    sum += q;
    product *= q;
    sum_bounds = add(sum_bounds, x);
    product_bounds = multiply(product_bounds, x);
  }
  std::ostringstream sum_text;
  std::ostringstream product_text;
  sum_text << "sum " << sum;
  product_text << "product " << product;
  proven = report(sum_text.str(), sum, sum_bounds, f) && proven;
  return report(product_text.str(), product, product_bounds, f) && proven;
}

bool run(std::vector<std::string> arguments) {
  if (arguments.empty()) {
    arguments = {"1/3", "2/7", "355/113", "-1/3", "1/2049", "1/4095"};
  }
  std::vector<QNumber> inputs;
  std::transform(arguments.begin(), arguments.end(), std::back_inserter(inputs),
                 [](const std::string& text) { return QNumber::from_text(text); });
  bool proven = true;
  for (const Format f : {Format{4, 3}, {5, 10}, {8, 7}, {8, 23}, {11, 52}, {15, 112}, {19, 236}}) {
    proven = report_format(inputs, f) && proven;
  }
  return proven;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (run({argv + 1, argv + argc})) {
      return 0;
    }
    std::cerr << "enclosure: a proof failed\n";
    return 1;
  } catch (const std::exception& e) {
    std::cerr << "enclosure: " << e.what() << '\n';
    return 2;
  }
}
