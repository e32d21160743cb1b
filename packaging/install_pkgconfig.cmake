# SPDX-License-Identifier: MIT
# Runs at install time, so that the .pc files name the prefix the tree is installed to (also one
# given with `cmake --install --prefix`). libdir and includedir are full paths, made from the
# configured CMAKE_INSTALL_LIBDIR / CMAKE_INSTALL_INCLUDEDIR by GNUInstallDirs' rule: an absolute
# directory is kept, a relative one is taken below the prefix. DESTDIR is honoured by file(INSTALL).
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${VASK_INSTALL_${dir}}")
    set(CMAKE_INSTALL_FULL_${dir} "${VASK_INSTALL_${dir}}")
  else()
    set(CMAKE_INSTALL_FULL_${dir} "${CMAKE_INSTALL_PREFIX}/${VASK_INSTALL_${dir}}")
  endif()
endforeach()
foreach(pc IN LISTS VASK_PC_FILES)
  configure_file("${VASK_PC_SOURCE_DIR}/${pc}.pc.in" "${VASK_PC_BINARY_DIR}/${pc}.pc" @ONLY)
  file(INSTALL "${VASK_PC_BINARY_DIR}/${pc}.pc" DESTINATION "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig")
endforeach()
