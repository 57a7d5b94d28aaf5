// What a text stands for, before it is rounded to a format.
#ifndef ZELK_FLOAT_READ_TEXT_H_
#define ZELK_FLOAT_READ_TEXT_H_

#include <string_view>

#include "zelk/float/environment.h"
#include "zelk/float/ieee_float.h"
#include "zelk/float/value_access.h"
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

/// What `read_prefix` has found: where a number ends, which is where the text starts if there is
/// none, and whether it was read.
struct Prefix {
  const char* end;
  bool is_read;
};

/// x := the number that is the longest prefix of a text, rounded by the environment, in x's format;
/// x keeps its mode and representation. Nothing is done for values that numbers make, and for a
/// number that is not the whole text where that is asked for.
/// \throws IEEEFloat::error "reached limit on float precision".
Prefix read_prefix(const char* first, const char* last, bool whole, IEEEFloat& x, Environment& env);

/// A value of format f from a whole text by `read_prefix`, or by `otherwise` where that does
/// nothing.
template <class Otherwise>
IEEEFloat read_whole(std::string_view text, const IEEEFloat::format& f, IEEEFloat::rounding_mode rm,
                     Environment& env, Otherwise otherwise) {
  IEEEFloat x = ValueAccess::zero(f, rm);
  if (!read_prefix(text.data(), text.data() + text.size(), true, x, env).is_read) {
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
