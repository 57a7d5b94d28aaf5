// What zelk takes of a compiler and of a processor beyond C++: here it is decided whether, in
// ZELK_EXTENSIONS and ZELK_X86_64, and nowhere else.
//
// Each use is in a function with a name of its own, with the plain spelling beside it; a build with
// ZELK_PORTABLE has the plain spellings alone, and the same results. Integers of 128 bits, atomic
// access to the table of divisors and attributes that give advice on inlining stay: every compiler
// that zelk is built with has them.
#ifndef ZELK_BASE_MACHINE_H_
#define ZELK_BASE_MACHINE_H_

#ifndef ZELK_PORTABLE
/// Built-in functions, vectors and inline assembly, as g++ and clang have them.
#define ZELK_EXTENSIONS
#ifdef __x86_64__
/// Instructions of x86-64.
#define ZELK_X86_64
#endif
#endif

#include <cstdint>
#include <type_traits>

namespace zelk::detail {

/// A value of which the compiler knows nothing. Where it knows one of two values that are chosen
/// between, it makes a branch; words that it sees copied one after the other it copies at once.
template <class T>
constexpr T opaque(T n) {
#ifdef ZELK_EXTENSIONS
  if (!std::is_constant_evaluated()) asm("" : "+r"(n));
#endif
  return n;
}

/// The bytes of a word in the opposite order.
constexpr std::uint64_t reversed_bytes(std::uint64_t a) {
  a = (a & 0x00FF00FF00FF00FF) << 8 | (a >> 8 & 0x00FF00FF00FF00FF);
  a = (a & 0x0000FFFF0000FFFF) << 16 | (a >> 16 & 0x0000FFFF0000FFFF);
  return a << 32 | a >> 32;
}
static_assert(reversed_bytes(0x0102030405060708) == 0x0807060504030201);

}  // namespace zelk::detail

#endif  // ZELK_BASE_MACHINE_H_
