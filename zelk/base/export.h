// What zelk needs of a platform, and what a shared library of it shows. It is compiled with hidden
// visibility; public classes, functions and the data that inline functions use are marked,
// exceptions so that they are caught on the other side. Of a public class, the private members that
// no inline function uses are hidden again.
#ifndef ZELK_BASE_EXPORT_H_
#define ZELK_BASE_EXPORT_H_

#if !defined(__SIZEOF_INT128__) || __SIZEOF_LONG__ != 8
#error "zelk needs __int128 and a 64-bit long, which 32-bit platforms and Windows do not have"
#endif

#include <cstdint>
#include <type_traits>

static_assert(std::is_same_v<std::uint64_t, unsigned long>,
              "zelk needs a std::uint64_t that is unsigned long, as on 64-bit Linux");

#define ZELK_EXPORT __attribute__((visibility("default")))
#define ZELK_HIDDEN __attribute__((visibility("hidden")))

#endif  // ZELK_BASE_EXPORT_H_
