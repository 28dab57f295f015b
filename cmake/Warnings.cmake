# SPDX-License-Identifier: Apache-2.0
# Warnings for this project's own code; OpenCV's headers come in as system headers and stay silent.
function(stereo_camera_warnings target)
  if(STEREO_CAMERA_BUILD_FUZZERS)
    return()  # another compiler with another mind; the ordinary builds see to warnings
  endif()
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wnon-virtual-dtor)
endfunction()
