// The seven numbers that generic algorithms compute in, instead of locals: one that once needed
// GMP storage keeps it for the next operation.
//
// Used by the private headers of this folder and by ieee_float.cpp, one operation at a time.
#ifndef ZELK_FLOAT_SCRATCH_H_
#define ZELK_FLOAT_SCRATCH_H_

#include "zelk/numbers/qnumber.h"

namespace zelk {
namespace {

// Constant-initialised and never destroyed, so that static objects of other files may compute
// before this file's initialisers and after its destructors have run.
union ScratchStorage {
  constexpr ScratchStorage() : numbers() {}
  ScratchStorage(const ScratchStorage&) = delete;
  ScratchStorage& operator=(const ScratchStorage&) = delete;
  ~ScratchStorage() {}  // NOLINT(modernize-use-equals-default): that would be deleted

  QNumber numbers[7];
};

constinit ScratchStorage scratch_storage;

// Gives the storage back at exit; the numbers stay usable zeros.
const struct ScratchRelease {
  ScratchRelease() = default;
  ScratchRelease(const ScratchRelease&) = delete;
  ScratchRelease& operator=(const ScratchRelease&) = delete;
  ~ScratchRelease() {
    for (QNumber& q : scratch_storage.numbers) {
      q.reset();
    }
  }
} scratch_release;

/// Every object designates the same seven numbers. What they hold means nothing between
/// operations; a caller knows which of them a routine that it calls overwrites.
struct TempNumProvider {
  static inline constinit QNumber& exp1 = scratch_storage.numbers[0];  ///< left exponent, result
  static inline constinit QNumber& mant1 =
      scratch_storage.numbers[1];                                      ///< left significand, result
  static inline constinit QNumber& exp2 = scratch_storage.numbers[2];  ///< right exponent
  static inline constinit QNumber& mant2 = scratch_storage.numbers[3];  ///< right significand
  static inline constinit QNumber& tmp1 = scratch_storage.numbers[4];   ///< bias, built patterns
  static inline constinit QNumber& tmp2 =
      scratch_storage.numbers[5];  ///< rounding: biased exponent
  static inline constinit QNumber& tmp3 = scratch_storage.numbers[6];  ///< rounding: all else
};

}  // namespace
}  // namespace zelk

#endif  // ZELK_FLOAT_SCRATCH_H_
