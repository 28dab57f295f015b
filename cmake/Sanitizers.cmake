# SPDX-License-Identifier: Apache-2.0
# Sanitizers apply to everything built here, so that all parts agree on the instrumentation.
if(STEREO_CAMERA_SANITIZE)
  string(REPLACE ";" "," stereo_camera_sanitizers "${STEREO_CAMERA_SANITIZE}")
  add_compile_options(-fsanitize=${stereo_camera_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  # Line numbers for the reports; full debug information makes builds take half as long again.
  add_compile_options($<IF:$<CONFIG:Debug>,-g,-g1>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The instrumented standard library confuses the compiler's check of initialization.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  if(STEREO_CAMERA_SANITIZE MATCHES "thread")
    # It warns that it ignores fences; the one here orders stores for another process, which it cannot see anyway.
    add_compile_options(-Wno-tsan)
  endif()
  add_link_options(-fsanitize=${stereo_camera_sanitizers})
endif()

# Tests and bindings go without UndefinedBehaviorSanitizer: instrumenting their assertions and templates takes as long
# as compiling everything else. The code that they test or bind has it.
function(stereo_camera_glue_code target)
  stereo_camera_warnings(${target})
  stereo_camera_quick_to_compile(${target})
  stereo_camera_compile_together(${target})
  if(STEREO_CAMERA_SANITIZE MATCHES "undefined")
    target_compile_options(${target} PRIVATE -fno-sanitize=undefined)
  endif()
endfunction()

# The fuzzer follows which branches are taken, except in OpenCV, which is not built here.
if(STEREO_CAMERA_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "STEREO_CAMERA_BUILD_FUZZERS needs Clang (-DCMAKE_CXX_COMPILER=clang++)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link -g)
endif()
