// The base of every exception that the library throws.
#ifndef ZELK_BASE_EXCEPTION_H_
#define ZELK_BASE_EXCEPTION_H_

#include <exception>
#include <sstream>
#include <string>

#include "zelk/base/export.h"

namespace zelk {

/// An error with a text that can be assembled from pieces.
///
/// Number code throws it as it is; float code throws `IEEEFloat::error`, derived from it.
class ZELK_EXPORT Exception : public std::exception {
 public:
  /// Writes `m` into `msg_stream`, then calls `dump_msg_and_raise_assertion()`. Insertions, then
  /// and later, throw `std::bad_alloc` rather than lose text.
  Exception(const std::string& m);

  /// A copy carries the text and still takes insertions; the hook does not run again for it.
  Exception(const Exception& other);
  /// The same for a text that is replaced.
  Exception& operator=(const Exception& other);

  ~Exception() noexcept override;

  /// The text written so far. The reference holds until the next call or the end of the object,
  /// which keeps the text: `get_msg` and `what` of one object are for one thread at a time.
  const std::string& get_msg() const;

  /// `get_msg()` as a C string; "" when the text cannot be assembled for want of memory.
  const char* what() const noexcept override;

  /// Does nothing: a place for a debugger's breakpoint, passed once for every exception built.
  void dump_msg_and_raise_assertion();

  /// Accumulates the text; insertions after construction extend the message.
  std::ostringstream msg_stream;

 private:
  mutable std::string msg;
};

}  // namespace zelk

#endif  // ZELK_BASE_EXCEPTION_H_
