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
# A compiler told so by its distribution has a level of its own, and complains of another.
add_compile_options("$<${stereo_camera_optimised}:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>")
check_cxx_compiler_flag(-fstack-clash-protection stereo_camera_has_stack_clash)
if(stereo_camera_has_stack_clash)
  add_compile_options("$<${stereo_camera_optimised}:-fstack-clash-protection>")
endif()
check_cxx_compiler_flag(-fcf-protection stereo_camera_has_cf_protection)
if(stereo_camera_has_cf_protection)
  add_compile_options("$<${stereo_camera_optimised}:-fcf-protection>")
endif()
add_link_options("$<${stereo_camera_optimised}:LINKER:-z,relro,-z,now,-z,noexecstack>")
