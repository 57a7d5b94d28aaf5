// The decision: what a number cut off to a pattern becomes, given the digits below it, for every
// combination of direction, rule of tininess, sign, parity, digits and place in the range, with the
// flags: each road's own spelling of the rule, what rounds and packs there, and what rounds by
// these, against one table.
#include "prove/theorem.h"
#include "tests/environment_oracle.h"
#include "zelk/exact/rounding.h"
#include "zelk/limbs/convert.h"
#include "zelk/limbs/many.h"
#include "zelk/limbs/window.h"
#include "zelk/words/two_words.h"

namespace prove {

namespace {

using namespace zelk_test;  // NOLINT(google-build-using-namespace)
namespace exact = zelk::exact;
namespace limbs = zelk::limbs;
namespace rules = zelk::rules;
namespace words = zelk::words;

// +-n * 2^k: the magnitude of a pattern, that of infinity and what would be above it included, with
// quarters of its last place, and less than that: nothing, a half of one or a digit far below.
struct Number {
  bool negative;
  mpz_class pattern, n, low;  // low is what is below the last place
  long places;
  mpz_class exponent;  // as limbs have it: the field, but 1 for subnormals
  QNumber k;

  Number(const Layout& t, bool sign, const mpz_class& p, unsigned quarters, int rest)
      : negative(sign), pattern(p), places(rest == 2 ? 93 : 3) {
    n = 4 * (p < t.hidden ? p : mpz_class(p % t.hidden + t.hidden)) + quarters;
    n = scaled(n, places - 2).get_num() + static_cast<int>(rest != 0);
    low = n % scaled(1, places).get_num();
    const mpz_class bias = pow2(t.f.exp_width - 1) - 1;
    exponent = std::max<mpz_class>(p / t.hidden, 1);
    k = QNumber(exponent - bias - t.f.mant_width - places, 1);
  }
  // The magnitude of n * 2^by, with a lowest bit that also stands for all beneath it.
  mpz_class sticky(long by) const {
    bool rest = false;
    const mpz_class cut = number(n).digits(by, rest);
    return rest ? mpz_class(cut | 1) : cut;
  }
  // The neighbours among the multiples of 2^-digits of the last place.
  Neighbours neighbours(long digits) const {
    return zelk_test::neighbours(number(scaled(pattern, places) + low), places - digits);
  }
  IEEEFloat value(const mpz_class& digits, Format f, Environment& env) const {
    return env.from_scaled(QNumber(negative ? mpz_class(-digits) : digits, 1), k, f);
  }
};

// In every environment what the table has for x. One digit more counts only above half of the least
// normal number, where it is the last one of the precision.
void check(const char* what, const Layout& t, const Number& x, auto call) {
  const Neighbours values = x.neighbours(0), finer = x.neighbours(1);
  for (unsigned i = 0; i < 24; ++i) {
    Environment env{Rounding(i % 6), Tininess(i / 6 % 2), i / 12 == 1};
    const Answer want =
        rounded(t, x.negative, values, x.pattern < t.hidden ? &finer : nullptr, env);
    const mpz_class r = call(env);
    ++cases;
    ASSERT_TRUE(r == want.bits && env.flags == want.flags)
        << name(env) << what << ' ' << (x.negative ? '-' : '+') << x.n << " * 2^" << x.k << " is "
        << t.f.exp_width << "," << t.f.mant_width << " 0x" << std::hex << r << std::dec << " with "
        << unsigned{env.flags} << ", wanted 0x" << std::hex << want.bits << std::dec << " with "
        << want.flags;
  }
}

std::vector<limbs::Limb> to_limbs(const mpz_class& n, std::size_t size) {
  std::vector<limbs::Limb> w(size);
  mpz_export(w.data(), nullptr, -1, sizeof(limbs::Limb), 0, 0, n.get_mpz_t());
  return w;
}

// What rounds and packs on each road, given the number as that road has it.

template <class S>
mpz_class in_words(const S& s, const Layout& t, const Number& x, const Environment& env) {
  using W = words::Word<S>;
  const auto length = static_cast<long>(mpz_sizeinbase(x.n.get_mpz_t(), 2));
  const auto digits = to_limbs(x.sticky(words::lead<W> + 1 - length), 2);
  const mpz_class exp = x.exponent - t.f.mant_width - x.places + length - 2;
  const W r = words::round_and_pack(
      s,
      words::Unpacked<W>{x.negative ? words::sign_bit(s) : W{0}, exp.get_si(),
                         static_cast<W>(words::double_word(digits[1], digits[0]))},
      static_cast<rules::Direction>(env.rounding));
  const limbs::Limb w[] = {static_cast<limbs::Limb>(r),
                           static_cast<limbs::Limb>(words::uint128{r} >> 64)};
  mpz_class pattern = from_limbs(w);
  if constexpr (words::Raised<S>) pattern >>= static_cast<unsigned long>(s.below());
  return pattern;
}

template <class S>
void check_words(const char* what, const S& s, const Layout& t, const Number& x) {
  check(what, t, x, [&](Environment& env) {
    const words::Flagged<S> flagged{s, &env.flags};
    const bool before = env.tininess == Tininess::before_rounding;
    if (!before && !env.flush_results) return in_words(flagged, t, x, env);
    return in_words(words::InEnvironment<S>{flagged, before, env.flush_results}, t, x, env);
  });
}

void check_roads(const Layout& t, const Number& x) {
  const unsigned long e = t.f.exp_width, m = t.f.mant_width;
  const auto exp_width = static_cast<std::int64_t>(e), mant_width = static_cast<std::int64_t>(m);
  if (t.f == Format{8, 23}) check_words("swflt", words::binary32, t, x);
  if (t.f == Format{11, 52}) check_words("swflt", words::binary64, t, x);
  if (words::serves_in_one_word(e, m)) {
    check_words("one word", words::RuntimeShape{exp_width, mant_width}, t, x);
  } else if (words::serves_in_two_words(e, m)) {
    if (m >= 64) check_words("two words", words::LongShape{exp_width, mant_width}, t, x);
    check_words("two words", words::RaisedShape{exp_width, mant_width}, t, x);
  }
  const limbs::Shape shape{{e, m}};
  const long exponent = x.exponent.get_si();
  const std::vector<limbs::Limb> w = to_limbs(x.n, mpz_size(x.n.get_mpz_t()));
  const auto on_limbs = [&](const char* what, auto pack) {
    check(what, t, x, [&](Environment& env) {
      rules::Exceptions raised{env.tininess == Tininess::before_rounding, env.flush_results, 0};
      std::vector<limbs::Limb> out(e / 64 + m / 64 + 3);
      pack(limbs::Rounding(static_cast<rules::Direction>(env.rounding), &raised), out.data());
      env.flags = raised.flags;
      return from_limbs({out.data(), static_cast<std::size_t>(shape.pattern_size())});
    });
  };
  const auto size = static_cast<long>(w.size());
  on_limbs("scaled limbs", [&](limbs::Rounding r, limbs::Limb* out) {
    limbs::pack_scaled(shape, r, x.negative, x.k.to_long(), w.data(), size, out);
  });
  limbs::with_size(shape, [&](limbs::Shape s, auto n) {
    on_limbs("limbs", [&](limbs::Rounding r, limbs::Limb* out) {
      if constexpr (std::is_same_v<decltype(n), long>) {
        normalize_and_pack(s, n, r, x.negative, exponent - x.places, w.data(), size, false, out);
      } else {
        limbs::Window<n> window;
        std::ranges::copy(to_limbs(x.sticky(64 - x.places), n + 1), window.w);
        if (x.pattern < t.hidden) {
          limbs::normalize_and_pack(s, r, x.negative, exponent, window, out);
        } else {
          limbs::round_and_pack(s, r, x.negative, exponent, window, out);
        }
      }
    });
  });
  check("numbers", t, x, [&](Environment& env) {
    rules::Exceptions raised{env.tininess == Tininess::before_rounding, env.flush_results, 0};
    exact::Numbers numbers;
    QNumber exp = x.k + QNumber(m), n(x.n, 1), out;
    const exact::Rounding r{static_cast<unsigned>(env.rounding), &raised};
    exact::round_and_pack_float(numbers, {e, m}, r, x.negative, exp, n, out);
    env.flags = raised.flags;
    return out.to_mpq().get_num();
  });
}

// What rounds by them: numbers made, converted and added.
void check_number(const Layout& t, const Number& x) {
  Environment exact;
  const Format f = t.f,
               wide{f.exp_width + 6, f.mant_width + static_cast<unsigned long>(x.places) + 1};
  const IEEEFloat all = x.value(x.n, wide, exact), low = x.value(x.low, wide, exact);
  const IEEEFloat high = x.value(x.n - x.low, wide, exact);
  EXPECT_EQ(exact.flags, 0);
  check("from_scaled", t, x, [&](Environment& env) { return bits(x.value(x.n, f, env)); });
  check("convert", t, x, [&](Environment& env) { return bits(env.convert(all, f)); });
  check("add", t, x, [&](Environment& env) { return bits(env.add(high, low, f)); });
  const IEEEFloat small = x.value(x.low, f, exact), large = x.value(x.n - x.low, f, exact);
  if (exact.flags != 0) return;  // not both terms have the format
  const IEEEFloat one = exact.from_integer(1, f);
  check("subtract", t, x, [&](Environment& env) { return bits(env.subtract(large, -small)); });
  check("fma", t, x, [&](Environment& env) { return bits(env.fma(large, one, small)); });
}

// The spellings of the rule: whether a magnitude is incremented that has these digits below.
void check_rule(unsigned i) {
  const auto d = static_cast<rules::Direction>(i % 6);
  const bool negative = i / 6 % 2 != 0, odd = i / 12 % 2 != 0, half = i / 24 % 2 != 0;
  const unsigned long rest = i / 48 % 4,
                      below = (half ? 1UL << 63 : 0) + (rest >> 1 << 62) + rest % 2;
  const Neighbours n{odd, below == 0, half ? rest != 0 : -1};
  const bool up = n.chosen(Rounding(d), negative) != odd;
  const bool carries = (words::to_carry(d, negative, odd, 8UL) + (half ? 4 : 0) + rest) / 8 != 0;
  ++cases;
  ASSERT_TRUE(rules::increments(d, negative, odd, half, rest != 0) == up && carries == up &&
              words::rounds_up(d, negative, odd, below) == up &&
              limbs::rounds_up({d}, limbs::Limb{negative}, odd, below) == up)
      << "direction " << d << ", negative " << negative << ", odd " << odd << ", half " << half
      << ", rest " << rest;
}

void check_format(Format f) {
  const Layout t(f);
  for (unsigned i = 0; i < 6 * 32; ++i) check_rule(i);
  const mpz_class one = t.inf / t.hidden / 2 * t.hidden;
  // Where numbers are cut off, with an even last digit.
  for (const mpz_class& even :
       {mpz_class(0), std::max<mpz_class>(t.hidden / 2 - 2, 0), mpz_class(t.hidden - 2), t.hidden,
        one, mpz_class(2 * t.hidden - 2), mpz_class(one + t.hidden - 2), mpz_class(t.inf - 2),
        t.inf, mpz_class(t.inf + 64 * t.hidden)}) {
    for (unsigned i = 0; i < 48; ++i) {
      const Number x(t, i % 2 != 0, even + i / 2 % 2, i / 4 % 4, static_cast<int>(i / 16));
      if (x.n != 0) check_roads(t, x), check_number(t, x);
    }
  }
}

}  // namespace

std::vector<Theorem> decision() {
  std::vector<Format> formats = {{5, 10}, {8, 7}, {8, 23}, {11, 52}, {15, 112}, {19, 236}};
  for (unsigned long m = 1; m < 330; ++m) {
    for (const unsigned long e : {2UL, 3UL, 5UL, 8UL, 15UL, 31UL, 56UL}) formats.push_back({e, m});
  }
  for (const unsigned long width : {59UL, 60UL, 61UL, 62UL, 63UL, 64UL, 65UL, 126UL, 127UL}) {
    for (unsigned long e = 2; e < 63 && e < width; ++e) formats.push_back({e, width - e});
  }
  return {{"decision", formats.size(), [formats](unsigned long i) { check_format(formats[i]); }}};
}

}  // namespace prove
