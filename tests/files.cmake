# SPDX-License-Identifier: Apache-2.0
# The camera object, its log and its files.
stereo_camera_test(NAME camera_object_tests SOURCES
  StereoCameraCommon/CameraLifeTest.cpp
  StereoCameraCommon/CameraObjectTest.cpp)

stereo_camera_test(NAME log_tests SOURCES log/SystemLogTest.cpp)

stereo_camera_test(NAME file_tests SOURCES
  StereoCameraCommon/CalibrationTest.cpp
  StereoCameraCommon/CompressedFilesTest.cpp
  StereoCameraCommon/DocumentOracleTest.cpp
  StereoCameraCommon/HostileFilesTest.cpp
  StereoCameraCommon/HostileValuesTest.cpp
  StereoCameraCommon/RandomDocuments.cpp
  StereoCameraCommon/SettingsTest.cpp
  support/StorageOracle.cpp
  LIBRARIES ZLIB::ZLIB)

# Programs of their own: these replace allocation functions, or functions of OpenCV.
stereo_camera_test(NAME allocation_failure_tests SOURCES StereoCameraCommon/AllocationFailureTest.cpp)
stereo_camera_test(NAME device_opening_tests SOURCES StereoCameraCommon/DeviceOpeningTest.cpp)

# Replaces a function of the C library.
stereo_camera_test(NAME abandoned_read_tests SOURCES StereoCameraCommon/AbandonedReadTest.cpp)

# What users get: the installed library, found through CMake and through pkg-config.
find_program(STEREO_CAMERA_PKG_CONFIG pkg-config)
if(STEREO_CAMERA_PKG_CONFIG)
  add_test(NAME package.InstallAndUse COMMAND ${CMAKE_COMMAND}
    -DBUILD_DIR=${PROJECT_BINARY_DIR}
    -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/package
    -DCONFIG=$<CONFIG>
    -DGENERATOR=${CMAKE_GENERATOR}
    -DCXX=${CMAKE_CXX_COMPILER}
    -DCXX_FLAGS=${CMAKE_CXX_FLAGS}
    -DLINK_FLAGS=${CMAKE_EXE_LINKER_FLAGS}
    -DLIBDIR=${CMAKE_INSTALL_LIBDIR}
    -DPKG_CONFIG=${STEREO_CAMERA_PKG_CONFIG}
    "-DSANITIZE=${STEREO_CAMERA_SANITIZE}"
    -P ${CMAKE_CURRENT_SOURCE_DIR}/package/InstallAndUse.cmake)
  set_tests_properties(package.InstallAndUse PROPERTIES TIMEOUT 300 SKIP_REGULAR_EXPRESSION "skipped:")
endif()

# What programs were compiled and linked against, compared with what is recorded. Sanitizers have symbols of their own.
find_program(STEREO_CAMERA_NM nm)
if(STEREO_CAMERA_NM AND NOT STEREO_CAMERA_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_executable(abi_layout package/abi/layout.cpp)
  target_link_libraries(abi_layout PRIVATE StereoCamera::StereoCamera)
  list(TRANSFORM OpenCV_INCLUDE_DIRS PREPEND -I OUTPUT_VARIABLE abi_includes)
  set(abi_check ${CMAKE_CURRENT_SOURCE_DIR}/package/abi/check ${CMAKE_CXX_COMPILER} $<TARGET_FILE:abi_layout>
                $<TARGET_FILE:StereoCameraCommon>)
  add_test(NAME package.Abi COMMAND ${abi_check} ${abi_includes})
  set_tests_properties(package.Abi PROPERTIES SKIP_REGULAR_EXPRESSION "skipped:")
  add_custom_target(record_abi COMMAND ${abi_check} --record ${abi_includes} DEPENDS abi_layout VERBATIM)
endif()

# What an optimised build promises of its programs, looked for in what was linked.
find_program(STEREO_CAMERA_READELF readelf)
if(TARGET stereo-camera AND STEREO_CAMERA_READELF AND NOT STEREO_CAMERA_SANITIZE AND
   CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$")
  add_test(NAME package.Hardened COMMAND ${CMAKE_COMMAND}
    "-DFILES=$<TARGET_FILE:stereo-camera>;$<TARGET_FILE:gststereocamerastandin>;$<TARGET_FILE:file_tests>"
    -P ${CMAKE_CURRENT_SOURCE_DIR}/package/Hardened.cmake)
endif()

# The README's first command, without installing or building anything.
add_test(NAME scripts.Demo COMMAND ${PROJECT_SOURCE_DIR}/tests/scripts/demo)
