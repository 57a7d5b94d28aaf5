// The numbers that the reference road computes in: a thread keeps them from call to call, and with
// them the GMP storage that they have grown.
#ifndef ZELK_EXACT_NUMBERS_H_
#define ZELK_EXACT_NUMBERS_H_

#include <memory>

#include "zelk/base/thread_scratch.h"
#include "zelk/numbers/qnumber.h"

namespace zelk::exact {

/// What they hold means nothing between operations; a caller knows which of them a routine that it
/// calls overwrites.
struct Numbers {
  QNumber left;   ///< the left or only operand's pattern
  QNumber right;  ///< the right operand's pattern
  QNumber exp1;   ///< the left exponent, then the result's
  QNumber mant1;  ///< the left significand, then the result's
  QNumber exp2;   ///< the right exponent
  QNumber mant2;  ///< the right significand
  QNumber tmp1;   ///< a bias, a quotient
  QNumber tmp2;   ///< rounding: the biased exponent
  QNumber tmp3;   ///< rounding: all else
  QNumber out;    ///< the pattern that is the result

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
