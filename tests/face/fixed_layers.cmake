# Dumps the face network's layers in float and in fixed point on one photograph and
# compares them with tools/compare_layers.py: every layer within 256 steps of its Q.
# Then recalibrates the Q list from the bundled photographs and expects the shipped one.
file(MAKE_DIRECTORY ${WORK}/float ${WORK}/fixed)
foreach(run "float;--method;0" "fixed;--fixed")
  list(GET run 0 dir)
  list(SUBLIST run 1 -1 args)
  execute_process(COMMAND ${DUMP} ${SOURCE}/data/images/faces-3.bmp ${WORK}/${dir} ${args}
    RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "dump_nodes ${args}: ${err}")
  endif()
endforeach()
execute_process(COMMAND ${PYTHON} ${SOURCE}/tools/compare_layers.py ${WORK}/fixed --float ${WORK}/float --tol 256
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0 OR NOT out MATCHES "base_net.0.0 +Q +[0-9]+ +max error")
  message(FATAL_ERROR "fixed against float, status ${rc}:\n${out}${err}")
endif()

execute_process(COMMAND ${CALIBRATE} ${SOURCE}/data/images/faces-1.bmp ${SOURCE}/data/images/faces-2.bmp
  ${SOURCE}/data/images/faces-3.bmp -o ${WORK}/again.q RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/again.q
  ${SOURCE}/models/ultraface/ultraface-slim-320.q RESULT_VARIABLE same)
if(NOT rc EQUAL 0 OR NOT same EQUAL 0)
  message(FATAL_ERROR "calibration (status ${rc}, ${err}) does not give the shipped Q list")
endif()
