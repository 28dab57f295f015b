# SPDX-License-Identifier: Apache-2.0
# Sanitizers go on everything that is built here, so that the pieces agree on the instrumentation.
if(STEREO_CAMERA_SANITIZE)
  string(REPLACE ";" "," stereo_camera_sanitizers "${STEREO_CAMERA_SANITIZE}")
  add_compile_options(-fsanitize=${stereo_camera_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all -g)
  # The instrumented standard library confuses the compiler's own look at initialisation.
  add_compile_options(-Wno-maybe-uninitialized)
  add_link_options(-fsanitize=${stereo_camera_sanitizers})
endif()
