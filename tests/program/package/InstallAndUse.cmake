# SPDX-License-Identifier: Apache-2.0
# Installs the build tree into a directory of its own, then builds and runs a program against what was installed, once
# through the CMake package and once through pkg-config.
#
# cmake -DBUILD_DIR=… -DWORK_DIR=… -DCONFIG=… -DGENERATOR=… -DCXX=… -DCXX_FLAGS=… -DLINK_FLAGS=… -DLIBDIR=…
#       -DSANITIZE=… -P InstallAndUse.cmake
cmake_minimum_required(VERSION 3.22)

if(SANITIZE)
  message("skipped: a sanitized library needs a sanitized program")
  return()
endif()

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}): ${ARGN}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_it_works what program)
  run("${what}" ${program})
  if(NOT output MATCHES "\\[StereoCamera\\] consumer 9900\nworks\n")
    message(FATAL_ERROR "${what}: unexpected output\n${output}")
  endif()
endfunction()

unset(ENV{DESTDIR})
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
set(ENV{LD_LIBRARY_PATH} "${prefix}/${LIBDIR}:$ENV{LD_LIBRARY_PATH}")  # for a shared library
run("Installing" ${CMAKE_COMMAND} --install ${BUILD_DIR} --config ${CONFIG} --prefix ${prefix})

run("Configuring" ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/consumer -B ${WORK_DIR}/cmake -G ${GENERATOR}
  -DCMAKE_BUILD_TYPE=${CONFIG} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${CXX_FLAGS}
  -DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS} -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_RUNTIME_OUTPUT_DIRECTORY=${WORK_DIR}/bin
  -DCMAKE_RUNTIME_OUTPUT_DIRECTORY_${CONFIG}=${WORK_DIR}/bin)
file(STRINGS ${WORK_DIR}/cmake/CMakeCache.txt found REGEX "^StereoCamera_DIR:PATH=")
if(NOT found STREQUAL "StereoCamera_DIR:PATH=${prefix}/${LIBDIR}/cmake/StereoCamera")
  message(FATAL_ERROR "Another package was found: ${found}")
endif()
run("Building" ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake --config ${CONFIG})
expect_it_works("Program of the CMake package" ${WORK_DIR}/bin/consumer)
run("Program of the sources' component" ${WORK_DIR}/bin/sources_consumer)
if(NOT output MATCHES "sources work\n")
  message(FATAL_ERROR "Program of the sources' component: unexpected output\n${output}")
endif()

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run("Asking pkg-config" ${PKG_CONFIG} --cflags --libs stereo-camera)
separate_arguments(flags UNIX_COMMAND "${output}")
separate_arguments(own_flags UNIX_COMMAND "${CXX_FLAGS}")
separate_arguments(own_link_flags UNIX_COMMAND "${LINK_FLAGS}")
run("Building with pkg-config's flags" ${CXX} ${own_flags} -std=c++17 ${CMAKE_CURRENT_LIST_DIR}/consumer/consumer.cpp
  -o ${WORK_DIR}/bin/pkg-config-consumer ${flags} ${own_link_flags})
expect_it_works("Program of pkg-config" ${WORK_DIR}/bin/pkg-config-consumer)
