# 32-bit Arm with hardware floating point, as Debian builds it, from another Debian
# machine. Needs scripts/install-dependencies armhf and scripts/make-armhf-sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

get_filename_component(armhfSysroot ${CMAKE_CURRENT_LIST_DIR}/../build/debian-armhf/sysroot ABSOLUTE)
if(NOT EXISTS ${armhfSysroot})
  message(FATAL_ERROR "${armhfSysroot} is missing: run scripts/make-armhf-sysroot")
endif()

# Libraries and headers of the target, programs of this machine. Not CMAKE_SYSROOT: the
# C library to link with and its headers are the cross compiler's.
list(APPEND CMAKE_FIND_ROOT_PATH ${armhfSysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${armhfSysroot})
set(ENV{PKG_CONFIG_LIBDIR}
  ${armhfSysroot}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${armhfSysroot}/usr/share/pkgconfig)

# zconf.h lies there, and nothing else. The notes that -Wno-psabi ends are about compilers
# from before 2017.
set(CMAKE_CXX_FLAGS_INIT "-isystem ${armhfSysroot}/usr/include/${CMAKE_LIBRARY_ARCHITECTURE} -Wno-psabi")
# What the libraries themselves need.
set(rpathLink "-Wl,-rpath-link,${armhfSysroot}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
string(APPEND rpathLink ":${armhfSysroot}/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
set(CMAKE_EXE_LINKER_FLAGS_INIT ${rpathLink})
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${rpathLink})

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static;-L;${armhfSysroot})
