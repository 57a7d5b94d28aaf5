#include "zelk/base/exception.h"

#include "zelk/base/machine.h"

namespace zelk {

Exception::Exception(const std::string& m) {
  msg_stream.exceptions(std::ios_base::badbit);
  msg_stream << m;
  dump_msg_and_raise_assertion();
}

// `ate` keeps the insertion point behind the copied text.
Exception::Exception(const Exception& other)
    : std::exception(other), msg_stream(other.msg_stream.str(), std::ios_base::ate) {
  msg_stream.exceptions(std::ios_base::badbit);
}

Exception& Exception::operator=(const Exception& other) {
  if (this != &other) {
    msg_stream = std::ostringstream(other.msg_stream.str(), std::ios_base::ate);
    msg_stream.exceptions(std::ios_base::badbit);
  }
  return *this;
}

Exception::~Exception() noexcept = default;

const std::string& Exception::get_msg() const {
  msg = msg_stream.str();
  return msg;
}

const char* Exception::what() const noexcept {
  try {
    return get_msg().c_str();
  } catch (...) {
    return "";
  }
}

// The empty asm keeps the calls alive; without it the compiler would see that nothing happens.
[[gnu::noinline]] void Exception::dump_msg_and_raise_assertion() {
#ifdef ZELK_EXTENSIONS
  asm volatile("" : : "r"(this));
#endif
}

}  // namespace zelk
