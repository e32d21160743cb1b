# The Debian packages, one per install component:
#   runtime -> libvask-external-device0      the three shared libraries and the factory defaults
#   dev     -> libvask-external-device-dev   headers, development links, pkg-config files, CMake package
#   tools   -> vask-external-device-tools    edctl, external-device-sim, the box's broker files and unit
# scripts/package configures a tree of its own with CMAKE_INSTALL_PREFIX=/usr (so that GNUInstallDirs
# picks the multiarch library folder) and runs cpack there.

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

set(VASK_PACKAGE_MAINTAINER "libvask_external_device maintainers <maintainers@example.org>"
    CACHE STRING "The Maintainer field of the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vask-external-device)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${VASK_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Install with DESTDIR and the real prefix: the pkg-config files and the unit are written at install
# time and must name /usr, not the staging folder.
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
# A package that needs another of this build needs exactly this version of it.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The system libraries' packages come from dpkg-shlibdeps. Our own libraries have no dependency
# information yet when it runs (the component dependency above covers them); it finds them in this
# build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
foreach(library vask_external_device vask_bus tulo_log)
  get_target_property(library_dir ${library} BINARY_DIR)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${library_dir})
endforeach()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvask-external-device${VASK_SOVERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# A shlibs file, so that packages built against these libraries depend on this one.
# Only the runtime package holds shared objects with a soname; the SOVERSION carries every binary
# break, so a later version satisfies programs built against an earlier one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Each description: its first line is the package summary, the rest the long description.
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "control the external devices of a conference-room media box
libvask_external_device lets applications on a conference-room media box control
and query the devices attached to it: the conference-microphone central unit,
projectors, the media station, the USB remote controller and its macros, RS232
serial devices, image sharing and delegate voting. It calls the box's
external_device service over the box's message bus and keeps the box's JSON
configuration files.

This package holds the shared libraries libvask_external_device, libvask_bus
(the box's message bus on MQTT v5) and libtulo_log (the box's logging), and the
factory defaults of the configuration files.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvask-external-device-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# The header includes cJSON's, and the pkg-config file and the CMake package require it.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS libcjson-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "development files for libvask_external_device
libvask_external_device lets applications on a conference-room media box control
and query the devices attached to it over the box's message bus.

This package holds the headers, the pkg-config files (vask-external-device,
vask-bus, tulo-log) and the CMake package: find_package(VaskExternalDevice)
gives the target Vask::external_device.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vask-external-device-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
# The simulator and edctl talk through an MQTT broker, usually the one on this machine.
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS mosquitto)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "command-line tool and reference service for libvask_external_device
edctl runs each operation of libvask_external_device from the command line and
prints the result as text or JSON. external-device-sim is a reference
external_device service that answers like the box's, for developing and
testing without a box.

The package also holds a hardened mosquitto configuration with its ACL
(/usr/share/vask/box) and a systemd unit that runs the simulator.")

include(CPack)
