// What allocates nothing: counted calls of operator new and of GMP's allocator.
#include <gmp.h>

#include <cstdlib>
#include <new>
#include <vector>

#include "tests/support.h"

// NOLINTBEGIN(cppcoreguidelines-no-malloc): this is an allocator
namespace {

unsigned long allocations = 0;

void* counted(std::size_t size) {
  ++allocations;
  return std::malloc(size);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  void* p = counted(size);
  return p != nullptr ? p : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t /*size*/) noexcept { std::free(p); }

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// Arithmetic on patterns in words, comparison, classes, signs, accessors, reused targets.
TEST(Allocation, WordsAllocateNothing) {
  mp_set_memory_functions(
      counted,
      [](void* p, std::size_t /*old*/, std::size_t size) {
        ++allocations;
        return std::realloc(p, size);
      },
      [](void* p, std::size_t /*size*/) { std::free(p); });
  // NOLINTEND(cppcoreguidelines-no-malloc)
  Random random;
  for (const Format f : {Format{4, 3}, {5, 10}, {8, 7}, {10, 51}, {8, 23}, {11, 52}}) {
    const Layout t(f);
    std::vector<IEEEFloat> values;
    values.reserve(500);
    for (int i = 0; i < 500; ++i) {
      values.push_back(IEEEFloat::from_bits(QNumber(random.pattern(t) % t.inf, 1), f));
    }
    // The first round leaves scratch with the storage that operands far apart need.
    for (std::size_t i = 0; i < 2 * values.size(); ++i) {
      const IEEEFloat& x = values[i % values.size()];
      const IEEEFloat& y = values[(i + 1) % values.size()];
      IEEEFloat r = x;
      const unsigned long before = allocations;
      bool seen = x < y || x <= y || x.to_integer(16) == 1 || x == y || x.is_nan() || x.is_inf() ||
                  x.is_zero();
      seen = seen || x.is_subnormal() || x.get_sign() || x.get_mode() > 3;
      for (int op = 0; op < 4; ++op) {
        r = x;
        apply(op, r, y);
      }
      r = x;
      r.self_neg();
      r.next_representable(seen);
      r.packed_next(seen);
      r.self_inf(false);
      r.self_nan();
      r.self_zero(false);
      if (x.get_repr() != IEEEFloat::REPR_GENERIC) {
        IEEEFloat copy(x);
        copy = std::move(r);
        copy.set_format(f == Format{8, 23} ? Format{11, 52} : Format{8, 23});
      }
      ASSERT_TRUE(i < values.size() || allocations == before) << name(x) << " and " << name(y);
    }
  }
  // 64-bit patterns, in numbers of the big form.
  IEEEFloat x = in_big_form(IEEEFloat::from_number(QNumber(-7) / 3, {8, 55}, modes[0]));
  const IEEEFloat y = in_big_form(IEEEFloat::from_number(QNumber(1) / 7, {8, 55}, modes[0]));
  for (int op = 0; op < 8; ++op) {
    const unsigned long before = allocations;
    apply(op % 4, x, y);
    x.set_format(op % 2 == 0 ? Format{10, 53} : Format{8, 55});
    x.set_format({8, 55});
    ASSERT_TRUE(!(x < y && x.is_nan()) && allocations == before) << name(x);
  }
  for (const Format f : {Format{15, 112}, {19, 236}, {30, 20000}}) {
    const IEEEFloat a = IEEEFloat::from_number(QNumber(-7) / 3, f, modes[2]);
    const IEEEFloat b = IEEEFloat::from_number(QNumber(1) / 7, f, modes[0]);
    IEEEFloat r = a / b;  // leaves the block of large operations behind
    for (int op = 0; op < 4; ++op) {
      const unsigned long before = allocations;
      r = a;
      apply(op, r, b);
      ASSERT_TRUE(r < b && b > r && allocations == before) << f.mant_width << operators[op];
    }
  }
  QNumber q = 1;
  const QNumber step = QNumber(3) / 7;
  const unsigned long before = allocations;
  for (int i = 1; i < 12; ++i) {
    q += step;
    q *= QNumber(i).inv();
    ASSERT_FALSE(q < q.get_num() - q.get_den() * i && q == step);
  }
  EXPECT_EQ(allocations, before);
}
