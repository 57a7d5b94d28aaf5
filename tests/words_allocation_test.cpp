// Values of up to 128 bits allocate nothing, from the first call of a process on. So this program
// has one test, before which it calls nothing of the library, and counts malloc, calloc and
// realloc, whoever calls them: the standard library, GMP, the loader.
#include <cstdlib>
#include <vector>

#include "tests/support.h"

static constinit unsigned long allocations = 0;

#ifdef ZELK_LIMBS_ONLY
static constexpr bool only_limbs = true;
#else
static constexpr bool only_limbs = false;
#endif

// NOLINTBEGIN: glibc's own names of what is replaced
#ifdef __has_feature
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define HEAP_IS_TAKEN  // by the sanitizer, which replaces these, too
#endif
#endif
#ifndef HEAP_IS_TAKEN
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* p, std::size_t size);
void* malloc(std::size_t size) noexcept { return ++allocations, __libc_malloc(size); }
void* calloc(std::size_t n, std::size_t size) noexcept {
  return ++allocations, __libc_calloc(n, size);
}
void* realloc(void* p, std::size_t size) noexcept { return ++allocations, __libc_realloc(p, size); }
}
#endif
// NOLINTEND

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// Every form of text, into a range: of formats with e <= 15.
static void write_all(const IEEEFloat& x) {
  static char room[12000];
  char* const end = room + sizeof room;
  to_chars(room, end, x);
  for (const auto form : {std::chars_format::scientific, std::chars_format::fixed,
                          std::chars_format::general, std::chars_format::hex}) {
    for (const int precision : {-1, 0, 40, 7000, 1 << 20}) to_chars(room, end, x, form, precision);
  }
}

// Every call on values of format f, in every mode, of classes of all kinds and in two
// representations. g is a format of the same kind.
static void call_all(Format f, Format g, IEEEFloat::Repr repr) {
  // The road of limbs makes values of exact numbers in scratch; patterns of 63 bits and more are
  // big numbers.
  const bool on_words = zelk::words::serves_in_one_word(f.exp_width, f.mant_width) ||
                        zelk::words::serves_in_two_words(f.exp_width, f.mant_width);
  const std::size_t end = only_limbs || !on_words           ? first_scaled
                          : f.exp_width + f.mant_width > 61 ? first_of_bits
                                                            : first_exact;
  for (const auto rm : modes) {
    IEEEFloat values[] = {
        IEEEFloat(f, rm),           IEEEFloat::max_value(f),
        IEEEFloat::from_bits(1, f), IEEEFloat::from_number(QNumber(-5) / 3, f, rm),
        IEEEFloat::from_bits(3, f), IEEEFloat::from_number(QNumber(1L << 40) / 3, f, rm),
        IEEEFloat(f, rm),           IEEEFloat(f, rm)};
    values[6].self_nan();
    values[7].self_inf(true);
    for (IEEEFloat& x : values) x.set_mode(rm), x.self_specialize_repr(repr);
    for (const IEEEFloat& x : values) {
      const unsigned long before_texts = allocations;
      if (f.exp_width <= 15 && f == g) write_all(x);
      ASSERT_EQ(allocations, before_texts) << "texts of " << name(x);
      for (const IEEEFloat& y : values) {
        const auto check = [&](Call call, std::size_t k) {
          const unsigned long before = allocations;
          IEEEFloat r(x);
          QNumber n = x < y ? 7 : QNumber(-4) / 9;
          call(r, y, g, n);
          ASSERT_EQ(allocations, before) << "call " << k << ' ' << name(x) << ' ' << name(y);
        };
        for (std::size_t k = 0; k < end; ++k) check(calls[k], k);
        const std::size_t environment_end =
            only_limbs || !on_words ? first_growing : first_on_words;
        for (std::size_t k = 0; k < environment_end; ++k) check(environment_calls[k], 100 + k);
      }
    }
  }
}

TEST(WordsAllocation, ThereIsNone) {
#if defined(HEAP_IS_TAKEN) || defined(ZELK_REFERENCE_ONLY)  // the reference computes in scratch
  GTEST_SKIP();
#endif
  std::vector<Format> formats = {{4, 3}, {2, 1}, {2, 125}, {3, 124}, {2, 123}};
  std::ranges::copy_if(wide_formats, std::back_inserter(formats), [](Format f) {
    return f.exp_width <= 62 && f.exp_width + f.mant_width < 128;
  });
  const unsigned long before = allocations;
  for (const Format f : formats) {
    for (const Format g : formats) {
      call_all(f, g, IEEEFloat::get_best_repr(f));
      call_all(f, g, IEEEFloat::REPR_GENERIC);
      ASSERT_EQ(allocations, before);
    }
  }
  // They are counted.
  EXPECT_EQ(power(70), IEEEFloat::from_number(power(70), {8, 23}, modes[0]).to_number());
  EXPECT_GT(allocations, before);
}
