# SPDX-License-Identifier: MIT
# edctl in a technician's shell: its bash completion sourced into a real bash and checked against
# the built edctl, the header and the factory configuration; its output on a terminal.
find_program(VASK_BASH bash REQUIRED)
find_program(VASK_SCRIPT_PROGRAM script REQUIRED)
vask_test(completion_test completion_test.cpp)
target_link_libraries(completion_test PRIVATE PkgConfig::CJSON)
target_compile_definitions(completion_test PRIVATE
  VASK_BASH="${VASK_BASH}" VASK_SCRIPT="${VASK_SCRIPT_PROGRAM}"
  VASK_COMPLETION="${PROJECT_SOURCE_DIR}/data/completion/edctl"
  VASK_HEADER="${PROJECT_SOURCE_DIR}/include/libvask_external_device.h"
  VASK_DEFAULT_CONFIG="${PROJECT_SOURCE_DIR}/data/external_device.json")
