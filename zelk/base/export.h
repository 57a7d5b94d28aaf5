// What a shared library of zelk shows. It is compiled with hidden visibility; public classes,
// functions and the data that inline functions use are marked, exceptions so that they are caught
// on the other side. Of a public class, the private members that no inline function uses are hidden
// again.
#ifndef ZELK_BASE_EXPORT_H_
#define ZELK_BASE_EXPORT_H_

#define ZELK_EXPORT __attribute__((visibility("default")))
#define ZELK_HIDDEN __attribute__((visibility("hidden")))

#endif  // ZELK_BASE_EXPORT_H_
