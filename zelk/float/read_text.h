// What a text stands for, before it is rounded to a format.
#ifndef ZELK_FLOAT_READ_TEXT_H_
#define ZELK_FLOAT_READ_TEXT_H_

#include <string_view>

#include "zelk/decimal/scan.h"
#include "zelk/float/environment.h"
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

/// x := the number that was taken apart, rounded by the environment, in x's format; x keeps its
/// mode and representation. False, and nothing done, where that is for the numbers of `read_text`.
/// \throws IEEEFloat::error "reached limit on float precision".
bool read_literal(const decimal::Literal& literal, IEEEFloat& x, Environment& env);

/// A value of format f from a whole text by `read_literal`, and by `otherwise` from a text for
/// which that does not do.
template <class Otherwise>
IEEEFloat from_literal(std::string_view text, IEEEFloat::format f, IEEEFloat::rounding_mode rm,
                       Environment& env, Otherwise otherwise) {
  const decimal::Literal literal = decimal::scan(text.data(), text.data() + text.size());
  if (literal.form == decimal::Form::none || literal.end != text.data() + text.size()) {
    return otherwise();
  }
  IEEEFloat x(f, rm);
  if (!read_literal(literal, x, env)) {
    x = otherwise();
  }
  return x;
}

/// Reads what `IEEEFloat::from_text` takes.
/// \throws IEEEFloat::error "invalid number at position <p>: <text>", "reached limit on float
///   precision".
TextValue read_text(std::string_view text, const IEEEFloat::format& f);

/// x := the special value.
void set_special(IEEEFloat& x, const TextValue& v);

}  // namespace zelk::detail

#endif  // ZELK_FLOAT_READ_TEXT_H_
