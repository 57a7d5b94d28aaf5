// What the test programs share.
#ifndef ZELK_TESTS_SUPPORT_H_
#define ZELK_TESTS_SUPPORT_H_

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "zelk/zelk.h"

namespace zelk_test {

using zelk::IEEEFloat;
using zelk::QNumber;
using Format = IEEEFloat::format;

inline constexpr IEEEFloat::rounding_mode modes[] = {
    IEEEFloat::ROUND_NEAREST_EVEN, IEEEFloat::ROUND_TOWARD_ZERO, IEEEFloat::ROUND_TOWARD_POSITIVE,
    IEEEFloat::ROUND_TOWARD_NEGATIVE};

/// The seed of the random cases: fixed, unless ZELK_SEED gives another. Printed once.
inline unsigned long seed() {
  static const unsigned long value = [] {
    const char* given = std::getenv("ZELK_SEED");
    const unsigned long s = given != nullptr ? std::strtoul(given, nullptr, 0) : 20240229;
    std::cout << "ZELK_SEED=" << s << '\n';
    return s;
  }();
  return value;
}

/// The text that the call throws: as it is for the float error, after "Exception: " for any other
/// exception of the library; "" when nothing is thrown.
template <typename Call>
std::string message(Call call) {
  try {
    static_cast<void>(call());
  } catch (const IEEEFloat::error& e) {
    return e.what();
  } catch (const zelk::Exception& e) {
    return std::string("Exception: ") + e.what();
  }
  return "";
}

/// The pattern as an integer of GMP.
inline mpz_class bits(const IEEEFloat& x) { return x.get_bits().to_mpq().get_num(); }

/// A generic value of any pattern, NaNs that `from_bits` refuses included.
inline IEEEFloat generic(Format f, IEEEFloat::rounding_mode rm, const mpz_class& pattern) {
  const mpz_class inf = ((mpz_class(1) << f.exp_width) - 1) << f.mant_width;
  const bool negative = mpz_tstbit(pattern.get_mpz_t(), f.exp_width + f.mant_width) != 0;
  const mpz_class low = pattern % (mpz_class(1) << f.mant_width);
  IEEEFloat x(f, IEEEFloat::REPR_GENERIC, rm);
  const mpz_class magnitude = pattern % (mpz_class(1) << (f.exp_width + f.mant_width));
  if (magnitude > inf) {
    x.self_inf(negative);
    for (mpz_class t = 0; t < low; ++t) {
      x.packed_next(!negative);
    }
  } else {
    x = IEEEFloat::from_bits(QNumber(pattern, 1), f);
    x.self_specialize_repr(IEEEFloat::REPR_GENERIC);
    x.set_mode(rm);
  }
  return x;
}

/// "(5,10) mode 2 0x3C01": how failures name a value.
inline std::string name(const IEEEFloat& x) {
  std::ostringstream os;
  os << '(' << x.get_format().exp_width << ',' << x.get_format().mant_width << ") mode "
     << x.get_mode() << " 0x" << std::hex << bits(x);
  return os.str();
}

/// The four operations, by number.
inline constexpr const char* operators[] = {"+", "-", "*", "/"};
inline IEEEFloat& apply(int op, IEEEFloat& a, const IEEEFloat& b) {
  return op == 0 ? a += b : op == 1 ? a -= b : op == 2 ? a *= b : a /= b;
}

}  // namespace zelk_test

#endif  // ZELK_TESTS_SUPPORT_H_
