# All that can be chosen. What serves the development of this project is off in another's.

include(${CMAKE_CURRENT_LIST_DIR}/VendorId.cmake)
set(MORVANE_PRODUCTION_VENDOR_ID 0x0000 CACHE STRING "USB vendor id of production panels")
morvane_require_vendor_id("MORVANE_PRODUCTION_VENDOR_ID=" "${MORVANE_PRODUCTION_VENDOR_ID}")
if(MORVANE_PRODUCTION_VENDOR_ID MATCHES "^0[xX]0*$")
  message(STATUS "MORVANE_PRODUCTION_VENDOR_ID is not set: only development panels (dead:beef) are found until it is")
endif()

# morvane_option(NAME TEXT DEFAULT NEEDED...): ON, OFF, or AUTO: the default where all that it
# needs is ON. What has come to be there is used at the next configuring.
function(morvane_option name text default)
  set(${name} AUTO CACHE STRING "${text}: ON, OFF, or AUTO, where it can be")
  set_property(CACHE ${name} PROPERTY STRINGS AUTO ON OFF)
  foreach(needed IN LISTS ARGN)
    if(NOT ${needed})
      if(NOT ${name} STREQUAL "AUTO" AND ${name})
        message(FATAL_ERROR "${name} needs ${needed}")
      endif()
      set(default OFF)
    endif()
  endforeach()
  if(${name} STREQUAL "AUTO")
    set(${name} ${default} PARENT_SCOPE)
  endif()
endfunction()

# The library itself needs libusb and nothing else.
find_package(ZLIB QUIET)
if(NOT ZLIB_FOUND)
  message(STATUS "Without the reference protocol library: it needs zlib (Debian: zlib1g-dev)")
endif()
morvane_option(MORVANE_PROTOCOL "The reference protocol library, which needs zlib" ON ZLIB_FOUND)
option(MORVANE_TOOLS "Build panelctl, panelsim and the demo, which need CLI11, nlohmann-json, libpng and libpcap"
  ${PROJECT_IS_TOP_LEVEL})
if(MORVANE_TOOLS AND NOT MORVANE_PROTOCOL)
  message(FATAL_ERROR "panelctl and panelsim need MORVANE_PROTOCOL, and that zlib (Debian: zlib1g-dev); "
    "-DMORVANE_TOOLS=OFF leaves them and their tests out")
endif()
morvane_option(MORVANE_EXAMPLES "The examples" ${PROJECT_IS_TOP_LEVEL} MORVANE_PROTOCOL)
option(MORVANE_WERROR "Warnings are errors" ${PROJECT_IS_TOP_LEVEL})
option(MORVANE_INSTALL "Have an installation" ${PROJECT_IS_TOP_LEVEL})
set(MORVANE_WIRESHARK_PLUGINS lib/${CMAKE_LIBRARY_ARCHITECTURE}/wireshark/plugins CACHE STRING
  "Folder for the Wireshark dissector, absolute or below the prefix")
morvane_option(MORVANE_TESTS "The tests, which need GoogleTest and tshark" ${PROJECT_IS_TOP_LEVEL}
  MORVANE_TOOLS MORVANE_EXAMPLES MORVANE_INSTALL)
option(MORVANE_VIRTUAL_BUS "With the tools: panelsim run, and its tests, which need umockdev" ON)
if(MORVANE_TOOLS)
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(MORVANE_HTTPLIB QUIET IMPORTED_TARGET cpp-httplib)
  endif()
  find_package(GIF QUIET)
  if(NOT MORVANE_HTTPLIB_FOUND OR NOT GIF_FOUND)
    message(STATUS "Without panelsim --web: it needs cpp-httplib and giflib (Debian: libcpp-httplib-dev libgif-dev)")
  endif()
endif()
morvane_option(MORVANE_WEB "With the tools: panelsim --web, which needs cpp-httplib and giflib" ON
  MORVANE_TOOLS MORVANE_HTTPLIB_FOUND GIF_FOUND)
if(MORVANE_TOOLS)
  if(PkgConfig_FOUND)
    pkg_check_modules(MORVANE_LIBMOSQUITTO QUIET IMPORTED_TARGET libmosquitto>=2.0)
    pkg_check_modules(MORVANE_TOMLPLUSPLUS QUIET IMPORTED_TARGET tomlplusplus)
    pkg_check_modules(MORVANE_OPENSSL QUIET IMPORTED_TARGET openssl>=3.0)
  endif()
  if(NOT MORVANE_LIBMOSQUITTO_FOUND OR NOT MORVANE_TOMLPLUSPLUS_FOUND OR NOT MORVANE_OPENSSL_FOUND)
    message(STATUS "Without panel2mqtt: it needs libmosquitto, OpenSSL and toml++ "
      "(Debian: libmosquitto-dev libssl-dev libtomlplusplus-dev)")
  endif()
endif()
morvane_option(MORVANE_MQTT "With the tools: panel2mqtt, which needs libmosquitto, OpenSSL and toml++" ON
  MORVANE_TOOLS MORVANE_LIBMOSQUITTO_FOUND MORVANE_TOMLPLUSPLUS_FOUND MORVANE_OPENSSL_FOUND)
option(MORVANE_FUZZ "Build the fuzz targets with libFuzzer, which needs clang" OFF)
option(MORVANE_BENCHMARKS "Build the benchmarks, which need Google Benchmark" OFF)
set(MORVANE_SANITIZE "" CACHE STRING "Value for -fsanitize, empty for none")
if(NOT MORVANE_TOOLS)
  set(MORVANE_VIRTUAL_BUS OFF)
endif()

# Who asks for no shared libraries asks for static ones.
set(morvaneStatic OFF)
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(morvaneStatic ON)
endif()
option(MORVANE_STATIC "Build and install both libraries also as archives, Morvane::MorvaneHostUsbStatic and Morvane::MorvaneProtocolStatic"
  ${morvaneStatic})

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()
