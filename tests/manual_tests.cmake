# SPDX-License-Identifier: MIT
# The manual pages and the API reference: each page renders without a warning and names what the
# tools and the library really have; the pages install with their components; doxygen documents
# every declaration of the public headers.
vask_test(manual_test manual_test.cpp)
find_program(VASK_MAN_PROGRAM man)
find_program(VASK_GROFF_PROGRAM groff)
find_program(VASK_DOXYGEN_PROGRAM doxygen)
foreach(program VASK_MAN_PROGRAM VASK_GROFF_PROGRAM VASK_DOXYGEN_PROGRAM)
  if(NOT ${program})
    set(${program} "")
  endif()
endforeach()
target_compile_definitions(manual_test PRIVATE
  VASK_MAN_PAGES="${PROJECT_SOURCE_DIR}/docs/man" VASK_DOCS_SCRIPT="${PROJECT_SOURCE_DIR}/scripts/docs"
  VASK_MAN="${VASK_MAN_PROGRAM}" VASK_GROFF="${VASK_GROFF_PROGRAM}" VASK_DOXYGEN="${VASK_DOXYGEN_PROGRAM}"
  VASK_CMAKE="${CMAKE_COMMAND}" VASK_BUILD_DIR="${PROJECT_BINARY_DIR}" VASK_PROJECT_VERSION="${PROJECT_VERSION}"
  VASK_INSTALL_MANDIR="${CMAKE_INSTALL_MANDIR}")
# Installing a component writes into this build tree (its manifest, the unit of the tools
# component), as the install tests do: the cases that install take the install tree's lock. The
# discovered names are only known when ctest reads the suite, so the lock is set from there.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/manual_test_locks.cmake [=[
foreach(test IN LISTS manual_test_TESTS)
  if(test MATCHES "^InstalledPages\\.")
    set_tests_properties("${test}" PROPERTIES RESOURCE_LOCK vask_install_tree)
  endif()
endforeach()
]=])
set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/manual_test_locks.cmake)
