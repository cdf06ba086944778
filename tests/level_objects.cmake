# The only code an object of a level above the baseline (one compiled with
# that level's flags and chosen at run time) defines for other units is its
# table fill functions. An inline helper or template instance compiled with
# such flags that the linker kept for every caller would fault on a CPU
# without the level. Data (such as the compiler's exception-personality
# reference) holds no instructions and is let through.
# Usage: cmake -DOBJECTS=a.o|b.o|... -DLEVELS=avx2|... -P level_objects.cmake
string(REPLACE "|" ";" objects "${OBJECTS}")
string(REPLACE "|" ";" levels "${LEVELS}")
set(checked 0)
foreach(level ${levels})
  string(TOUPPER ${level} suffix)
  foreach(obj ${objects})
    if(NOT obj MATCHES "_${level}\\.cpp\\.o$")
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
      if(NOT line MATCHES " T dofra::Fill[A-Za-z]+_${suffix}\\(dofra::RowKernels\\*\\)$")
        message(FATAL_ERROR "${obj} defines a shared symbol: ${line}")
      endif()
    endforeach()
    math(EXPR checked "${checked} + 1")
  endforeach()
endforeach()
message(STATUS "${checked} objects of the levels above the baseline (${levels}) define only "
               "their fill functions")
