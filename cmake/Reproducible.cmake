# The same bytes from whichever folder. Source positions, in the log too, are paths inside
# the project; the linker is told no folder of this build.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
