# Finds GMP and its C++ classes: the imported targets GMP::gmp and GMP::gmpxx. Static libraries if
# GMP_USE_STATIC_LIBRARIES is set.

if(GMP_USE_STATIC_LIBRARIES)
  set(GMP_PREFIX lib)
  set(GMP_SUFFIX .a)
endif()
find_path(GMP_INCLUDE_DIR gmp.h)
find_path(GMPXX_INCLUDE_DIR gmpxx.h)
find_library(GMP_LIBRARY ${GMP_PREFIX}gmp${GMP_SUFFIX})
find_library(GMPXX_LIBRARY ${GMP_PREFIX}gmpxx${GMP_SUFFIX})
mark_as_advanced(GMP_INCLUDE_DIR GMPXX_INCLUDE_DIR GMP_LIBRARY GMPXX_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GMP REQUIRED_VARS GMP_LIBRARY GMPXX_LIBRARY GMP_INCLUDE_DIR
                                                    GMPXX_INCLUDE_DIR)

# Global, so that a project that adds ours as a folder sees what the library links to.
if(GMP_FOUND AND NOT TARGET GMP::gmp)
  add_library(GMP::gmp UNKNOWN IMPORTED GLOBAL)
  set_target_properties(GMP::gmp PROPERTIES IMPORTED_LOCATION "${GMP_LIBRARY}"
                                            INTERFACE_INCLUDE_DIRECTORIES "${GMP_INCLUDE_DIR}")
endif()
if(GMP_FOUND AND NOT TARGET GMP::gmpxx)
  add_library(GMP::gmpxx UNKNOWN IMPORTED GLOBAL)
  set_target_properties(GMP::gmpxx PROPERTIES IMPORTED_LOCATION "${GMPXX_LIBRARY}"
                                              INTERFACE_INCLUDE_DIRECTORIES "${GMPXX_INCLUDE_DIR}"
                                              INTERFACE_LINK_LIBRARIES GMP::gmp)
endif()
