# What makes the library and the programs harder to attack: every target that ends up in one of them is compiled and
# linked with these.
add_library(talvex_hardening INTERFACE)
target_compile_options(talvex_hardening INTERFACE -fstack-protector-strong)
target_link_options(talvex_hardening INTERFACE LINKER:-z,relro,-z,now)
if(NOT TALVEX_SANITIZE)
  target_compile_options(talvex_hardening INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
