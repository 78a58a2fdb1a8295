# ZRMP4_SANITIZE applies to everything in the build.
if(ZRMP4_SANITIZE)
  add_compile_options(-fsanitize=${ZRMP4_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZRMP4_SANITIZE})
endif()
