// The numbers that the reference road computes in: a thread keeps them from call to call, and with
// them the GMP storage that they have grown.
#ifndef ZELK_EXACT_NUMBERS_H_
#define ZELK_EXACT_NUMBERS_H_

#include <memory>

#include "zelk/base/thread_scratch.h"
#include "zelk/numbers/qnumber.h"
#include "zelk/rules/rounding.h"

namespace zelk::exact {

/// The patterns of the operands and of the result.
struct Patterns {
  QNumber left;   ///< the left or only operand's
  QNumber right;  ///< the right operand's
  QNumber out;    ///< the result's
};

/// What they hold means nothing between operations; a caller knows which of them a routine that it
/// calls overwrites.
struct Numbers {
  Patterns in_words;  ///< those that small numbers hold, whatever wider ones left behind
  Patterns wider;     ///< all others
  QNumber exp1;       ///< the left exponent, then the result's
  QNumber mant1;      ///< the left significand, then the result's
  QNumber exp2;       ///< the right exponent
  QNumber mant2;      ///< the right significand
  QNumber tmp1;       ///< a bias, a quotient
  QNumber tmp2;       ///< rounding: the biased exponent
  QNumber tmp3;       ///< rounding: all else

  /// Those for a format.
  Patterns& patterns(rules::Widths f) { return f.fit(63) ? in_words : wider; }

  /// Gives the storage back.
  void release() noexcept {
    std::destroy_at(this);
    std::construct_at(this);
  }
};

/// The numbers of this thread, for the length of a call.
using Scratch = detail::ThreadScratch<Numbers>;

}  // namespace zelk::exact

#endif  // ZELK_EXACT_NUMBERS_H_
