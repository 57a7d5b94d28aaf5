// Values formatted as the library in question formats doubles: {fmt}, or with ZELK_STD_FORMAT the
// standard one. A program without GoogleTest, which is there for one standard library only.
#include <bit>
#include <cmath>
#include <iostream>
#include <random>
#include <string>

#ifdef ZELK_STD_FORMAT
#include <format>
namespace lib = std;
#else
#include "zelk/float/fmt.h"
namespace lib = fmt;
#endif
#include "zelk/float/native.h"
#include "zelk/zelk.h"

using zelk::IEEEFloat;

static int failures = 0;

static void check(const std::string& what, const std::string& got, const std::string& want) {
  if (got == want) return;
  std::cout << what << " is [" << got << "], wanted [" << want << "]\n";
  ++failures;
}

static std::string by(const std::string& form, const auto&... arguments) {
  try {
    return lib::vformat(form, lib::make_format_args(arguments...));
  } catch (const lib::format_error&) {
    return "error";
  }
}

static std::mt19937_64 random_bits(20240229);
static std::string one_of(std::initializer_list<const char*> all) {
  return all.begin()[random_bits() % all.size()];
}

static double any_double() {
  const double special[] = {0.0,   -0.0, INFINITY, -INFINITY, NAN,    1.5,    0.1,   100,
                            65504, 1e15, 1e16,     0.5,       5e-324, 9.9995, -1e-7, 123456789};
  const std::uint64_t bits = random_bits();
  const auto any = std::bit_cast<double>(bits % 3 == 0 ? bits & 0x8018000000000000 : bits);
  const double v = bits % 8 < 2   ? special[bits / 8 % std::size(special)]
                   : bits % 8 < 5 ? std::ldexp(static_cast<double>(bits >> 44), -10)
                                  : any;
  return std::isnan(v) ? NAN : v;
}

// Any format. Left out is where {fmt} 9 does not ignore a '0' behind an alignment, and spells
// shortest digits otherwise than std::to_chars, and where libc++ 19 loses a zero of %#g.
static std::string any_format() {
  std::string align = one_of({"", "", "<", ">", "^", "*<", "0>", "e^", "\u00e9>", "<<"});
  std::string zero = align.empty() ? one_of({"", "0"}) : "";
  std::string precision = one_of({"", ".0", ".1", ".2", ".3", ".7", ".20", ".60"});
  std::string type = one_of({"", "a", "e", "f", "g", "A", "E", "F", "G"}),
              alternate = one_of({"", "#"});
#ifdef ZELK_STD_FORMAT
  if (type == "g" || type == "G") alternate = "";
#else
  if (type.empty() && precision.empty()) type = "g";
#endif
  return "{:" + align + one_of({"", "+", "-", " "}) + alternate + zero +
         one_of({"", "9", "15", "30"}) + precision + type + "}";
}

int main() {
  for (int i = 0; i < 50000; ++i) {
    const std::string form = any_format();
    const double v = any_double();
    check(form + " of " + std::to_string(v), by(form, zelk::from_native(v)), by(form, v));
    check("shortest", by("{}", zelk::from_native(v)), to_shortest(zelk::from_native(v)));
  }
  const IEEEFloat x = zelk::from_native(-2.71828), tiny = IEEEFloat::from_bits(3, {5, 10});
  for (const char* form : {"{:{}.{}f}", "{0:{1}.{2}e}", "{0:{1}a}{0:.{2}}"}) {
    check(form, by(form, x, 9, 2), by(form, -2.71828, 9, 2));
  }
  check("a text known early", lib::format("{:>8.2f}", x), "   -2.72");
  check("a subnormal half", by("{:a} {:.1A} {:.4e} {:}", tiny, tiny, tiny, tiny),
        by("{:.0}", 0.) == "0" && by("{:a}", 1.)[0] == '0'
            ? "0x0.00cp-14 0X0.0P-14 1.7881e-07 2e-07"
            : "0.00cp-14 0.0P-14 1.7881e-07 2e-07");
  check("a quad", by("{:.40g}", zelk::Environment().from_text("0.1", {15, 112})),
        "0.1000000000000000000000000000000000048148");
  for (const char* bad :
       {"{:d}", "{:L}", "{:.}", "{:.-1f}", "{:q}", "{:=10}", "{:{>10}", "{:99999999999}", "{:{}}",
        "{:10$}", "{:{x}}", "{0:{1", "{:.{}", "{:fe}"}) {
    check(bad, by(bad, x), "error");
  }
  check("{:{}f} by text", by("{:{}f}", x, "9") + by("{:{}f}", x, -1), "errorerror");
  return failures == 0 ? 0 : 1;
}
