# SPDX-License-Identifier: Apache-2.0
# Sanitizers go on everything that is built here, so that the pieces agree on the instrumentation.
if(STEREO_CAMERA_SANITIZE)
  string(REPLACE ";" "," stereo_camera_sanitizers "${STEREO_CAMERA_SANITIZE}")
  add_compile_options(-fsanitize=${stereo_camera_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  # Lines for the reports; all that a debugger would like makes the builds half as long again.
  add_compile_options($<IF:$<CONFIG:Debug>,-g,-g1>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The instrumented standard library confuses the compiler's own look at initialisation.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  if(STEREO_CAMERA_SANITIZE MATCHES "thread")
    # It warns that it does not look at fences; the one here orders stores for another process, out of its sight anyway.
    add_compile_options(-Wno-tsan)
  endif()
  add_link_options(-fsanitize=${stereo_camera_sanitizers})
endif()

# Tests and bindings: their assertions and templates take UndefinedBehaviorSanitizer as long to instrument as all else
# takes to compile. What they test or bind has it.
function(stereo_camera_glue_code target)
  stereo_camera_warnings(${target})
  stereo_camera_quick_to_compile(${target})
  if(STEREO_CAMERA_SANITIZE MATCHES "undefined")
    target_compile_options(${target} PRIVATE -fno-sanitize=undefined)
  endif()
endfunction()

# The fuzzer follows which branches are taken. OpenCV, which is not built here, it cannot look into.
if(STEREO_CAMERA_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "STEREO_CAMERA_BUILD_FUZZERS takes Clang (-DCMAKE_CXX_COMPILER=clang++)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link -g)
endif()
