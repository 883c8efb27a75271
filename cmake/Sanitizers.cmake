if(TALVEX_SANITIZE)
  add_compile_options(-fsanitize=${TALVEX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TALVEX_SANITIZE})
endif()
