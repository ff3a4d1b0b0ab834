# Compile one C file as strict C99 with warnings as errors; fail the test on
# any diagnostic. Arguments: CC, SOURCE, INCLUDES (a list).
set(args -std=c99 -Wall -Wextra -Werror -pedantic -c ${SOURCE} -o /dev/null)
foreach(dir IN LISTS INCLUDES)
  list(APPEND args -I${dir})
endforeach()
execute_process(COMMAND ${CC} ${args} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "C99 compile of ${SOURCE} failed:\n${out}${err}")
endif()
