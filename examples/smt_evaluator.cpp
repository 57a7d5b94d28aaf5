// Evaluates SMT-LIB terms of the theory of floating-point numbers whose leaves are constants.
//
// smt_evaluator [file] reads terms, from the standard input if no file is named, and prints a line
// for each: a float as (fp #b... #b... #b...) and exactly, a Boolean, a bit vector or a real. What
// the theory leaves open, and what is no term, is an error with its place.
#include <algorithm>
#include <compare>
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

#include "zelk/float/native.h"
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
      give_up(pos, depth > 1000 ? "nested too deeply" : "a term is missing");
    }
    t.at = pos;
    if (text[pos] != '(') {
      while (pos < text.size() && !is_space(text[pos]) &&
             std::string_view("();").find(text[pos]) == std::string_view::npos) {
        t.atom += text[pos++];
      }
      return t;
    }
    for (++pos; !at_end() && text[pos] != ')';) {
      t.items.push_back(read(depth + 1));
    }
    if (pos++ == text.size()) {
      give_up(t.at, "this parenthesis is not closed");
    }
    return t;
  }

 private:
  // What follows cannot be read.
  [[noreturn]] void give_up(std::size_t at, const char* what) {
    pos = text.size();
    throw Error(at, what);
  }
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
};

// 2^k.
QNumber power(unsigned long k) { return QNumber::scaled(1, static_cast<long>(k)); }

Value from_fields(const Call& c) {
  const Bits& e = c.bits(1);
  const Bits& m = c.bits(2);
  if (c.bits(0).width != 1) {
    fail("the sign has one bit");
  }
  const QNumber pattern = (c.bits(0).n * power(e.width) + e.n) * power(m.width) + m.n;
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
    return c.env().from_integer(negative ? b.n - power(b.width) : b.n, c.format());
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

Value named(const char* text, const Call& c) { return Environment().from_text(text, c.format()); }

// An operation by its name and the numbers of its indices and operands.
using Key = std::tuple<std::string, std::size_t, std::size_t>;
using C = const Call&;
const std::map<Key, Value (*)(const Call&)> operations{
    {{"fp", 0, 3}, from_fields},
    {{"+oo", 2, 0}, [](C c) { return named("inf", c); }},
    {{"-oo", 2, 0}, [](C c) { return named("-inf", c); }},
    {{"+zero", 2, 0}, [](C c) { return named("0", c); }},
    {{"-zero", 2, 0}, [](C c) { return named("-0", c); }},
    {{"NaN", 2, 0}, [](C c) { return named("nan", c); }},
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
  if ((s.starts_with("#b") && consists_of(s.substr(2), "01")) ||
      (s.starts_with("#x") && consists_of(s.substr(2), "0123456789abcdefABCDEF"))) {
    const bool hexadecimal = s[1] == 'x';
    const mpz_class n(t.atom.substr(2), hexadecimal ? 16 : 2);
    return Bits{zelk::from_mpz(n), (hexadecimal ? 4 : 1) * (s.size() - 2)};
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

std::string binary(const QNumber& n, unsigned long width) {
  const std::string s = zelk::to_mpz(n).get_str(2);
  return std::string(width - s.size(), '0') + s;
}

void print(const IEEEFloat& x) {
  const auto [e, m] = x.get_format();
  const std::string bits = binary(x.get_bits(), 1 + e + m);
  std::cout << "(fp #b" << bits[0] << " #b" << bits.substr(1, e) << " #b" << bits.substr(1 + e)
            << ") ";
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
    std::cout << "#b" << binary(b->n, b->width);
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
  for (Reader reader(text); !reader.at_end();) {
    try {
      print(evaluate(reader.read()));
    } catch (const Error& e) {
      report(e, text);
      good = false;
    }
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
