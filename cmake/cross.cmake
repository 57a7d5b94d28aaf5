# Builds for another machine, ZELK_MACHINE, with its libraries in build/machines: see `./dev cross`.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZELK_MACHINE)
set(root ${CMAKE_CURRENT_LIST_DIR}/../build/machines/${ZELK_MACHINE})
set(triplet ${ZELK_MACHINE}-linux-gnu)

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${ZELK_MACHINE})
set(CMAKE_C_COMPILER ${triplet}-gcc)  # of GoogleTest
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_FIND_ROOT_PATH ${root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${root}/usr/lib/${triplet}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})
# The compiler has a C library of its own, which may be older than what the others were linked to.
set(CMAKE_CXX_FLAGS_INIT "-isystem ${root}/usr/include/${triplet} -isystem ${root}/usr/include")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-L${root}/usr/lib/${triplet} -Wl,--allow-shlib-undefined")
set(CMAKE_CXX_STANDARD_LIBRARIES_INIT "-l:libatomic.a")  # riscv64 has no instruction for some
