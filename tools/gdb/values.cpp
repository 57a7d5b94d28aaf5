// Prints values and numbers, and then stops where GDB is to show the same: see check.py.
#include <cstddef>
#include <cstring>
#include <iostream>
#include <iterator>
#include <vector>

#include "zelk/zelk.h"

using zelk::IEEEFloat;
using zelk::QNumber;

std::vector<IEEEFloat> make_values() {
  std::vector<IEEEFloat> values(1);  // the placeholder
  for (const IEEEFloat::format f : {IEEEFloat::format{5, 10},
                                    {3, 2},
                                    {8, 23},
                                    {11, 52},
                                    {15, 112},
                                    {12, 300},
                                    {8, 50},
                                    {2, 1}}) {
    for (const auto rm : {IEEEFloat::ROUND_TOWARD_POSITIVE, IEEEFloat::ROUND_TOWARD_NEGATIVE}) {
      for (const char* text : {"1.5", "-0.1", "1e-5", "12345.678", "-1e300", "inf", "nan", "-0"}) {
        values.push_back(IEEEFloat::from_text(text, f, rm));
      }
    }
    values.push_back(IEEEFloat::from_bits(1, f));
    values.push_back(IEEEFloat::max_value(f));
  }
  values.emplace_back(IEEEFloat::format{8, 23}, IEEEFloat::REPR_GENERIC,
                      IEEEFloat::ROUND_TOWARD_ZERO);
  return values;
}

std::vector<QNumber> make_numbers() {
  const QNumber big = QNumber::scaled(3, 200);
  return {0, -7, QNumber(-7) / 4, big, -big, big.inv(), big - big, QNumber(-1) / 3 + big};
}

// Memory that holds no values: GDB must say something of it all the same.
struct Junk {
  alignas(IEEEFloat) unsigned char bytes[sizeof(IEEEFloat)];
};
std::vector<Junk> make_junk() {
  std::vector<Junk> all(64);
  unsigned random = 1;
  for (unsigned i = 0; i < all.size(); ++i) {
    for (unsigned char& byte : all[i].bytes) {
      random = random * 1103515245 + 12345;
      byte = i == 0 ? 0xFF : static_cast<unsigned char>(random >> 16);
    }
    const unsigned widths[] = {i % 9, 40 * i};  // of most, the pattern is where the nonsense is
    if (i % 4 != 0) {
      std::memcpy(all[i].bytes, widths, sizeof widths);
    }
  }
  return all;
}

[[gnu::noinline]] void stop() { asm volatile(""); }

int main() {
  const std::vector<IEEEFloat> all_values = make_values();
  const std::vector<QNumber> all_numbers = make_numbers();
  const std::vector<Junk> all_junk = make_junk();
  const IEEEFloat* values = all_values.data();
  const QNumber* numbers = all_numbers.data();
  const Junk* junk = all_junk.data();
  for (const IEEEFloat& x : all_values) {
    std::cout << "values " << x << '\n';
  }
  for (const QNumber& q : all_numbers) {
    std::cout << "numbers " << q << '\n';
  }
  std::cout << "junk " << all_junk.size() << std::endl;
  stop();
  return values == nullptr || numbers == nullptr || junk == nullptr;
}
