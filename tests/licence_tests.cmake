# SPDX-License-Identifier: MIT
# Every source file of the checkout carries the MIT licence line (scripts/spdx adds it where it is
# missing): files added later are caught here.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_test(NAME LicenceLine_ShouldBeAtTheTopOfEverySourceFile
         COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/scripts/spdx --check)
