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

constexpr auto powers_of_ten = [] {
  std::array<std::uint64_t, Literal::word_digits + 1> powers{1};
  for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = 10 * powers[i - 1];
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
[[gnu::noinline]] words::Word<S> round_otherwise(S shape, Environment& env, const Literal& x) {
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

template <class S>
words::Word<S> round_literal(S shape, Environment& env, const Literal& x) {
  if constexpr (sizeof(words::Word<S>) == 8) {
    if (x.fits_word() && is_in_table(x.exponent, decimal::last_power)) [[likely]] {
      auto estimate = decimal::estimate(x.word, x.exponent, false);
      if (settle(estimate, words::kept_width(shape))) [[likely]] {
        return round(shape, env, x.negative, estimate);
      }
    }
  }
  return round_otherwise(shape, env, x);
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

}  // namespace

bool detail::read_literal(const Literal& x, IEEEFloat& out, Environment& env) {
  const Road road = has_short_roads ? ValueAccess::kind(out).road() : Road::numbers;
  if (road == Road::numbers || ValueAccess::is_foreign(out) ||
      x.end - x.first > static_cast<long>(max_bits / 4))
    return false;
  if (x.form == Form::infinity || x.form == Form::nan || is_zero(x)) {
    const Class what = x.form == Form::infinity ? Class::infinite
                       : x.form == Form::nan    ? Class::nan
                                                : Class::zero;
    set_special(out, {what, x.negative, 0, 0});
    return true;
  }
  Pattern& pattern = ValueAccess::pattern(out);
  const auto store = [&](auto place) {
    using Place = decltype(place);
    const auto s = Place::shape(widths(out.get_format()));
    Place::store(s, round_literal(s, env, x), pattern);
  };
  switch (road) {
    case Road::limbs:
      round_to_limbs(env, x, out);
      break;
    case Road::quad:
      store(Quad());
      break;
    case Road::double_word:
      store(TwoWords());
      break;
    case Road::packed32:
      store(FixedWord<words::FixedShape<8, 23>>());
      break;
    case Road::packed64:
      store(FixedWord<words::FixedShape<11, 52>>());
      break;
    default:
      store(OneWord<words::RuntimeShape>());
  }
  return true;
}

std::from_chars_result from_chars(const char* first, const char* last, IEEEFloat& x,
                                  Environment& env) {
  detail::require_one_format(env, x);
  const Literal number = decimal::scan(first, last);
  if (number.form == Form::none) {
    return {first, std::errc::invalid_argument};
  }
  if (!detail::read_literal(number, x, env)) {
    IEEEFloat value = env.from_text({first, number.end}, x.get_format());
    value.self_specialize_repr(IEEEFloat::REPR_GENERIC);
    value.self_specialize_repr(x.get_repr());
    value.set_mode(x.get_mode());
    x = std::move(value);
  }
  return {number.end, std::errc()};
}

}  // namespace zelk
