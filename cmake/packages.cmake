# Installation: headers, library, and a package file each for CMake and pkg-config, in the components
# runtime and development, which `cpack -G DEB` makes Debian packages of.
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
configure_package_config_file(cmake/zelkConfig.cmake.in zelkConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(zelkConfigVersion.cmake COMPATIBILITY SameMinorVersion)
export(EXPORT zelkTargets NAMESPACE zelk::)  # the build folder serves find_package too
configure_file(cmake/zelk-gmp.cmake zelk-gmp.cmake COPYONLY)
install(FILES ${PROJECT_BINARY_DIR}/zelkConfig.cmake ${PROJECT_BINARY_DIR}/zelkConfigVersion.cmake
              cmake/zelk-gmp.cmake
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

if(PROJECT_IS_TOP_LEVEL)
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGE_CONTACT "The zelk developers <zelk@example.org>")
  set(CPACK_COMPONENTS_ALL development)
  if(BUILD_SHARED_LIBS)
    list(APPEND CPACK_COMPONENTS_ALL runtime)
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

  # What Debian wants in every package, and no other installation has.
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    install(FILES cmake/copyright EXCLUDE_FROM_ALL COMPONENT ${component}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME})
  endforeach()
  include(CPack)
endif()
