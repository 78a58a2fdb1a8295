# The target size-report prints the size of the shared library without its symbols, and fails above ZRMP4_SIZE_LIMIT.
if(CMAKE_SCRIPT_MODE_FILE)
  execute_process(COMMAND ${STRIP} --strip-unneeded -o ${STRIPPED} ${LIBRARY} COMMAND_ERROR_IS_FATAL ANY)
  file(SIZE ${STRIPPED} size)
  message("${STRIPPED}: ${size} bytes")
  if(LIMIT AND size GREATER LIMIT)
    message(FATAL_ERROR "the library has grown beyond ${LIMIT} bytes")
  endif()
  return()
endif()

set(ZRMP4_SIZE_LIMIT 0 CACHE STRING "What size-report accepts, bytes; 0 for any size")
add_custom_target(size-report VERBATIM
  COMMAND ${CMAKE_COMMAND} -DSTRIP=${CMAKE_STRIP} -DLIBRARY=$<TARGET_FILE:zrmp4>
    -DSTRIPPED=${CMAKE_CURRENT_BINARY_DIR}/libzrmp4.stripped.so -DLIMIT=${ZRMP4_SIZE_LIMIT}
    -P ${CMAKE_CURRENT_LIST_FILE})
add_dependencies(size-report zrmp4)
