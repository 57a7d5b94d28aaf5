// What a shared library of zelk shows. It is compiled with hidden visibility; public classes,
// functions and the data that inline functions use are marked, exceptions so that they are caught
// on the other side.
#ifndef ZELK_BASE_EXPORT_H_
#define ZELK_BASE_EXPORT_H_

#define ZELK_EXPORT __attribute__((visibility("default")))

#endif  // ZELK_BASE_EXPORT_H_
