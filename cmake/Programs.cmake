# morvane_name_programs(TARGET...): all targets have the project's prefix, so that they meet
# none of a project that builds this one along; the files have not. MorvanePanelctl is
# bin/panelctl.
function(morvane_name_programs)
  foreach(target IN LISTS ARGN)
    string(REGEX MATCH "^Morvane(.)(.*)$" matched ${target})
    string(TOLOWER ${CMAKE_MATCH_1} initial)
    set_target_properties(${target} PROPERTIES OUTPUT_NAME ${initial}${CMAKE_MATCH_2})
  endforeach()
endfunction()
