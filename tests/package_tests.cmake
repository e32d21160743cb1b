# SPDX-License-Identifier: MIT
# The Debian packages: scripts/package (dpkg-buildpackage and lintian) run into BUILD/packages, the
# packages inspected with dpkg-deb, their symbols checked with dpkg-gensymbols, unpacked with dpkg
# into a throw-away root, and the examples built against that root and run against its simulator.
# The packages always hold an unsanitized build of a copy of the source tree of their own, so a
# sanitized build has nothing more to check there and leaves the suite out.
if(NOT VASK_SANITIZE STREQUAL "")
  return()
endif()
find_program(VASK_DPKG dpkg REQUIRED)
find_program(VASK_DPKG_DEB dpkg-deb REQUIRED)
find_program(VASK_DPKG_QUERY dpkg-query REQUIRED)
find_program(VASK_DPKG_GENSYMBOLS dpkg-gensymbols REQUIRED)
find_program(VASK_LINTIAN lintian REQUIRED)
find_program(VASK_GZIP gzip REQUIRED)
if(NOT CMAKE_LIBRARY_ARCHITECTURE)
  message(FATAL_ERROR "package_test needs the multiarch library folder (CMAKE_LIBRARY_ARCHITECTURE)")
endif()

add_executable(package_test package_test.cpp)
target_link_libraries(package_test PRIVATE vask_broker_support GTest::gtest_main PkgConfig::CJSON)
target_compile_definitions(package_test PRIVATE
  VASK_CMAKE="${CMAKE_COMMAND}" VASK_BUILD_DIR="${PROJECT_BINARY_DIR}" VASK_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
  VASK_PROJECT_VERSION="${PROJECT_VERSION}" VASK_SOVERSION="${VASK_SOVERSION}"
  VASK_MULTIARCH="${CMAKE_LIBRARY_ARCHITECTURE}" VASK_DPKG="${VASK_DPKG}" VASK_DPKG_DEB="${VASK_DPKG_DEB}"
  VASK_DPKG_QUERY="${VASK_DPKG_QUERY}" VASK_PKG_CONFIG="${PKG_CONFIG_EXECUTABLE}" VASK_MAKE="${VASK_MAKE_PROGRAM}"
  VASK_OBJDUMP="${CMAKE_OBJDUMP}" VASK_DPKG_GENSYMBOLS="${VASK_DPKG_GENSYMBOLS}" VASK_LINTIAN="${VASK_LINTIAN}"
  VASK_GZIP="${VASK_GZIP}")
# One process for the whole suite: the packages are built and unpacked once, then every case reads
# them. dpkg-buildpackage builds from scratch each time; the compiler cache makes later runs cheap.
add_test(NAME package_test COMMAND package_test)
set_tests_properties(package_test PROPERTIES LABELS long TIMEOUT 1200 RESOURCE_LOCK vask_package_tree)
