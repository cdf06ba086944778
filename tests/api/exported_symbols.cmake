# Checks the shared library's dynamic symbol table: exactly the seven exported
# functions of dofra_depth.h and the Dofra* ones of dofra_quality.h are
# defined, and the platform calls are left for the loader.
# Usage: cmake -DLIB=path/to/libdofra_depth.so [-DNM=target nm] -P exported_symbols.cmake
if(NOT NM)
  set(NM nm)
endif()
execute_process(COMMAND ${NM} -D --defined-only ${LIB} OUTPUT_VARIABLE defined RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
string(REGEX MATCHALL "[0-9a-f]+ [A-Za-z] [^\n]+" lines "${defined}")
set(exported "")
foreach(line ${lines})
  string(REGEX REPLACE "^[0-9a-f]+ ([A-Za-z]) (.*)$" "\\1;\\2" parts "${line}")
  list(GET parts 0 kind)
  list(GET parts 1 name)
  # Weak and unique vague-linkage entries come from the runtime, not from us.
  if(NOT kind MATCHES "^[wWvVu]$")
    list(APPEND exported ${name})
  endif()
endforeach()
list(SORT exported)
set(expected DofraBlurImage DofraCreateWeightMap DofraDeinit DofraInit DofraRefineWeightMap
             DofraSetNoBleed
             weight_async_process weight_deinit weight_init)
if(NOT exported STREQUAL expected)
  message(FATAL_ERROR "exported: ${exported}\nexpected: ${expected}")
endif()

execute_process(COMMAND ${NM} -D --undefined-only ${LIB} OUTPUT_VARIABLE undefined)
foreach(name __android_log_print _ZN7android13GraphicBuffer4lockEjPPv
             _ZN7android13GraphicBuffer6unlockEv)
  string(FIND "${undefined}" " ${name}\n" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${name} is not left undefined")
  endif()
endforeach()
