# Compares the built library with the committed ABI baseline. Additions are
# compatible (reported, the check passes); anything abidiff calls incompatible
# (a removed function, a changed structure layout or signature) fails.
# Arguments: ABIDIFF, BASELINE, LIBRARY, HEADER_DIRS (a list).
set(args ${BASELINE} ${LIBRARY})
foreach(dir IN LISTS HEADER_DIRS)
  list(APPEND args --hd2 ${dir})
endforeach()
execute_process(COMMAND ${ABIDIFF} ${args} RESULT_VARIABLE result OUTPUT_VARIABLE report ERROR_VARIABLE err)
# abidiff's status is a bit set: 1 error, 2 usage error, 4 change, 8 incompatible change.
if(NOT result MATCHES "^[0-9]+$")
  message(FATAL_ERROR "abidiff did not run: ${result}\n${err}")
endif()
math(EXPR failed "${result} & 11")
if(failed)
  message(FATAL_ERROR "ABI check failed (abidiff status ${result}):\n${report}${err}\n"
                      "If the change is intended, see docs/abi.md.")
endif()
if(result)
  message(STATUS "Compatible ABI additions:\n${report}")
endif()
