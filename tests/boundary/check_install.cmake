# Installs the build into a scratch prefix, then builds and runs a consumer
# twice: once with pkg-config flags, once through find_package.
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE failed OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(failed)
    message(FATAL_ERROR "command failed: ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
file(GLOB_RECURSE pc_files ${prefix}/*/scopemount.pc)
file(GLOB_RECURSE config_files ${prefix}/*/scopemount-config.cmake)
if(NOT pc_files OR NOT config_files OR NOT EXISTS ${prefix}/include/scopemount.h)
  message(FATAL_ERROR "install is missing the .pc file, the CMake package or the header")
endif()
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
get_filename_component(lib_dir ${pc_dir} DIRECTORY)

# A cross build's consumer runs under the emulator the test launcher names.
separate_arguments(launcher UNIX_COMMAND "$ENV{SCOPEMOUNT_TEST_LAUNCHER}")

# pkg-config
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
run(pkg-config --cflags --libs scopemount)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${C_COMPILER} -std=c99 -Wall -Werror ${CONSUMER_DIR}/consumer.c ${flags}
    -Wl,-rpath,${lib_dir} -o ${WORK_DIR}/consumer_pkgconfig)
run(${launcher} ${WORK_DIR}/consumer_pkgconfig)
message(STATUS "pkg-config consumer: ${last_output}")

# find_package
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer_build
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${C_COMPILER}
    -DCMAKE_BUILD_RPATH=${lib_dir})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer_build)
run(${launcher} ${WORK_DIR}/consumer_build/consumer)
message(STATUS "find_package consumer: ${last_output}")
