# SPDX-License-Identifier: MIT
# The manual pages, written by hand in docs/man: the tools' pages go with the tools, the library's
# page with the development files.
set(VASK_MAN_DIR ${PROJECT_SOURCE_DIR}/docs/man)
install(FILES ${VASK_MAN_DIR}/edctl.1 ${VASK_MAN_DIR}/external-device-sim.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${VASK_MAN_DIR}/libvask_external_device.3
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev)
