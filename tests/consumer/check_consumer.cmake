# Installs the library into a scratch prefix, then builds and runs the C client
# once through find_package and once through pkg-config.
# Arguments: BUILD_DIR, SOURCE_DIR, WORK_DIR, CC, PLATFORM_DIRS (a list: where
# the platform libraries the installed library needs are found; a camera stack
# has them in its system library directory).
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${out}${err}")
  endif()
  message(STATUS "${out}")
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

string(REPLACE ";" ":" library_path "${prefix}/lib;${PLATFORM_DIRS}")
set(rpath_link "")
foreach(dir IN LISTS PLATFORM_DIRS)
  string(APPEND rpath_link " -Wl,-rpath-link,${dir}")
endforeach()

# 1. CMake package.
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/cmake-build
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${CC} "-DCMAKE_EXE_LINKER_FLAGS=${rpath_link}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${library_path} ${WORK_DIR}/cmake-build/consumer)

# 2. pkg-config.
file(GLOB pc_dir LIST_DIRECTORIES true ${prefix}/lib*/pkgconfig)
execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir}
                pkg-config --cflags --libs ej_cmc_parser
                RESULT_VARIABLE result OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know ej_cmc_parser under ${pc_dir}")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(rpath_args UNIX_COMMAND "${rpath_link}")
run(${CC} -std=c99 -Wall -Werror ${SOURCE_DIR}/consumer.c ${flags} ${rpath_args}
    -o ${WORK_DIR}/consumer-pc)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${library_path} ${WORK_DIR}/consumer-pc)
