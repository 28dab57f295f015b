# SPDX-License-Identifier: Apache-2.0
# Warnings for this project's own code; OpenCV's headers are system headers and stay silent.
function(stereo_camera_warnings target)
  if(STEREO_CAMERA_BUILD_FUZZERS)
    return()  # another compiler; the ordinary builds check warnings
  endif()
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
endfunction()

# For code that only uses the library (command lines, bindings, tests): optimizing it, mostly other libraries'
# templates, doubles the time to compile and gains nothing.
function(stereo_camera_quick_to_compile target)
  target_compile_options(${target} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-O1>)
endfunction()
