#include <iostream>

#include "zelk/zelk.h"

// Uses inline and compiled code of every part, and catches both exceptions under their own types.
int main() {
  using zelk::IEEEFloat;
  using zelk::QNumber;
  int caught = 0;
  auto x = IEEEFloat::from_text("1.5", zelk::formats::half, IEEEFloat::ROUND_NEAREST_EVEN);
  try {
    x += IEEEFloat::from_number(QNumber(7) / 1021, zelk::formats::single, x.get_mode());
  } catch (const IEEEFloat::error& e) {
    std::cout << e.what() << '\n';
    ++caught;
  }
  try {
    QNumber(0).inv();
  } catch (const zelk::Exception& e) {
    std::cout << e.what() << '\n';
    ++caught;
  }
  x *= zelk::FormatLimits(x.get_format()).one();
  std::cout << x << ", version " << ZELK_VERSION_MAJOR << '.' << ZELK_VERSION_MINOR << '\n';
  return caught == 2 && x.to_str() == "[5:10]1.5{0_01111_1000000000}" ? 0 : 1;
}
