// One call on arrays of any elements, on one instruction set of the machine, against single
// operations.
#include "fuzz/input.h"
#include "tests/arrays_support.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

namespace {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

// A format whose values T holds, often with all digits that there is room for.
template <class T>
format any_format(Input& in) {
  constexpr bool is_float = std::is_same_v<T, float>;
  constexpr unsigned long room = arrays::number<T> ? 99 : 8 * sizeof(T) - 1;
  const unsigned long e = 2 + in.byte() % std::min(is_float ? 7UL : 10UL, room - 2);
  return {e, std::min({1 + in.byte() % 64, is_float ? 23UL : 52UL, room - e})};
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
    const std::uint64_t w = words[i % words.size()] + i / words.size() * (step % 64);
    const std::uint64_t sign = step / 64 & i / words.size() & 1;  // so that sums cancel
    if constexpr (arrays::number<T>) {
      x[i] = step % 2 == 0 ? element<T>(value(w, f))
                           : std::bit_cast<T>(static_cast<zelk::native_word<T>>(w));
      if (sign != 0) x[i] = -x[i];
    } else {
      x[i] = static_cast<T>(w ^ sign << f.exp_width << f.mant_width);
    }
  }
  return x;
}

Environment any_environment(Input& in) {
  const auto b = in.byte();
  return {static_cast<Rounding>(in.byte() % 6), static_cast<Tininess>(b & 1), (b & 2) != 0,
          (b & 4) != 0};
}

// Few elements, or about as many as are taken at once.
std::size_t any_size(Input& in) {
  const std::uint64_t b = in.byte();
  return b % 20 + (b < 236 ? 0 : 60);
}

Draws any_draws(Input& in) {
  const std::uint64_t b = in.byte();
  return b % 3 == 0 ? Draws({b, in.byte() - b}) : std::nullopt;
}

template <class T>
void arithmetic(Input& in) {
  const format f = any_format<T>(in);
  const std::size_t n = any_size(in);
  const Environment settings = any_environment(in);
  const Operation<T>& op = operations<T>[in.byte() % std::size(operations<T>)];
  random_words.seed(in.byte());
  const std::size_t once = in.byte() % 6;
  std::vector<T> x[3];
  for (std::vector<T>& a : x) a = any_elements<T>(in, f, n);
  check_operation(settings, op, x, once, f);
}

template <class In, class Out>
void rounding(Input& in) {
  const format g = any_format<Out>(in), f = arrays::number<In> ? g : any_format<In>(in);
  const Environment settings = any_environment(in);
  const Draws draws = any_draws(in);
  random_words.seed(in.byte());
  const std::vector<In> x = any_elements<In>(in, f, any_size(in));
  check_rounding<In, Out>(settings, x, f, g, draws);
}

template <class In, class Out>
void decoding(Input& in) {
  format f = any_format<In>(in);
  if (sizeof(Out) == 4) f.exp_width = std::min(f.exp_width, 8UL);
  check_decoding<In, Out>(any_elements<In>(in, f, any_size(in)), f);
}

// Of n terms in few blocks: each is a sum of values, which takes time.
Accumulation any_accumulation(Input& in, format result, std::size_t n) {
  const std::uint64_t b = in.byte(), block = b % 8 * (b < 128 ? 1 : 13);
  return {result, block == 0 ? 0 : std::max(block, n / 4), in.byte() % 2 != 0, any_draws(in)};
}

template <class T, class C>
void matrices(Input& in) {
  const format f = any_format<T>(in);
  const std::size_t rows = in.byte() % 4, columns = in.byte() % 4, terms = in.byte() % 8;
  const Accumulation sum = any_accumulation(in, any_format<C>(in), terms);
  const std::size_t stride = columns + in.byte() % 3, stride_a = terms + in.byte() % 3;
  const Environment settings = any_environment(in);
  const std::vector<T> a = any_elements<T>(in, f, rows * stride_a);
  const std::vector<T> b = any_elements<T>(in, f, terms * columns);
  check_matmul<T, C>(settings, {a, rows, terms, stride_a}, {b, terms, columns, columns}, f, sum,
                     stride);
}

template <class T>
void dots(Input& in) {
  const format f = any_format<T>(in);
  const Environment settings = any_environment(in);
  const std::vector<T> x = any_elements<T>(in, f, in.byte() % 80);
  const Accumulation sum = any_accumulation(in, any_format<double>(in), x.size());
  std::vector<T> y = any_elements<T>(in, f, x.size());
  if (!x.empty() && in.byte() % 4 == 0) y.resize(1);
  check_dot(settings, x, y, f, sum);
}

void one_of(Input& in, auto... checks) {
  constexpr std::size_t count = sizeof...(checks);
  void (*const all[count])(Input&) = {checks...};
  all[in.byte() % count](in);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  std::int64_t left = all_targets;
  for (u64 k = in.byte() % hwy::PopCount(static_cast<u64>(left)); k != 0; --k) left &= left - 1;
  chosen_targets = left & -left;
  random_words.seed(0);
  one_of(in, arithmetic<double>, arithmetic<float>, arithmetic<u8>, arithmetic<u16>,
         arithmetic<u32>, arithmetic<u64>, rounding<double, double>, rounding<float, float>,
         rounding<float, double>, rounding<double, float>, rounding<double, u16>,
         rounding<double, u64>, rounding<float, u8>, rounding<u16, u8>, rounding<u8, u16>,
         rounding<u32, u32>, rounding<u64, u64>, decoding<u16, float>, decoding<u8, double>,
         decoding<u64, double>, matrices<u16, float>, matrices<u8, u8>, matrices<float, double>,
         matrices<double, u16>, dots<u8>, dots<u16>, dots<u32>, dots<u64>, dots<float>,
         dots<double>);
  return 0;
}
