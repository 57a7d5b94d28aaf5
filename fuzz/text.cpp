// Text both ways: values of any format as text that gives them back, in rooms that just do; what
// numbers in text round to; what any characters begin with. Linked with a low limit, to be quick.
#include "fuzz/input.h"
#include "tests/environment_oracle.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

static Format format(Input& in) {
  constexpr Format hardware[] = {{5, 10}, {8, 7}, {8, 23}, {11, 52}, {15, 112}, {19, 236}};
  const unsigned long kind = in.below(12);
  return kind < 6 ? hardware[kind] : Format{2 + in.below(39), 1 + in.below(kind < 11 ? 128 : 600)};
}

// Whether a call does not pass a limit.
static bool within_limits(auto call) {
  const std::string error = message([&] { return call(), 0; });
  EXPECT_TRUE(error.empty() || error == "reached limit on float precision" ||
              error == "Exception: number too large")
      << error;
  return error.empty();
}

// A text; "" where it passes the limit.
static std::string written(auto write) {
  std::string text;
  within_limits([&] { text = write(); });
  return text;
}

static void expect_back(const std::string& text, const IEEEFloat& x, Rounding rounding) {
  Environment env{.rounding = rounding};
  IEEEFloat r = x;
  if (text.empty() || !within_limits([&] { r = env.from_text(text, x.get_format()); })) return;
  const bool exact = rounding == Rounding::nearest_even || env.flags == 0;
  EXPECT_TRUE(exact && (bits(r) == bits(x) || (x.is_nan() && r.is_nan()))) << text << name(x);
}

// In a room of its own, so that a sanitizer sees its ends.
static void expect_in_room(std::size_t size, const std::string& want, auto write) {
  std::vector<char> room(size);
  char* first = room.data();
  const auto [end, error] = write(first, first + size);
  const bool fits = want.size() <= size;
  EXPECT_TRUE(error == (fits ? std::errc() : std::errc::value_too_large) &&
              end == first + (fits ? want.size() : size) &&
              (!fits || std::string(first, end) == want))
      << want << " in " << size;
}

// Two neighbours with so many digits, and the closer of them.
static void check_rounded(const std::string (&text)[3], const IEEEFloat& x) {
  QNumber below, nearest, above, down, up;
  const bool is_read = within_limits([&] {
    below = QNumber::from_text(text[0]), above = QNumber::from_text(text[2]);
    nearest = QNumber::from_text(text[1]);
    down = x.to_number() - below, up = above - x.to_number();
  });
  EXPECT_TRUE(!is_read || (down >= 0 && up >= 0 && (down == 0) == (up == 0) &&
                           nearest == (nearest == below ? below : above) &&
                           (nearest == below ? down <= up : up <= down)))
      << text[0] << ' ' << text[1] << ' ' << text[2] << name(x);
}

// One form back, or in rooms, or in three directions.
static void check_writing(const IEEEFloat& x, Input& in) {
  const unsigned long kind = in.below(10);
  const int digits = static_cast<int>(in.below(60));
  const auto rounded = [&](std::size_t form, Rounding r) {
    return written([&] {
      return form == 0   ? to_scientific(x, digits + 1, r)
             : form == 1 ? to_fixed(x, digits, r)
                         : to_hex(x, digits + 1, r);
    });
  };
  const auto rooms = [&](const std::string& want, auto write) {
    if (want.empty()) return;
    for (const std::size_t size : {want.size(), want.size() - 1, in.below(want.size() + 2)})
      expect_in_room(size, want, write);
  };
  const auto back = [&](Rounding r, auto write) {
    std::string text = written([&] { return write(x); });
    expect_back(text, x, r);
    return text;
  };
  if (kind == 0) {
    EXPECT_EQ(QNumber::from_text(to_bits_text(x)), x.get_bits());
  }
  if (kind == 1) back(Rounding::toward_positive, [](const IEEEFloat& v) { return to_exact(v); });
  if (kind == 2) back(Rounding::toward_negative, [](const IEEEFloat& v) { return to_hex(v); });
  if (kind == 3) back(Rounding::to_odd, [](const IEEEFloat& v) { return to_smtlib(v); });
  if (kind == 4) {
    rooms(back(Rounding::nearest_even, [](const IEEEFloat& v) { return to_shortest(v); }),
          [&](char* a, char* b) { return zelk::to_chars(a, b, x); });
  }
  if (kind == 5 || kind == 6) {
    const std::string texts[] = {rounded(kind - 5, Rounding::toward_negative),
                                 rounded(kind - 5, Rounding::nearest_even),
                                 rounded(kind - 5, Rounding::toward_positive)};
    if (zelk::is_finite(x) && std::ranges::count(texts, "") == 0) check_rounded(texts, x);
  }
  if (kind > 6) {
    constexpr std::chars_format forms[] = {std::chars_format::scientific, std::chars_format::fixed,
                                           std::chars_format::hex};
    rooms(rounded(kind - 7, Rounding::toward_positive), [&](char* a, char* b) {
      return zelk::to_chars(a, b, x, forms[kind - 7], digits, Rounding::toward_positive);
    });
  }
}

// A text as a number and then rounded, or at once.
static void check_reading(const std::string& text, Format f, const Environment& start) {
  Environment by_text = start, by_number = start;
  IEEEFloat want, got;
  const std::string a = message([&] { return got = by_text.from_text(text, f); });
  const std::string b =
      message([&] { return want = by_number.from_rational(QNumber::from_text(text), f); });
  const bool negative_zero = want.is_zero() && text.starts_with('-');
  EXPECT_TRUE(
      !a.empty() || !b.empty() ||
      (bits(got) == bits(negative_zero ? -abs(want) : want) && by_text.flags == by_number.flags))
      << name(start) << text << name(got) << name(want);
}

// The middle between a value and the next, the digits behind it changed or cut off.
static std::string near_middle(const IEEEFloat& x, Input& in) {
  const auto [e, m] = x.get_format();
  const Target t({e, m + 1});
  const mpz_class middle = 2 * bits(abs(x)) + 1;
  std::string text = middle >= t.inf ? "1" : written([&] {
    return to_exact(IEEEFloat::from_bits(QNumber(middle, 1), t.f));
  });
  const std::size_t exponent = std::min(text.find('e'), text.size());
  const unsigned long kind = in.below(4);
  if (kind == 1 && text.find('.') != std::string::npos) text.insert(exponent, in.below(900), '0');
  if (kind < 2 && text.find('.') < exponent) text.insert(exponent, "1");
  if (kind == 2 && exponent > 2) text.erase(exponent - 1, 1);
  return (x.get_sign() ? "-" : "") + text;
}

// The longest prefix that is a number by itself.
static void check_prefix(const std::string& text, Format f, const Environment& start) {
  const IEEEFloat was(f, IEEEFloat::ROUND_TOWARD_ZERO);
  Environment env = start, whole = start;
  IEEEFloat x = was, want = was;
  const char *first = text.data(), *last = first + text.size();
  std::from_chars_result r{first, std::errc()};
  const std::string error = message([&] { return r = zelk::from_chars(first, last, x, env), 0; });
  // The end of letters, digits and signs; not of "1/3" or of "nan(0x1)".
  const auto is_other = [](unsigned char c) {
    return std::isalnum(c) == 0 && c != '+' && c != '-' && c != '.';
  };
  std::size_t size = static_cast<std::size_t>(std::ranges::find_if(text, is_other) - text.begin());
  const auto is_number = [&] {
    const std::string e = message([&] { return Environment().from_text(text.substr(0, size), f); });
    return !e.starts_with("invalid number");
  };
  while (size > 0 && !is_number()) --size;
  const std::string other =
      size == 0 ? "" : message([&] { return want = whole.from_text(text.substr(0, size), f); });
  EXPECT_TRUE(error == other && bits(x) == bits(want) && env.flags == whole.flags &&
              x.get_mode() == was.get_mode() && x.get_repr() == was.get_repr() &&
              (!error.empty() || r.ptr == first + size) &&
              (r.ec == std::errc::invalid_argument) == (size == 0))
      << text << " in " << f.exp_width << ',' << f.mant_width << ": " << error << other;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  const Format f = format(in);
  const unsigned long kind = in.below(4);
  const Environment env{.rounding = static_cast<Rounding>(in.below(6)), .flags = other_bits};
  const auto any = [&] { return generic(f, modes[0], in.pattern(Layout(f))); };
  if (kind < 2) {
    check_writing(any(), in);
  } else if (kind == 2) {
    const IEEEFloat x = any();
    if (f.exp_width <= 15 && zelk::is_finite(x)) check_reading(near_middle(x, in), f, env);
  } else {
    const bool raw = in.below(2) == 0;
    const auto start = in.rest.first(std::min<std::size_t>(in.rest.size(), 24));
    std::string text(start.begin(), start.end());
    for (char& c : text)
      c = raw ? c : "0123456789012345678901.-+eEpPxXinfat#"[static_cast<unsigned char>(c) % 37];
    check_prefix(text, f, env);
  }
  return 0;
}
