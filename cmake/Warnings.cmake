# SPDX-License-Identifier: Apache-2.0
# Warnings for this project's own code; OpenCV's headers come in as system headers and stay silent.
function(stereo_camera_warnings target)
  if(STEREO_CAMERA_BUILD_FUZZERS)
    return()  # another compiler with another mind; the ordinary builds see to warnings
  endif()
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
endfunction()

# For what only puts the library's work together (command lines, bindings, tests): the optimiser's time on such sources,
# most of it spent on other libraries' templates, is never won back. Half the time to compile.
function(stereo_camera_quick_to_compile target)
  target_compile_options(${target} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-O1>)
endfunction()
