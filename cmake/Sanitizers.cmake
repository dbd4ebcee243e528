if(MORVANE_SANITIZE)
  add_compile_options(-fsanitize=${MORVANE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${MORVANE_SANITIZE})
endif()
