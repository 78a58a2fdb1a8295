# Installs, moves the result, and builds and runs one C program against it in every way that applications do.
# BUILD is the library's build, SOURCE its root, CC and CXX its compilers.
set(work ${BUILD}/consumers)
set(program ${SOURCE}/tests/c_interface_test.c)
set(here ${CMAKE_CURRENT_LIST_DIR})
file(REMOVE_RECURSE ${work})

function(run)
  execute_process(COMMAND ${ARGV} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGV}\n${output}")
  endif()
  string(STRIP "${output}" output)
  set(output "${output}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${work}/first)
file(RENAME ${work}/first ${work}/moved)
file(GLOB_RECURSE pc ${work}/moved/*/zrmp4.pc)
get_filename_component(pc ${pc} DIRECTORY)
get_filename_component(libraries ${pc} DIRECTORY)
file(GLOB_RECURSE installed ${work}/moved/*.cmake ${work}/moved/*.pc)
foreach(file ${installed})
  file(READ ${file} text)
  if(text MATCHES "${work}|${SOURCE}")
    message(FATAL_ERROR "${file} knows where it was built or installed")
  endif()
endforeach()

# CMake, installed and as part of the application's own build.
run(${CMAKE_COMMAND} -S ${here}/find_package -B ${work}/find_package -DCMAKE_C_COMPILER=${CC} -DSOURCE=${program}
  -DCMAKE_PREFIX_PATH=${work}/moved)
run(${CMAKE_COMMAND} --build ${work}/find_package)
run(${work}/find_package/consumer ${work}/a.mp4)

run(${CMAKE_COMMAND} -S ${here}/add_subdirectory -B ${work}/add_subdirectory -DCMAKE_C_COMPILER=${CC}
  -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=Debug -DZRMP4_PLAIN_POSIX=ON -DZRMP4=${SOURCE} -DSOURCE=${program})
run(${CMAKE_COMMAND} --build ${work}/add_subdirectory --target consumer --parallel 2)
run(${work}/add_subdirectory/consumer ${work}/b.mp4)

# A plain C compiler: told by pkg-config, shared and wholly static, and told by hand.
set(ENV{PKG_CONFIG_LIBDIR} ${pc})
run(pkg-config --cflags --libs zrmp4)
separate_arguments(shared UNIX_COMMAND "${output}")
run(pkg-config --static --cflags --libs zrmp4)
separate_arguments(static UNIX_COMMAND "${output}")
run(${CC} -std=c11 ${program} ${shared} -o ${work}/shared)
run(${CC} -std=c11 -static ${program} ${static} -o ${work}/static)
run(${CC} -std=c11 ${program} -I${work}/moved/include -L${libraries} -lzrmp4 -o ${work}/plain)

run(${work}/static ${work}/c.mp4)
set(ENV{LD_LIBRARY_PATH} ${libraries})
run(${work}/shared ${work}/d.mp4)
run(${work}/plain ${work}/e.mp4)
