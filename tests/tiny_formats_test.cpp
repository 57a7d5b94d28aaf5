// Every pattern and pair of patterns of tiny formats, in every mode, against brute force.
//
// The oracle lists the magnitudes of a format as rationals, infinity standing at the value that
// its pattern would have as a finite number: rounding is then a search in a sorted list.
// Special operands go through the processor's doubles, which hold every tiny value exactly.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "tests/support.h"

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

struct Tiny {
  Format f;
  unsigned long sign, inf, patterns;
  std::vector<mpq_class> magnitudes;  // by pattern, up to and including infinity's

  explicit Tiny(Format format)
      : f(format),
        sign(1UL << (f.exp_width + f.mant_width)),
        inf(sign - (1UL << f.mant_width)),
        patterns(2 * sign) {
    for (unsigned long p = 0; p <= inf; ++p) {
      magnitudes.push_back(magnitude(p));
    }
  }

  // (2^m + T) * 2^(E - bias - m), or T * 2^(1 - bias - m); for NaNs as if they were finite.
  mpq_class magnitude(unsigned long p) const {
    const unsigned long e = (p & (sign - 1)) >> f.mant_width;
    const unsigned long t = p & ((1UL << f.mant_width) - 1);
    const long k = static_cast<long>(std::max(e, 1UL)) - (1L << (f.exp_width - 1)) + 1 -
                   static_cast<long>(f.mant_width);
    const mpz_class power = mpz_class(1) << static_cast<unsigned long>(std::abs(k));
    const mpq_class q(e == 0 ? t : t + (1UL << f.mant_width));
    return k < 0 ? mpq_class(q / power) : mpq_class(q * power);
  }
  mpq_class value(unsigned long p) const {
    return (p & sign) != 0 ? mpq_class(-magnitude(p)) : magnitude(p);
  }
  bool is_nan(unsigned long p) const { return (p & (sign - 1)) > inf; }
  bool is_inf(unsigned long p) const { return (p & (sign - 1)) == inf; }
  bool is_finite(unsigned long p) const { return (p & (sign - 1)) < inf; }
  bool is_zero(unsigned long p) const { return (p & (sign - 1)) == 0; }
  unsigned long nan() const { return sign | inf | 1; }
  unsigned long signed_by(bool negative, unsigned long p) const { return negative ? p | sign : p; }

  double as_double(unsigned long p) const {
    const double d = is_nan(p) ? NAN : is_inf(p) ? HUGE_VAL : magnitude(p).get_d();
    return (p & sign) != 0 ? -d : d;
  }

  // The pattern for a nonzero rational.
  unsigned long round(const mpq_class& q, unsigned rm) const {
    const bool negative = q < 0;
    const mpq_class a = abs(q);
    const auto above = std::upper_bound(magnitudes.begin(), magnitudes.end(), a);
    const auto low = static_cast<unsigned long>(above - magnitudes.begin()) - 1;
    if (low == inf) {  // beyond infinity's place
      return signed_by(negative,
                       inf - static_cast<unsigned long>(rm == 1 || rm == (negative ? 2U : 3U)));
    }
    const mpq_class down = a - magnitudes[low];
    const mpq_class up = *above - a;
    const bool grow = down != 0 && (rm == 0   ? up < down || (up == down && low % 2 == 1)
                                    : rm == 1 ? false
                                              : negative == (rm == 3));
    return signed_by(negative, low + static_cast<unsigned long>(grow));
  }

  // a op b, op by its index among + - * /.
  unsigned long operate(int op, unsigned long a, unsigned long b, unsigned rm) const {
    if (is_nan(a) || is_nan(b)) {
      return is_nan(a) ? a : b;
    }
    const double x = as_double(a);
    const double y = as_double(b);
    const double d = op == 0 ? x + y : op == 1 ? x - y : op == 2 ? x * y : x / y;
    if (std::isnan(d)) {
      return nan();
    }
    if (is_inf(a) || is_inf(b) || (op == 3 && is_zero(b))) {
      return signed_by(std::signbit(d), std::isinf(d) ? inf : 0);
    }
    const mpq_class p = value(a);
    const mpq_class q = value(b);
    const mpq_class r = op == 0 ? p + q : op == 1 ? p - q : op == 2 ? p * q : mpq_class(p / q);
    if (r != 0) {
      return round(r, rm);
    }
    // The processor's zero has the sign for nearest-even; only in sums of unlike zeros, and of
    // opposites, does the sign depend on the mode.
    const bool like = op >= 2 || (is_zero(a) && std::signbit(x) == (std::signbit(y) != (op == 1)));
    return signed_by(like ? std::signbit(d) : rm == 3, 0);
  }
};

const Tiny formats[] = {Tiny({2, 1}), Tiny({3, 1}), Tiny({2, 3}), Tiny({3, 2}), Tiny({3, 4})};

// Calls body(format, pattern, value) for every pattern, and, in the second form, every mode.
template <typename Body>
void for_each(Body body) {
  for (const Tiny& t : formats) {
    for (const auto rm : modes) {
      for (unsigned long p = 0; p < t.patterns; ++p) {
        body(t, p, generic(t.f, rm, p));
      }
    }
  }
}

TEST(TinyFormats, OperationsAndComparisonsOnAllPairs) {
  for (const Tiny& t : formats) {
    std::vector<IEEEFloat> values;
    for (unsigned long p = 0; p < t.patterns; ++p) {
      values.push_back(generic(t.f, IEEEFloat::ROUND_NEAREST_EVEN, p));
      ASSERT_EQ(bits(values.back()), p);
    }
    for (unsigned long a = 0; a < t.patterns; ++a) {
      for (unsigned long b = 0; b < t.patterns; ++b) {
        const double x = t.as_double(a);
        const double y = t.as_double(b);
        const IEEEFloat& v = values[a];
        const IEEEFloat& w = values[b];
        ASSERT_TRUE((v < w) == (x < y) && (v <= w) == (x <= y) && (v == w) == (x == y) &&
                    (v > w) == (x > y) && (v >= w) == (x >= y) && (v != w) == (x != y))
            << name(v) << " against " << name(w);
        ASSERT_EQ(ieee_cmp(v, w), x < y ? -1 : x > y ? 1 : x == y ? 0 : -2) << name(v) << name(w);
        for (int op = 0; op < 4; ++op) {
          for (const auto rm : modes) {
            IEEEFloat r = v;
            r.set_mode(rm);
            const std::string left = name(r);
            apply(op, r, w);
            const unsigned long want = t.operate(op, a, b, rm);
            ASSERT_EQ(bits(r), want) << left << operators[op] << std::hex << " 0x" << b << " = 0x"
                                     << bits(r) << ", wanted 0x" << want;
          }
        }
      }
    }
  }
}

TEST(TinyFormats, Conversions) {
  for_each([](const Tiny& t, unsigned long p, const IEEEFloat& x) {
    for (const Tiny& u : formats) {
      IEEEFloat r = x;
      r.set_format(u.f);
      unsigned long want = t.signed_by((p & t.sign) != 0, 0) != 0 ? u.sign : 0;
      if (t.f == u.f) {
        want = p;
      } else if (t.is_nan(p)) {
        want = u.nan();
      } else if (t.is_inf(p)) {
        want |= u.inf;
      } else if (!t.is_zero(p)) {
        want = u.round(t.value(p), x.get_mode());
      }
      ASSERT_EQ(bits(r), want) << name(x) << " to " << name(r);
      ASSERT_TRUE(r.get_format() == u.f && r.get_mode() == x.get_mode());
    }
  });
}

TEST(TinyFormats, ExactValuesIntegersAndText) {
  for_each([](const Tiny& t, unsigned long p, const IEEEFloat& x) {
    const mpq_class q = t.value(p);
    const bool negative = (p & t.sign) != 0;
    if (t.is_finite(p)) {
      ASSERT_EQ(x.to_number().to_mpq(), q) << name(x);
      const std::string text = x.to_float_str();
      ASSERT_EQ(std::strtod(text.c_str(), nullptr), t.as_double(p)) << text;
      ASSERT_EQ(text[0] == '-', negative) << text;
      ASSERT_EQ(text.find_first_not_of("-0123456789."), std::string::npos) << text;
      ASSERT_EQ(text.find('.') != std::string::npos, q.get_den() != 1) << text;
      ASSERT_TRUE(q.get_den() == 1 || text.back() != '0') << text;
      ASSERT_TRUE(abs(q) >= 1 || text[negative ? 1 : 0] == '0') << text;
    }
    std::string pattern = mpz_class(p + t.patterns).get_str(2).substr(1);
    pattern.insert(t.f.exp_width + 1, "_").insert(1, "_");
    const std::string value = t.is_nan(p)   ? "NaN"
                              : t.is_inf(p) ? (negative ? "-Inf" : "+Inf")
                                            : x.to_float_str();
    ASSERT_EQ(x.to_str(), "[" + std::to_string(t.f.exp_width) + ":" +
                              std::to_string(t.f.mant_width) + "]" + value + "{" + pattern + "}");

    const mpz_class whole = q.get_num() / q.get_den();
    ASSERT_EQ(x.to_integer(0).to_mpq(), t.is_finite(p) ? whole : 0) << name(x);
    const bool normal = (p & (t.sign - 1)) >> t.f.mant_width != 0;
    mpz_class rounded = abs(whole);
    const mpq_class rest = abs(q) - rounded;
    const auto rm = x.get_mode();
    rounded += rest != 0 &&
               (rm == 0 ? rest > mpq_class(1, 2) || (rest == mpq_class(1, 2) && rounded % 2 == 1)
                        : rm == (negative ? 3 : 2));
    for (const unsigned long w : {1UL, 2UL, 3UL, 8UL, 64UL, 70UL}) {
      mpz_class want = normal ? rounded % (mpz_class(1) << w) : mpz_class(0);
      want = negative ? mpz_class(-want) : want;
      ASSERT_EQ(x.to_integer(w).to_mpq(), want) << name(x) << " to " << w << " bits";
    }
  });
}

TEST(TinyFormats, ClassesSignsAndNeighbours) {
  for_each([](const Tiny& t, unsigned long p, const IEEEFloat& x) {
    const bool negative = (p & t.sign) != 0;
    const unsigned long magnitude = p & (t.sign - 1);
    ASSERT_EQ(x.is_nan(), t.is_nan(p)) << name(x);
    ASSERT_EQ(x.is_inf(), t.is_inf(p)) << name(x);
    ASSERT_EQ(x.is_zero(), t.is_zero(p)) << name(x);
    ASSERT_EQ(x.is_subnormal(), magnitude != 0 && magnitude < 1UL << t.f.mant_width) << name(x);
    ASSERT_EQ(x.get_sign(), negative) << name(x);
    const bool refused = t.is_nan(p) && p != t.nan();
    ASSERT_EQ(message([&] { return IEEEFloat::from_bits(p, t.f); }),
              refused ? "invalid bit pattern for IEEEFloat: " + std::to_string(p) : "");

    const auto changed = [&](auto change) {
      IEEEFloat r = x;
      change(r);
      EXPECT_TRUE(r.get_format() == t.f && r.get_repr() == IEEEFloat::REPR_GENERIC);
      return bits(r).get_ui();
    };
    ASSERT_EQ(changed([](IEEEFloat& r) { r.self_neg(); }), t.is_nan(p) ? p : p ^ t.sign);
    ASSERT_EQ(changed([](IEEEFloat& r) { r.self_nan(); }), t.nan());
    for (const bool b : {false, true}) {
      ASSERT_EQ(changed([&](IEEEFloat& r) { r.set_sign(b); }), t.signed_by(b, magnitude));
      ASSERT_EQ(changed([&](IEEEFloat& r) { r.self_inf(b); }), t.signed_by(b, t.inf));
      ASSERT_EQ(changed([&](IEEEFloat& r) { r.self_zero(b); }), t.signed_by(b, 0));

      // The order of the real line: one step up moves to the next larger value, if there is one.
      const bool grow = b != negative;
      unsigned long next = p;
      unsigned long packed = grow ? p + 1 : p - 1;
      if (t.is_zero(p)) {
        next = t.signed_by(!b, 1);
        packed = grow ? p + 1 : p ^ t.sign;
      } else if (!t.is_nan(p) && !(t.is_inf(p) && grow)) {
        next = grow ? p + 1 : p - 1;
      } else if (magnitude == t.sign - 1 && grow) {
        packed = p;
      }
      ASSERT_EQ(changed([&](IEEEFloat& r) { r.next_representable(b); }), next) << name(x) << b;
      ASSERT_EQ(changed([&](IEEEFloat& r) { r.packed_next(b); }), packed) << name(x) << b;
    }
  });
}

}  // namespace
