# vask-console's tests: the API, the event stream and the security against a private broker and the
# simulator; the browser tests in headless Chromium (console_browser_test.py).
if(TARGET vask-console)
  pkg_check_modules(CONSOLE_HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
  find_program(VASK_OPENSSL_PROGRAM openssl REQUIRED)
  vask_test(console_test console/console_api_test.cpp console/console_errors_test.cpp
                         console/console_events_test.cpp console/console_security_test.cpp)
  target_include_directories(console_test PRIVATE ${PROJECT_SOURCE_DIR}/tests/console ${PROJECT_SOURCE_DIR}/tools/sim)
  target_link_libraries(console_test PRIVATE PkgConfig::CONSOLE_HTTPLIB PkgConfig::CJSON)
  target_compile_definitions(console_test PRIVATE
    VASK_CONSOLE="$<TARGET_FILE:vask-console>"
    VASK_CONSOLE_WWW="${PROJECT_SOURCE_DIR}/tools/console/www"
    VASK_CONSOLE_OPENAPI="${PROJECT_SOURCE_DIR}/tools/console/www/openapi.json"
    VASK_DEFAULT_CONFIG="${PROJECT_SOURCE_DIR}/data/external_device.json"
    VASK_DEFAULT_MIC_CONFIG="${PROJECT_SOURCE_DIR}/data/microphone_control.json"
    VASK_OPENSSL="${VASK_OPENSSL_PROGRAM}")
  add_dependencies(console_test vask-console)
endif()
