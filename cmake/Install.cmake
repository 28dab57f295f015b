# SPDX-License-Identifier: Apache-2.0
# Headers, libraries, CMake package (find_package(StereoCamera)) and pkg-config file (stereo-camera).
include(CMakePackageConfigHelpers)

set(stereo_camera_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/StereoCamera)

install(TARGETS StereoCameraCommon EXPORT StereoCameraTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES include/DocumentGuard.hpp include/ReadLimit.hpp include/StereoCamera.hpp include/StereoCameraExport.hpp
              include/WideDepth.hpp log/SystemLog.hpp
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/stereo-camera COMPONENT development)
install(EXPORT StereoCameraTargets NAMESPACE StereoCamera:: DESTINATION ${stereo_camera_package_dir}
  COMPONENT development)

if(TARGET StereoCameraSim)
  install(EXPORT StereoCameraSourcesTargets NAMESPACE StereoCamera:: DESTINATION ${stereo_camera_package_dir}
    COMPONENT development)
endif()

configure_package_config_file(cmake/StereoCameraConfig.cmake.in StereoCameraConfig.cmake
  INSTALL_DESTINATION ${stereo_camera_package_dir})
write_basic_package_version_file(StereoCameraConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/StereoCameraConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/StereoCameraConfigVersion.cmake
  DESTINATION ${stereo_camera_package_dir} COMPONENT development)

# Programs that link a static library must also link its dependencies.
if(BUILD_SHARED_LIBS)
  set(stereo_camera_pc_libs "-lStereoCameraCommon -lopencv_core -lopencv_videoio")
  set(stereo_camera_pc_private "-lopencv_imgproc -lopencv_calib3d -lopencv_highgui -lz -pthread")
else()
  set(stereo_camera_pc_libs "-lStereoCameraCommon -lopencv_videoio -lopencv_highgui -lopencv_calib3d \
-lopencv_imgproc -lopencv_core -lz -pthread")
  set(stereo_camera_pc_private "")
endif()
# Relative to the file, so that it is right wherever `cmake --install --prefix` puts it.
file(RELATIVE_PATH stereo_camera_pc_up "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
set(stereo_camera_pc_prefix "\${pcfiledir}/${stereo_camera_pc_up}")
foreach(dir libdir includedir)
  string(TOUPPER ${dir} upper)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${upper}}")
    set(stereo_camera_pc_${dir} "${CMAKE_INSTALL_${upper}}")
    set(stereo_camera_pc_prefix "${CMAKE_INSTALL_PREFIX}")
  else()
    set(stereo_camera_pc_${dir} "\${prefix}/${CMAKE_INSTALL_${upper}}")
  endif()
endforeach()
list(GET OpenCV_INCLUDE_DIRS 0 stereo_camera_opencv_include)
configure_file(cmake/stereo-camera.pc.in stereo-camera.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/stereo-camera.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

include(cmake/Packages.cmake)
