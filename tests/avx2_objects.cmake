# The only code an AVX2 object defines for other units is its table fill
# functions. An inline helper or template instance compiled with -mavx2 that
# the linker kept for every caller would fault on an SSE4.1-only CPU. Data
# (such as the compiler's exception-personality reference) holds no
# instructions and is let through.
# Usage: cmake -DOBJECTS=a.o|b.o|... -P avx2_objects.cmake
string(REPLACE "|" ";" objects "${OBJECTS}")
set(checked 0)
foreach(obj ${objects})
  if(NOT obj MATCHES "_avx2\\.cpp\\.o$")
    continue()
  endif()
  execute_process(COMMAND nm --defined-only --extern-only -C ${obj}
                  OUTPUT_VARIABLE out RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "nm failed on ${obj}")
  endif()
  string(REGEX MATCHALL "[^\n]+" lines "${out}")
  foreach(line ${lines})
    if(line MATCHES "^[0-9a-f]* [BDGRSV] ")
      continue()
    endif()
    if(NOT line MATCHES " T Fill[A-Za-z]+_AVX2\\(RowKernels\\*\\)$")
      message(FATAL_ERROR "${obj} defines a shared symbol: ${line}")
    endif()
  endforeach()
  math(EXPR checked "${checked} + 1")
endforeach()
message(STATUS "${checked} AVX2 objects define only their fill functions")
