// Wide and hardware formats against MPFR, with its exponent range set to the format's and its
// subnormal emulation; packed values against generic ones of the same pattern.
#include <gtest/gtest.h>
#include <mpfr.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/support.h"

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

constexpr mpfr_rnd_t directions[] = {MPFR_RNDN, MPFR_RNDZ, MPFR_RNDU, MPFR_RNDD};

// MPFR as an arithmetic of one format. The range of e = 63 passes MPFR's own: such operands are
// kept to the middle.
class Oracle {
 public:
  explicit Oracle(Format format) : f(format) {
    if (f.exp_width < 63) {
      emax = 1L << (f.exp_width - 1);
      emin = 3 - emax - static_cast<long>(f.mant_width);
    }
    for (mpfr_ptr x : {a, b, r}) {
      mpfr_init2(x, precision());
    }
  }
  Oracle(const Oracle&) = delete;
  Oracle& operator=(const Oracle&) = delete;
  ~Oracle() {
    for (mpfr_ptr x : {a, b, r}) {
      mpfr_clear(x);
    }
    widest();
  }

  mpz_class operate(int op, const mpz_class& x, const mpz_class& y, unsigned rm) {
    decode(x, a);
    decode(y, b);
    constexpr decltype(&mpfr_add) functions[] = {mpfr_add, mpfr_sub, mpfr_mul, mpfr_div};
    narrow();
    return encode(functions[op](r, a, b, directions[rm]), rm);
  }

  // A pattern of another format, whose oracle decodes it.
  mpz_class convert(Oracle& from, const mpz_class& x, unsigned rm) {
    from.decode(x, from.a);
    const int ternary = mpfr_set(r, from.a, directions[rm]);
    narrow();
    return encode(mpfr_check_range(r, ternary, directions[rm]), rm);
  }

  mpz_class integer(const mpz_class& n, unsigned rm) {
    widest();
    const int ternary = mpfr_set_z(r, n.get_mpz_t(), directions[rm]);
    narrow();
    return encode(mpfr_check_range(r, ternary, directions[rm]), rm);
  }

  mpq_class exact(const mpz_class& x) {
    mpq_class q;
    decode(x, a);
    mpfr_get_q(q.get_mpq_t(), a);
    return q;
  }

  // Rounded to an integer, not yet reduced.
  mpz_class rounded(const mpz_class& x, unsigned rm) {
    mpz_class n;
    decode(x, a);
    mpfr_get_z(n.get_mpz_t(), a, directions[rm]);
    return n;
  }

  int compare(const mpz_class& x, const mpz_class& y) {
    decode(x, a);
    decode(y, b);
    return mpfr_unordered_p(a, b) != 0 ? -2 : std::clamp(mpfr_cmp(a, b), -1, 1);
  }

  bool is_nan(const mpz_class& x) { return decode(x, a), mpfr_nan_p(a) != 0; }

  mpz_class nan() const { return (((mpz_class(2) << f.exp_width) - 1) << f.mant_width) + 1; }

  const Format f;

 private:
  mpfr_prec_t precision() const { return static_cast<mpfr_prec_t>(f.mant_width) + 1; }
  void narrow() const { mpfr_set_emin(emin), mpfr_set_emax(emax); }
  static void widest() {
    mpfr_set_emin(mpfr_get_emin_min());
    mpfr_set_emax(mpfr_get_emax_max());
  }

  void decode(const mpz_class& bits, mpfr_t x) const {
    widest();
    const mpz_class mantissa = bits % (mpz_class(1) << f.mant_width);
    const mpz_class exponent = (bits >> f.mant_width) % (mpz_class(1) << f.exp_width);
    const int sign = mpz_tstbit(bits.get_mpz_t(), f.exp_width + f.mant_width) != 0 ? -1 : 1;
    const long e = std::max(exponent.get_si(), 1L) - (1L << (f.exp_width - 1)) + 1 -
                   static_cast<long>(f.mant_width);
    if (exponent == (mpz_class(1) << f.exp_width) - 1) {
      mantissa == 0 ? mpfr_set_inf(x, sign) : mpfr_set_nan(x);
    } else {
      const mpz_class m = exponent == 0 ? mantissa : mantissa + (mpz_class(1) << f.mant_width);
      mpfr_set_z_2exp(x, m.get_mpz_t(), e, MPFR_RNDN);
      mpfr_setsign(x, x, static_cast<int>(sign < 0), MPFR_RNDN);
    }
  }

  mpz_class encode(int ternary, unsigned rm) {
    if (f.exp_width < 63) {
      mpfr_subnormalize(r, ternary, directions[rm]);
    }
    widest();
    if (mpfr_nan_p(r) != 0) {
      return nan();
    }
    mpz_class magnitude = 0;
    if (mpfr_inf_p(r) != 0) {
      magnitude = ((mpz_class(1) << f.exp_width) - 1) << f.mant_width;
    } else if (mpfr_zero_p(r) == 0) {
      // r = m * 2^x with m of exactly the precision; subnormals have to give bits back.
      const auto width = static_cast<long>(f.mant_width);
      const long x = mpfr_get_z_2exp(magnitude.get_mpz_t(), r);
      const long biased = x + width + (1L << (f.exp_width - 1)) - 1;
      magnitude = abs(magnitude);
      if (biased > 0) {
        magnitude += (mpz_class(biased) - 1) << f.mant_width;
      } else {
        magnitude >>= static_cast<unsigned long>(1 - biased);
      }
    }
    return mpfr_signbit(r) != 0
               ? mpz_class(magnitude + (mpz_class(1) << (f.exp_width + f.mant_width)))
               : magnitude;
  }

  long emin = mpfr_get_emin_min();
  long emax = mpfr_get_emax_max();
  mpfr_t a, b, r;
};

// Patterns that find faults: exponents at the ends, around one and around `near`; significands of
// few ones, long runs, and random.
class Patterns {
 public:
  explicit Patterns(Format format) : f(format) {}

  mpz_class operator()() {
    const mpz_class bias = (mpz_class(1) << (f.exp_width - 1)) - 1;
    const mpz_class top = 2 * bias + 1;
    const unsigned long kind = random() % 8;
    const long spread =
        static_cast<long>(random() % (2 * f.mant_width + 8)) - static_cast<long>(f.mant_width) - 4;
    mpz_class exponent = bias + static_cast<long>(random() % 5) - 2;
    if (kind == 1 || kind == 2) {
      exponent = near + spread;
    } else if (f.exp_width == 63) {
      exponent = bias + spread;
    } else if (kind == 3) {
      exponent = static_cast<long>(random() % 3);
    } else if (kind == 4) {
      exponent = top - static_cast<long>(random() % 3);
    } else if (kind == 5) {
      exponent = bias / 2 + spread;
    }
    exponent = std::clamp(exponent, mpz_class(0), top);
    near = f.exp_width == 63 && exponent == 0 ? bias : exponent;

    mpz_class t = 0;
    switch (random() % 4) {
      case 0:
        t = (mpz_class(1) << random() % (f.mant_width + 1)) - static_cast<long>(random() % 2);
        break;
      case 1:
        t = (mpz_class(1) << f.mant_width) - (mpz_class(1) << random() % (f.mant_width + 1));
        break;
      default:
        for (unsigned long i = 0; i < f.mant_width; i += 64) {
          t = (t << 64) + random();
        }
        t += random() % 2;
    }
    t %= mpz_class(1) << f.mant_width;
    if (exponent == top && t > 4) {
      t %= 4;  // NaNs are reached step by step
    }
    const mpz_class sign(random() % 2);
    return (((sign << f.exp_width) + exponent) << f.mant_width) + t;
  }

  const Format f;
  std::mt19937_64 random{seed()};

 private:
  mpz_class near = 0;
};

const Format formats[] = {{5, 10},  {8, 7},  {8, 23}, {11, 52}, {15, 112}, {19, 236}, {10, 52},
                          {11, 51}, {8, 55}, {62, 1}, {63, 1},  {15, 48},  {15, 63},  {20, 2}};

IEEEFloat packed(IEEEFloat x) {
  x.self_specialize_repr(IEEEFloat::get_best_repr(x.get_format()));
  return x;
}

TEST(WideFormats, OperationsAndComparisonsMatchMpfr) {
  for (const Format f : formats) {
    Oracle oracle(f);
    Patterns patterns(f);
    for (int i = 0; i < 8000; ++i) {
      const mpz_class x = patterns();
      const mpz_class y = i % 50 == 0 ? x : patterns();
      const auto rm = modes[i % 4];
      const IEEEFloat left = generic(f, rm, x);
      const IEEEFloat right = generic(f, modes[0], y);
      ASSERT_EQ(bits(left), x);
      ASSERT_EQ(ieee_cmp(left, right), oracle.compare(x, y)) << name(left) << ' ' << name(right);
      ASSERT_EQ(ieee_cmp(packed(left), packed(right)), ieee_cmp(left, right));
      for (int op = 0; op < 4; ++op) {
        mpz_class want = oracle.operate(op, x, y, rm);
        IEEEFloat p = packed(left);
        apply(op, p, packed(right));
        ASSERT_TRUE(bits(p) == want || p.get_repr() == IEEEFloat::REPR_GENERIC)
            << name(left) << operators[op] << name(right) << " = " << name(p) << ", wanted 0x"
            << std::hex << want;
        if (left.is_nan() || right.is_nan()) {
          want = left.is_nan() ? x : y;
        }
        IEEEFloat r = left;
        apply(op, r, right);
        ASSERT_EQ(bits(r), want) << name(left) << operators[op] << name(right) << " = " << name(r)
                                 << ", wanted 0x" << std::hex << want;
      }
    }
  }
}

TEST(WideFormats, ConversionsMatchMpfr) {
  for (const Format f : formats) {
    for (const Format g : formats) {
      Oracle from(f);
      Oracle to(g);
      Patterns patterns(f);
      for (int i = 0; i < 400 && f.exp_width < 63 && g.exp_width < 63; ++i) {
        const mpz_class x = patterns();
        const IEEEFloat source = generic(f, modes[i % 4], x);
        const mpz_class want = f == g ? x : to.convert(from, x, source.get_mode());
        for (const IEEEFloat& start : {source, packed(source)}) {
          IEEEFloat r = start;
          r.set_format(g);
          ASSERT_EQ(bits(r), want) << name(source) << " to " << name(r);
          ASSERT_EQ(r.get_repr(), f == g ? start.get_repr() : IEEEFloat::get_best_repr(g));
        }
      }
    }
  }
}

TEST(WideFormats, ExactValuesAndIntegersMatchMpfr) {
  for (const Format f : formats) {
    Oracle oracle(f);
    Patterns patterns(f);
    for (int i = 0; i < 300 && f.exp_width <= 20; ++i) {
      const mpz_class x = patterns();
      const IEEEFloat value = generic(f, modes[i % 4], x);
      if (value.is_nan() || value.is_inf()) {
        continue;
      }
      const mpq_class want = oracle.exact(x);
      ASSERT_EQ(value.to_number().to_mpq(), want) << name(value);
      ASSERT_EQ(packed(value).to_number(), value.to_number());
      ASSERT_EQ(value.to_integer(0).to_mpq(), mpz_class(want.get_num() / want.get_den()));
      for (const unsigned long w : {1UL, 8UL, 64UL, 113UL, 300UL}) {
        mpz_class integer = oracle.rounded(x, value.get_mode()) % (mpz_class(1) << w);
        integer = value.is_subnormal() ? mpz_class(0) : integer;
        ASSERT_EQ(value.to_integer(w).to_mpq(), integer) << name(value) << " to " << w << " bits";
        ASSERT_EQ(packed(value).to_integer(w), value.to_integer(w));
      }
    }
  }
}

TEST(WideFormats, NumbersAreRoundedInPartsAndDivided) {
  for (const Format f : formats) {
    Oracle oracle(f);
    std::mt19937_64 random(seed());
    const auto integer = [&] {
      mpz_class n(random() % 4 == 0 ? 1 : random());
      n <<= f.exp_width <= 8 ? random() % 150 : random() % 4 * f.mant_width;
      return mpz_class(n + (random() % 3) - 1);
    };
    for (int i = 0; i < 400; ++i) {
      mpq_class q(integer() * (random() % 2 == 0 ? 1 : -1), integer() + 2);
      q.canonicalize();
      const auto rm = modes[i % 4];
      mpz_class want = oracle.integer(q.get_num(), rm);
      if (q.get_den() != 1) {
        want = oracle.operate(3, want, oracle.integer(q.get_den(), rm), rm);
      }
      const IEEEFloat r = IEEEFloat::from_number(QNumber(q), f, rm);
      ASSERT_EQ(bits(r), want) << q << " is " << name(r) << ", wanted 0x" << std::hex << want;
      ASSERT_TRUE(r.get_mode() == rm && r.get_repr() == IEEEFloat::get_best_repr(f));
    }
  }
}

}  // namespace
