# Installs the build into a fresh prefix, then builds the consumer against it twice,
# with find_package and with pkg-config, and runs both.
#   cmake -DBUILD=DIR -DSOURCE=DIR -DWORK=DIR -DCC=COMPILER -DGENERATOR=NAME -DVERSION=X.Y.Z
#         [-DSTATIC=ON] -P consumer_check.cmake
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}")
  endif()
  message(STATUS "${out}")
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
file(GLOB shared_objects ${prefix}/lib*/liborucore.so* ${prefix}/lib/*/liborucore.so*)
if(STATIC AND shared_objects)
  message(FATAL_ERROR "a static build installed ${shared_objects}")
elseif(NOT STATIC AND NOT shared_objects)
  message(FATAL_ERROR "no liborucore.so under ${prefix}")
endif()

# find_package, with <orucore/orucore.h>.
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/cmake -G ${GENERATOR} -DCMAKE_C_COMPILER=${CC}
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK}/cmake)
run(${WORK}/cmake/consumer ${VERSION} ${WORK})

# pkg-config, with "orucore.h" as in the source tree; the loader finds the library
# through LD_LIBRARY_PATH as it would through the system's paths after a real install.
file(GLOB pc_dirs ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
string(REPLACE ";" ":" pc_path "${pc_dirs}")
set(ENV{PKG_CONFIG_PATH} "${pc_path}")
run(pkg-config --exact-version=${VERSION} orucore)
execute_process(COMMAND pkg-config --cflags --libs orucore OUTPUT_VARIABLE flags RESULT_VARIABLE status
  OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "pkg-config --cflags --libs orucore failed")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CC} -std=c11 -Wall -Werror -DORU_CONSUMER_FLAT_INCLUDE ${SOURCE}/consumer.c ${flags} -o ${WORK}/consumer_pc)
string(REPLACE "pkgconfig" "" lib_path "${pc_path}")
set(ENV{LD_LIBRARY_PATH} "${lib_path}")
run(${WORK}/consumer_pc ${VERSION} ${WORK})
