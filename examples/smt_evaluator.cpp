// Evaluates SMT-LIB terms of the theory of floating-point numbers whose leaves are constants.
//
// smt_evaluator [file] reads terms, from the standard input if no file is named, and prints a line
// for each: a float as (fp #b... #b... #b...) and exactly, a Boolean, a bit vector or a real. What
// the theory leaves open, and what is no term, is an error with its place.
#include <algorithm>
#include <compare>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "zelk/zelk.h"

namespace {

using zelk::BVNumber;
using zelk::Environment;
using zelk::IEEEFloat;
using zelk::QNumber;
using zelk::Rounding;

// What is wrong, and where in the text.
struct Error : std::runtime_error {
  std::size_t at;
  Error(std::size_t place, const std::string& what) : std::runtime_error(what), at(place) {}
};

// ---- Terms: an atom, or a list in parentheses ----

struct Term {
  std::size_t at = 0;
  std::string atom;  // empty for a list
  std::vector<Term> items;
};

class Reader {
 public:
  explicit Reader(std::string_view s) : text(s) {}

  bool at_end() {
    while (pos < text.size() && (is_space(text[pos]) || text[pos] == ';')) {
      pos = text[pos] == ';' ? std::min(text.find('\n', pos), text.size()) : pos + 1;
    }
    return pos == text.size();
  }

  Term read(int depth = 0) {
    Term t{pos, "", {}};
    if (at_end() || text[pos] == ')' || depth > 1000) {
      throw Error(pos, depth > 1000 ? "nested too deeply" : "a term is missing");
    }
    t.at = pos;
    if (text[pos] != '(') {
      while (pos < text.size() && !is_space(text[pos]) && !std::strchr("();", text[pos])) {
        t.atom += text[pos++];
      }
      return t;
    }
    for (++pos; !at_end() && text[pos] != ')';) {
      t.items.push_back(read(depth + 1));
    }
    if (pos++ == text.size()) {
      throw Error(t.at, "this parenthesis is not closed");
    }
    return t;
  }

 private:
  static bool is_space(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

  std::string_view text;
  std::size_t pos = 0;
};

// ---- Values, and operations on them ----

struct Bits {
  QNumber n;
  unsigned long width;

  bool operator==(const Bits&) const = default;
};

using Value = std::variant<bool, Rounding, QNumber, Bits, IEEEFloat>;

[[noreturn]] void fail(const std::string& what) { throw zelk::Exception(what); }

// The theory counts the hidden bit: its (_ FloatingPoint 5 11) is {5, 10}.
IEEEFloat::format format(unsigned long e, unsigned long s) {
  if (e < 2 || s < 2) {
    fail("a format has two bits of exponent and of significand at least");
  }
  return {e, s - 1};
}

// What an operation is called with: the indices behind its name, and operands.
struct Call {
  std::vector<unsigned long> indices;
  std::vector<Value> operands;

  template <class T>
  const T& get(std::size_t i, const char* sort) const {
    if (!std::holds_alternative<T>(operands[i])) {
      fail("operand " + std::to_string(i + 1) + " is no " + sort);
    }
    return std::get<T>(operands[i]);
  }
  const IEEEFloat& x(std::size_t i) const { return get<IEEEFloat>(i, "float"); }
  const QNumber& real(std::size_t i) const { return get<QNumber>(i, "real"); }
  const Bits& bits(std::size_t i) const { return get<Bits>(i, "bit vector"); }
  // What rounds as the first operand says.
  Environment env() const { return {.rounding = get<Rounding>(0, "rounding mode")}; }
  IEEEFloat::format format() const { return ::format(indices[0], indices[1]); }
  IEEEFloat zero() const { return {format(), IEEEFloat::ROUND_NEAREST_EVEN}; }
};

QNumber shifted(const QNumber& n, unsigned long k) {
  QNumber out;
  BVNumber::bit_left_shift(n, k, &out);
  return out;
}

Value from_fields(const Call& c) {
  const Bits& e = c.bits(1);
  const Bits& m = c.bits(2);
  if (c.bits(0).width != 1) {
    fail("the sign has one bit");
  }
  const QNumber pattern = shifted(c.bits(0).n, e.width + m.width) + shifted(e.n, m.width) + m.n;
  return IEEEFloat::from_encoding(pattern, format(e.width, m.width + 1));
}

Value from_pattern(const Call& c) {
  if (c.bits(0).width != c.indices[0] + c.indices[1]) {
    fail("the bit vector is not as wide as the format");
  }
  return IEEEFloat::from_encoding(c.bits(0).n, c.format());
}

Value to_fp(const Call& c) {
  if (std::holds_alternative<IEEEFloat>(c.operands[1])) {
    return c.env().convert(c.x(1), c.format());
  }
  if (std::holds_alternative<Bits>(c.operands[1])) {
    const Bits& b = c.bits(1);
    const bool negative = BVNumber::test_bit(b.n, b.width - 1);
    return c.env().from_integer(negative ? b.n - shifted(1, b.width) : b.n, c.format());
  }
  return c.env().from_rational(c.real(1), c.format());
}

Value to_bits(std::optional<QNumber> n, unsigned long width) {
  if (!n) {
    fail("the theory leaves open what this is");
  }
  BVNumber::trim(*n, width);
  return Bits{std::move(*n), width};
}

Value infinity(IEEEFloat x, bool negative) {
  x.self_inf(negative);
  return x;
}
Value nan(IEEEFloat x) {
  x.self_nan();
  return x;
}

// An operation by its name and the numbers of its indices and operands.
using Key = std::tuple<std::string, std::size_t, std::size_t>;
using C = const Call&;
const std::map<Key, Value (*)(const Call&)> operations{
    {{"fp", 0, 3}, from_fields},
    {{"+oo", 2, 0}, [](C c) { return infinity(c.zero(), false); }},
    {{"-oo", 2, 0}, [](C c) { return infinity(c.zero(), true); }},
    {{"+zero", 2, 0}, [](C c) -> Value { return c.zero(); }},
    {{"-zero", 2, 0}, [](C c) -> Value { return -c.zero(); }},
    {{"NaN", 2, 0}, [](C c) { return nan(c.zero()); }},
    {{"fp.abs", 0, 1}, [](C c) -> Value { return abs(c.x(0)); }},
    {{"fp.neg", 0, 1}, [](C c) -> Value { return -c.x(0); }},
    {{"fp.add", 0, 3}, [](C c) -> Value { return c.env().add(c.x(1), c.x(2)); }},
    {{"fp.sub", 0, 3}, [](C c) -> Value { return c.env().subtract(c.x(1), c.x(2)); }},
    {{"fp.mul", 0, 3}, [](C c) -> Value { return c.env().multiply(c.x(1), c.x(2)); }},
    {{"fp.div", 0, 3}, [](C c) -> Value { return c.env().divide(c.x(1), c.x(2)); }},
    {{"fp.fma", 0, 4}, [](C c) -> Value { return c.env().fma(c.x(1), c.x(2), c.x(3)); }},
    {{"fp.sqrt", 0, 2}, [](C c) -> Value { return c.env().sqrt(c.x(1)); }},
    {{"fp.rem", 0, 2}, [](C c) -> Value { return Environment().remainder(c.x(0), c.x(1)); }},
    {{"fp.roundToIntegral", 0, 2}, [](C c) -> Value { return c.env().round_to_integral(c.x(1)); }},
    {{"fp.min", 0, 2}, [](C c) -> Value { return Environment().minimum_number(c.x(0), c.x(1)); }},
    {{"fp.max", 0, 2}, [](C c) -> Value { return Environment().maximum_number(c.x(0), c.x(1)); }},
    {{"fp.isNormal", 0, 1}, [](C c) -> Value { return is_normal(c.x(0)); }},
    {{"fp.isSubnormal", 0, 1}, [](C c) -> Value { return c.x(0).is_subnormal(); }},
    {{"fp.isZero", 0, 1}, [](C c) -> Value { return c.x(0).is_zero(); }},
    {{"fp.isInfinite", 0, 1}, [](C c) -> Value { return c.x(0).is_inf(); }},
    {{"fp.isNaN", 0, 1}, [](C c) -> Value { return c.x(0).is_nan(); }},
    {{"fp.isNegative", 0, 1}, [](C c) -> Value { return !c.x(0).is_nan() && c.x(0).get_sign(); }},
    {{"fp.isPositive", 0, 1}, [](C c) -> Value { return !c.x(0).is_nan() && !c.x(0).get_sign(); }},
    {{"to_fp", 2, 1}, from_pattern},
    {{"to_fp", 2, 2}, to_fp},
    {{"to_fp_unsigned", 2, 2},
     [](C c) -> Value { return c.env().from_integer(c.bits(1).n, c.format()); }},
    {{"fp.to_ubv", 1, 2},
     [](C c) { return to_bits(c.env().to_unsigned(c.x(1), c.indices[0]), c.indices[0]); }},
    {{"fp.to_sbv", 1, 2},
     [](C c) { return to_bits(c.env().to_signed(c.x(1), c.indices[0]), c.indices[0]); }},
    {{"fp.to_real", 0, 1}, [](C c) -> Value { return c.x(0).to_number(); }},
    {{"-", 0, 1}, [](C c) -> Value { return -c.real(0); }},
    {{"/", 0, 2}, [](C c) -> Value { return c.real(0) / c.real(1); }},
};

// (= x y): +0 is not -0, and a NaN is itself.
bool same(const Value& x, const Value& y) {
  const auto* f = std::get_if<IEEEFloat>(&x);
  const auto* b = std::get_if<Bits>(&x);
  if (x.index() != y.index() || (b != nullptr && b->width != std::get<Bits>(y).width)) {
    fail("operands of different sorts");
  }
  return f != nullptr ? std::is_eq(total_order(*f, std::get<IEEEFloat>(y))) : x == y;
}
template <class Holds>
bool compared(const Value& x, const Value& y) {
  const Call c{{}, {x, y}};
  return Holds()(c.x(0), c.x(1));
}

// Relations chain: (fp.lt x y z) is x < y and y < z.
const std::map<std::string, bool (*)(const Value&, const Value&)> relations{
    {"=", same},
    {"fp.eq", compared<std::equal_to<>>},
    {"fp.lt", compared<std::less<>>},
    {"fp.leq", compared<std::less_equal<>>},
    {"fp.gt", compared<std::greater<>>},
    {"fp.geq", compared<std::greater_equal<>>},
};

const std::map<std::string, Rounding> roundings{
    {"RNE", Rounding::nearest_even},    {"roundNearestTiesToEven", Rounding::nearest_even},
    {"RNA", Rounding::nearest_away},    {"roundNearestTiesToAway", Rounding::nearest_away},
    {"RTP", Rounding::toward_positive}, {"roundTowardPositive", Rounding::toward_positive},
    {"RTN", Rounding::toward_negative}, {"roundTowardNegative", Rounding::toward_negative},
    {"RTZ", Rounding::toward_zero},     {"roundTowardZero", Rounding::toward_zero}};

// ---- Evaluation ----

// An operation on operands, which have been evaluated.
Value perform(const std::string& name, const Call& c) {
  const std::vector<Value>& all = c.operands;
  if (const auto r = relations.find(name); r != relations.end() && all.size() > 1) {
    return std::adjacent_find(all.begin(), all.end(), std::not_fn(r->second)) == all.end();
  }
  const auto o = operations.find({name, c.indices.size(), all.size()});
  if (o == operations.end()) {
    fail("there is no " + name + " of " + std::to_string(c.indices.size()) + " indices and " +
         std::to_string(all.size()) + " operands");
  }
  return o->second(c);
}

constexpr const char* digits = "0123456789";

bool consists_of(std::string_view s, std::string_view characters) {
  return !s.empty() && s.find_first_not_of(characters) == std::string_view::npos;
}

unsigned long index(const Term& t) {
  const bool short_number = consists_of(t.atom, digits) && t.atom.size() <= 6;
  if (!short_number || std::stoul(t.atom) == 0) {
    throw Error(t.at, "not a number from 1 to 999999");
  }
  return std::stoul(t.atom);
}

Value atom(const Term& t) {
  const std::string_view s = t.atom;
  if (const auto r = roundings.find(t.atom); r != roundings.end()) {
    return r->second;
  }
  if (s == "true" || s == "false") {
    return s == "true";
  }
  if (s.starts_with("#x") && consists_of(s.substr(2), "0123456789abcdefABCDEF")) {
    return Bits{QNumber::from_text("0x" + t.atom.substr(2)), 4 * (s.size() - 2)};
  }
  if (s.starts_with("#b") && consists_of(s.substr(2), "01")) {
    Bits b{0, s.size() - 2};
    for (std::size_t i = 0; i < b.width; ++i) {
      BVNumber::set_bit(b.n, b.width - 1 - i, s[2 + i] == '1');
    }
    return b;
  }
  if (consists_of(s, std::string(digits) + '.') && s.front() != '.' && s.back() != '.') {
    return QNumber::from_text(s);
  }
  throw Error(t.at, "no constant: " + t.atom);
}

// The operation that a term names: an atom, or (_ name index ...).
std::string name_of(const Term& t, Call& c) {
  if (!t.atom.empty()) {
    return t.atom;
  }
  if (t.items.size() < 3 || t.items[0].atom != "_" || t.items[1].atom.empty()) {
    throw Error(t.at, "no operation");
  }
  std::transform(t.items.begin() + 2, t.items.end(), std::back_inserter(c.indices), index);
  return t.items[1].atom;
}

Value evaluate(const Term& t) {
  try {
    if (!t.atom.empty()) {
      return atom(t);
    }
    Call c;
    const bool indexed = !t.items.empty() && t.items[0].atom == "_";  // without operands
    const std::string name = name_of(indexed || t.items.empty() ? t : t.items[0], c);
    if (!indexed) {
      std::transform(t.items.begin() + 1, t.items.end(), std::back_inserter(c.operands), evaluate);
    } else if (name.starts_with("bv") && consists_of(name.substr(2), digits) &&
               c.indices.size() == 1) {
      Bits b{QNumber::from_text(name.substr(2)), c.indices[0]};
      BVNumber::trim(b.n, b.width);
      return b;
    }
    return perform(name, c);
  } catch (const zelk::Exception& e) {
    throw Error(t.at, e.what());
  }
}

// ---- Output ----

std::string binary(const QNumber& n, unsigned long low, unsigned long width) {
  std::string s = "#b";
  for (unsigned long i = low + width; i-- > low;) {
    s += BVNumber::test_bit(n, i) ? '1' : '0';
  }
  return s;
}

void print(const IEEEFloat& x) {
  const auto [e, m] = x.get_format();
  const QNumber bits = x.get_bits();
  std::cout << "(fp " << binary(bits, e + m, 1) << ' ' << binary(bits, m, e) << ' '
            << binary(bits, 0, m) << ") ";
  if (x.is_nan()) {
    std::cout << "NaN";
  } else if (x.is_inf() || x.is_zero()) {
    std::cout << (x.get_sign() ? '-' : '+') << (x.is_inf() ? "oo" : "0");
  } else if (const QNumber k = exponent_of(x); k < 1000 && k > -1000) {
    std::cout << x.to_number();
  } else {
    std::cout << Environment().scale(x, -k).to_number() << " * 2^" << k;
  }
}

void print(const Value& v) {
  if (const auto* x = std::get_if<IEEEFloat>(&v)) {
    print(*x);
  } else if (const auto* b = std::get_if<Bits>(&v)) {
    std::cout << binary(b->n, 0, b->width);
  } else if (const auto* q = std::get_if<QNumber>(&v)) {
    std::cout << *q;
  } else if (const auto* truth = std::get_if<bool>(&v)) {
    std::cout << (*truth ? "true" : "false");
  } else {
    std::cout << "a rounding mode";
  }
  std::cout << '\n';
}

void report(const Error& e, std::string_view text) {
  const std::string_view before = text.substr(0, e.at);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const std::size_t column = e.at - (before.rfind('\n') + 1) + 1;
  std::cout << "(error \"line " << line << ", column " << column << ": " << e.what() << "\")\n";
}

// Whether all of a text could be evaluated.
bool run(std::string_view text) {
  bool good = true;
  try {
    for (Reader reader(text); !reader.at_end();) {
      const Term t = reader.read();
      try {
        print(evaluate(t));
      } catch (const Error& e) {
        report(e, text);
        good = false;
      }
    }
  } catch (const Error& e) {  // what follows cannot be read
    report(e, text);
    good = false;
  }
  return good;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::ifstream file;
    if (argc > 1) {
      file.open(argv[1]);
      if (!file) {
        throw std::runtime_error(std::string("cannot read ") + argv[1]);
      }
    }
    std::istream& in = argc > 1 ? file : std::cin;
    return run(std::string(std::istreambuf_iterator<char>(in), {})) ? 0 : 1;
  } catch (const std::exception& e) {
    std::cerr << "smt_evaluator: " << e.what() << '\n';
    return 2;
  }
}
