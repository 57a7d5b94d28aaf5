// The processor's control word: for the length of a call it is ours, whatever the caller has set.
#ifndef ZELK_ARRAYS_CONTROL_WORD_H_
#define ZELK_ARRAYS_CONTROL_WORD_H_

#include <cfenv>
#include <cstdint>

#include "zelk/base/machine.h"
#include "zelk/rules/rounding.h"

#ifdef ZELK_X86_64
#include <xmmintrin.h>
#endif

namespace zelk::arrays::detail {

/// Saves the control word and the status bits, and puts them back; in between there are no traps,
/// no flushing, and one of the four roundings that processors have.
class ControlWord {
 public:
#ifdef ZELK_X86_64
  ControlWord() : saved(_mm_getcsr()) { set(rules::nearest); }
  ~ControlWord() { _mm_setcsr(saved); }
  /// Nearest, toward zero, upward or downward.
  static void set(rules::Direction d) {
    constexpr unsigned all_masked = 0x1F80;
    constexpr unsigned field[] = {0, 3, 2, 1};
    _mm_setcsr(all_masked | field[d] << 13);
  }
#else
  ControlWord() {
    std::fegetenv(&saved);
    std::fesetenv(FE_DFL_ENV);
  }
  ~ControlWord() { std::fesetenv(&saved); }
  /// Nearest, toward zero, upward or downward.
  static void set(rules::Direction d) {
    constexpr int mode[] = {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD, FE_DOWNWARD};
    std::fesetround(mode[d]);
  }
#endif
  ControlWord(const ControlWord&) = delete;
  ControlWord& operator=(const ControlWord&) = delete;

 private:
#ifdef ZELK_X86_64
  unsigned saved;
#else
  std::fenv_t saved;
#endif
};

}  // namespace zelk::arrays::detail

#endif  // ZELK_ARRAYS_CONTROL_WORD_H_
