# The C++ of the documentation, compiled and run: what it prints is what the pages say.
if(PROJECT_IS_TOP_LEVEL AND BUILD_TESTING)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  enable_testing()
  set(blocks ${PROJECT_SOURCE_DIR}/docs/blocks.py)
  foreach(page README docs/getting-started docs/formats docs/rounding docs/environment
          docs/text docs/numbers docs/errors docs/arrays)
    if(page STREQUAL "docs/arrays" AND NOT ZELK_ARRAYS)
      continue()
    endif()
    cmake_path(GET page FILENAME name)
    set(path ${PROJECT_SOURCE_DIR}/${page}.md)
    add_custom_command(OUTPUT docs_${name}.cpp DEPENDS ${blocks} ${path}
                       COMMAND Python3::Interpreter ${blocks} generate ${path} docs_${name}.cpp)
    add_executable(docs_${name} ${PROJECT_BINARY_DIR}/docs_${name}.cpp)
    target_link_libraries(docs_${name} PRIVATE zelk::zelk PkgConfig::MPFR
                          "$<$<STREQUAL:${name},arrays>:zelk::arrays>")
    set_target_properties(docs_${name} PROPERTIES CXX_EXTENSIONS OFF EXPORT_COMPILE_COMMANDS OFF)
    # Not by the target of Python, which is no program of an emulator's.
    add_test(NAME docs_${name}
             COMMAND ${Python3_EXECUTABLE} ${blocks} check ${path} ${CMAKE_CROSSCOMPILING_EMULATOR}
                     $<TARGET_FILE:docs_${name}>)
  endforeach()
endif()
