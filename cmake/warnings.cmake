# What the library's own code is compiled with.
add_library(zrmp4_warnings INTERFACE)
target_compile_options(zrmp4_warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow -Wnon-virtual-dtor)
