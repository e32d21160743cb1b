# SPDX-License-Identifier: MIT
# vask-console's tests: the API, the event stream and the security against a private broker and the
# simulator; the browser tests in headless Chromium (console_browser_test.py).
if(TARGET vask-console)
  pkg_check_modules(CONSOLE_HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
  find_program(VASK_OPENSSL_PROGRAM openssl REQUIRED)
  vask_test(console_test console/console_api_test.cpp console/console_errors_test.cpp
                         console/console_events_test.cpp console/console_security_test.cpp
                         console/console_openapi_test.cpp)
  target_include_directories(console_test PRIVATE ${PROJECT_SOURCE_DIR}/tests/console ${PROJECT_SOURCE_DIR}/tools/sim)
  target_link_libraries(console_test PRIVATE PkgConfig::CONSOLE_HTTPLIB PkgConfig::CJSON)
  target_compile_definitions(console_test PRIVATE
    VASK_CONSOLE="$<TARGET_FILE:vask-console>"
    VASK_CONSOLE_WWW="${PROJECT_SOURCE_DIR}/tools/console/www"
    VASK_CONSOLE_OPENAPI="${PROJECT_SOURCE_DIR}/tools/console/www/openapi.json"
    VASK_DEFAULT_CONFIG="${PROJECT_SOURCE_DIR}/data/external_device.json"
    VASK_DEFAULT_MIC_CONFIG="${PROJECT_SOURCE_DIR}/data/microphone_control.json"
    VASK_OPENSSL="${VASK_OPENSSL_PROGRAM}" VASK_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  add_dependencies(console_test vask-console)
endif()

# The page in headless Chromium, one ctest per browser test. The Debian python3 (with
# python3-selenium) runs them, whatever python3 comes first on PATH. The thread-sanitized build is
# too slow for a browser's timeouts: there the tests report themselves skipped.
if(TARGET vask-console)
  find_program(VASK_SYSTEM_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)
  set(VASK_BROWSER_TESTS
    ConsolePage.test_Tallies_ShouldChangeWhenAVoteIsCast
    ConsolePage.test_ProjectorForm_ShouldSwitchToPjlinkInTheFileAndTheService
    ConsolePage.test_MicrophoneItem_ShouldBeAddedShownAsTextAndDeleted
    ConsolePage.test_OfflineBanner_ShouldShowWhileTheServiceIsAway
    ConsolePage.test_MicrophonesOn_ShouldFollowThePresses
    ConsolePageOnATablet.test_Page_ShouldFitTheWidthWithAFieldLabelEach)
  foreach(test IN LISTS VASK_BROWSER_TESTS)
    string(REGEX REPLACE "^.*\\.test_" "ConsoleBrowser." name "${test}")
    add_test(NAME ${name} COMMAND ${VASK_SYSTEM_PYTHON} ${CMAKE_CURRENT_SOURCE_DIR}/console/browser/console_browser_test.py
             -v ${test})
    set_tests_properties(${name} PROPERTIES TIMEOUT 120 ENVIRONMENT
      "VASK_CONSOLE=$<TARGET_FILE:vask-console>;VASK_SIM=$<TARGET_FILE:external-device-sim>;VASK_EDCTL=$<TARGET_FILE:edctl>;VASK_MOSQUITTO_BROKER=${MOSQUITTO_BROKER};VASK_CONSOLE_WWW=${PROJECT_SOURCE_DIR}/tools/console/www;VASK_DEFAULT_CONFIG=${PROJECT_SOURCE_DIR}/data/external_device.json;VASK_DEFAULT_MIC_CONFIG=${PROJECT_SOURCE_DIR}/data/microphone_control.json;VASK_SCREENSHOT_DIR=${CMAKE_CURRENT_BINARY_DIR}/console-screenshots;VASK_SANITIZE=${VASK_SANITIZE}")
  endforeach()
endif()
