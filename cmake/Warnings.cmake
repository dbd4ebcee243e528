# In every preset errors, too.
if(PROJECT_IS_TOP_LEVEL OR MORVANE_WERROR)
  add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
endif()
if(MORVANE_WERROR)
  add_compile_options(-Werror)
endif()
