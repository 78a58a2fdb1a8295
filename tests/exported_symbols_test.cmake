# The shared library exports what is listed beside this file and nothing else.
execute_process(COMMAND ${NM} -D --defined-only --format=posix ${LIBRARY}
  OUTPUT_VARIABLE symbols)
string(REGEX REPLACE " [^\n]*" "" symbols "${symbols}")
file(READ ${CMAKE_CURRENT_LIST_DIR}/exported_symbols.txt wanted)
if(NOT symbols STREQUAL wanted)
  message(FATAL_ERROR "exported:\n${symbols}instead of:\n${wanted}")
endif()
