# The documents and the public headers as a site, by Doxygen: MorvaneDocs.
find_program(MORVANE_DOXYGEN doxygen REQUIRED)
find_package(Python3 REQUIRED COMPONENTS Interpreter)
mark_as_advanced(MORVANE_DOXYGEN)
add_custom_target(MorvaneDocs ALL
  COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/packaging/site/BuildSite
    ${PROJECT_BINARY_DIR}/site ${PROJECT_VERSION}
  COMMENT "The site, in ${PROJECT_BINARY_DIR}/site"
  VERBATIM)
if(MORVANE_INSTALL)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/site/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html COMPONENT doc)
endif()
