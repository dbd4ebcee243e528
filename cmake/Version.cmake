# The project's version stands in a public header alone. Sets morvaneVersion, for project().
set(morvaneVersionHeader ${CMAKE_CURRENT_LIST_DIR}/../libMorvaneHostUsb/Version.h)
file(STRINGS ${morvaneVersionHeader} morvaneVersion REGEX "^#define MORVANE_VERSION_(MAJOR|MINOR|PATCH) [0-9]+$")
list(TRANSFORM morvaneVersion REPLACE ".* " "")
list(JOIN morvaneVersion . morvaneVersion)
if(NOT morvaneVersion MATCHES "^[0-9]+\\.[0-9]+\\.[0-9]+$")
  message(FATAL_ERROR "${morvaneVersionHeader} has no version: '${morvaneVersion}'")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${morvaneVersionHeader})
