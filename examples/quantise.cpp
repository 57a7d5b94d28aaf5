// What formats do to data: the errors of rounding numbers into six formats, as a table, and their
// histogram as a picture.
//
//   quantise [numbers.txt | floats.raw] [histogram.svg]
//
// A file whose name ends in .raw has floats as they are in memory, others have text; without one,
// the numbers are 100,000 draws of a bell curve. The program fails if it cannot read all of the
// file or write the picture, or if a rounding is further from its number than half a place.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "zelk/arrays.h"
#include "zelk/float/formats.h"

namespace {

using zelk::Environment;
using zelk::IEEEFloat;
namespace arrays = zelk::arrays;

struct Named {
  const char* name;
  IEEEFloat::format f;
  const char* colour;
};
const Named formats[] = {
    {"tf32", zelk::formats::tf32, "#888888"},
    {"half", zelk::formats::half, "#1b6ca8"},
    {"bfloat16", zelk::formats::bfloat16, "#2a9d5c"},
    {"fp8 e4m3", zelk::formats::fp8_e4m3, "#d08a1d"},
    {"fp8 e5m2", zelk::formats::fp8_e5m2, "#c0392b"},
    {"six bits", {3, 2}, "#7d3c98"},
};

// Relative errors by their power of two: from 2^-24, or less, to 1 and more.
constexpr int bins = 25;
using Histogram = std::array<std::size_t, bins>;

[[noreturn]] void fail(const std::string& why) {
  std::cerr << "quantise: " << why << '\n';
  std::exit(2);
}

std::vector<float> read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) fail("cannot read " + path);
  std::vector<float> x;
  if (path.ends_with(".raw")) {
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.size() % sizeof(float) != 0) fail(path + " ends within a float");
    x.resize(bytes.size() / sizeof(float));
    std::copy_n(bytes.data(), bytes.size(), reinterpret_cast<char*>(x.data()));
    return x;
  }
  for (std::string word; file >> word;) {
    char* end = nullptr;
    x.push_back(std::strtof(word.c_str(), &end));  // infinities and NaNs, too
    if (*end != 0) fail("no number: " + word);
  }
  return x;
}

// Sums of twelve uniform numbers, the same on every machine.
std::vector<float> bell_curve() {
  std::vector<float> x(100000);
  std::uint64_t state = 1;
  for (float& a : x) {
    a = -6;
    for (int i = 0; i < 12; ++i) {
      state = state * 6364136223846793005U + 1442695040888963407U;
      a += static_cast<float>(state >> 40) * 0x1p-24F;
    }
  }
  return x;
}

struct Errors {
  double largest = 0, mean_square = 0;
  std::size_t beyond = 0, lost = 0;  // became infinite, became zero
  Histogram histogram{};
};

Errors errors_of(const std::vector<float>& x, const std::vector<float>& rounded) {
  Errors r;
  for (std::size_t i = 0; i < x.size(); ++i) {
    const double a = static_cast<double>(x[i]),
                 error = std::abs(static_cast<double>(rounded[i]) - a);
    if (!std::isfinite(error) || a == 0) {
      r.beyond += std::isfinite(a) && !std::isfinite(error) ? 1U : 0U;
      continue;
    }
    const double relative = error / std::abs(a);
    r.lost += rounded[i] == 0 ? 1U : 0U;
    r.largest = std::max(r.largest, error);
    r.mean_square += error * error;
    const int power = error == 0 ? -99 : std::ilogb(relative);
    ++r.histogram[static_cast<std::size_t>(std::clamp(power + bins - 1, 0, bins - 1))];
  }
  r.mean_square /= static_cast<double>(std::max<std::size_t>(x.size(), 1));
  return r;
}

// Each rounding is as near as its neighbours: moving it one step is no nearer.
bool is_nearest(const std::vector<float>& x, const std::vector<float>& rounded,
                IEEEFloat::format f) {
  std::vector<std::uint32_t> patterns(x.size());
  Environment env;
  arrays::encode(env, rounded, f, patterns);
  for (const int step : {-1, 1}) {
    std::vector<std::uint32_t> beside = patterns;
    for (std::uint32_t& p : beside) p += static_cast<std::uint32_t>(step);
    std::vector<float> neighbours(x.size());
    arrays::decode(beside, f, neighbours);
    for (std::size_t i = 0; i < x.size(); ++i) {
      const auto a = static_cast<double>(x[i]);
      if (std::isfinite(rounded[i]) && rounded[i] != 0 &&
          std::abs(static_cast<double>(neighbours[i]) - a) <
              std::abs(static_cast<double>(rounded[i]) - a)) {
        return false;
      }
    }
  }
  return true;
}

void draw(std::ostream& out, const std::vector<Errors>& all, std::size_t numbers) {
  out << "<svg xmlns='http://www.w3.org/2000/svg' width='760' height='380' "
         "font-family='sans-serif' font-size='12'>\n"
      << "<rect width='760' height='380' fill='white'/>\n";
  const auto x = [](std::size_t bin) { return 40 + 24 * bin; };
  for (std::size_t bin = 0; bin < bins; bin += 4) {
    out << "<text x='" << x(bin) << "' y='350' text-anchor='middle'>2^"
        << static_cast<int>(bin) - bins + 1 << "</text>\n";
  }
  out << "<text x='40' y='370'>relative error; exact ones on the left</text>\n";
  for (std::size_t i = 0; i < all.size(); ++i) {
    out << "<polyline fill='none' stroke-width='2' stroke='" << formats[i].colour << "' points='";
    for (std::size_t bin = 0; bin < bins; ++bin) {
      const double share = static_cast<double>(all[i].histogram[bin]) /
                           static_cast<double>(std::max<std::size_t>(numbers, 1));
      out << x(bin) << ',' << 330 - 300 * share << ' ';
    }
    out << "'/>\n<text x='670' y='" << 40 + 20 * i << "' fill='" << formats[i].colour << "'>"
        << formats[i].name << "</text>\n";
  }
  out << "</svg>\n";
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<float> x = argc > 1 ? read(argv[1]) : bell_curve();
  std::printf("%zu numbers\n%-10s %-8s %12s %12s %10s %10s\n", x.size(), "format", "(e, m)",
              "largest", "mean square", "infinite", "zero");
  std::vector<Errors> all;
  bool proved = true;
  for (const auto& [name, f, colour] : formats) {
    std::vector<float> rounded(x.size());
    Environment env;
    arrays::round(env, x, f, rounded);
    all.push_back(errors_of(x, rounded));
    const Errors& e = all.back();
    std::printf("%-10s (%lu, %-2lu)  %12.4g %12.4g %10zu %10zu\n", name, f.exp_width, f.mant_width,
                e.largest, e.mean_square, e.beyond, e.lost);
    proved = proved && is_nearest(x, rounded, f);
  }
  if (argc > 2) {
    std::ofstream picture(argv[2]);
    draw(picture, all, x.size());
    if (!picture.flush()) fail(std::string("cannot write ") + argv[2]);
  }
  return proved ? 0 : 1;
}
