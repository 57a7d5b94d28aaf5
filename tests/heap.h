// Operator new, where no sanitizer has its own, and GMP's allocator, counted: for one source of a
// program. The n-th call of the former, or of both, can be made to throw.
#ifndef ZELK_TESTS_HEAP_H_
#define ZELK_TESTS_HEAP_H_

#include <gmp.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

// NOLINTBEGIN(cppcoreguidelines-no-malloc): this is an allocator
struct Heap {
  std::atomic<unsigned long> calls = 0, bytes = 0, peak = 0;
  std::atomic<long> blocks = 0;
  std::atomic<long> until_failure = -1;  // calls of operator new that succeed yet; -1: all
  std::atomic<bool> gmp_fails = false;   // whether calls of GMP's allocator count, too

  void fail_if_due() {
    if (until_failure >= 0 && until_failure-- == 0) throw std::bad_alloc();
  }
  void* add_gmp(void* p, std::size_t size) {
    if (gmp_fails) fail_if_due();
    return add(std::realloc(remove(p), size));
  }

  void* add(void* p) {
    ++calls;
    ++blocks;
    bytes += malloc_usable_size(p);
    peak = std::max(peak.load(), bytes.load());
    return p;
  }
  void* remove(void* p) {
    blocks -= p != nullptr ? 1 : 0;
    bytes -= malloc_usable_size(p);
    return p;
  }
};
static constinit Heap heap;

[[gnu::noinline]] void* operator new(std::size_t size) {
  heap.fail_if_due();
  void* p = std::malloc(size);
  return p != nullptr ? heap.add(p) : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(heap.remove(p)); }
[[gnu::noinline]] void operator delete(void* p, std::size_t /*size*/) noexcept {
  std::free(heap.remove(p));
}

static const bool gmp_is_counted = [] {
  mp_set_memory_functions(
      [](std::size_t size) { return heap.add_gmp(nullptr, size); },
      [](void* p, std::size_t /*old*/, std::size_t size) { return heap.add_gmp(p, size); },
      [](void* p, std::size_t /*size*/) { std::free(heap.remove(p)); });
  return true;
}();
// NOLINTEND(cppcoreguidelines-no-malloc)

#endif  // ZELK_TESTS_HEAP_H_
