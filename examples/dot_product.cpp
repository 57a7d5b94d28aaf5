// A dot product in half precision, bfloat16 and binary32, and in bfloat16 with sums in binary32,
// as accelerators compute it. The error is exact: rationals give the true result.
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "zelk/float/native.h"
#include "zelk/zelk.h"

namespace {

using zelk::IEEEFloat;
using zelk::QNumber;
using Format = IEEEFloat::format;

constexpr auto nearest = IEEEFloat::ROUND_NEAREST_EVEN;
constexpr long length = 1000;

QNumber magnitude(const QNumber& q) { return q.sign() < 0 ? -q : q; }

double rounded(const QNumber& q) {
  return zelk::to_native<double>(IEEEFloat::from_ratio(q, zelk::formats::double_, nearest));
}

// The components of two vectors, rounded to the format of the inputs.
struct Pair {
  IEEEFloat x, y;
};

std::vector<Pair> vectors(Format f) {
  std::vector<Pair> pairs;
  for (long i = 1; i <= length; ++i) {
    const QNumber x = QNumber(1) / i;
    const QNumber y = QNumber(i % 3 == 0 ? -i : i) / (i + 7);
    pairs.push_back({IEEEFloat::from_ratio(x, f, nearest), IEEEFloat::from_ratio(y, f, nearest)});
  }
  return pairs;
}

// Products and sums rounded in format f.
IEEEFloat dot(const std::vector<Pair>& pairs, Format f) {
  IEEEFloat sum(f, nearest);
  for (Pair p : pairs) {
    p.x.set_format(f);  // exact where f is no narrower
    p.y.set_format(f);
    sum += p.x * p.y;
  }
  return sum;
}

// The exact result of the same inputs, and the sum of magnitudes that error bounds are made of.
struct Exact {
  QNumber dot, magnitudes;
};

Exact exactly(const std::vector<Pair>& pairs) {
  Exact sum;
  for (const Pair& p : pairs) {
    const QNumber product = p.x.to_number() * p.y.to_number();
    sum.dot += product;
    sum.magnitudes += magnitude(product);
  }
  return sum;
}

// Prints a row; whether the error is within n u / (1 - n u) times the sum of magnitudes, u being
// 2^-(m+1) and n u < 1, as it must be for rounding to nearest in whatever order of summation.
bool report(const std::string& name, Format inputs, Format sums) {
  const std::vector<Pair> pairs = vectors(inputs);
  const Exact exact = exactly(pairs);
  const IEEEFloat computed = dot(pairs, sums);
  const QNumber error = magnitude(computed.to_number() - exact.dot);
  const QNumber nu = QNumber::scaled(length, -static_cast<long>(sums.mant_width) - 1);
  const QNumber bound = nu / (1 - nu) * exact.magnitudes;
  const bool has_bound = nu < 1;
  std::cout << std::left << std::setw(28) << name << std::right << std::setprecision(8)
            << std::setw(11) << rounded(computed.to_number()) << std::setw(11) << rounded(exact.dot)
            << std::setprecision(2) << std::setw(9) << rounded(error);
  if (has_bound) {
    std::cout << std::setw(9) << rounded(bound);
  }
  std::cout << '\n';
  return !has_bound || error <= bound;
}

}  // namespace

int main() {
  std::cout << "dot product of " << length << " components\n\n"
            << "inputs and sums                computed      exact    error    bound\n";
  bool holds = report("half (5, 10)", zelk::formats::half, zelk::formats::half);
  holds = report("bfloat16 (8, 7)", zelk::formats::bfloat16, zelk::formats::bfloat16) && holds;
  holds =
      report("bfloat16, sums in binary32", zelk::formats::bfloat16, zelk::formats::single) && holds;
  holds = report("binary32 (8, 23)", zelk::formats::single, zelk::formats::single) && holds;
  std::cout << (holds ? "\nevery error is within its bound\n" : "\nA BOUND IS EXCEEDED\n");
  return holds ? 0 : 1;
}
