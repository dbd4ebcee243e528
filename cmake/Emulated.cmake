# morvane_runnable(RESULT TARGET): what a test executes to run that program. For another
# processor it is a script beside the program that starts it in the emulator.
function(morvane_runnable result target)
  if(NOT CMAKE_CROSSCOMPILING)
    set(${result} $<TARGET_FILE:${target}> PARENT_SCOPE)
    return()
  endif()
  set(script ${CMAKE_BINARY_DIR}/emulated/${target})
  get_target_property(isWritten ${target} MORVANE_EMULATED)
  if(NOT isWritten)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    file(GENERATE OUTPUT ${script}
      CONTENT "#!/bin/sh\nexec ${emulator} $<TARGET_FILE:${target}> \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    set_target_properties(${target} PROPERTIES MORVANE_EMULATED ON)
  endif()
  set(${result} ${script} PARENT_SCOPE)
endfunction()
