# The library, its headers, the protocol library, the programs, and a package that
# brings them to other CMake projects as Morvane::MorvaneHostUsb and
# Morvane::MorvaneProtocol. The archive of inner objects stays here.
include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/PublicHeaders.cmake)

set(morvaneIncludeDir ${CMAKE_INSTALL_INCLUDEDIR}/morvane)
set(morvaneConfigDir ${CMAKE_INSTALL_LIBDIR}/cmake/MorvaneHostUsb)

install(TARGETS protocol wire MorvaneHostUsb MorvaneProtocol
  EXPORT MorvaneHostUsbTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
  NAMELINK_COMPONENT development)
install(FILES ${morvaneProtocolHeaders} DESTINATION ${morvaneIncludeDir}/protocol COMPONENT development)
install(FILES ${morvaneWireHeaders} DESTINATION ${morvaneIncludeDir}/wire COMPONENT development)
install(FILES ${morvaneLibraryHeaders} DESTINATION ${morvaneIncludeDir}/libMorvaneHostUsb COMPONENT development)

foreach(program panelctl panelsim)
  if(TARGET ${program})
    # Found from any prefix; the system's own needs no help.
    if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
      set_target_properties(${program} PROPERTIES
        INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    endif()
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  endif()
endforeach()

install(EXPORT MorvaneHostUsbTargets
  NAMESPACE Morvane::
  DESTINATION ${morvaneConfigDir}
  COMPONENT development)
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/MorvaneHostUsbConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/MorvaneHostUsbConfig.cmake
  INSTALL_DESTINATION ${morvaneConfigDir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/MorvaneHostUsbConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/MorvaneHostUsbConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/MorvaneHostUsbConfigVersion.cmake
  DESTINATION ${morvaneConfigDir}
  COMPONENT development)

install(FILES ${morvaneOwnPanelRules}
  DESTINATION lib/udev/rules.d COMPONENT runtime)

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
