// What rounding more than once does. `from_number` rounds a fraction's numerator, its denominator
// and their quotient; `from_ratio` rounds the fraction. In a format of three significand bits this
// counts where they differ, and by how much.
#include <iomanip>
#include <iostream>
#include <string>

#include "zelk/zelk.h"

namespace {

using zelk::IEEEFloat;
using zelk::QNumber;

constexpr IEEEFloat::format small{4, 3};
constexpr auto nearest = IEEEFloat::ROUND_NEAREST_EVEN;

QNumber distance(const QNumber& a, const QNumber& b) { return a < b ? b - a : a - b; }

bool is_exact(const QNumber& q) {
  return IEEEFloat::from_ratio(q, small, nearest).to_number() == q;
}

// The error of a positive x as an approximation of q, in units of the last place of x.
double error_in_ulps(const IEEEFloat& x, const QNumber& q) {
  IEEEFloat next = x;
  next.next_representable(true);
  const QNumber ulp = next.to_number() - x.to_number();
  return (distance(x.to_number(), q) / ulp).to_mpq().get_d();
}

// Whether no neighbour of x is nearer to q.
bool is_nearest(const IEEEFloat& x, const QNumber& q) {
  for (const bool direction : {false, true}) {
    IEEEFloat neighbour = x;
    neighbour.next_representable(direction);
    if (distance(neighbour.to_number(), q) < distance(x.to_number(), q)) {
      return false;
    }
  }
  return true;
}

void print(const QNumber& q, const IEEEFloat& thrice, const IEEEFloat& once) {
  const auto in_format = [](const QNumber& part) {
    return IEEEFloat::from_ratio(part, small, nearest).to_float_str();
  };
  const std::string fraction =
      std::to_string(q.get_num().to_long()) + '/' + std::to_string(q.get_den().to_long());
  const std::string parts = in_format(q.get_num()) + " / " + in_format(q.get_den());
  std::cout << std::left << std::setw(7) << fraction << std::setw(9) << parts << std::right
            << std::setw(11) << thrice.to_float_str() << std::setw(6) << error_in_ulps(thrice, q)
            << std::setw(11) << once.to_float_str() << std::setw(6) << error_in_ulps(once, q)
            << '\n';
}

}  // namespace

int main() {
  std::cout << "fractions in (4, 3), to nearest, errors in ulps\n\n"
            << std::fixed << std::setprecision(2)
            << "q      parts    from_number error from_ratio error\n";
  int fractions = 0;
  int differences = 0;
  bool claims_hold = true;
  double worst = 0;
  for (long n = 1; n <= 64; ++n) {
    for (long d = 2; d <= 64; ++d) {
      const QNumber q = QNumber(n) / d;
      if (q.get_den() != QNumber(d)) {
        continue;  // not in lowest terms
      }
      ++fractions;
      const IEEEFloat thrice = IEEEFloat::from_number(q, small, nearest);
      const IEEEFloat once = IEEEFloat::from_ratio(q, small, nearest);
      claims_hold =
          claims_hold && is_nearest(once, q) && (thrice == once || !is_exact(n) || !is_exact(d));
      if (thrice == once) {
        continue;
      }
      ++differences;
      if (error_in_ulps(thrice, q) > worst) {
        worst = error_in_ulps(thrice, q);
        print(q, thrice, once);
      }
    }
  }
  std::cout << "\nof " << fractions << " fractions " << differences << " differ; the worst by "
            << worst << " ulps\n"
            << (claims_hold ? "from_ratio always gives the nearest value, and so does from_number "
                              "where both parts are exact\n"
                            : "A CLAIM FAILED\n");
  return claims_hold ? 0 : 1;
}
