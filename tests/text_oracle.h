// Values as text by their definition, on rationals.
#ifndef ZELK_TESTS_TEXT_ORACLE_H_
#define ZELK_TESTS_TEXT_ORACLE_H_

#include "tests/exact_oracle.h"

namespace zelk_test {

inline constexpr Rounding roundings[] = {Rounding::nearest_even,    Rounding::toward_zero,
                                         Rounding::toward_positive, Rounding::toward_negative,
                                         Rounding::nearest_away,    Rounding::to_odd};

inline mpq_class power_of_ten(long n) {
  const mpz_class p('1' + std::string(static_cast<std::size_t>(std::abs(n)), '0'));
  return n < 0 ? mpq_class(1, p) : mpq_class(p);
}

// The multiple of 10^p that v is rounded to, in these multiples.
inline mpz_class rounded(const mpq_class& v, long p, Rounding r) {
  return neighbours(number(v / power_of_ten(p)), 0).chosen(r, v < 0);
}

// floor(log10(v)) for v > 0.
inline long decade(const mpq_class& v) {
  long d = static_cast<long>(mpz_sizeinbase(v.get_num_mpz_t(), 10)) -
           static_cast<long>(mpz_sizeinbase(v.get_den_mpz_t(), 10)) + 2;
  while (power_of_ten(d) > v) --d;
  return d;
}

inline std::string plain(std::string digits, long p) {
  if (p >= 0) return digits + std::string(static_cast<std::size_t>(p), '0');
  const auto places = static_cast<std::size_t>(-p);
  if (digits.size() <= places) digits.insert(0, places + 1 - digits.size(), '0');
  return digits.insert(digits.size() - places, ".");
}

inline std::string with_exponent(std::string digits, long p) {
  const long exponent = p + static_cast<long>(digits.size()) - 1;
  if (digits.size() > 1) digits.insert(1, ".");
  const std::string size = std::to_string(std::abs(exponent));
  return digits + (exponent < 0 ? "e-" : "e+") + (size.size() < 2 ? "0" : "") + size;
}

// What %g makes of the text of %e with as many digits.
inline std::string general(const std::string& scientific, long precision) {
  const std::size_t e = scientific.find('e');
  const long exponent = std::stol(scientific.substr(e + 1));
  const bool negative = scientific[0] == '-';
  std::string digits = scientific.substr(negative, e - negative);
  if (digits.size() > 1) digits.erase(1, 1);
  digits.erase(digits.find_last_not_of('0') + 1);
  const long p = exponent + 1 - static_cast<long>(digits.size());
  return (negative ? "-" : "") + (exponent < -4 || exponent >= std::max(precision, 1L)
                                      ? with_exponent(digits, p)
                                      : plain(digits, p));
}

// Rounded to so many decimal digits.
inline std::string scientific(const mpq_class& v, long digits, Rounding r) {
  long place = decade(abs(v)) - digits + 1;
  mpz_class d = rounded(v, place, r);
  if (d == power_of_ten(digits)) d /= 10, ++place;
  return (v < 0 ? "-" : "") + with_exponent(d.get_str(), place);
}

// Rounded to so many hexadecimal places.
inline std::string hexadecimal(const mpq_class& v, long places, Rounding r) {
  long top = number(v).exponent();
  mpz_class d = neighbours(number(v), top - 4 * places).chosen(r, v < 0);
  if (d == 2 * pow2(static_cast<unsigned long>(4 * places))) d /= 2, ++top;
  std::string digits = d.get_str(16);
  if (places > 0) digits.insert(1, ".");
  return "0x" + digits + (top < 0 ? "p" : "p+") + std::to_string(top);
}

// By the definition: every D of n digits next to v, from one digit on.
inline std::string shortest(const mpq_class& v, const mpq_class& low, const mpq_class& high,
                            bool closed) {
  for (long n = 1, top = decade(v);; ++n) {
    mpz_class best;
    long at = 0;
    mpq_class distance = -1;
    for (long p = top - n; p <= top - n + 2; ++p) {
      for (int i = 0; i < 2; ++i) {
        const mpz_class d = rounded(v, p, Rounding::toward_zero) + i;
        const mpq_class x = d * power_of_ten(p), away = abs(x - v);
        if (static_cast<long>(d.get_str().size()) != n || d == 0 || x < low || x > high) continue;
        if (!closed && (x == low || x == high)) continue;
        if (distance < 0 || away < distance || (away == distance && d % 2 == 0)) {
          best = d, at = p, distance = away;
        }
      }
    }
    if (distance < 0) continue;
    const std::string a = plain(best.get_str(), at), b = with_exponent(best.get_str(), at);
    return a.size() > b.size() ? b : at > 0 ? v.get_num().get_str() : a;
  }
}

// What decides where a value ends, for those of a format without a sign.
inline std::string shortest(const Layout& t, const mpz_class& p) {
  const mpq_class v = t.value(p);
  const mpq_class above = t.value(p + 1);  // of the largest, as if there were one more exponent
  return shortest(v, (v + t.value(p - 1)) / 2, (v + above) / 2, p % 2 == 0);
}

inline std::string read_back(const std::string& text, Format f) {
  return name(IEEEFloat::from_text(text, f, modes[0]));
}

/// The shortest text of a value in the first mode, and back.
inline void check_shortest(const Layout& t, const IEEEFloat& x) {
  const mpz_class p = bits(x), magnitude = p % t.sign;
  const std::string text = to_shortest(x), sign = p < t.sign ? "" : "-";
  ASSERT_EQ(text, magnitude > t.inf    ? "nan"
                  : magnitude == t.inf ? sign + "inf"
                  : magnitude == 0     ? sign + "0"
                                       : sign + shortest(t, magnitude))
      << name(x);
  ASSERT_TRUE(magnitude > t.inf || read_back(text, t.f) == name(x)) << text;
}

/// The last two convergents w / n of a / b with n below a limit (continued fractions).
struct Convergents {
  mpz_class w[2] = {0, 1}, n[2] = {1, 0};

  Convergents(mpz_class a, mpz_class b, const mpz_class& limit) {
    while (b != 0) {
      const mpz_class term = a / b, rest = a % b;
      const mpz_class next_w = w[0] + term * w[1], next_n = n[0] + term * n[1];
      if (next_n >= limit) break;
      w[0] = std::exchange(w[1], next_w), n[0] = std::exchange(n[1], next_n);
      a = std::exchange(b, rest);
    }
  }
};

}  // namespace zelk_test

#endif  // ZELK_TESTS_TEXT_ORACLE_H_
