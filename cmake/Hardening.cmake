# SPDX-License-Identifier: Apache-2.0
# Optimized builds have the cheap checks: stack canaries, sizes known to the compiler, tables that are read-only once
# the program is linked, random load addresses. Sanitizers have their own, stronger checks, and replace the functions
# that the second of these would check.
if(STEREO_CAMERA_SANITIZE)
  return()
endif()
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(stereo_camera_optimized "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
add_compile_options("$<${stereo_camera_optimized}:-fstack-protector-strong>")
# Unless the builder chose a level. Compilers with a default level warn about another unless it is undefined first.
if(NOT "${CMAKE_CXX_FLAGS} $ENV{CPPFLAGS}" MATCHES "_FORTIFY_SOURCE")
  add_compile_options("$<${stereo_camera_optimized}:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>")
endif()
check_cxx_compiler_flag(-fstack-clash-protection stereo_camera_has_stack_clash)
if(stereo_camera_has_stack_clash)
  add_compile_options("$<${stereo_camera_optimized}:-fstack-clash-protection>")
endif()
# Not by trying: Clang also accepts the other processor's flag, and warns about it later.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i[3-6]86)$")
  set(stereo_camera_branch_flag -fcf-protection)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(stereo_camera_branch_flag -mbranch-protection=standard)
endif()
if(stereo_camera_branch_flag)
  check_cxx_compiler_flag(${stereo_camera_branch_flag} stereo_camera_has_branch_protection)
  if(stereo_camera_has_branch_protection)
    add_compile_options("$<${stereo_camera_optimized}:${stereo_camera_branch_flag}>")
  endif()
endif()
add_link_options("$<${stereo_camera_optimized}:LINKER:-z,relro,-z,now,-z,noexecstack>")
