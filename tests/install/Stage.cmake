# From an empty prefix, so that no file of an earlier run fills a gap.
file(REMOVE_RECURSE ${prefix})
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/InstallAside ${buildDir} --prefix ${prefix}
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
