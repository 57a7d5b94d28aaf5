// Values in fmt::format. A header only: {fmt} is the user's.
//
// fmt::format("{:10.3e}", x) prints x as a double, in e, f, g or a, with fill, alignment, sign,
// '#', '0', width and precision, the last two from arguments too; "{}" prints `to_shortest(x)`. A
// NaN has no sign of its own. There is no form for a locale.
#ifndef ZELK_FLOAT_FMT_H_
#define ZELK_FLOAT_FMT_H_

#include <fmt/format.h>

#include <algorithm>

#include "zelk/float/format_text.h"
#include "zelk/float/ieee_float.h"

/// Formats values as doubles are.
template <>
struct fmt::formatter<zelk::IEEEFloat, char> {
  /// Reads what stands behind the colon.
  /// \throws fmt::format_error for what is no format of a double.
  template <class Context>
  constexpr auto parse(Context& context) {
    return zelk::detail::FormatReader<fmt::format_error, Context>(context).read(options);
  }

  /// Writes x.
  template <class Context>
  auto format(const zelk::IEEEFloat& x, Context& context) const {
    zelk::detail::FormatOptions o = options;
    const auto take = [&context](int argument, int& number) {
      if (argument >= 0) {
        const zelk::detail::ArgumentNumber<fmt::format_error> visitor;
#if FMT_VERSION >= 110000
        number = context.arg(argument).visit(visitor);
#else
        number = fmt::visit_format_arg(visitor, context.arg(argument));
#endif
      }
    };
    take(o.width_argument, o.width);
    take(o.precision_argument, o.precision);
    const std::string text = zelk::detail::formatted(x, o, zelk::detail::FormatStyle::fmt);
    return std::copy(text.begin(), text.end(), context.out());
  }

 private:
  zelk::detail::FormatOptions options;
};

#endif  // ZELK_FLOAT_FMT_H_
