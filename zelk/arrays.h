// Whole arrays of numbers or of patterns, rounded and computed with as format f does.
//
// A library of its own, zelk::arrays. Elements are patterns, in unsigned integers with room for
// those of f (what is above a pattern is ignored in operands, and zero in results), or numbers,
// float or double, of any values. Each element is what the environment's own operation gives, bit
// for bit, and the environment gets the flags of all elements together:
//
//   of patterns    env.add(x, y), but a result NaN is always the canonical pattern;
//   of numbers     env.add(from_native(x), from_native(y), f) as a float or double, but a result
//                  NaN is quiet_NaN(). flush_operands is judged in f.
//
// Formats go up to e = 11 and m = 52. Arrays need no alignment but their type's. A result may
// begin where an operand of its type does, else the two may not overlap. The processor's control
// word plays no part, and is after a call what it was, with the status bits. Nothing here starts
// threads: disjoint parts of an array can be computed by several, each with an environment of its
// own.
#ifndef ZELK_ARRAYS_H_
#define ZELK_ARRAYS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ranges>
#include <span>
#include <type_traits>

#include "zelk/arrays/calls.h"
#include "zelk/float/environment.h"

/// Operations of environments on whole arrays.
///
/// Every function but `decode` throws `IEEEFloat::error`, before anything is written: "bad rounding
/// mode: <n>"; all, in this order, for f and then for further formats: "format without arithmetic:
/// (<e>, <m>)"; "format too wide for arrays: (<e>, <m>)" for e > 11 or m > 52; "elements too narrow
/// for the format: (<e>, <m>)"; "spans of different lengths"; "matrices of different shapes";
/// "matrix beyond its span"; "result overlaps an operand".
namespace zelk::arrays {

/// The widths of a format.
using format = IEEEFloat::format;

/// A float or a double.
template <class T>
concept number = std::same_as<T, float> || std::same_as<T, double>;
/// An unsigned integer that holds a pattern.
template <class T>
concept pattern = std::same_as<T, std::uint8_t> || std::same_as<T, std::uint16_t> ||
    std::same_as<T, std::uint32_t> || std::same_as<T, std::uint64_t>;
/// What arrays are made of.
template <class T>
concept element = number<T> || pattern<T>;

/// The element of a range.
template <class R>
using E = std::remove_cv_t<std::ranges::range_value_t<R>>;

/// A span, a vector, an array of elements.
template <class R>
concept elements = std::ranges::contiguous_range<R> && std::ranges::sized_range<R> && element<E<R>>;
/// The same of numbers.
template <class R>
concept numbers = elements<R> && number<E<R>>;
/// The same of patterns.
template <class R>
concept patterns = elements<R> && pattern<E<R>>;
/// Elements that can be written.
template <class R>
concept result =
    elements<R> && !std::is_const_v<std::remove_reference_t<std::ranges::range_reference_t<R>>>;

/// An operand: a range of T, which has to outlive it, or one T that is the same in every place.
template <element T>
class Operand {
 public:
  /// One value for every place.
  Operand(T x) : value(x) {}  // NOLINT(google-explicit-constructor)
  /// The elements of a range.
  template <elements R>
  requires std::same_as<E<R>, T> Operand(const R& range)  // NOLINT(google-explicit-constructor)
      : data(std::ranges::data(range)), size(std::ranges::size(range)) {}

  /// As the calls take it.
  detail::Source source() const {
    return {size ? data : &value, size.value_or(1), detail::type_of<T>, !size.has_value()};
  }

 private:
  T value{};
  const T* data = nullptr;
  std::optional<std::size_t> size;
};

namespace detail {

template <elements R>
Source source_of(const R& range) {
  return {std::ranges::data(range), std::ranges::size(range), type_of<E<R>>, false};
}
template <result R>
Target target_of(R& range) {
  return {std::ranges::data(range), std::ranges::size(range), type_of<E<R>>};
}

}  // namespace detail

/// Numbers rounded into f: `env.convert(from_native(x), f)` of each; flush_operands is judged in
/// their own type. With draws the rounding is stochastic.
template <numbers In, result Out>
requires numbers<Out>
void round(Environment& env, const In& x, format f, Out&& out, const Draws& draws = {}) {
  detail::round(env, detail::source_of(x), f, detail::target_of(out), draws);
}
/// The same, to patterns of f.
template <numbers In, result Out>
requires patterns<Out>
void encode(Environment& env, const In& x, format f, Out&& out, const Draws& draws = {}) {
  detail::round(env, detail::source_of(x), f, detail::target_of(out), draws);
}
/// Patterns of f as patterns of g: `env.convert(x, g)` of each.
template <patterns In, result Out>
requires patterns<Out>
void convert(Environment& env, const In& x, format f, Out&& out, format g,
             const Draws& draws = {}) {
  detail::convert(env, detail::source_of(x), f, detail::target_of(out), g, draws);
}
/// Patterns of f as numbers, exactly; raises nothing.
template <patterns In, result Out>
requires numbers<Out>
void decode(const In& x, format f, Out&& out) {
  detail::decode(detail::source_of(x), f, detail::target_of(out));
}

/// x + y.
template <result Out>
void add(Environment& env, Operand<E<Out>> x, Operand<E<Out>> y, format f, Out&& out) {
  detail::compute(env, detail::Operation::add, x.source(), y.source(), f, detail::target_of(out));
}
/// x - y.
template <result Out>
void subtract(Environment& env, Operand<E<Out>> x, Operand<E<Out>> y, format f, Out&& out) {
  detail::compute(env, detail::Operation::subtract, x.source(), y.source(), f,
                  detail::target_of(out));
}
/// x * y.
template <result Out>
void multiply(Environment& env, Operand<E<Out>> x, Operand<E<Out>> y, format f, Out&& out) {
  detail::compute(env, detail::Operation::multiply, x.source(), y.source(), f,
                  detail::target_of(out));
}
/// x / y.
template <result Out>
void divide(Environment& env, Operand<E<Out>> x, Operand<E<Out>> y, format f, Out&& out) {
  detail::compute(env, detail::Operation::divide, x.source(), y.source(), f,
                  detail::target_of(out));
}
/// The smaller operand, as it is, -0 being below +0; a NaN wins.
template <result Out>
void minimum(Environment& env, Operand<E<Out>> x, Operand<E<Out>> y, format f, Out&& out) {
  detail::compute(env, detail::Operation::minimum, x.source(), y.source(), f,
                  detail::target_of(out));
}
/// The larger operand, as it is; a NaN wins.
template <result Out>
void maximum(Environment& env, Operand<E<Out>> x, Operand<E<Out>> y, format f, Out&& out) {
  detail::compute(env, detail::Operation::maximum, x.source(), y.source(), f,
                  detail::target_of(out));
}
/// The square root.
template <result Out>
void sqrt(Environment& env, Operand<E<Out>> x, format f, Out&& out) {
  detail::compute(env, detail::Operation::sqrt, x.source(), f, detail::target_of(out));
}
/// x * y + z, rounded once.
template <result Out>
void fma(Environment& env, Operand<E<Out>> x, Operand<E<Out>> y, Operand<E<Out>> z, format f,
         Out&& out) {
  detail::compute(env, detail::Operation::fma, x.source(), y.source(), z.source(), f,
                  detail::target_of(out));
}

/// The sum of all products x[i] * y[i], accumulated as `sum` says; y = 1 sums x.
template <elements In>
IEEEFloat dot(Environment& env, const In& x, Operand<E<In>> y, format f, const Accumulation& sum) {
  return detail::dot(env, detail::source_of(x), y.source(), f, sum);
}

/// A matrix in a span: (i, j) is data[i * stride + j], a stride of 0 meaning `columns`.
template <class T>
struct Matrix {
  std::span<T> data;        ///< where it is; what is between rows is not touched
  std::size_t rows = 0;     ///< how many
  std::size_t columns = 0;  ///< how many
  std::size_t stride = 0;   ///< from row to row
};

/// c := a * b, each element a sum of products accumulated as `sum` says; c's elements have the
/// format `sum.result`. c may overlap neither a nor b, from its first element to its last.
template <class A, class B, class C>
requires element<std::remove_const_t<A>> && element<std::remove_const_t<B>> && element<C>
void matmul(Environment& env, Matrix<A> a, Matrix<B> b, format f, const Accumulation& sum,
            Matrix<C> c) {
  detail::matmul(
      env, {detail::source_of(a.data), a.rows, a.columns, a.stride != 0 ? a.stride : a.columns},
      {detail::source_of(b.data), b.rows, b.columns, b.stride != 0 ? b.stride : b.columns}, f, sum,
      {detail::target_of(c.data), c.rows, c.columns, c.stride != 0 ? c.stride : c.columns});
}

}  // namespace zelk::arrays

#endif  // ZELK_ARRAYS_H_
