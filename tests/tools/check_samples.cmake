# The committed packed samples are what cmc-pack makes of their descriptions.
cmake_policy(VERSION 3.25)
file(MAKE_DIRECTORY ${WORK})
foreach(pair "module.json;module.kelb;" "module_nvm.json;module.nvm;--nvm")
  list(GET pair 0 description)
  list(GET pair 1 packed)
  list(GET pair 2 flag)
  execute_process(COMMAND ${PACK} ${flag} ${SAMPLES}/${description} -o ${WORK}/${packed}
                  RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cmc-pack ${description} exited with ${rc}")
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/${packed} ${SAMPLES}/${packed}
                  RESULT_VARIABLE differs)
  if(differs)
    message(FATAL_ERROR "samples/${packed} is not what cmc-pack makes of samples/${description}; "
                        "run scripts/update-samples.sh")
  endif()
endforeach()
