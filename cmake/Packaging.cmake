# SPDX-License-Identifier: MIT
# The install rules of the files a box is set up from, beyond the libraries and programs: the
# broker's configuration and ACL, and the simulator's systemd unit (component tools). The Debian
# packages are built from debian/ by scripts/package.

# The box files. The broker configuration and its ACL are what a box is set up from, not
# documentation: they stay out of /usr/share/doc, which minimal systems drop on install.
install(FILES ${PROJECT_SOURCE_DIR}/data/box/mosquitto-vask.conf ${PROJECT_SOURCE_DIR}/data/box/vask.acl
        DESTINATION ${CMAKE_INSTALL_DATADIR}/vask/box COMPONENT tools)

# The unit names the simulator where this tree installs it, decided at install time like the
# pkg-config files (`cmake --install --prefix` included). It goes to lib/systemd/system below the
# prefix: systemd reads /usr/lib/systemd/system and /usr/local/lib/systemd/system alike.
set(VASK_UNIT_SOURCE ${PROJECT_SOURCE_DIR}/data/box/external-device-sim.service)
install(CODE "
  set(unit_source \"${VASK_UNIT_SOURCE}\")
  set(bindir \"${CMAKE_INSTALL_BINDIR}\")
  if(NOT IS_ABSOLUTE \"\${bindir}\")
    set(bindir \"\${CMAKE_INSTALL_PREFIX}/\${bindir}\")
  endif()
  file(READ \"\${unit_source}\" unit)
  set(exec_start \"ExecStart=/usr/bin/external-device-sim \")
  string(FIND \"\${unit}\" \"\${exec_start}\" at)
  if(at EQUAL -1)
    message(FATAL_ERROR \"\${unit_source}: no line starting with '\${exec_start}' to point at the installed simulator\")
  endif()
  string(REPLACE \"\${exec_start}\" \"ExecStart=\${bindir}/external-device-sim \" unit \"\${unit}\")
  file(WRITE \"${PROJECT_BINARY_DIR}/box/external-device-sim.service\" \"\${unit}\")
  file(INSTALL \"${PROJECT_BINARY_DIR}/box/external-device-sim.service\"
       DESTINATION \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/system\"
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
" COMPONENT tools)
