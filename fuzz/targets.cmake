# SPDX-License-Identifier: MIT
# The fuzz targets, shared by the libFuzzer build (fuzz/CMakeLists.txt) and the replay of their saved
# inputs in the test suite (tests/fuzz_regression_tests.cmake).
set(VASK_FUZZ_TARGETS signals_fuzzer replies_fuzzer config_fuzzer system_files_fuzzer)
set(VASK_FUZZ_DIR ${PROJECT_SOURCE_DIR}/fuzz)

# vask_fuzz_executable(<executable> <target> <driver sources...>): target <target>'s source with a
# driver (libFuzzer's own main when none is given), linked to the library's objects.
function(vask_fuzz_executable executable target)
  add_executable(${executable} ${VASK_FUZZ_DIR}/${target}.cpp ${VASK_FUZZ_DIR}/fuzz_entry.cpp ${ARGN})
  target_include_directories(${executable} PRIVATE ${VASK_FUZZ_DIR})
  target_link_libraries(${executable} PRIVATE vask_external_device_testing vask_broker_support)
endfunction()
