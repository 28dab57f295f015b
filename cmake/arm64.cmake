# SPDX-License-Identifier: Apache-2.0
# Toolchain: Debian's cross compiler for 64-bit Arm, a root with a board's libraries (tests/campaigns/arm/sysroot makes
# one), and an emulator to run the result. STEREO_CAMERA_ARM_ROOT is the root.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES STEREO_CAMERA_ARM_ROOT)
if(NOT IS_DIRECTORY "${STEREO_CAMERA_ARM_ROOT}/usr/lib/aarch64-linux-gnu")
  message(FATAL_ERROR "STEREO_CAMERA_ARM_ROOT must be a root of Debian for arm64; it is '${STEREO_CAMERA_ARM_ROOT}'")
endif()

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_SYSROOT ${STEREO_CAMERA_ARM_ROOT})
set(CMAKE_FIND_ROOT_PATH ${STEREO_CAMERA_ARM_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config reads its environment, only at configuration.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${STEREO_CAMERA_ARM_ROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${STEREO_CAMERA_ARM_ROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${STEREO_CAMERA_ARM_ROOT}/usr/share/pkgconfig)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-L;${STEREO_CAMERA_ARM_ROOT})
