# GTest::gtest and its like: Debian's; for another processor built from Debian's sources.
function(morvane_build_googletest)
  set(MORVANE_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest's sources (Debian: googletest)")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  # Its warnings are not ours.
  set(CMAKE_CXX_FLAGS "${CMAKE_CXX_FLAGS} -w")
  add_subdirectory(${MORVANE_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
endfunction()

if(CMAKE_CROSSCOMPILING)
  morvane_build_googletest()
else()
  find_package(GTest QUIET)
  if(NOT GTest_FOUND)
    message(FATAL_ERROR "the tests need GoogleTest (Debian: libgtest-dev libgmock-dev); -DMORVANE_TESTS=OFF leaves them out")
  endif()
endif()
