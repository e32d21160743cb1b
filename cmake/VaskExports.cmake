# SPDX-License-Identifier: MIT
# vask_export_map(<target> <node>): links <target> with a version script that tags its exported
# symbols with ABI version node <node> and keeps the standard library's instantiations local.
function(vask_export_map target node)
  set(VASK_EXPORT_LIBRARY ${target})
  set(VASK_EXPORT_NODE ${node})
  set(map ${PROJECT_BINARY_DIR}/exports/${target}.map)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/exports.map.in ${map} @ONLY)
  target_link_options(${target} PRIVATE "LINKER:--version-script=${map}")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
endfunction()
