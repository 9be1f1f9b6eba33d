# Debian's cross compiler for 32-bit ARM with hardware floating point. Libraries come only from the sysroot that
# scripts/sysroot makes; programs that run during the build, such as protoc, come from the building machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# GCC notes where passing std::chrono and similar types changed in GCC 7. No library that old is linked.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

get_filename_component(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armhf ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})
