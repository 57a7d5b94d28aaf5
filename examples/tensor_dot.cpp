// Dot products of halves accumulated in five ways, and how far each is from the exact result.
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "zelk/float/native.h"
#include "zelk/zelk.h"

namespace {

using zelk::Environment;
using zelk::IEEEFloat;
using zelk::QNumber;
using zelk::formats::half;
using zelk::formats::single;

struct Vectors {
  std::vector<IEEEFloat> x, y;
};

// n components, x(i) and y(i) rounded to half.
template <class X, class Y>
Vectors vectors(long n, X x, Y y) {
  Environment env;
  Vectors v;
  for (long i = 1; i <= n; ++i) {
    v.x.push_back(env.from_rational(x(i), half));
    v.y.push_back(env.from_rational(y(i), half));
  }
  return v;
}

// sum := step(sum, x, y) for all components, from a zero of format f on.
template <class Step>
IEEEFloat accumulate(const Vectors& v, IEEEFloat::format f, Step step) {
  IEEEFloat sum(f, IEEEFloat::ROUND_NEAREST_EVEN);
  for (std::size_t i = 0; i < v.x.size(); ++i) {
    sum = step(sum, v.x[i], v.y[i]);
  }
  return sum;
}

// Prints a row of errors; whether the exact sums are the nearest values, and none is further away.
bool report(const std::string& name, const Vectors& v) {
  Environment env;
  using V = const IEEEFloat&;
  const IEEEFloat results[] = {
      accumulate(v, half, [&](V s, V x, V y) { return env.add(s, env.multiply(x, y)); }),
      accumulate(v, half, [&](V s, V x, V y) { return env.fma(x, y, s); }),
      env.dot(v.x, v.y, half),
      accumulate(v, single, [&](V s, V x, V y) { return env.fma(x, y, s, single); }),
      env.dot(v.x, v.y, single),
  };
  QNumber exact;
  for (std::size_t i = 0; i < v.x.size(); ++i) {
    exact += v.x[i].to_number() * v.y[i].to_number();
  }
  const auto print = [&](const QNumber& q) {
    std::cout << std::setw(12) << zelk::to_native<double>(env.from_rational(q, {11, 52}));
  };
  std::cout << std::left << std::setw(22) << name << std::right;
  print(exact);
  std::vector<QNumber> errors;
  for (const IEEEFloat& result : results) {
    if (!is_finite(result)) {
      std::cout << std::setw(12) << "overflow";
      errors.push_back(QNumber::scaled(1, 20));  // beyond all others
    } else {
      const QNumber error = result.to_number() - exact;
      errors.push_back(error.sign() < 0 ? -error : error);
      print(errors.back());
    }
  }
  std::cout << '\n';
  const auto nearest = [&](V x, IEEEFloat::format f) { return x == env.from_rational(exact, f); };
  return nearest(results[2], half) && nearest(results[4], single) && errors[2] <= errors[0] &&
         errors[2] <= errors[1] && errors[4] <= errors[3];
}

}  // namespace

int main() {
  const auto ratio = [](long n, long d) { return QNumber(n) / d; };
  const auto one = [](long) { return QNumber(1); };
  std::cout
      << "errors of dot products of halves\n\n"
      << "                                   into half                           into binary32\n"
      << "                             exact   x * y + s         fma         dot"
      << "         fma         dot\n"
      << std::setprecision(4);
  bool holds = report("4096 times 1 * 1", vectors(4096, one, one));
  holds = report("1/i and 1", vectors(
                                  1000, [&](long i) { return ratio(1, i); }, one)) &&
          holds;
  holds =
      report("3000/i and +-10/i", vectors(
                                      1000, [&](long i) { return ratio(3000, i); },
                                      [&](long i) { return ratio(i % 2 == 0 ? 10 : -10, i); })) &&
      holds;
  holds = report("300 * 300 - 300 * 300", vectors(
                                              100, [](long i) { return i % 2 == 0 ? 300 : -300; },
                                              [&](long i) { return 300 + ratio(i, 4); })) &&
          holds;
  std::cout << (holds ? "\nexact sums are the nearest values, and never behind\n"
                      : "\nAN EXACT SUM IS NOT THE NEAREST VALUE\n");
  return holds ? 0 : 1;
}
