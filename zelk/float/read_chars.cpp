// Values from characters: numbers as they are written, rounded once, by the shortest road that
// decides how.
#include <array>
#include <bit>
#include <string_view>
#include <utility>

#include "zelk/decimal/estimate.h"
#include "zelk/decimal/long_number.h"
#include "zelk/float/evaluation.h"
#include "zelk/float/read_text.h"
#include "zelk/float/text.h"
#include "zelk/limbs/convert.h"
#include "zelk/numbers/bvnumber.h"

namespace zelk {

namespace {

using decimal::Estimate;
using decimal::Form;
using decimal::Literal;
using decimal::Significand;
using detail::Road;
using detail::ValueAccess;
using rules::Class;
using words::uint128;

// ---- Into words ----

// The pattern of a number whose significand is settled.
template <class S, class W>
words::Word<S> round(S shape, Environment& env, bool negative, const Estimate<W>& x) {
  using Pattern = words::Word<S>;
  const auto s = detail::in_environment(shape, env);
  const auto sig = words::resized<Pattern>(static_cast<W>(x.sig >> 1 | (x.sig & 1)));
  const Pattern sign = negative ? sign_bit(s) : Pattern{0};
  return words::round_and_pack(s,
                               words::Unpacked<Pattern>{sign, x.exponent + words::bias(s) - 1, sig},
                               detail::direction_of(env));
}

// The two upper words of a significand, in which what is below is jammed.
Estimate<uint128> upper_words(const Significand& x) {
  const auto limb = [&](long i) { return x.size >= i ? x.limbs[x.size - i] : 0; };
  const int zeros = std::countl_zero(limb(1));
  const uint128 high = words::double_word(limb(1), limb(2)) << zeros;
  const bool rest = limb(3) << zeros != 0 || (x.size > 3 && mpn_zero_p(x.limbs, x.size - 3) == 0);
  return {high | limb(3) >> 1 >> (63 - zeros) | uint128{rest}, 0,
          x.exponent + x.size * limbs::limb_bits - 1 - zeros};
}

// As many leading digits of a literal as one word and two take.
struct LeadingDigits {
  std::uint64_t word;
  uint128 two_words;
  std::int64_t exponent;       // of one word's last digit
  std::int64_t wide_exponent;  // of two words'
  bool more;                   // whether what follows one word's is not 0
  bool wide_more;
};

constexpr std::size_t power_count = Literal::word_digits + 1;
constexpr auto powers_of_ten = [] {
  std::array<std::uint64_t, power_count> powers{1};
  for (std::size_t i = 1; i < power_count; ++i) powers[i] = 10 * powers[i - 1];
  return powers;
}();

LeadingDigits leading_digits(const Literal& x) {
  if (x.count <= Literal::word_digits) {
    return {x.word, x.word, x.exponent, x.exponent, false, false};
  }
  decimal::DigitReader digits(x);
  const long second = std::min(x.count - Literal::word_digits, Literal::word_digits);
  const std::uint64_t high = digits.take(Literal::word_digits);
  const std::uint64_t low = digits.take(second);
  const bool more = digits.any_left();
  const std::int64_t exponent = x.exponent + (x.count - Literal::word_digits);
  return {high,
          uint128{high} * powers_of_ten[static_cast<std::size_t>(second)] + low,
          exponent,
          exponent - second,
          more || low != 0,
          more};
}

// Whether the table has this power of five.
constexpr bool is_in_table(std::int64_t q, long last) { return q >= -last && q <= last; }

// Any number other than 0.
template <class S>
words::Word<S> round_literal(S shape, Environment& env, const Literal& x) {
  const std::int64_t m = words::kept_width(shape);
  if (x.form == Form::decimal) {
    const LeadingDigits digits = leading_digits(x);
    if (sizeof(words::Word<S>) == 8 && is_in_table(digits.exponent, decimal::last_power)) {
      auto estimate = decimal::estimate(digits.word, digits.exponent, digits.more);
      if (settle(estimate, m)) {
        return round(shape, env, x.negative,
                     Estimate<uint128>{uint128{estimate.sig} << 64, 0, estimate.exponent});
      }
    }
    if (is_in_table(digits.wide_exponent, decimal::last_wide_power)) {
      auto estimate = decimal::estimate(digits.two_words, digits.wide_exponent, digits.wide_more);
      if (settle(estimate, m)) return round(shape, env, x.negative, estimate);
    }
  }
  decimal::Workspace space;
  const rules::Widths f{static_cast<unsigned long>(shape.exp_width), static_cast<unsigned long>(m)};
  return round(shape, env, x.negative, upper_words(significand_of(x, f, space)));
}

// ---- Into any format ----

bool is_zero(const Literal& x) { return x.fits_word() ? x.word == 0 : x.count == 0; }

void round_to_limbs(Environment& env, const Literal& x, IEEEFloat& out) {
  const rules::Widths f = detail::widths(out.get_format());
  decimal::Workspace space;
  const Significand number = significand_of(x, f, space);
  rules::Exceptions exceptions = detail::exceptions_of(env);
  limbs::pack_scaled(limbs::Shape{f}, {detail::direction_of(env), &exceptions},
                     limbs::Limb{x.negative}, number.exponent, number.limbs, number.size,
                     ValueAccess::words(out));
  detail::raise(env, exceptions.flags);
}

// Into formats whose exponents are no words.
void round_to_numbers(Environment& env, const Literal& x, IEEEFloat& out) {
  decimal::Workspace space;
  const Significand number = significand_of(x, detail::widths(out.get_format()), space);
  QNumber n;
  BVNumber::from_words({number.limbs, static_cast<std::size_t>(number.size)}, &n);
  if (x.negative) {
    n.self_neg();
  }
  detail::round_to(env, out,
                   [&](const exact::Target& t) { exact::from_scaled(n, number.exponent, t); });
}

// Whether a literal's exponent is a word of the format, and the format has patterns.
bool is_in_range(const Literal& literal, const IEEEFloat& x) {
  constexpr std::int64_t far = std::int64_t{1} << 60;
  return ValueAccess::kind(x).road() != Road::numbers ||
         (literal.exponent > -far && literal.exponent < far &&
          x.get_format().mant_width < max_bits);
}

// Whether a power of five passes the limit, so that it cannot be built.
bool has_long_power(const Literal& literal) {
  const words::int128 bits = words::int128{literal.exponent} * 7 / 3;
  return bits >= max_bits || -bits >= max_bits;
}

// Any literal.
[[gnu::noinline]] void read_literal(const Literal& x, IEEEFloat& out, Environment& env) {
  if (x.form == Form::infinity || x.form == Form::nan || is_zero(x)) {
    const Class what = x.form == Form::infinity ? Class::infinite
                       : x.form == Form::nan    ? Class::nan
                                                : Class::zero;
    detail::set_special(out, {what, x.negative, 0, 0});
    return;
  }
  const auto round_it = [&](auto s) { return round_literal(s, env, x); };
  if (!detail::has_short_roads || ValueAccess::kind(out).road() == Road::numbers) {
    round_to_numbers(env, x, out);
  } else if (!detail::make_in_words(out, round_it)) {
    round_to_limbs(env, x, out);
  }
}

// out := the number that a text begins with, if it is a decimal that one product decides; where it
// ends, else null.
template <class Place>
[[gnu::always_inline]] inline const char* read_short(Place /*place*/, const char* first,
                                                     const char* last, bool whole, IEEEFloat& out,
                                                     Environment& env) {
  const Literal x = decimal::scan_decimal(first, last);
  // What begins with "0x" is 0 so far.
  if (x.word == 0 || !x.fits_word() || !is_in_table(x.exponent, decimal::last_power) ||
      (whole && x.end != last)) [[unlikely]] {
    return nullptr;
  }
  const decimal::Product<std::uint64_t> p = decimal::product(x.word, x.exponent);
  if (!is_within_unit(p) && !decimal::is_exact_power<std::uint64_t>(x.exponent)) [[unlikely]] {
    return nullptr;
  }
  const auto s = Place::shape(detail::widths(out.get_format()));
  const Estimate<std::uint64_t> e{jammed(p), 0, exponent_of(x.word, x.exponent, p)};
  Place::store(s, round(s, env, x.negative, e), ValueAccess::pattern(out));
  return x.end;
}

}  // namespace

detail::Prefix detail::read_prefix(const char* first, const char* last, bool whole, IEEEFloat& x,
                                   Environment& env) {
  const Kind kind = ValueAccess::kind(x);
  const char* end = nullptr;
  if (has_short_roads && kind == Kind::packed64()) {
    end = read_short(FixedWord<words::FixedShape<11, 52>>(), first, last, whole, x, env);
  } else if (has_short_roads && kind == Kind::packed32()) {
    end = read_short(FixedWord<words::FixedShape<8, 23>>(), first, last, whole, x, env);
  } else if (has_short_roads && kind.is_one_word()) {
    end = read_short(OneWord<words::RuntimeShape>(), first, last, whole, x, env);
  }
  if (end != nullptr) [[likely]] {
    return {end, true};
  }
  const Literal literal = decimal::scan(first, last);
  const bool whole_is_long = whole && static_cast<unsigned long>(last - first) > max_bits / 4;
  const bool by_numbers = ValueAccess::is_foreign(x) || whole_is_long || !is_in_range(literal, x) ||
                          (!has_short_roads && !has_long_power(literal));
  if (literal.form == Form::none || by_numbers || (whole && literal.end != last)) {
    return {literal.end, false};
  }
  read_literal(literal, x, env);
  return {literal.end, true};
}

std::from_chars_result from_chars(const char* first, const char* last, IEEEFloat& x,
                                  Environment& env) {
  detail::require_one_format(env, x);
  const detail::Prefix prefix = detail::read_prefix(first, last, false, x, env);
  if (prefix.end == first) {
    return {first, std::errc::invalid_argument};
  }
  if (!prefix.is_read) {
    IEEEFloat value = env.from_text({first, prefix.end}, x.get_format());
    value.self_specialize_repr(IEEEFloat::REPR_GENERIC);
    value.self_specialize_repr(x.get_repr());
    value.set_mode(x.get_mode());
    x = std::move(value);
  }
  return {prefix.end, std::errc()};
}

}  // namespace zelk
