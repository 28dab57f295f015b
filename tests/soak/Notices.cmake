# SPDX-License-Identifier: Apache-2.0
# A run that goes wrong in every way it can be made to has to end badly and to say why.
execute_process(
  COMMAND ${SOAK} --no-stream --captures 4 --seconds 0 --settle 0 --reads 2 --warm-up 0 --pictures 2
                  --break tear,descriptor,thread,segment
  OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE result)
message("${output}${errors}")
if(NOT result EQUAL 1)
  message(FATAL_ERROR "ended with ${result}")
endif()
foreach(reason "is frame [0-9]+'s, not frame" "descriptors[^\n]*: rose" "threads[^\n]*: rose"
               "segments[^\n]*: [0-9]+ left behind" "\nBAD\n")
  if(NOT output MATCHES "${reason}")
    message(FATAL_ERROR "nothing said of: ${reason}")
  endif()
endforeach()
