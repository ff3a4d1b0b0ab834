# Runs cmc-inspect with ARGS, writes its standard output to OUT and compares
# it with GOLDEN.
cmake_policy(VERSION 3.25)
execute_process(COMMAND ${INSPECT} ${ARGS} OUTPUT_FILE ${OUT} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmc-inspect ${ARGS} exited with ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${OUT} ${GOLDEN} RESULT_VARIABLE differs)
if(differs)
  execute_process(COMMAND diff -u ${GOLDEN} ${OUT})
  message(FATAL_ERROR "${OUT} differs from ${GOLDEN} (scripts/update-samples.sh refreshes it)")
endif()
