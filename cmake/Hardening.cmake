# SPDX-License-Identifier: Apache-2.0
# Optimised builds check what can be checked for little: stack canaries, sizes known to the compiler, tables that are
# read-only once the program is linked, programs at a random address. Sanitizers bring their own, stronger checks, and
# replace the functions that the second of these would check.
if(STEREO_CAMERA_SANITIZE)
  return()
endif()
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(stereo_camera_optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
add_compile_options("$<${stereo_camera_optimised}:-fstack-protector-strong>")
# Whoever builds may have chosen a level; a compiler that brings one complains of another, unless it is taken back first.
if(NOT "${CMAKE_CXX_FLAGS} $ENV{CPPFLAGS}" MATCHES "_FORTIFY_SOURCE")
  add_compile_options("$<${stereo_camera_optimised}:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>")
endif()
check_cxx_compiler_flag(-fstack-clash-protection stereo_camera_has_stack_clash)
if(stereo_camera_has_stack_clash)
  add_compile_options("$<${stereo_camera_optimised}:-fstack-clash-protection>")
endif()
# Clang takes the other processor's flag as well, to complain of it later.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i[3-6]86)$")
  set(stereo_camera_branch_flag -fcf-protection)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(stereo_camera_branch_flag -mbranch-protection=standard)
endif()
if(stereo_camera_branch_flag)
  check_cxx_compiler_flag(${stereo_camera_branch_flag} stereo_camera_has_branch_protection)
  if(stereo_camera_has_branch_protection)
    add_compile_options("$<${stereo_camera_optimised}:${stereo_camera_branch_flag}>")
  endif()
endif()
add_link_options("$<${stereo_camera_optimised}:LINKER:-z,relro,-z,now,-z,noexecstack>")
