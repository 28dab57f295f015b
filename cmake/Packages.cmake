# SPDX-License-Identifier: Apache-2.0
# Debian packages, one for each component of the installation. scripts/package builds them.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME stereo-camera)
set(CPACK_PACKAGE_VENDOR "The stereo camera's developers")
set(CPACK_PACKAGE_CONTACT "The stereo camera's developers <stereo-camera@example.org>")
# If set, it would precede each package's own first line.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_STRIP_FILES ON)
# Folder permissions independent of the builder's umask.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

# The changelog for Debian's tools; the users' one is CHANGELOG.md. Its time does not depend on the build, so that the
# same sources give the same package.
set(stereo_camera_date "$ENV{SOURCE_DATE_EPOCH}")
if(NOT stereo_camera_date)
  execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%ct OUTPUT_VARIABLE stereo_camera_date
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(stereo_camera_date)
  set(ENV{SOURCE_DATE_EPOCH} ${stereo_camera_date})
endif()
string(TIMESTAMP stereo_camera_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
find_program(STEREO_CAMERA_GZIP gzip)

# stereo_camera_package(COMPONENT name PACKAGE name SUMMARY text DESCRIPTION text...): properties of one package, and
# the two files that every package has.
function(stereo_camera_package)
  cmake_parse_arguments(arg "" "COMPONENT;PACKAGE;SUMMARY;SECTION;DEPENDS;RECOMMENDS" "DESCRIPTION" ${ARGN})
  string(TOUPPER ${arg_COMPONENT} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${arg_PACKAGE} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${arg_SECTION} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${arg_DEPENDS}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_RECOMMENDS "${arg_RECOMMENDS}" PARENT_SCOPE)
  string(JOIN "\n" description ${arg_DESCRIPTION})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${arg_SUMMARY}\n${description}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${arg_COMPONENT} PARENT_SCOPE)

  if(STEREO_CAMERA_GZIP)
    set(package ${arg_PACKAGE})
    set(folder ${PROJECT_BINARY_DIR}/packages/${arg_PACKAGE})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/packages/changelog.in ${folder}/changelog.Debian @ONLY)
    execute_process(COMMAND ${STEREO_CAMERA_GZIP} -9 -n -f -k ${folder}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
    install(FILES ${folder}/changelog.Debian.gz ${PROJECT_SOURCE_DIR}/cmake/packages/copyright
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${arg_PACKAGE} COMPONENT ${arg_COMPONENT} EXCLUDE_FROM_ALL)
  endif()
endfunction()

set(CPACK_COMPONENTS_ALL "")
set(stereo_camera_soversion ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
if(BUILD_SHARED_LIBS)
  stereo_camera_package(COMPONENT runtime PACKAGE libstereocameracommon${stereo_camera_soversion} SECTION libs
    SUMMARY "driver library of a stereo fisheye camera"
    DESCRIPTION
      "Raw and rectified eyes, depth and point clouds of a stereo fisheye camera"
      "whose two eyes arrive side by side in one video frame. One eye can be shared"
      "with another process, and frames can be streamed as H.264 over RTP.")
  # Updates the loader's list of libraries when the package is installed or removed.
  file(WRITE ${PROJECT_BINARY_DIR}/packages/triggers "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/packages/triggers)
  set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
endif()
stereo_camera_package(COMPONENT development PACKAGE libstereocameracommon-dev SECTION libdevel
  DEPENDS "libopencv-dev, zlib1g-dev"
  SUMMARY "driver library of a stereo fisheye camera (development files)"
  DESCRIPTION
    "Headers, CMake package (find_package(StereoCamera)) and pkg-config file"
    "(stereo-camera) for programs that read a stereo fisheye camera.")
if(STEREO_CAMERA_BUILD_APPS)
  if(STEREO_CAMERA_GZIP)
    configure_file(${PROJECT_SOURCE_DIR}/docs/stereo-camera.1 ${PROJECT_BINARY_DIR}/packages/stereo-camera.1 COPYONLY)
    execute_process(COMMAND ${STEREO_CAMERA_GZIP} -9 -n -f -k ${PROJECT_BINARY_DIR}/packages/stereo-camera.1
      COMMAND_ERROR_IS_FATAL ANY)
    install(FILES ${PROJECT_BINARY_DIR}/packages/stereo-camera.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
      COMPONENT tools)
  endif()
  stereo_camera_package(COMPONENT tools PACKAGE stereo-camera-tools SECTION video
    RECOMMENDS "gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-libav"
    SUMMARY "host program of a stereo fisheye camera"
    DESCRIPTION
      "The program stereo-camera shows, measures, records, replays, calibrates and"
      "checks a stereo fisheye camera, real or simulated. As a service, which its"
      "owner enables, it serves any number of them.")
  # Tell systemd of the service's unit, and dpkg of the file that its owner changes.
  set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA conffiles postinst postrm prerm)
  list(TRANSFORM CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA PREPEND ${PROJECT_SOURCE_DIR}/service/debian/)
  stereo_camera_package(COMPONENT gstreamer PACKAGE gstreamer1.0-stereo-camera SECTION video
    DEPENDS "gstreamer1.0-plugins-ugly"
    SUMMARY "software stand-in for the hardware encoder of a stereo camera's board"
    DESCRIPTION
      "A GStreamer plugin that registers an H.264 encoder under the name of the"
      "board's hardware encoder, so that the stereo camera's network stream works"
      "on PCs. Not for boards that have that encoder.")
endif()
if(STEREO_CAMERA_BUILD_PYTHON)
  find_package(Python3 3.9 REQUIRED COMPONENTS Interpreter)  # the module's
  math(EXPR stereo_camera_next_python "${Python3_VERSION_MINOR} + 1")
  stereo_camera_package(COMPONENT python PACKAGE python3-stereo-camera SECTION python
    DEPENDS "python3 (>= ${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR}), python3 (<< ${Python3_VERSION_MAJOR}.${stereo_camera_next_python}), python3-numpy"
    RECOMMENDS "python3-matplotlib"
    SUMMARY "Python module of a stereo fisheye camera"
    DESCRIPTION
      "The module stereo_camera reads a stereo fisheye camera, real, simulated or"
      "recorded, into NumPy arrays.")
endif()

include(CPack)
