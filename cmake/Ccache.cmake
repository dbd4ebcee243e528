# Where ccache is installed, what was compiled once is not compiled again.
if(NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER AND NOT DEFINED ENV{CMAKE_CXX_COMPILER_LAUNCHER})
  find_program(MORVANE_CCACHE ccache)
  mark_as_advanced(MORVANE_CCACHE)
  if(MORVANE_CCACHE)
    # A precompiled header makes it look again at what it takes for a risk.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${MORVANE_CCACHE})
  endif()
endif()
