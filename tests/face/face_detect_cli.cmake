# Runs the face_detect program on good and bad inputs:
#   cmake -DPROGRAM=... -DSOURCE=... -DWORK=... -P face_detect_cli.cmake
# A bad input must give exit status 1, one line on stderr, and no output file.
file(MAKE_DIRECTORY ${WORK})
file(WRITE ${WORK}/not-a-bmp.bmp "P6\n2 2\n255\nxxxxxxxxxxxx")
# a BMP whose pixel rows stop after the first few
execute_process(COMMAND head -c 3000 ${SOURCE}/data/images/faces-3.bmp OUTPUT_FILE ${WORK}/cut.bmp)

foreach(bad missing.bmp not-a-bmp.bmp cut.bmp)
  file(REMOVE ${WORK}/out.bmp ${WORK}/out.bmp.tmp.bmp)
  execute_process(COMMAND ${PROGRAM} ${WORK}/${bad} -o ${WORK}/out.bmp
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 1)
    message(FATAL_ERROR "${bad}: exit status ${rc}, expected 1")
  endif()
  string(REGEX MATCHALL "\n" lines "${err}")
  list(LENGTH lines n)
  if(NOT n EQUAL 1 OR NOT err MATCHES "^face_detect: ")
    message(FATAL_ERROR "${bad}: expected one error line, got: ${err}")
  endif()
  if(EXISTS ${WORK}/out.bmp OR EXISTS ${WORK}/out.bmp.tmp.bmp)
    message(FATAL_ERROR "${bad}: an output file was left behind")
  endif()
endforeach()

# a good image with an output that can't be written: one error line, no faces, no file
execute_process(COMMAND ${PROGRAM} ${SOURCE}/data/images/faces-3.bmp -o ${WORK}/no-such-folder/out.bmp
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 1 OR out MATCHES "0\\.[0-9]+\n" OR NOT err MATCHES "^face_detect: .*\n$")
  message(FATAL_ERROR "unwritable output: status ${rc}, stdout ${out}, stderr ${err}")
endif()
file(GLOB left_over ${WORK}/no-such-folder*)
if(left_over)
  message(FATAL_ERROR "unwritable output left ${left_over}")
endif()

# a good run from another working folder: default model found, faces printed, image written
file(REMOVE ${WORK}/out.bmp)
execute_process(COMMAND ${PROGRAM} ${SOURCE}/data/images/faces-3.bmp -o ${WORK}/out.bmp
  WORKING_DIRECTORY ${WORK} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "good run: exit status ${rc}: ${err}")
endif()
string(REGEX MATCHALL "\n[0-9.]+ [0-9.]+ [0-9.]+ [0-9.]+ 0\\.[0-9]+" faces "\n${out}")
list(LENGTH faces n)
if(NOT n EQUAL 5)
  message(FATAL_ERROR "good run: expected 5 faces, got ${n}:\n${out}")
endif()
file(SIZE ${WORK}/out.bmp size)
file(SIZE ${SOURCE}/data/images/faces-3.bmp in_size)
if(NOT size EQUAL in_size)
  message(FATAL_ERROR "good run: output image of ${size} bytes, input ${in_size}")
endif()

# the same run in fixed point: the same five faces, the image written
file(REMOVE ${WORK}/out-fixed.bmp)
execute_process(COMMAND ${PROGRAM} ${SOURCE}/data/images/faces-3.bmp --fixed -o ${WORK}/out-fixed.bmp
  WORKING_DIRECTORY ${WORK} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(REGEX MATCHALL "\n[0-9.]+ [0-9.]+ [0-9.]+ [0-9.]+ 0\\.[0-9]+" faces "\n${out}")
list(LENGTH faces n)
if(NOT rc EQUAL 0 OR NOT n EQUAL 5 OR NOT EXISTS ${WORK}/out-fixed.bmp)
  message(FATAL_ERROR "fixed-point run: status ${rc}, ${n} faces:\n${out}${err}")
endif()
