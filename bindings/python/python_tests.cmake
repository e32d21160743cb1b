# SPDX-License-Identifier: MIT
# The pytest suite of the Python module, one ctest test per file of bindings/python/tests, each
# starting its own private broker and simulator (tests/conftest.py).
set(VASK_PY_TEST_DIR ${CMAKE_CURRENT_SOURCE_DIR}/tests)
list(APPEND VASK_PY_TEST_ENV
  PYTHONPATH=${CMAKE_CURRENT_BINARY_DIR}
  PYTHONDONTWRITEBYTECODE=1
  VASK_MOSQUITTO=${MOSQUITTO_BROKER}
  VASK_SIM=$<TARGET_FILE:external-device-sim>
  VASK_EDCTL=$<TARGET_FILE:edctl>
  VASK_DEFAULT_CONFIG=${PROJECT_SOURCE_DIR}/data/external_device.json
  VASK_DEFAULT_MIC_CONFIG=${PROJECT_SOURCE_DIR}/data/microphone_control.json
  VASK_PY_EXAMPLES=${PROJECT_SOURCE_DIR}/examples/python
  VASK_CMAKE=${CMAKE_COMMAND}
  VASK_BUILD_DIR=${PROJECT_BINARY_DIR}
  VASK_PYTHON_INSTALL_DIR=${VASK_PYTHON_INSTALL_DIR}
  VASK_INSTALL_LIBDIR=${CMAKE_INSTALL_LIBDIR})

function(vask_python_test name)
  cmake_parse_arguments(ARG "" "" "PROPERTIES" ${ARGN})
  add_test(NAME python.${name}
           COMMAND ${Python3_EXECUTABLE} -m pytest -p no:cacheprovider -q -rs ${VASK_PY_TEST_DIR}/test_${name}.py)
  # pytest exits with 5 when it collected nothing: a build that skips the suite (VASK_PY_SKIP).
  set_tests_properties(python.${name} PROPERTIES ENVIRONMENT "${VASK_PY_TEST_ENV}" TIMEOUT 180 SKIP_RETURN_CODE 5
                                                 ${ARG_PROPERTIES})
endfunction()

vask_python_test(records)
vask_python_test(configuration)
vask_python_test(operations)
vask_python_test(errors)
vask_python_test(signals)
vask_python_test(asyncio)
vask_python_test(examples)
# Installing writes into this build tree (install_manifest.txt), as install_test does.
vask_python_test(install PROPERTIES RESOURCE_LOCK vask_install_tree LABELS long)
