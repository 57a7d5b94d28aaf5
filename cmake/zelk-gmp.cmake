# The imported target zelk::gmpxx: GMP and its C++ classes, static libraries if ZELK_STATIC_GMP is
# set. Whoever uses zelk may have targets and variables for GMP already, so ours are zelk's. Without
# GMP there is no such target.

if(NOT TARGET zelk::gmpxx)
  find_path(ZELK_GMP_INCLUDE_DIR gmp.h)
  find_path(ZELK_GMPXX_INCLUDE_DIR gmpxx.h)
  if(ZELK_STATIC_GMP)
    find_library(ZELK_GMP_LIBRARY libgmp.a)
    find_library(ZELK_GMPXX_LIBRARY libgmpxx.a)
  else()
    find_library(ZELK_GMP_LIBRARY gmp)
    find_library(ZELK_GMPXX_LIBRARY gmpxx)
  endif()
  mark_as_advanced(ZELK_GMP_INCLUDE_DIR ZELK_GMPXX_INCLUDE_DIR ZELK_GMP_LIBRARY ZELK_GMPXX_LIBRARY)

  if(ZELK_GMP_INCLUDE_DIR AND ZELK_GMPXX_INCLUDE_DIR AND ZELK_GMP_LIBRARY AND ZELK_GMPXX_LIBRARY)
    # Global, so that a project that adds ours as a folder sees what the library links to.
    add_library(zelk::gmpxx UNKNOWN IMPORTED GLOBAL)
    set_target_properties(zelk::gmpxx PROPERTIES
      IMPORTED_LOCATION "${ZELK_GMPXX_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${ZELK_GMP_INCLUDE_DIR};${ZELK_GMPXX_INCLUDE_DIR}"
      INTERFACE_LINK_LIBRARIES "${ZELK_GMP_LIBRARY}")
  endif()
endif()
