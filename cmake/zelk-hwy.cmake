# The imported target zelk::hwy: Highway, which zelk::arrays rests on. Where there is none, there is
# no such target.

if(NOT TARGET zelk::hwy)
  find_path(ZELK_HWY_INCLUDE_DIR hwy/highway.h)
  find_library(ZELK_HWY_LIBRARY hwy)
  mark_as_advanced(ZELK_HWY_INCLUDE_DIR ZELK_HWY_LIBRARY)

  if(ZELK_HWY_INCLUDE_DIR AND ZELK_HWY_LIBRARY)
    add_library(zelk::hwy UNKNOWN IMPORTED GLOBAL)
    set_target_properties(zelk::hwy PROPERTIES
      IMPORTED_LOCATION "${ZELK_HWY_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${ZELK_HWY_INCLUDE_DIR}"
      INTERFACE_COMPILE_DEFINITIONS HWY_SHARED_DEFINE)
  endif()
endif()
