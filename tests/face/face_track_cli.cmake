# Runs the face_track program on good and bad folders:
#   cmake -DPROGRAM=... -DSOURCE=... -DWORK=... -P face_track_cli.cmake
# A bad folder or frame must give a non-zero exit status, one line on stderr, and leave
# neither a track file nor annotated frames behind.
set(seq ${SOURCE}/data/sequences/faces-3-pan)
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/empty ${WORK}/bad-frame ${WORK}/cut-frame ${WORK}/good)
file(WRITE ${WORK}/empty/notes.txt "no frames here\n")
foreach(dir bad-frame cut-frame good)
  file(COPY ${seq}/000001.bmp ${seq}/000002.bmp ${seq}/000003.bmp DESTINATION ${WORK}/${dir})
endforeach()
file(WRITE ${WORK}/bad-frame/000004.bmp "P6\n2 2\n255\nxxxxxxxxxxxx")
execute_process(COMMAND head -c 3000 ${seq}/000004.bmp OUTPUT_FILE ${WORK}/cut-frame/000004.bmp)

function(expect_one_error_line what rc err)
  if(rc EQUAL 0)
    message(FATAL_ERROR "${what}: exit status 0, expected a failure")
  endif()
  string(REGEX MATCHALL "\n" lines "${err}")
  list(LENGTH lines n)
  if(NOT n EQUAL 1 OR NOT err MATCHES "^face_track: ")
    message(FATAL_ERROR "${what}: expected one error line, got: ${err}")
  endif()
endfunction()

foreach(bad missing empty bad-frame cut-frame)
  execute_process(COMMAND ${PROGRAM} ${WORK}/${bad} -o ${WORK}/out --mot ${WORK}/out.txt
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  expect_one_error_line(${bad} "${rc}" "${err}")
  file(GLOB left_over ${WORK}/out ${WORK}/out.txt*)
  if(left_over)
    message(FATAL_ERROR "${bad}: left ${left_over} behind")
  endif()
endforeach()

# options out of range or unknown: the usage line and no run
foreach(bad_option "--iou;1.5" "--min-hits;0" "--max-age;-1" "--frobnicate")
  execute_process(COMMAND ${PROGRAM} ${WORK}/good ${bad_option} --mot ${WORK}/out.txt
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 1 OR NOT err MATCHES "^usage: face_track FRAMES_DIR" OR EXISTS ${WORK}/out.txt)
    message(FATAL_ERROR "${bad_option}: status ${rc}, stderr ${err}")
  endif()
endforeach()

# drawing into the frames folder itself is refused before any frame is touched
execute_process(COMMAND ${PROGRAM} ${WORK}/good/ -o ${WORK}/good RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
expect_one_error_line(same-folder "${rc}" "${err}")
file(MD5 ${WORK}/good/000001.bmp drawn_md5)
file(MD5 ${seq}/000001.bmp source_md5)
if(NOT drawn_md5 STREQUAL source_md5)
  message(FATAL_ERROR "same-folder: a frame was changed")
endif()

# the fixed-point network, where the build has none, is refused the same way
execute_process(COMMAND ${PROGRAM} ${WORK}/good --fixed --mot ${WORK}/out.txt
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(err MATCHES "not available")
  expect_one_error_line(--fixed "${rc}" "${err}")
  if(EXISTS ${WORK}/out.txt)
    message(FATAL_ERROR "--fixed: left a track file behind")
  endif()
endif()

# a good run from another working folder: default model found, one annotated frame per
# frame, the tracks on stdout in the MOT format and the closing line on stderr
execute_process(COMMAND ${PROGRAM} ${WORK}/good -o ${WORK}/drawn WORKING_DIRECTORY ${WORK}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "good run: exit status ${rc}: ${err}")
endif()
if(NOT err MATCHES "frames: 3, tracks: [1-9][0-9]*, mean detect\\+track per frame: [0-9.]+ ms\n$")
  message(FATAL_ERROR "good run: closing line missing from stderr: ${err}")
endif()
string(REGEX REPLACE "\n$" "" body "${out}")
string(REPLACE "\n" ";" rows "${body}")
foreach(row IN LISTS rows)
  if(NOT row MATCHES "^[1-3],[1-9][0-9]*,-?[0-9.]+,-?[0-9.]+,[0-9.]+,[0-9.]+,[01]\\.[0-9]+,-1,-1,-1$")
    message(FATAL_ERROR "good run: not a MOT line: '${row}'")
  endif()
endforeach()
list(LENGTH rows n)
if(n LESS 9)
  message(FATAL_ERROR "good run: ${n} track lines for 3 frames of 4 or 5 faces")
endif()
foreach(f 000001 000002 000003)
  file(SIZE ${WORK}/good/${f}.bmp in_size)
  file(SIZE ${WORK}/drawn/${f}.bmp size)
  if(NOT size EQUAL in_size)
    message(FATAL_ERROR "good run: annotated ${f}.bmp of ${size} bytes, input ${in_size}")
  endif()
endforeach()

# with --mot the tracks go to the file and only the closing line to stdout
execute_process(COMMAND ${PROGRAM} ${WORK}/good --mot ${WORK}/tracks.txt
  RESULT_VARIABLE rc OUTPUT_VARIABLE out2 ERROR_VARIABLE err)
file(READ ${WORK}/tracks.txt written)
if(NOT rc EQUAL 0 OR NOT out2 MATCHES "^frames: 3, tracks: " OR NOT written STREQUAL out)
  message(FATAL_ERROR "--mot run: status ${rc}, stdout ${out2}, file differs from the stdout run")
endif()

# Frames without faces around one frame with faces: a face seen once is a track of one
# hit, shown with --min-hits 1 but not with 3 past the third frame.
# (a black frame: the sequence's 54-byte BMP header over 320 x 240 x 3 zero bytes)
file(MAKE_DIRECTORY ${WORK}/flash)
foreach(f 000001 000002 000003 000005)
  execute_process(COMMAND sh -c "head -c 54 ${seq}/000001.bmp; head -c 230400 /dev/zero"
    OUTPUT_FILE ${WORK}/flash/${f}.bmp)
endforeach()
file(COPY_FILE ${seq}/000001.bmp ${WORK}/flash/000004.bmp)
execute_process(COMMAND ${PROGRAM} ${WORK}/flash --min-hits 3
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0 OR NOT out STREQUAL "" OR NOT err MATCHES "^frames: 5, tracks: 0, ")
  message(FATAL_ERROR "one flash, --min-hits 3: status ${rc}, stdout ${out}, stderr ${err}")
endif()
execute_process(COMMAND ${PROGRAM} ${WORK}/flash --min-hits 1
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(REGEX MATCHALL "(^|\n)4,[1-5]," shown "${out}")
list(LENGTH shown n)
string(REGEX MATCHALL "\n" lines "${out}")
list(LENGTH lines total)
if(NOT rc EQUAL 0 OR n LESS 4 OR NOT total EQUAL n OR NOT err MATCHES "^frames: 5, tracks: ${n}, ")
  message(FATAL_ERROR "one flash, --min-hits 1: status ${rc}, stdout ${out}, stderr ${err}")
endif()
