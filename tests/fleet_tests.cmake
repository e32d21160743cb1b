# SPDX-License-Identifier: MIT
# Many rooms on one central broker: simulators in namespaces of their own, and a box's broker
# bridged to the central one with the shipped configuration files (TLS certificates made with
# openssl; without it the bridged cases are skipped).
find_program(VASK_OPENSSL openssl)
vask_test(fleet_test fleet_test.cpp fleet_bridge_test.cpp support/mqtt_watcher.cpp)
target_link_libraries(fleet_test PRIVATE PkgConfig::MOSQUITTO)
target_include_directories(fleet_test PRIVATE ${PROJECT_SOURCE_DIR}/tools/sim)
target_compile_definitions(fleet_test PRIVATE
  VASK_FLEET_DIR="${PROJECT_SOURCE_DIR}/data/fleet" VASK_BOX_DIR="${PROJECT_SOURCE_DIR}/data/box"
  VASK_DEFAULT_CONFIG="${PROJECT_SOURCE_DIR}/data/external_device.json"
  VASK_DEFAULT_MIC_CONFIG="${PROJECT_SOURCE_DIR}/data/microphone_control.json"
  VASK_MOSQUITTO_PASSWD="${MOSQUITTO_PASSWD}" VASK_OPENSSL="${VASK_OPENSSL}")
