// Limbs to compute in.
#ifndef ZELK_LIMBS_ROOM_H_
#define ZELK_LIMBS_ROOM_H_

#include <cstddef>
#include <optional>
#include <utility>

#include "zelk/base/thread_scratch.h"
#include "zelk/limbs/integers.h"

// Under the address sanitizer a room ends where what was asked for ends.
#ifdef __SANITIZE_ADDRESS__
#define ZELK_EXACT_ROOM 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZELK_EXACT_ROOM 1
#endif
#endif

namespace zelk::limbs {

/// The block that a thread keeps for its large operations.
struct Block {
  Limb* limbs = nullptr;
  long size = 0;

  void release() noexcept {
    delete[] std::exchange(limbs, nullptr);
    size = 0;
  }
  /// \throws std::bad_alloc
  Limb* at_least(long wanted) {
    if (wanted > size) {
      release();
      limbs = new Limb[static_cast<std::size_t>(wanted)];
      size = wanted;
    }
    return limbs;
  }
};

/// Limbs to compute in, not initialised. On the stack while they are few, else in the thread's
/// block: a thread has one object at a time.
class Room {
 public:
#ifdef ZELK_EXACT_ROOM
  explicit Room(long limbs) : data(new Limb[static_cast<std::size_t>(limbs)]) {}
  ~Room() { delete[] data; }
#else
  /// \throws std::bad_alloc
  // cppcheck-suppress uninitMemberVar  // what is computed initialises it
  explicit Room(long limbs)
      : data(limbs > local_size ? scratch.emplace()->at_least(limbs) : local) {}
  ~Room() = default;
#endif
  Room(const Room&) = delete;
  Room& operator=(const Room&) = delete;

  Limb* limbs() { return data; }

 private:
#ifndef ZELK_EXACT_ROOM
  static constexpr long local_size = 128;

  std::optional<detail::ThreadScratch<Block>> scratch;  // of a large operation
  Limb local[static_cast<std::size_t>(local_size)];
#endif
  Limb* data;
};

}  // namespace zelk::limbs

#undef ZELK_EXACT_ROOM

#endif  // ZELK_LIMBS_ROOM_H_
