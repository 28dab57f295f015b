# SPDX-License-Identifier: Apache-2.0
# A run that is made to go wrong has to fail and to say why; one that is interrupted ends cleanly.
#
# cmake -DSOAK=PROGRAM -DPART=descriptors|torn|image|restart|memory|interrupted -P Notices.cmake
function(expect result)
  execute_process(
    COMMAND ${SOAK} --no-stream --seconds 0 --warm-up 0 --pictures 2 --settle 0 ${arg_OPTIONS}
    OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE ended)
  message("${output}${errors}")
  if(NOT ended EQUAL result)
    message(FATAL_ERROR "ended with ${ended}")
  endif()
  foreach(text ${ARGN})
    if(NOT output MATCHES "${text}")
      message(FATAL_ERROR "nothing said of: ${text}")
    endif()
  endforeach()
endfunction()

if(PART STREQUAL "descriptors")
  set(arg_OPTIONS --captures 4 --reads 2 --break descriptor,thread,segment)
  expect(1 "descriptors[^\n]*: rose" "threads[^\n]*: rose" "segments[^\n]*: [0-9]+ left behind" "\nBAD\n")
elseif(PART STREQUAL "torn")
  # So many reads are never made: the run ends with the first that is wrong.
  set(arg_OPTIONS --captures 1 --reads 1000000 --break tear)
  expect(1 "is (frame [0-9]+'s, )?not frame" "\nBAD\n")
elseif(PART STREQUAL "image")
  set(arg_OPTIONS --captures 1 --reads 1000000 --break image)
  expect(1 "consumer \\(1\\): row 1 is not what frame [0-9]+ shows" "\nBAD\n")
elseif(PART STREQUAL "restart")
  # Two reads, since one may be under way when the disparity worker is restarted.
  set(arg_OPTIONS --captures 1 --reads 2 --break restart)
  expect(1 "colored depth [^\n]*: only [01] reads after the disparity worker's restart" "\nBAD\n")
elseif(PART STREQUAL "memory")
  # As few lives as the memory is judged by.
  set(arg_OPTIONS --captures 20 --reads 1 --break memory)
  expect(1 "resident kilobytes[^\n]*: rose" "allocated kilobytes[^\n]*: rose" "\nBAD\n")
elseif(PART STREQUAL "interrupted")
  # As soon as it waits for signals (4000 is SIGTERM's bit), maybe before anything was read: the clean end counts.
  execute_process(
    COMMAND sh -c "$0 --no-stream --minutes 10 --pictures 2 & \
      until grep -q '^SigBlk:.*4002$' /proc/$!/status; do sleep 0.1; done; kill -TERM $!; wait" ${SOAK}
    OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  message("${output}${errors}")
  if(NOT output MATCHES "\n(good|BAD) .interrupted.\n")
    message(FATAL_ERROR "not ended cleanly")
  endif()
else()
  message(FATAL_ERROR "no part '${PART}'")
endif()
