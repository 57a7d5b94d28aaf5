// The version of the library, which its packages and the shared library's name take from here.
#ifndef ZELK_BASE_VERSION_H_
#define ZELK_BASE_VERSION_H_

#define ZELK_VERSION_MAJOR 0
#define ZELK_VERSION_MINOR 1
#define ZELK_VERSION_PATCH 0

#endif  // ZELK_BASE_VERSION_H_
