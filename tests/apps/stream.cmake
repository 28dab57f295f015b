# SPDX-License-Identifier: Apache-2.0
# The program's subcommands that stream, receive and share, as processes beside each other. In a network of its own, with
# the software encoder; the segments' keys are taken from the process id, so that tests may run in parallel.
if(TARGET StereoCameraApp)
  add_executable(stream_program_tests apps/StreamProgramTest.cpp support/StreamReceiver.cpp)
  target_link_libraries(stream_program_tests PRIVATE StereoCameraTestSupport StereoCameraApp GTest::gtest_main
                                                     PkgConfig::gstreamer)
  target_compile_definitions(stream_program_tests PRIVATE
    STEREO_CAMERA_PROGRAM="$<TARGET_FILE:stereo-camera>"
    SEGMENT_READER_PROGRAM="$<TARGET_FILE:stereo-camera-segment-reader>")
  add_dependencies(stream_program_tests stereo-camera stereo-camera-segment-reader gststereocamerastandin)
  stereo_camera_glue_code(stream_program_tests)
  add_test(NAME stream_program
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/in-own-network $<TARGET_FILE:stream_program_tests>)
  set_tests_properties(stream_program PROPERTIES TIMEOUT 900 COST 50 ENVIRONMENT
    "${stereo_camera_test_environment};GST_PLUGIN_PATH=${PROJECT_BINARY_DIR}/gstreamer/plugin;GST_REGISTRY_FORK=no")
endif()
