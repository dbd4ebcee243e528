# The library, its headers, the protocol library, the programs, and what brings them to
# others: a CMake package with Morvane::MorvaneHostUsb and Morvane::MorvaneProtocol, and
# two files for pkg-config. All of it finds its own place: a prefix may be moved.
include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/PublicHeaders.cmake)

set(morvaneIncludeDir ${CMAKE_INSTALL_INCLUDEDIR}/morvane)
set(morvaneConfigDir ${CMAKE_INSTALL_LIBDIR}/cmake/MorvaneHostUsb)

# morvane_install_libraries(EXPORT TARGET...)
function(morvane_install_libraries export)
  install(TARGETS ${ARGN}
    EXPORT ${export}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(EXPORT ${export} NAMESPACE Morvane:: DESTINATION ${morvaneConfigDir} COMPONENT development)
endfunction()

# morvane_below_prefix(RESULT PREFIX FOLDER): as it is, if it is none of the prefix.
function(morvane_below_prefix result prefix folder)
  if(IS_ABSOLUTE "${folder}")
    set(${result} ${folder} PARENT_SCOPE)
  else()
    set(${result} ${prefix}/${folder} PARENT_SCOPE)
  endif()
endfunction()

# morvane_install_pkgconfig(NAME): where it lies, from there to the prefix.
function(morvane_install_pkgconfig name)
  morvane_below_prefix(morvanePcLibDir "\${prefix}" ${CMAKE_INSTALL_LIBDIR})
  morvane_below_prefix(morvanePcIncludeDir "\${prefix}" ${CMAKE_INSTALL_INCLUDEDIR})
  file(RELATIVE_PATH morvanePrefixFromHere
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" morvanePrefixFromHere ${morvanePrefixFromHere})
  configure_file(${PROJECT_SOURCE_DIR}/packaging/pkgconfig/${name}.pc.in ${PROJECT_BINARY_DIR}/packaging/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

if(MORVANE_STATIC)
  set(morvaneHostUsbArchive MorvaneHostUsbStatic)
  set(morvaneProtocolArchive MorvaneProtocolStatic)
endif()
morvane_install_libraries(MorvaneHostUsbTargets MorvaneContract MorvaneWire MorvaneHostUsb ${morvaneHostUsbArchive})
morvane_install_pkgconfig(morvane-host-usb)
if(MORVANE_PROTOCOL)
  morvane_install_libraries(MorvaneProtocolTargets MorvaneProtocol ${morvaneProtocolArchive})
  morvane_install_pkgconfig(morvane-protocol)
endif()
install(FILES ${morvaneProtocolHeaders} DESTINATION ${morvaneIncludeDir}/protocol COMPONENT development)
install(FILES ${morvaneWireHeaders} DESTINATION ${morvaneIncludeDir}/wire COMPONENT development)
install(FILES ${morvaneLibraryHeaders} DESTINATION ${morvaneIncludeDir}/libMorvaneHostUsb COMPONENT development)
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/MorvaneHostUsbConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/MorvaneHostUsbConfig.cmake
  INSTALL_DESTINATION ${morvaneConfigDir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/MorvaneHostUsbConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_LIST_DIR}/MorvaneLibusb.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/MorvaneHostUsbConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/MorvaneHostUsbConfigVersion.cmake
  DESTINATION ${morvaneConfigDir}
  COMPONENT development)

install(FILES ${morvaneOwnPanelRules}
  DESTINATION lib/udev/rules.d COMPONENT runtime)

if(MORVANE_TOOLS)
  set(morvanePrograms MorvanePanelctl MorvanePanelsim)
  if(MORVANE_MQTT)
    list(APPEND morvanePrograms MorvanePanel2mqtt MorvanePanelfleet)
  endif()
  # Found from any prefix; the system's own needs no help.
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    morvane_below_prefix(morvaneRunPath "$ORIGIN/.." ${CMAKE_INSTALL_LIBDIR})
    set_target_properties(${morvanePrograms} PROPERTIES INSTALL_RPATH "${morvaneRunPath}")
  endif()
  install(TARGETS ${morvanePrograms} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  if(MORVANE_MQTT)
    # systemd looks below /usr/local, too.
    configure_file(${PROJECT_SOURCE_DIR}/packaging/panel2mqtt/panel2mqtt.service.in
      ${PROJECT_BINARY_DIR}/packaging/panel2mqtt.service @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/panel2mqtt.service
      DESTINATION lib/systemd/system COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/panel2mqtt/panel2mqtt.sysusers
      RENAME panel2mqtt.conf DESTINATION lib/sysusers.d COMPONENT tools)
    install(FILES
      ${PROJECT_SOURCE_DIR}/packaging/panel2mqtt/mosquitto.acl
      ${PROJECT_SOURCE_DIR}/packaging/panel2mqtt/mosquitto.conf
      ${PROJECT_SOURCE_DIR}/packaging/panel2mqtt/panel2mqtt.toml
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/panel2mqtt COMPONENT tools)
  endif()

  # Wireshark looks nowhere under /usr/local: from there it goes to /usr.
  configure_file(${PROJECT_SOURCE_DIR}/packaging/wireshark/morvane.lua
    ${PROJECT_BINARY_DIR}/packaging/wireshark/morvane.lua @ONLY)
  install(CODE "
    set(folder \"${MORVANE_WIRESHARK_PLUGINS}\")
    if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr/local\")
      cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY /usr)
    else()
      cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    endif()
    file(INSTALL DESTINATION \"\${folder}\" TYPE FILE FILES
      \"${PROJECT_BINARY_DIR}/packaging/wireshark/morvane.lua\")"
    COMPONENT dissector)
endif()

# Another project's build lists its own files along with ours.
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(MorvaneUninstall
    COMMAND ${CMAKE_COMMAND} -D buildDir=${CMAKE_BINARY_DIR} -P ${CMAKE_CURRENT_LIST_DIR}/Uninstall.cmake
    VERBATIM)
endif()
