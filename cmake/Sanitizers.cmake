# SPDX-License-Identifier: Apache-2.0
# Sanitizers go on everything that is built here, so that the pieces agree on the instrumentation.
if(STEREO_CAMERA_SANITIZE)
  string(REPLACE ";" "," stereo_camera_sanitizers "${STEREO_CAMERA_SANITIZE}")
  add_compile_options(-fsanitize=${stereo_camera_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all -g)
  # The instrumented standard library confuses the compiler's own look at initialisation.
  add_compile_options(-Wno-maybe-uninitialized)
  if(STEREO_CAMERA_SANITIZE MATCHES "thread")
    # It warns that it does not look at fences; the one here orders stores for another process, out of its sight anyway.
    add_compile_options(-Wno-tsan)
  endif()
  add_link_options(-fsanitize=${stereo_camera_sanitizers})
endif()
