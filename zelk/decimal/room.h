// Room to compute in: on the stack while it suffices, else on the heap.
#ifndef ZELK_DECIMAL_ROOM_H_
#define ZELK_DECIMAL_ROOM_H_

#include <cstddef>
#include <memory>

namespace zelk::decimal {

/// Objects of a plain type, not initialised.
template <class T, long local_size>
class Room {
 public:
  /// \throws std::bad_alloc
  // cppcheck-suppress uninitMemberVar  // what is computed initialises it
  explicit Room(long size) {
    if (size > local_size) {
      heap.reset(new T[static_cast<std::size_t>(size)]);
    }
  }

  T* data() { return heap ? heap.get() : local; }

 private:
  std::unique_ptr<T[]> heap;
  T local[static_cast<std::size_t>(local_size)];
};

}  // namespace zelk::decimal

#endif  // ZELK_DECIMAL_ROOM_H_
