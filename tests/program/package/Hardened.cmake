# SPDX-License-Identifier: Apache-2.0
# Looks into what was linked for what the build asks of the compiler: cmake -DFILES=a;b -P Hardened.cmake
foreach(file IN LISTS FILES)
  execute_process(COMMAND readelf --wide --file-header --program-headers --dynamic --dyn-syms ${file}
    OUTPUT_VARIABLE elf RESULT_VARIABLE failure)
  if(failure)
    message(SEND_ERROR "${file}: readelf failed")
    continue()
  endif()
  foreach(part "Type: +DYN" "GNU_RELRO" "BIND_NOW|FLAGS_1.*NOW" "__stack_chk_fail")
    if(NOT elf MATCHES "${part}")
      message(SEND_ERROR "${file}: no '${part}'")
    endif()
  endforeach()
  if(elf MATCHES "GNU_STACK[^\n]*RWE")
    message(SEND_ERROR "${file}: its stack can be executed")
  endif()
  # The plugin calls none of the functions that have a checked form.
  if(NOT elf MATCHES "_chk@" AND NOT file MATCHES "\\.so$")
    message(SEND_ERROR "${file}: none of the functions that check the sizes of buffers")
  endif()
endforeach()
