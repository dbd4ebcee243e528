# cmake -D buildDir=DIR -P Uninstall.cmake: removes what `cmake --install DIR` wrote last,
# whole or by component, and the folders that were the project's own.
file(GLOB manifests ${buildDir}/install_manifest*.txt)
if(NOT manifests)
  message(FATAL_ERROR "Nothing was installed from ${buildDir}: it has no install_manifest.txt")
endif()

# remove_own_folders(FOLDER): it and those above it, as long as they are empty and named
# after the project; `bin` and its like are not ours.
function(remove_own_folders folder)
  while(folder MATCHES "[Mm]orvane[^/]*(/[^/]+)?$")
    # Nothing of CMake's own removes a folder only if it is empty.
    execute_process(COMMAND rmdir -- "$ENV{DESTDIR}${folder}" RESULT_VARIABLE status ERROR_QUIET)
    if(NOT status EQUAL 0)
      return()
    endif()
    get_filename_component(folder "${folder}" DIRECTORY)
  endwhile()
endfunction()

foreach(manifest IN LISTS manifests)
  file(STRINGS ${manifest} files)
  foreach(file IN LISTS files)
    if(EXISTS "$ENV{DESTDIR}${file}" OR IS_SYMLINK "$ENV{DESTDIR}${file}")
      message(STATUS "Removing $ENV{DESTDIR}${file}")
      file(REMOVE "$ENV{DESTDIR}${file}")
      if(EXISTS "$ENV{DESTDIR}${file}" OR IS_SYMLINK "$ENV{DESTDIR}${file}")
        message(FATAL_ERROR "cannot remove $ENV{DESTDIR}${file}: nothing is forgotten, try as root")
      endif()
    endif()
    get_filename_component(folder "${file}" DIRECTORY)
    remove_own_folders("${folder}")
  endforeach()
  file(REMOVE ${manifest})
endforeach()
