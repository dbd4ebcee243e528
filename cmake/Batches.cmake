# morvane_compile_in_batches(): from here on in this folder, six sources are compiled at a
# time, as most of the work is the same templates over again; but for a debug build, where
# one source is built many times. A name that two helpers of a folder share would be
# trouble: scripts/check-suites finds it.
macro(morvane_compile_in_batches)
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    set(CMAKE_UNITY_BUILD ON)
    set(CMAKE_UNITY_BUILD_BATCH_SIZE 6)
    # It takes another file's constant for one that is hidden.
    add_compile_options($<$<CXX_COMPILER_ID:Clang>:-Wno-shadow>)
  endif()
endmacro()
