// What operations allocate, and what happens when that fails.
#include <span>
#include <vector>

#include "tests/heap.h"
#include "tests/number_calls.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

// Wide ones first, so that scratch which they leave serves the others.
static constexpr Format formats[] = {{64, 4}, {12, 6400}, {19, 236}, {15, 112}, {8, 55},
                                     {4, 3},  {5, 10},    {10, 51},  {8, 23},   {11, 52}};

// +0, the largest and the smallest value, and one that is rounded; always +0 in formats too wide.
static IEEEFloat value(Format f, int kind) {
  IEEEFloat x(f, modes[kind]);
  message([&] {
    if (kind == 1) x = IEEEFloat::max_value(f);
    if (kind == 2) x = IEEEFloat::from_bits(1, f);
    if (kind == 3) x = IEEEFloat::from_number(QNumber(-5) / 3, f, modes[kind]);
    return 0;
  });
  return x;
}

// All that makes no new value, assignment included; conversions between formats of one size, too.
TEST(Allocation, ReusedTargetsAllocateNothing) {
  Random random;
  for (const Format f : std::span(formats).last(9)) {
    const Layout t(f);
    const bool hardware = IEEEFloat::get_best_repr(f) != IEEEFloat::REPR_GENERIC;
    const bool wide = f.exp_width + f.mant_width > 127;
    std::vector<IEEEFloat> values;
    for (int i = 0; i < 500; ++i) {
      values.push_back(generic(f, modes[i % 4], random.pattern(t) % t.inf));
      values.back().self_specialize_repr(IEEEFloat::get_best_repr(f));
    }
    // The first round leaves the target with limbs, and scratch with what operands far apart need.
    IEEEFloat r;
    QNumber n;
    for (std::size_t i = 0; i < 2 * values.size(); ++i) {
      const IEEEFloat& x = values[i % values.size()];
      const IEEEFloat& y = values[(i + 1) % values.size()];
      const unsigned long before = heap.calls;
      for (std::size_t k = 0; k < first_new; ++k) {
        r = x;
        calls[k](r, y, f, n);
      }
      if (wide) r.set_format({f.exp_width + 2, f.mant_width - 2});
      if (hardware) r.set_format(f == Format{8, 23} ? Format{11, 52} : Format{8, 23});
      ASSERT_TRUE(i < values.size() || heap.calls == before) << name(x) << " and " << name(y);
    }
  }
}

TEST(Allocation, BigNumbersAreMadeInOneBlock) {
  for (const bool inverse : {false, true}) {
    const mp_limb_t limbs[] = {5, 0, 1};
    const unsigned long before = heap.calls;
    const QNumber n = QNumber::scaled(limbs, 3, true, inverse ? -200 : 200);
    QNumber copy = n;
    EXPECT_EQ(heap.calls, before + 2);
    const QNumber moved = std::move(copy);
    copy = 7, copy = n;
    EXPECT_TRUE(moved == n && copy == n && (copy += 1) - n == 1 && moved == n);
    EXPECT_EQ(n * power(200), QNumber(-(pow2(128) + 5) * pow2(inverse ? 0 : 400), 1));
  }
}

// Whether a call has on the heap, beyond what there was, what the library promises for numbers of
// so many bits.
static bool stays_within(unsigned long times, unsigned long bits, auto call) {
  const unsigned long before = heap.bytes;
  heap.peak = before;
  message([&] { return call(), 0; });  // what is refused counts too
  return heap.peak - before <= 16384 + times * bits / 8;
}

// In ascending order, so that scratch grows where it is counted.
TEST(Allocation, StaysWithinItsBounds) {
  constexpr unsigned long huge = 1UL << 63;
  for (const Format f :
       {Format{2, 1}, {5, 10},    {11, 52},       {15, 112},    {62, 300},      {63, 4},
        {40, 2000},   {20000, 5}, {5, 20000},     {64, 20000},  {20000, 20000}, {30, 40000},
        {90000, 4},   {4, 90000}, {50000, 49000}, {62, 99000},  {199990, 3},    {3, 199990},
        {huge, 4},    {4, huge},  {huge, huge},   {~0UL, ~0UL}, {~0UL, 2},      {2, ~0UL}}) {
    const bool exists = f.exp_width < zelk::max_bits && f.mant_width < zelk::max_bits;
    const unsigned long bits = exists ? f.exp_width + f.mant_width : 0;
    for (const unsigned long digits : {9UL, 3000UL, 40000UL}) {
      const std::string text(digits, '7');
      const QNumber q(mpz_class(text), 3);
      ASSERT_TRUE(stays_within(10, bits + 4 * digits,
                               [&] { IEEEFloat::from_scaled(q, -77, f, modes[0]); }));
      ASSERT_TRUE(stays_within(10, bits + 4 * digits + 256,
                               [&] { IEEEFloat::from_text(text + "e-77", f, modes[0]); }));
    }
    for (int kind = 0; kind < 16; ++kind) {
      const IEEEFloat x = value(f, kind % 4), y = value(f, kind / 4);
      for (const Format g : {Format{5, 10}, {15, 112}, f}) {
        for (std::size_t i = 0; i < first_exact; ++i) {
          IEEEFloat r = x;
          QNumber n = QNumber(-2) / 7;
          ASSERT_TRUE(stays_within(10, bits, [&] { calls[i](r, y, g, n); }))
              << bits << ' ' << kind << " call " << i;
        }
      }
      for (const unsigned long w : {1UL, 64UL, 9999UL, 150000UL, huge, ~0UL}) {
        const unsigned long room = bits + std::min(w, zelk::max_bits);
        ASSERT_TRUE(stays_within(4, room, [&] { x.to_integer(w); })) << bits << " to " << w;
      }
      const unsigned long k = f.exp_width > 17 ? zelk::max_bits : 1UL << f.exp_width;
      ASSERT_TRUE(stays_within(4, bits + k, [&] { x.to_integer(0), x.to_number(); })) << bits;
    }
  }
}

static bool same(const Numbers& x, const Numbers& y) {
  const auto equal = [](const QNumber& a, const QNumber& b) { return same(a, b); };
  return std::ranges::equal(x.numbers, y.numbers, equal);
}

static int failures = 0;

// Makes each allocation of the call fail in its turn: the failure must arrive, and x stay.
static void fail_everywhere(const auto& start, std::size_t which, auto call) {
  for (long n = 0;; ++n) {
    auto x = start;
    bool failed = false;
    heap.until_failure = n;
    try {
      call(x);
    } catch (const std::bad_alloc&) {
      failed = true;
    } catch (const zelk::Exception&) {  // NOLINT(bugprone-empty-catch): a result like any other
    }
    const bool was_due = heap.until_failure.exchange(-1) < 0;
    heap.gmp_fails = false;
    ASSERT_EQ(failed, was_due);
    if (!failed) return;
    ++failures;
    ASSERT_TRUE(same(x, start)) << "call " << which << ", allocation " << n;
  }
}

// Calls that need memory of GMP's, without values beside them that do.
#define ON_NUMBERS(...) \
  [](QNumber& x, [[maybe_unused]] const QNumber& y, [[maybe_unused]] QNumber& z) { __VA_ARGS__; }
static constexpr void (*growing[])(QNumber&, const QNumber&, QNumber&) = {
    ON_NUMBERS(x += y), ON_NUMBERS(x -= y), ON_NUMBERS(x *= y), ON_NUMBERS(x = y),
    ON_NUMBERS(x = y.inv()), ON_NUMBERS(y.divmod(3, x, z)),
    ON_NUMBERS((power(99) + 1).divmod(x.get_num(), x, z)), ON_NUMBERS(BVNumber::pow2(800, &x)),
    ON_NUMBERS(BVNumber::bit_op(y.get_num(), 7, BVNumber::bit_and_l, mpz_xor, &x)),
    ON_NUMBERS(BVNumber::from_words(std::vector<std::uint64_t>(30, y.sign() > 0 ? 1 : ~0UL), &x)),
    // Of integers only.
    ON_NUMBERS(if (y.is_integer()) BVNumber::bit_left_shift(y, 333, &x)),
    ON_NUMBERS(if (y.is_integer()) BVNumber::bit_right_shift(y, 3, &x)),
    ON_NUMBERS(if (x.is_integer()) BVNumber::trim(x, 777)),
    ON_NUMBERS(if (x.is_integer()) BVNumber::set_bit(x, 555, x.sign() > 0))};

static void fail_everything() {
  for (const Format f : formats) {
    for (int kind = 0; kind < 16; ++kind) {
      IEEEFloat x = value(f, kind % 4), y = value(f, 3);
      if (kind % 8 > 3) x.self_specialize_repr(IEEEFloat::REPR_GENERIC);
      y.self_specialize_repr(x.get_repr());
      x.set_sign(kind > 7);
      for (const Format g : formats) {
        for (const auto& table : {std::span<const Call>(calls), {environment_calls}}) {
          for (const Call& call : table) {
            fail_everywhere(x, static_cast<std::size_t>(&call - table.data()), [&](IEEEFloat& v) {
              QNumber n = QNumber(-2) / 7;
              call(v, y, g, n);
            });
          }
        }
      }
    }
  }
  const QNumber big = power(70);
  QNumber small_in_big = big + 5;
  small_in_big -= big;
  const QNumber numbers[] = {7, QNumber(-3) / 8, 1L << 62, -big - 1, big.inv() + 1, small_in_big};
  for (const QNumber& a : numbers) {
    for (const QNumber& b : numbers) {
      const Numbers some{{a, b, b, a}, {a.to_mpq(), b.to_mpq(), b.to_mpq(), a.to_mpq()}};
      for (unsigned long which = 0; which < Numbers::calls; ++which) {
        fail_everywhere(some, which, [&](Numbers& all) { all.call(which, 8, 99); });
      }
      for (std::size_t i = 0; i < std::size(growing); ++i) {
        fail_everywhere(some, i, [&](Numbers& all) {
          heap.gmp_fails = true;
          growing[i](all.numbers[0], all.numbers[1], all.numbers[2]);
        });
      }
    }
  }
}

TEST(Allocation, EveryFailureArrivesAndChangesNothing) {
  // Scratch is at first growing; what leaks would never stop to.
  long blocks = -1;
  for (int pass = 0; pass < 8 && heap.blocks != blocks; ++pass) {
    blocks = heap.blocks;
    fail_everything();
  }
  EXPECT_EQ(heap.blocks, blocks);
  EXPECT_GT(failures, 10000);
  const IEEEFloat::error error(std::string(100, 'x'));
  heap.until_failure = 0;
  EXPECT_STREQ(error.what(), "");  // which has to build the text and must not throw
  // A text that loses its end says so.
  zelk::Exception first("x"), copy(first), assigned("y");
  assigned = first;
  for (zelk::Exception* e : {&first, &copy, &assigned}) {
    const std::string text(5000, 'x');
    heap.until_failure = 0;
    EXPECT_THROW(e->msg_stream << text, std::bad_alloc);
  }
}
