# Cross-build for 64-bit ARM Linux with Debian's g++-aarch64-linux-gnu; the
# binaries run under qemu-user (CMAKE_CROSSCOMPILING_EMULATOR), so test
# discovery and ctest work as on the build machine.
#
# Dependencies come from Debian's arm64 packages installed through
# multiarch (/usr/lib/aarch64-linux-gnu), plus the development files that
# cannot be installed beside their native versions, unpacked into
# OXCFG_ARM64_OVERLAY by scripts/install-cross-deps.sh.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

if(NOT OXCFG_ARM64_OVERLAY)
  set(OXCFG_ARM64_OVERLAY "${CMAKE_CURRENT_LIST_DIR}/../build-arm64-deps")
endif()
get_filename_component(OXCFG_ARM64_OVERLAY "${OXCFG_ARM64_OVERLAY}" ABSOLUTE)
set(OXCFG_ARM64_OVERLAY "${OXCFG_ARM64_OVERLAY}" CACHE PATH "Unpacked arm64 development files")
set(_multiarch /usr/lib/aarch64-linux-gnu)

# The dynamic loader and libraries of the arm64 packages live on the build
# machine's own root (multiarch), which is qemu's default prefix.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L / -E LD_LIBRARY_PATH=${_multiarch})

# Search the overlay first, then the multiarch tree; programs from the build
# machine.
set(CMAKE_FIND_ROOT_PATH ${OXCFG_ARM64_OVERLAY} /)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(log4cxx_DIR ${OXCFG_ARM64_OVERLAY}/usr/lib/aarch64-linux-gnu/cmake/log4cxx)

set(ENV{PKG_CONFIG_LIBDIR}
    "${OXCFG_ARM64_OVERLAY}/usr/lib/aarch64-linux-gnu/pkgconfig:${_multiarch}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")
