#include <iostream>

#include "zelk/zelk.h"

int main() {
  using zelk::IEEEFloat;
  const auto one = IEEEFloat::from_number(zelk::QNumber(1), {5, 10}, IEEEFloat::ROUND_NEAREST_EVEN);
  std::cout << one.to_str() << '\n';
  return one.to_str() == "[5:10]1{0_01111_0000000000}" ? 0 : 1;
}
