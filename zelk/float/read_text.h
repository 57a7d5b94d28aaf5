// What a text stands for, before it is rounded to a format.
#ifndef ZELK_FLOAT_READ_TEXT_H_
#define ZELK_FLOAT_READ_TEXT_H_

#include <string_view>

#include "zelk/float/ieee_float.h"
#include "zelk/rules/special.h"

namespace zelk::detail {

/// A special value, or the number +-magnitude * 2^exponent, which rounds to the format that the
/// text was read for as the text's own number does.
struct TextValue {
  rules::Class what;
  bool negative = false;
  QNumber magnitude;
  QNumber exponent;
};

/// Reads what `IEEEFloat::from_text` takes.
/// \throws IEEEFloat::error "invalid number at position <p>: <text>", "reached limit on float
///   precision".
TextValue read_text(std::string_view text, const IEEEFloat::format& f);

/// x := the special value.
void set_special(IEEEFloat& x, const TextValue& v);

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_READ_TEXT_H_
