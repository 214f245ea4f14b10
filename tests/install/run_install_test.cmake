# Installs the built project into a private prefix, then configures, builds
# and runs an outside program against it with find_package and pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(PREFIX ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGV}\n${out}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})

set(FLAGS "")
if(SANITIZE)
  set(FLAGS "-fsanitize=address,undefined")
endif()

run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/install/consumer -B ${WORK_DIR}/build
    -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_CXX_FLAGS=${FLAGS} -DCMAKE_EXE_LINKER_FLAGS=${FLAGS}
    -DQD_HOST_EXAMPLE=${SOURCE_DIR}/examples/host.cpp)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer)
# The installed examples are where an installed program finds them.
set(EXAMPLES ${PREFIX}/share/qdparam/examples)
run(${WORK_DIR}/build/facade ${EXAMPLES})
run(${WORK_DIR}/build/host ${EXAMPLES}/pip.xml ${WORK_DIR}/pip-edited.xml)

# pkg-config: compile the same program by hand.
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${PREFIX}/lib/pkgconfig:${PREFIX}/lib64/pkgconfig)
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs qdparam
                OUTPUT_VARIABLE pc OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know qdparam")
endif()
separate_arguments(pc UNIX_COMMAND "${pc}")
separate_arguments(flags UNIX_COMMAND "${FLAGS}")
find_program(CXX NAMES c++ g++ REQUIRED)
run(${CXX} -std=c++20 ${flags} ${SOURCE_DIR}/tests/install/consumer/main.cpp ${pc}
    -Wl,-rpath,${PREFIX}/lib -o ${WORK_DIR}/consumer_pc)
run(${WORK_DIR}/consumer_pc)
