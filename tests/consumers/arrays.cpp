#include "zelk/arrays.h"

#include <iostream>
#include <vector>

// Uses templates and compiled code, and catches an error of the library's.
int main() {
  zelk::Environment env;
  std::vector<double> x{1.0 / 3, 1e9};
  zelk::arrays::round(env, x, {5, 10}, x);
  try {
    zelk::arrays::round(env, x, {15, 112}, x);
  } catch (const zelk::IEEEFloat::error& e) {
    std::cout << e.what() << '\n';
    return x[0] == 0x0.555p0 && env.flags == 20 ? 0 : 1;
  }
  return 1;
}
