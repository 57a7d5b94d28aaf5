// One call on arrays of any elements, on one instruction set of the machine, against single
// operations.
#include "tests/arrays_support.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

namespace {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

// Bytes from the front; behind the end all are 0.
struct Input {
  std::span<const std::uint8_t> rest;

  std::uint64_t byte() {
    const std::uint64_t b = rest.empty() ? 0 : rest.front();
    rest = rest.last(rest.size() - !rest.empty());
    return b;
  }
};

// A format whose values T holds.
template <class T>
format any_format(Input& in) {
  constexpr std::uint64_t most[] = {sizeof(T) == 8 ? 11 : 8, sizeof(T) == 8 ? 52 : 23};
  constexpr std::uint64_t room = arrays::number<T> ? 99 : 8 * sizeof(T) - 1;
  format f{std::min(2 + in.byte() % (most[0] - 1), room - 1), 0};
  f.mant_width = std::min(1 + in.byte() % most[1], room - f.exp_width);
  return f;
}

// A few words of the input, and the values of f next to them in pattern, repeated.
template <class T>
std::vector<T> any_elements(Input& in, format f, std::size_t n) {
  std::vector<std::uint64_t> words(1 + in.byte() % 8);
  for (std::uint64_t& w : words) {
    for (int i = 0; i < 8; ++i) w = w << 8 | in.byte();
  }
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

Environment any_environment(Input& in) {
  const auto b = in.byte();
  return {static_cast<Rounding>(in.byte() % 6), static_cast<Tininess>(b & 1), (b & 2) != 0,
          (b & 4) != 0};
}

// Few elements, or more than the longest vectors have.
std::size_t any_size(Input& in) {
  const std::uint64_t b = in.byte();
  return b < 200 ? b % 20 : b - 180;
}

Draws any_draws(Input& in) {
  const std::uint64_t b = in.byte();
  return b % 3 == 0 ? Draws({b, in.byte() - b}) : std::nullopt;
}

// What is wanted, by single operations in one environment; what a call in another has given.
template <class T>
struct Outcome {
  format f;
  Environment settings, single = settings, own = settings;
  std::vector<T> want = {}, out = {};

  void check(const std::string& what) const {
    for (std::size_t i = 0; i < out.size(); ++i) {
      EXPECT_EQ(bits(out[i]), bits(want[i])) << text(f, settings) << what << ", element " << i;
    }
    EXPECT_EQ(own.flags, single.flags) << text(f, settings) << what;
  }
};

template <class T>
void arithmetic(Input& in) {
  const format f = any_format<T>(in);
  const std::size_t n = any_size(in);
  Outcome<T> o{f, any_environment(in)};
  const Call<T>& call = calls<T>[in.byte() % std::size(calls<T>)];
  const std::size_t place = in.byte() % 6, once = in.byte() % 6;
  std::vector<T> x[3];
  for (std::vector<T>& a : x) a = any_elements<T>(in, f, n);
  const auto at = [&](std::size_t k, std::size_t i) { return x[k][k == once ? 0 : i]; };
  for (std::size_t i = 0; i < n; ++i) {
    o.want.push_back(expected(call.single, o.single, {at(0, i), at(1, i), at(2, i)}, f));
  }
  o.out = x[place % 3];  // in place of an operand, at times
  Operand<T> operands[] = {x[0], x[1], x[2]};
  if (place < 3) operands[place] = o.out;
  if (once < 3 && n != 0) operands[once] = x[once][0];
  call.on_arrays(o.own, operands[0], operands[1], operands[2], f, o.out);
  o.check(call.name);
}

template <class In, class Out>
void rounding(Input& in) {
  const format f = arrays::number<In> ? zelk::native_format<double> : any_format<In>(in);
  const format g = any_format<Out>(in);
  Outcome<Out> o{g, any_environment(in)};
  const Draws draws = any_draws(in);
  const bool in_place = in.byte() % 2 != 0;
  const std::vector<In> x = any_elements<In>(in, arrays::number<In> ? g : f, any_size(in));
  o.out.resize(x.size());
  std::span<const In> from = x;
  if constexpr (std::is_same_v<In, Out>) {
    if (in_place) from = o.out = x;
  }
  for (std::size_t i = 0; i < x.size(); ++i) {
    o.want.push_back(rounded_element<Out>(o.single, x[i], f, g, draws, i));
  }
  round_arrays(o.own, from, f, std::span(o.out), g, draws);
  o.check(draws ? "rounding by draws" : "rounding");
}

template <class In, class Out>
void decoding(Input& in) {
  Outcome<Out> o{any_format<In>(in), {}};
  if (sizeof(Out) == 4 && (o.f.exp_width > 8 || o.f.mant_width > 23)) o.f = {8, 23};
  const std::vector<In> x = any_elements<In>(in, o.f, any_size(in));
  for (const In a : x) o.want.push_back(element<Out>(value(a, o.f)));
  o.out.resize(x.size());
  arrays::decode(x, o.f, o.out);
  o.check("decoding");
}

Accumulation any_accumulation(Input& in, format result) {
  const std::uint64_t block = in.byte() % 8;
  return {result, block, in.byte() % 2 != 0, any_draws(in)};
}

template <class T, class C>
void matrices(Input& in) {
  const format f = any_format<T>(in);
  const Accumulation sum = any_accumulation(in, any_format<C>(in));
  const std::size_t rows = in.byte() % 5, columns = in.byte() % 5, terms = in.byte() % 12;
  const std::size_t stride = columns + in.byte() % 3, stride_a = terms + in.byte() % 3;
  Outcome<C> o{f, any_environment(in)};
  const std::vector<T> a = any_elements<T>(in, f, rows * stride_a);
  const std::vector<T> b = any_elements<T>(in, f, terms * columns);
  const Matrix<const T> left{a, rows, terms, stride_a}, right{b, terms, columns, columns};
  o.out = o.want = std::vector<C>(rows * stride, C{77});
  multiply_single<T, C>(o.single, left, right, f, sum, {o.want, rows, columns, stride});
  arrays::matmul(o.own, left, right, f, sum, Matrix<C>{o.out, rows, columns, stride});
  o.check("matmul");
}

template <class T>
void dots(Input& in) {
  Outcome<u64> o{any_format<T>(in), any_environment(in)};
  const Accumulation sum = any_accumulation(in, any_format<double>(in));
  const std::vector<T> x = any_elements<T>(in, o.f, any_size(in));
  std::vector<T> y = any_elements<T>(in, o.f, x.size());
  const bool once = !x.empty() && in.byte() % 4 == 0;
  if (once) y.assign(x.size(), y[0]);
  const bool flush = o.settings.flush_operands;
  o.want.push_back(
      element<u64>(Reference(o.single, sum)(values(x, o.f, flush), values(y, o.f, flush))));
  const Operand<T> right = once ? Operand<T>(y[0]) : Operand<T>(y);
  o.out.push_back(element<u64>(arrays::dot(o.own, x, right, o.f, sum)));
  o.check("dot");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  GTEST_FLAG_SET(throw_on_failure, true);  // and nobody catches it
  Input in{{data, size}};
  constexpr void (*checks[])(Input&) = {arithmetic<double>,
                                        arithmetic<float>,
                                        arithmetic<u8>,
                                        arithmetic<u16>,
                                        arithmetic<u32>,
                                        arithmetic<u64>,
                                        rounding<double, double>,
                                        rounding<float, float>,
                                        rounding<float, double>,
                                        rounding<double, float>,
                                        rounding<double, u16>,
                                        rounding<double, u64>,
                                        rounding<float, u8>,
                                        rounding<u16, u8>,
                                        rounding<u8, u16>,
                                        rounding<u32, u32>,
                                        rounding<u64, u64>,
                                        decoding<u16, float>,
                                        decoding<u8, double>,
                                        decoding<u64, double>,
                                        matrices<u16, float>,
                                        matrices<u8, u8>,
                                        matrices<float, double>,
                                        matrices<double, u16>,
                                        dots<u8>,
                                        dots<u16>,
                                        dots<float>,
                                        dots<double>};
  static const std::vector<std::int64_t> targets = [] {
    std::vector<std::int64_t> all;
    for (std::int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
      all.push_back(left & -left);
    }
    return all;
  }();
  hwy::SetSupportedTargetsForTest(targets[in.byte() % targets.size()]);
  checks[in.byte() % std::size(checks)](in);
  return 0;
}
