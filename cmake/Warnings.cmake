# Warnings are errors, in every preset.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
