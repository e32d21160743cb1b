# SPDX-License-Identifier: MIT
# Every fuzz target's seeds and saved regressions, replayed with the normal compiler (and so under
# the sanitizer presets too): one test per target, failing on any crash, sanitizer report or failed
# check of the target.
include(${PROJECT_SOURCE_DIR}/fuzz/targets.cmake)

foreach(target IN LISTS VASK_FUZZ_TARGETS)
  vask_fuzz_executable(${target}_replay ${target} ${VASK_FUZZ_DIR}/replay_main.cpp)
  set(inputs ${VASK_FUZZ_DIR}/corpus/${target})
  # A target gets a regressions folder with its first fixed crash.
  file(GLOB regressions CONFIGURE_DEPENDS ${VASK_FUZZ_DIR}/regressions/${target}/*)
  if(regressions)
    list(APPEND inputs ${VASK_FUZZ_DIR}/regressions/${target})
  endif()
  add_test(NAME FuzzReplay.${target} COMMAND ${target}_replay ${inputs})
  set_tests_properties(FuzzReplay.${target} PROPERTIES TIMEOUT 120)
endforeach()
