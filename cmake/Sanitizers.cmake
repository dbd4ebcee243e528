if(MORVANE_SANITIZE)
  # Half the compiler's work of -O2, and reports that are easier to follow.
  add_compile_options($<$<CONFIG:RelWithDebInfo>:-O1>)
  add_compile_options(-fsanitize=${MORVANE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${MORVANE_SANITIZE})
endif()

# All code counts its branches for the fuzz targets, which alone bring libFuzzer's main.
if(MORVANE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
