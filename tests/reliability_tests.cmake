# SPDX-License-Identifier: MIT
# Reliability: replies that are not the caller's, wall-clock jumps, many threads with signals
# flowing, a broker that goes away, hostile file names and descriptors leaking into shell commands.

# The bus under stray replies and a moving wall clock.
vask_test(bus_reliability_test bus_reply_robustness_test.cpp clock_jump_test.cpp support/mqtt_watcher.cpp)
target_link_libraries(bus_reliability_test PRIVATE PkgConfig::MOSQUITTO)
# The caller of the clock test runs under libfaketime, which moves the wall clock of that process only.
find_file(VASK_FAKETIME_LIBRARY libfaketimeMT.so.1
          PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/faketime /usr/lib/faketime REQUIRED NO_DEFAULT_PATH)
target_compile_definitions(bus_reliability_test PRIVATE VASK_FAKETIME_LIBRARY="${VASK_FAKETIME_LIBRARY}")

# The library under load and faults, against the simulator.
vask_test(library_reliability_test library_concurrency_test.cpp)
target_link_libraries(library_reliability_test PRIVATE vask_external_device_testing)
target_include_directories(library_reliability_test PRIVATE ${PROJECT_SOURCE_DIR}/tools/sim)
# The outage again with the library's calls through the broker, as from a box that insists on it.
gtest_discover_tests(library_reliability_test DISCOVERY_TIMEOUT 60 TEST_SUFFIX .broker
                     TEST_FILTER "*BrokerKilled*" PROPERTIES TIMEOUT 600 LABELS long ENVIRONMENT "VASK_BUS_DIRECT=0")

# What reaches the shell: file names taken as names only, and no descriptor of the library.
vask_test(shell_safety_test hostile_names_test.cpp close_on_exec_test.cpp)
target_link_libraries(shell_safety_test PRIVATE vask_external_device_testing)
target_compile_definitions(shell_safety_test PRIVATE
  VASK_DEFAULT_CONFIG="${PROJECT_SOURCE_DIR}/data/external_device.json")
# Half a minute, most of it the bus's reconnection delay: labelled long. Read by ctest after the
# discovered tests, so that the name exists by then.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/long_reliability_tests.cmake
     "set_tests_properties(LibraryConcurrencyTest.BrokerKilledWhileThreadsCallAndSignalsFlow_ShouldResumeSignalsByItself "
     "PROPERTIES LABELS long TIMEOUT 600)\n")
set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/long_reliability_tests.cmake)
