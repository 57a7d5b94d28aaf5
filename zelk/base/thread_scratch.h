// What a thread keeps from call to call, so that its calls need not allocate, and gives back when
// it ends.
#ifndef ZELK_BASE_THREAD_SCRATCH_H_
#define ZELK_BASE_THREAD_SCRATCH_H_

#include <cstddef>
#include <new>
#include <type_traits>

namespace zelk::detail {

/// The calling thread's one T, for the length of a call that makes this a local object:
/// `ThreadScratch<T> scratch;`, then `scratch->...`.
///
/// T is an aggregate. `T{}` is a constant, owns nothing and cannot throw; `void release() noexcept`
/// frees all that a T has come to own and returns it to that state. What a T holds means nothing to
/// the next call, but storage that it owns is there again. `release` is called when the thread
/// ends. Objects that are destroyed after that (thread-local ones, and static ones after `main`)
/// may still make such calls: then each releases in the end what it took, so that nothing is lost.
/// So may those built before `main`.
///
/// In a thread there is one object for a T at a time: a call that has one calls none that makes its
/// own.
template <typename T>
class ThreadScratch {
 public:
  ThreadScratch() noexcept : place(places) {
    if (place.state == State::untouched) [[unlikely]] {
      begin();
    }
  }
  ThreadScratch(const ThreadScratch&) = delete;
  ThreadScratch& operator=(const ThreadScratch&) = delete;
  ~ThreadScratch() {
    if (place.state == State::ended) [[unlikely]] {
      place.value().release();
    }
  }

  /// The thread's T.
  T& operator*() const noexcept { return place.value(); }
  /// A member of it.
  T* operator->() const noexcept { return &place.value(); }

 private:
  static_assert(std::is_aggregate_v<T> && std::is_nothrow_default_constructible_v<T>);

  enum class State : unsigned char { untouched, kept, ended };

  // A T that is built on first use and never destroyed. Bytes, since a thread-local object with a
  // destructor has a guard that every access has to test.
  struct Place {
    alignas(T) std::byte bytes[sizeof(T)];
    State state;

    T& value() noexcept { return *std::launder(reinterpret_cast<T*>(bytes)); }
    void end() noexcept {
      if (state == State::untouched) {
        new (bytes) T{};
      }
      value().release();
      state = State::ended;
    }
  };

  // Its destructor ends what the thread keeps that runs it.
  struct AtEnd {
    AtEnd() noexcept = default;
    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;
    ~AtEnd() { places.end(); }
  };

  // The first use in a thread. The main thread's thread-local objects are destroyed before all
  // static ones; it has another object for a first use that comes later.
  [[gnu::noinline, gnu::cold]] void begin() noexcept {
    new (place.bytes) T{};
    place.state = State::kept;
    [[maybe_unused]] static thread_local const AtEnd at_thread_end;
    [[maybe_unused]] static const AtEnd at_exit;
  }

  static inline constinit thread_local Place places{};

  Place& place;
};

}  // namespace zelk::detail

#endif  // ZELK_BASE_THREAD_SCRATCH_H_
