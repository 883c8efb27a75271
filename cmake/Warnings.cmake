# Every target of the project is compiled with these; a warning is an error.
add_library(talvex_warnings INTERFACE)
target_compile_options(talvex_warnings INTERFACE
  -Wall -Wextra -Wformat=2 -Wshadow -Wconversion -Werror)
