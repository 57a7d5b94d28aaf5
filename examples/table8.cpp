// Every value of an 8-bit format, and how often its arithmetic is exact.
//
// Four bits of exponent and three of significand: small enough to see the subnormals, the binades
// of eight values and the infinities, and to try all pairs.
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "zelk/zelk.h"

namespace {

using zelk::IEEEFloat;
using zelk::QNumber;

constexpr IEEEFloat::format fp8 = zelk::formats::fp8_e4m3;
constexpr long columns = 1L << fp8.mant_width;
constexpr long rows = 1L << fp8.exp_width;

bool is_number(const IEEEFloat& x) { return !x.is_nan() && !x.is_inf(); }

// The value of a pattern by the definition: T * 2^(1 - bias - m) for E = 0, and otherwise
// (2^m + T) * 2^(E - bias - m).
QNumber by_definition(long field, long trailing) {
  const long bias = fp8.bias().to_long();
  const auto m = static_cast<long>(fp8.mant_width);
  return field == 0 ? QNumber::scaled(trailing, 1 - bias - m)
                    : QNumber::scaled(columns + trailing, field - bias - m);
}

// Prints the values that are not negative, a row for each exponent field; whether they are those
// of the definition, both ways.
bool print_table() {
  bool right = true;
  for (long field = 0; field < rows; ++field) {
    std::cout << std::setw(3) << field << ' ';
    for (long trailing = 0; trailing < columns; ++trailing) {
      std::string text = "NaN";  // patterns that from_bits refuses
      if (field < rows - 1 || trailing == 0) {
        const IEEEFloat x = IEEEFloat::from_bits(field * columns + trailing, fp8);
        text = x.is_inf() ? "Inf" : x.to_float_str();
        if (is_number(x)) {
          const QNumber value = by_definition(field, trailing);
          const IEEEFloat back = IEEEFloat::from_ratio(value, fp8, IEEEFloat::ROUND_NEAREST_EVEN);
          right = right && x.to_number() == value && back.get_bits() == x.get_bits();
        }
      }
      std::cout << ' ' << std::setw(11) << text;
    }
    std::cout << '\n';
  }
  return right;
}

// How many of all pairs of finite values give an exact result; `exact` computes it in rationals.
template <class Rounded, class Exact>
long count_exact(const std::vector<IEEEFloat>& values, Rounded rounded, Exact exact) {
  long count = 0;
  for (const IEEEFloat& a : values) {
    for (const IEEEFloat& b : values) {
      const IEEEFloat result = rounded(a, b);
      count += is_number(result) && result.to_number() == exact(a.to_number(), b.to_number());
    }
  }
  return count;
}

}  // namespace

int main() {
  std::cout << "(4, 3): exponent field down, trailing significand 0 to 7 across\n\n";
  const bool right = print_table();
  std::vector<IEEEFloat> values;
  for (long bits = 0; bits < 2 * rows * columns; ++bits) {
    if (bits / columns % rows != rows - 1) {  // all but infinities and NaNs
      values.push_back(IEEEFloat::from_bits(bits, fp8));
    }
  }
  const auto pairs = static_cast<long>(values.size() * values.size());
  const auto add = [](const auto& a, const auto& b) { return a + b; };
  const auto multiply = [](const auto& a, const auto& b) { return a * b; };
  const long sums = count_exact(values, add, add);
  const long products = count_exact(values, multiply, multiply);
  std::cout << "\nof " << pairs << " pairs of finite values the sum is exact for " << sums
            << ", the product for " << products << '\n'
            << (right ? "all values are those of the definition\n" : "A VALUE IS WRONG\n");
  return right ? 0 : 1;
}
