# Installation: headers, library, and a package file each for CMake and pkg-config, in the components
# runtime and development, which `cpack -G DEB` makes Debian packages of; those of zelk::arrays, which
# depend on Highway's, are arrays and arrays_development.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zelk)
target_include_directories(zelk INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS zelk EXPORT zelkTargets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development)
foreach(header IN LISTS zelk_headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} COMPONENT development)
endforeach()
install(EXPORT zelkTargets NAMESPACE zelk:: DESTINATION ${package_dir} COMPONENT development)
if(ZELK_ARRAYS)
  target_include_directories(zelk_arrays INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  install(TARGETS zelk_arrays EXPORT zelkArraysTargets
          LIBRARY COMPONENT arrays NAMELINK_COMPONENT arrays_development
          ARCHIVE COMPONENT arrays_development)
  foreach(header IN LISTS zelk_arrays_headers)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder}
            COMPONENT arrays_development)
  endforeach()
  install(EXPORT zelkArraysTargets NAMESPACE zelk:: DESTINATION ${package_dir}
          COMPONENT arrays_development)
  export(EXPORT zelkArraysTargets NAMESPACE zelk::)
endif()
configure_package_config_file(cmake/zelkConfig.cmake.in zelkConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(zelkConfigVersion.cmake COMPATIBILITY SameMinorVersion)
export(EXPORT zelkTargets NAMESPACE zelk::)  # the build folder serves find_package too
configure_file(cmake/zelk-gmp.cmake zelk-gmp.cmake COPYONLY)
configure_file(cmake/zelk-hwy.cmake zelk-hwy.cmake COPYONLY)
install(FILES ${PROJECT_BINARY_DIR}/zelkConfig.cmake ${PROJECT_BINARY_DIR}/zelkConfigVersion.cmake
              cmake/zelk-gmp.cmake cmake/zelk-hwy.cmake
        DESTINATION ${package_dir} COMPONENT development)

# The .pc file finds the other folders from its own, so the installed tree can move.
set(pc_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_to_prefix ${pc_dir} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH pc_to_include ${pc_dir} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
list(TRANSFORM zelk_definitions PREPEND -D OUTPUT_VARIABLE pc_definitions)
list(JOIN pc_definitions " " pc_definitions)
configure_file(cmake/zelk.pc.in zelk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zelk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
if(ZELK_ARRAYS)
  configure_file(cmake/zelk-arrays.pc.in zelk-arrays.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/zelk-arrays.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT arrays_development)
endif()

if(PROJECT_IS_TOP_LEVEL)
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGE_CONTACT "The zelk developers <zelk@example.org>")
  set(CPACK_COMPONENTS_ALL development)
  if(BUILD_SHARED_LIBS)
    list(APPEND CPACK_COMPONENTS_ALL runtime)
  endif()
  if(ZELK_ARRAYS)
    list(APPEND CPACK_COMPONENTS_ALL arrays_development)
    if(BUILD_SHARED_LIBS)
      list(APPEND CPACK_COMPONENTS_ALL arrays)
    endif()
  endif()
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
  set(CPACK_STRIP_FILES ON)

  set(soversion ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzelk${soversion})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
  set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION} (shared library)")

  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzelk-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libgmp-dev)
  set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} (headers and package files)")
  if(BUILD_SHARED_LIBS)
    set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
  endif()

  # Its dependencies are named, as one of them is the library that is packed beside it.
  set(CPACK_DEBIAN_ARRAYS_PACKAGE_NAME libzelk-arrays${soversion})
  set(CPACK_DEBIAN_ARRAYS_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_ARRAYS_PACKAGE_DEPENDS "libc6, libgcc-s1, libhwy1, libstdc++6")
  set(CPACK_COMPONENT_ARRAYS_DESCRIPTION "${PROJECT_DESCRIPTION} (whole arrays, shared library)")
  set(CPACK_COMPONENT_ARRAYS_DEPENDS runtime)
  set(CPACK_DEBIAN_ARRAYS_DEVELOPMENT_PACKAGE_NAME libzelk-arrays-dev)
  set(CPACK_DEBIAN_ARRAYS_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_ARRAYS_DEVELOPMENT_PACKAGE_DEPENDS libhwy-dev)
  set(CPACK_COMPONENT_ARRAYS_DEVELOPMENT_DESCRIPTION
      "${PROJECT_DESCRIPTION} (whole arrays, headers and package files)")
  set(CPACK_COMPONENT_ARRAYS_DEVELOPMENT_DEPENDS development)
  if(BUILD_SHARED_LIBS)
    list(APPEND CPACK_COMPONENT_ARRAYS_DEVELOPMENT_DEPENDS arrays)
  endif()

  # What Debian wants in every package, and no other installation has.
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    install(FILES cmake/copyright EXCLUDE_FROM_ALL COMPONENT ${component}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME})
  endforeach()
  include(CPack)
endif()
