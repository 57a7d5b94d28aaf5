# GDB's printer of values and numbers: installed where GDB loads it along with the shared library, if
# that is in a place that it trusts, and as a file to be sourced; tested where there is GDB.
set(gdb_printer tools/gdb/zelk-gdb.py)

if(ZELK_INSTALL)
  install(FILES ${gdb_printer} DESTINATION ${CMAKE_INSTALL_DATADIR}/zelk COMPONENT development)
  get_target_property(library_type zelk TYPE)
  if(library_type STREQUAL "SHARED_LIBRARY")
    # GDB looks for it by the full path of the library, whose prefix the installation may choose.
    install(CODE "cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX OUTPUT_VARIABLE zelk_prefix)"
            COMPONENT runtime)
    set(library_dir "\${zelk_prefix}")
    cmake_path(APPEND library_dir ${CMAKE_INSTALL_LIBDIR})
    install(FILES ${gdb_printer}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${library_dir}
            RENAME libzelk.so.${PROJECT_VERSION}-gdb.py
            COMPONENT runtime)
  endif()
endif()

if(PROJECT_IS_TOP_LEVEL AND BUILD_TESTING AND NOT CMAKE_CROSSCOMPILING)
  find_program(GDB gdb)
  if(GDB)
    add_executable(gdb_values tools/gdb/values.cpp)
    target_link_libraries(gdb_values PRIVATE zelk::zelk)
    zelk_compile_options(gdb_values)
    target_compile_options(gdb_values PRIVATE -g -O0)
    enable_testing()
    add_test(NAME gdb_printer
             COMMAND ${GDB} -batch -nx -x ${PROJECT_SOURCE_DIR}/tools/gdb/check.py $<TARGET_FILE:gdb_values>)
  endif()
endif()
