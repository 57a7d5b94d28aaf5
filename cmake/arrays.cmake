# zelk::arrays, a library of its own beside zelk::zelk, where Highway is.
include(cmake/zelk-hwy.cmake)
if(TARGET zelk::hwy)
  set(zelk_has_hwy ON)
else()
  set(zelk_has_hwy OFF)
  message(STATUS "zelk::arrays is left out: it needs Highway (Debian: libhwy-dev)")
endif()
option(ZELK_ARRAYS "Build zelk::arrays, which needs Highway" ${zelk_has_hwy})

set(zelk_arrays_headers zelk/arrays.h zelk/arrays/calls.h)
set(zelk_arrays_sources
    zelk/arrays/checks.cpp
    zelk/arrays/element.cpp
    zelk/arrays/stochastic.cpp
    zelk/arrays/exact_sum.cpp
    zelk/arrays/single.cpp
    zelk/arrays/sums.cpp
    zelk/arrays/blocks.cpp
    zelk/arrays/steps.cpp
    zelk/arrays/elementwise.cpp
    zelk/arrays/matrices.cpp
    zelk/arrays/simd/plan.cpp
    zelk/arrays/simd/rounding.cpp
    zelk/arrays/simd/arithmetic.cpp
    zelk/arrays/simd/patterns.cpp
    zelk/arrays/simd/sums.cpp)

if(ZELK_ARRAYS)
  if(NOT TARGET zelk::hwy)
    message(FATAL_ERROR "zelk::arrays needs Highway (Debian: libhwy-dev)")
  endif()
  list(TRANSFORM zelk_arrays_sources PREPEND "${PROJECT_SOURCE_DIR}/")
  add_library(zelk_arrays ${zelk_arrays_sources})
  add_library(zelk::arrays ALIAS zelk_arrays)
  zelk_compile_options(zelk_arrays)
  # Sums that are split into a value and its error must not be fused, nor computed ahead. Where a
  # loop begins in its cache line decides on a tenth of a sum's time.
  target_compile_options(zelk_arrays PRIVATE -ffp-contract=off -frounding-math -falign-loops=64)
  # Vectors without a size cannot be members; their processors have NEON, or the plain code. Where
  # there are assertions or sanitizers, one width of vectors beside the plain code is enough.
  set(disabled HWY_SVE|HWY_SVE2|HWY_SVE_256|HWY_SVE2_128|HWY_RVV)
  if(CMAKE_BUILD_TYPE STREQUAL "Debug")
    string(APPEND disabled "|HWY_SSSE3|HWY_SSE4|HWY_AVX3|HWY_AVX3_DL")
  endif()
  target_compile_definitions(zelk_arrays PRIVATE "HWY_DISABLED_TARGETS=(${disabled})")
  if(ZELK_PORTABLE)
    target_compile_definitions(zelk_arrays PRIVATE HWY_COMPILE_ONLY_SCALAR)
  endif()
  set_target_properties(zelk_arrays PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON EXPORT_NAME arrays
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  target_link_libraries(zelk_arrays PUBLIC zelk PRIVATE zelk::hwy)
endif()
