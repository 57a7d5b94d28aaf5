// Sums of many terms, exact inside and rounded once.

#include <algorithm>
#include <bit>
#include <utility>
#include <vector>

#include "zelk/exact/accumulator.h"
#include "zelk/exact/values.h"

namespace zelk::exact {

using rules::Class;
using rules::Outcome;

namespace {

// The special operands of a sum: what is seen of its terms.
struct Sum {
  std::vector<Term> terms;  // those that are not 0
  bool nan = false;
  bool invalid = false;
  bool infinite[2] = {false, false};  // positive, negative
  bool zero[2] = {false, false};

  // Takes in a term, or the product of a and b that the table has a result for.
  void add(rules::Result r) {
    nan = nan || r.outcome == Outcome::left || r.outcome == Outcome::right;
    invalid = invalid || r.outcome == Outcome::invalid;
    infinite[r.negative] = infinite[r.negative] || r.outcome == Outcome::infinity;
    zero[r.negative] = zero[r.negative] || r.outcome == Outcome::zero;
  }

  rules::Result result(rules::Direction d) const {
    if (nan) {
      return {Outcome::left};
    }
    if (invalid || (infinite[0] && infinite[1])) {
      return {Outcome::invalid};
    }
    if (infinite[0] || infinite[1]) {
      return {Outcome::infinity, infinite[1]};
    }
    if (!terms.empty()) {
      return {Outcome::computed};
    }
    return {Outcome::zero, zero[1] && (!zero[0] || rules::zero_sum_is_negative(d))};
  }
};

// The terms from the lowest exponent on are added up to islands. The next term begins a new one
// where it is a multiple of twice what all that came before reaches: that is then below one unit of
// the islands to come, however far they are away.
Term total(std::vector<Term>& terms, unsigned long p) {
  std::sort(terms.begin(), terms.end(),
            [](const Term& a, const Term& b) { return a.exponent < b.exponent; });
  std::vector<Term> islands;
  for (const Term& t : terms) {
    if (islands.empty() || islands.back().top() + 1 < t.exponent) {
      islands.push_back(t);
    } else {
      islands.back() = add(islands.back(), t);
    }
  }
  Term sum;
  for (const Term& island : islands) {
    sum = add(island, sum, p);
  }
  return sum;
}

void round_sum(Sum& s, const Target& t) {
  if (!settle(s.result(t.direction), t)) {
    round(with_zero_sign(total(s.terms, precision(t)), t), t);
  }
}

// ---- In fixed point ----

// A pattern in a word, taken apart: +-significand * 2^exponent.
struct Short {
  bool negative;
  std::uint64_t significand;
  std::int64_t exponent;
  bool special;  // an infinity or a NaN
};

Short take_apart(const Source& x) {
  const auto m = x.widths.mant_width;
  const std::uint64_t field_max = (std::uint64_t{1} << x.widths.exp_width) - 1;
  const std::uint64_t field = x.words[0] >> m & field_max;
  const std::uint64_t trailing = x.words[0] & ((std::uint64_t{1} << m) - 1);
  return {(x.words[0] >> m >> x.widths.exp_width & 1) != 0,
          trailing | std::uint64_t{field != 0} << m,
          static_cast<std::int64_t>(field + std::uint64_t{field == 0} - (field_max >> 1) - m),
          field == field_max};
}

// The exponents that the patterns of some formats have: the lowest, and one above all digits.
struct Range {
  std::int64_t low = 0;
  std::int64_t high = 0;

  // Takes in a format; false where patterns are too long, or exponents too far apart.
  bool include(rules::Widths f) {
    if (f.exp_width > 15 || f.mant_width > 63 - f.exp_width) {
      return false;
    }
    const std::int64_t bias = (std::int64_t{1} << (f.exp_width - 1)) - 1;
    low = std::min(low, 1 - bias - static_cast<std::int64_t>(f.mant_width));
    high = std::max(high, bias + 1);
    return true;
  }
};

bool include_all(Range& r, std::span<const Source> x) {
  const rules::Widths* last = nullptr;
  return std::all_of(x.begin(), x.end(), [&](const Source& source) {
    return (last != nullptr && *last == source.widths) || r.include(*(last = &source.widths));
  });
}

// t := the sum that add_all(accumulator) makes of so many terms, if it is false for none and the
// sum is not 0, whose sign the terms decide.
template <class AddAll>
bool round_total(Range r, std::size_t terms, AddAll add_all, const Target& t) {
  const auto round_if = [&](auto accumulator) {
    if (!add_all(accumulator)) {
      return false;
    }
    Term total = accumulator.total();
    if (total.significand.is_zero()) {
      return false;
    }
    round(std::move(total), t);
    return true;
  };
  const auto bits = static_cast<std::size_t>(r.high - r.low);
  if (bits + static_cast<std::size_t>(std::bit_width(terms)) <= 127) {
    return round_if(ShortAccumulator(r.low));
  }
  // Digits cost as much as terms do.
  const std::size_t limbs = bits / 64 + 1;
  return limbs <= 8 + terms && round_if(Accumulator(r.low, limbs));
}

// t := the sum of terms that are all finite and in words; false, and nothing done, for others.
bool sum_in_fixed_point(std::span<const Source> x, const Target& t) {
  Range range;
  const auto add_all = [x](auto& sum) {
    bool special = false;
    for (std::size_t i = 0; i < x.size() && !special; ++i) {
      const Short a = take_apart(x[i]);
      sum.add(a.negative, a.significand, a.exponent);
      special = a.special;
    }
    return !special;
  };
  return include_all(range, x) && round_total(range, x.size(), add_all, t);
}

// The same for products.
bool dot_in_fixed_point(std::span<const Source> x, std::span<const Source> y, const Target& t) {
  Range left;
  Range right;
  const auto add_all = [x, y](auto& sum) {
    bool special = false;
    for (std::size_t i = 0; i < x.size() && !special; ++i) {
      const Short a = take_apart(x[i]);
      const Short b = take_apart(y[i]);
      sum.add(a.negative != b.negative, words::uint128{a.significand} * b.significand,
              a.exponent + b.exponent);
      special = a.special || b.special;
    }
    return !special;
  };
  return include_all(left, x) && include_all(right, y) &&
         round_total({left.low + right.low, left.high + right.high}, x.size(), add_all, t);
}

}  // namespace

void sum(std::span<const Source> x, const Target& t) {
  if (sum_in_fixed_point(x, t)) {
    return;
  }
  Sum s;
  for (const Source& source : x) {
    Value a = read(source);
    s.add(rules::same(a.operand));
    if (a.operand.is(Class::finite)) {
      s.terms.push_back(std::move(a.term));
    }
  }
  round_sum(s, t);
}

void dot(std::span<const Source> x, std::span<const Source> y, const Target& t) {
  if (dot_in_fixed_point(x, y, t)) {
    return;
  }
  Sum s;
  for (std::size_t i = 0; i < x.size(); ++i) {
    const Value a = read(x[i]);
    const Value b = read(y[i]);
    const rules::Result r = rules::product(a.operand, b.operand);
    s.add(r);
    if (r.outcome == Outcome::computed) {
      s.terms.push_back(multiply(a.term, b.term));
    }
  }
  round_sum(s, t);
}

}  // namespace zelk::exact
