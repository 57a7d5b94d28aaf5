// An input of a fuzzing target, read from the front; behind its end all bytes are 0.
#ifndef ZELK_FUZZ_INPUT_H_
#define ZELK_FUZZ_INPUT_H_

#include <span>

#include "tests/support.h"

struct Input : zelk_test::Patterns<Input> {
  std::span<const std::uint8_t> rest;

  Input(const std::uint8_t* data, std::size_t size) : rest(data, size) {
    GTEST_FLAG_SET(throw_on_failure, true);  // and nobody catches it
  }
  unsigned long byte() {
    const unsigned long b = rest.empty() ? 0 : rest.front();
    rest = rest.last(rest.size() - !rest.empty());
    return b;
  }
  unsigned long below(unsigned long n) { return (n > 256 ? byte() * 256 + byte() : byte()) % n; }
  // Near a power of two; less than 0 wraps around.
  unsigned long word() { return (1UL << byte() % 64) + byte() - 128; }
  // The next few bytes, repeated.
  mpz_class digits(unsigned long n) {
    const unsigned long count = below(16);  // which shortens the rest
    const auto bytes = rest.first(std::min(count, rest.size()));
    rest = rest.last(rest.size() - bytes.size());
    mpz_class z;
    for (unsigned long i = 0; i <= n / 8; ++i)
      z = z * 256 + (bytes.empty() ? 0 : bytes[i % bytes.size()]);
    return z % (mpz_class(1) << n);
  }
};

#endif  // ZELK_FUZZ_INPUT_H_
