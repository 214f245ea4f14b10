# Installs the built project into a private prefix, then imports the module
# from there with PYTHONPATH alone: it must find libqdparam beside it, in the
# prefix, and not the build tree's.
file(REMOVE_RECURSE ${WORK_DIR})
set(PREFIX ${WORK_DIR}/prefix)

execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "install failed:\n${out}")
endif()
if(NOT EXISTS ${PREFIX}/${MODULE_DIR}/qdparam.pyi)
  message(FATAL_ERROR "the stub is not installed beside the module")
endif()

set(check [=[
import sys, qdparam
prefix = sys.argv[1]
assert qdparam.__file__.startswith(prefix), qdparam.__file__
libraries = [line.split()[-1] for line in open('/proc/self/maps') if 'libqdparam.so' in line]
assert libraries and all(path.startswith(prefix) for path in libraries), libraries
pip = qdparam.load(sys.argv[2] + '/pip.xml')
pip.clip = (0.0, 10.0)
assert pip['opacity'].value(0.5) == 50.0
print('installed module works:', qdparam.__file__)
]=])
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env PYTHONPATH=${PREFIX}/${MODULE_DIR} QD_ASSERT=silent
          "LD_PRELOAD=${PRELOAD}" ASAN_OPTIONS=detect_leaks=0
          ${PYTHON} -c "${check}" ${PREFIX} ${EXAMPLES}
  WORKING_DIRECTORY ${WORK_DIR}  # not beside the build tree's module
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
message("${out}")
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the installed module failed (${rc})")
endif()
