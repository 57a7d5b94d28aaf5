// Values in `std::format`, where the standard library has it.
//
// std::format("{:10.3e}", x) prints x as a double, in e, f, g or a, with fill, alignment, sign,
// '#', '0', width and precision, the last two from arguments too; "{}" prints `to_shortest(x)`. A
// NaN has no sign of its own. There is no form for a locale.
#ifndef ZELK_FLOAT_FORMAT_H_
#define ZELK_FLOAT_FORMAT_H_

#include <version>

#ifdef __cpp_lib_format

#include <algorithm>
#include <format>

#include "zelk/float/format_text.h"
#include "zelk/float/ieee_float.h"

/// Formats values as doubles are.
template <>
struct std::formatter<zelk::IEEEFloat, char> {
  /// Reads what stands behind the colon.
  /// \throws std::format_error for what is no format of a double.
  constexpr auto parse(std::format_parse_context& context) {
    return zelk::detail::FormatReader<std::format_error, std::format_parse_context>(context).read(
        options);
  }

  /// Writes x.
  template <class Context>
  auto format(const zelk::IEEEFloat& x, Context& context) const {
    zelk::detail::FormatOptions o = options;
    const auto take = [&context](int argument, int& number) {
      if (argument >= 0) {
        number = std::visit_format_arg(zelk::detail::ArgumentNumber<std::format_error>(),
                                       context.arg(static_cast<std::size_t>(argument)));
      }
    };
    take(o.width_argument, o.width);
    take(o.precision_argument, o.precision);
    return std::ranges::copy(zelk::detail::formatted(x, o, zelk::detail::FormatStyle::standard),
                             context.out())
        .out;
  }

 private:
  zelk::detail::FormatOptions options;
};

#endif  // __cpp_lib_format

#endif  // ZELK_FLOAT_FORMAT_H_
