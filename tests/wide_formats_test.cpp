// Wide and hardware formats, generic and packed, against MPFR.
#include <vector>

#include "tests/mpfr_oracle.h"

using namespace zelk_test;  // NOLINT(google-build-using-namespace)

TEST(WideFormats, ValuesPairsConversionsAndNumbersMatchMpfr) {
  std::vector<Format> formats(std::begin(wide_formats), std::end(wide_formats));
  // Less often: at the borders of one word, two and three in several splits, and of later limbs.
  for (const auto width :
       {62UL, 63UL, 64UL, 65UL, 66UL, 125UL, 127UL, 128UL, 129UL, 130UL, 191UL, 192UL, 193UL})
    for (const auto e : {2UL, 3UL, 4UL, 15UL, 30UL, 62UL})
      if (e + 1 < width) formats.push_back({e, width - 1 - e});
  for (unsigned long m = 314; m < 324; ++m)
    formats.insert(formats.end(), {{15, m}, {4 * m - 1250, m + 64}, {20, m + 704}});
  const std::vector<Target> oracles(formats.begin(), formats.end());
  Random random;
  for (const Target& t : oracles) {
    const bool border = &t >= &oracles[std::size(wide_formats)];
    for (unsigned long i = 0; i < rounds() / (border ? 10 : 1); ++i) {
      check_all(t, oracles[i % oracles.size()], random);
      ASSERT_FALSE(HasFailure());
    }
  }
}

#ifdef __x86_64__
// GMP allocates for long products, of which these need all digits; what a user's function for that
// throws passes through it where C has unwind tables.
TEST(WideFormats, ProductsThatFailChangeNothing) {
  const IEEEFloat one = IEEEFloat::from_number(1, {20, 130000}, modes[0]);
  IEEEFloat x = one + IEEEFloat::from_scaled(1, -130000, {20, 130000}, modes[0]), before = x;
  EXPECT_EQ(x * one, x);
  mp_set_memory_functions([](std::size_t) -> void* { throw std::bad_alloc(); }, nullptr, nullptr);
  EXPECT_THROW(x *= one, std::bad_alloc);
  mp_set_memory_functions(nullptr, nullptr, nullptr);
  EXPECT_EQ(x, before);
}
#endif

// A divisor whose reciprocal is first estimated as one that is too large by two.
TEST(WideFormats, DivisorsAtTheBordersOfTheirReciprocal) {
  const mpz_class x("3ffff625b14b747fa4cc13d06eba0917246c775f5c732865701ae9349ea8729c", 16);
  const mpz_class y("3ffff266729f77ed495156f4b950258778009ade38204e63359a46e672a8d0a2", 16);
  const Target t({19, 236});
  check_pair(t, operations, generic(t.f, modes[1], x), generic(t.f, modes[1], y));
}
