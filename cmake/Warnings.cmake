# SPDX-License-Identifier: Apache-2.0
# Warnings for this project's own code; OpenCV's headers are system headers and stay silent.
function(stereo_camera_warnings target)
  if(STEREO_CAMERA_BUILD_FUZZERS)
    return()  # another compiler; the ordinary builds check warnings
  endif()
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
endfunction()

# Parses once per target, instead of once per file, the headers that most files include, and those that are named. Sources
# still include what they use; scripts/lint checks them without these.
function(stereo_camera_precompile target)
  target_precompile_headers(${target} PRIVATE
    <algorithm> <array> <atomic> <chrono> <cmath> <cstdint> <functional> <iostream> <memory> <mutex> <string> <utility>
    <vector> <opencv2/core.hpp> ${ARGN})
endfunction()

# For code that only uses the library (command lines, bindings, tests): optimizing it, mostly other libraries'
# templates, doubles the time to compile and gains nothing.
function(stereo_camera_quick_to_compile target)
  target_compile_options(${target} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-O1>)
endfunction()

# Compiles several sources of a target as one unit, for targets whose time goes into other libraries' templates. Names in
# anonymous namespaces must then differ within the target. scripts/lint switches it off, to look at each file alone.
option(STEREO_CAMERA_COMPILE_TOGETHER "Compile commands, bindings and tests several files at a time" ON)
function(stereo_camera_compile_together target)
  if(STEREO_CAMERA_COMPILE_TOGETHER)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 6)
    # In a unit, GCC takes the included sources for headers and warns of their anonymous types.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  endif()
endfunction()
