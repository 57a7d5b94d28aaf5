// Arrays of any elements against single operations, on any instruction set of the machine.
#include "tests/arrays_support.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

namespace {

// Bytes from the front; behind the end all are 0.
struct Bytes {
  std::span<const std::uint8_t> rest;

  std::uint64_t byte() {
    const std::uint64_t b = rest.empty() ? 0 : rest.front();
    rest = rest.last(rest.size() - !rest.empty());
    return b;
  }
  std::uint64_t word() {
    std::uint64_t w = 0;
    for (int i = 0; i < 8; ++i) w = w << 8 | byte();
    return w;
  }
};

// A few words of the input, and the values of f next to them in pattern, repeated.
template <class T>
std::vector<T> any_elements(Bytes& in, format f, std::size_t n) {
  std::vector<std::uint64_t> words(1 + in.byte() % 8);
  for (std::uint64_t& w : words) w = in.word();
  const std::uint64_t step = in.byte();
  std::vector<T> x(n);
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint64_t w = words[i % words.size()] + i / words.size() * step;
    if constexpr (arrays::number<T>) {
      const bool of_f = step % 2 == 0;
      x[i] =
          of_f ? element<T>(value(w, f)) : std::bit_cast<T>(static_cast<zelk::native_word<T>>(w));
    } else {
      x[i] = static_cast<T>(w);
    }
  }
  return x;
}

template <class T>
void check(Bytes& in) {
  constexpr std::uint64_t wide = sizeof(T) == 8;
  constexpr std::uint64_t room = arrays::number<T> ? 99 : 8 * sizeof(T) - 1;
  format f{2 + in.byte() % (wide ? 10 : 7), 1 + in.byte() % (wide ? 52 : 23)};
  f.exp_width = std::min<std::uint64_t>(f.exp_width, room - 1);
  f.mant_width = std::min<std::uint64_t>(f.mant_width, room - f.exp_width);
  const std::uint64_t b = in.byte();
  const Environment settings{static_cast<Rounding>(in.byte() % 6), static_cast<Tininess>(b & 1),
                             (b & 2) != 0, (b & 4) != 0};
  const std::size_t n = in.byte() % 140;
  const std::vector<T> x = any_elements<T>(in, f, n), y = any_elements<T>(in, f, n),
                       z = any_elements<T>(in, f, n);
  const Call<T>& call = calls<T>[in.byte() % std::size(calls<T>)];
  Environment env = settings;
  std::vector<T> want(n);
  for (std::size_t i = 0; i < n; ++i) want[i] = expected(call.single, env, {x[i], y[i], z[i]}, f);
  for_targets([&] {
    Environment own = settings;
    std::vector<T> out(n);
    call.on_arrays(own, x, y, z, f, out);
    for (std::size_t i = 0; i < n; ++i) {
      EXPECT_EQ(bits(out[i]), bits(want[i]))
          << text(f, settings) << call.name << " of " << +x[i] << ", " << +y[i] << ", " << +z[i];
    }
    EXPECT_EQ(own.flags, env.flags) << text(f, settings) << call.name;
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  GTEST_FLAG_SET(throw_on_failure, true);  // and nobody catches it
  Bytes in{{data, size}};
  constexpr void (*checks[])(Bytes&) = {check<double>,        check<float>,
                                        check<std::uint8_t>,  check<std::uint16_t>,
                                        check<std::uint32_t>, check<std::uint64_t>};
  checks[in.byte() % std::size(checks)](in);
  return 0;
}
