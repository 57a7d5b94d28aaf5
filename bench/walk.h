// The order in which operands are timed.
//
// Processors learn by heart where the branches of a thousand operations in one order go, and that
// is not what a program pays whose values are its own. So every pass goes through the operands in
// an order of its own, the left ones in one and the right ones in another; in one fixed order only
// if that is asked for.
#ifndef ZELK_BENCH_WALK_H_
#define ZELK_BENCH_WALK_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace zelk_bench {

/// Leads through an even number of operands, a power of two.
class Walk {
 public:
  explicit Walk(std::size_t count) : pairs(count / 2) {}

  /// Whether every pass takes the operands in the one order in which they are.
  static inline bool fixed = false;

  /// Calls body(i), or body(i, j) on two operands, with every index once. Neighbours, of which one
  /// may undo what the other does, stay together.
  template <typename Body>
  void pass(const Body& body) {
    if (fixed) {
      for (std::size_t i = 0; i < 2 * pairs; ++i) {
        call(body, i, i);
      }
      return;
    }
    // A linear congruential generator (D. E. Knuth, The Art of Computer Programming, 3.3.4).
    state = state * 6364136223846793005U + 1442695040888963407U;
    const std::size_t left_step = state >> 32 | 1;  // odd: every pair has its turn
    const std::size_t right_step = state >> 48 | 1;
    for (std::size_t k = 0; k < pairs; ++k) {
      left = (left + left_step) & (pairs - 1);
      right = (right + right_step) & (pairs - 1);
      call(body, 2 * left, 2 * right);
      call(body, 2 * left + 1, 2 * right + 1);
    }
  }

 private:
  template <typename Body>
  static void call(const Body& body, std::size_t i, std::size_t j) {
    if constexpr (std::is_invocable_v<Body, std::size_t, std::size_t>) {
      body(i, j);
    } else {
      body(i);
    }
  }

  std::size_t pairs;
  std::uint64_t state = 1;
  std::size_t left = 0;
  std::size_t right = 0;
};

}  // namespace zelk_bench

#endif  // ZELK_BENCH_WALK_H_
