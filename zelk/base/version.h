/// \file
/// The version of the library, which its packages and the shared library's name take from here.
#ifndef ZELK_BASE_VERSION_H_
#define ZELK_BASE_VERSION_H_

#define ZELK_VERSION_MAJOR 0  ///< 0 while a new minor version may break programs
#define ZELK_VERSION_MINOR 1  ///< with the major version, the shared library's name
#define ZELK_VERSION_PATCH 0  ///< of releases that break nothing

#endif  // ZELK_BASE_VERSION_H_
