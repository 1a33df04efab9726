# Converts the ONNX network again and compares with the shipped weight file and layer list;
# then feeds the converter a graph with a layer it doesn't know and expects a clear refusal.
file(MAKE_DIRECTORY ${WORK})
set(dir ${SOURCE}/models/ultraface)
execute_process(COMMAND ${PYTHON} ${SOURCE}/tools/onnx_to_weights.py ${dir}/version-slim-320_without_postprocessing.onnx
  ${WORK}/again.weights ${WORK}/again.layers.txt RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "converter failed: ${err}")
endif()
foreach(pair "again.weights;ultraface-slim-320.weights" "again.layers.txt;ultraface-slim-320.layers.txt")
  list(GET pair 0 mine)
  list(GET pair 1 shipped)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/${mine} ${dir}/${shipped} RESULT_VARIABLE same)
  if(NOT same EQUAL 0)
    message(FATAL_ERROR "${mine} differs from the shipped ${shipped}")
  endif()
endforeach()

execute_process(COMMAND ${PYTHON} -c "
import onnx
from onnx import helper, TensorProto
x = helper.make_tensor_value_info('x', TensorProto.FLOAT, [1, 3, 8, 8])
y = helper.make_tensor_value_info('y', TensorProto.FLOAT, [1, 3, 4, 4])
g = helper.make_graph([helper.make_node('MaxPool', ['x'], ['y'], kernel_shape=[2, 2], strides=[2, 2])], 'g', [x], [y])
onnx.save(helper.make_model(g), '${WORK}/pool.onnx')
" RESULT_VARIABLE rc)
execute_process(COMMAND ${PYTHON} ${SOURCE}/tools/onnx_to_weights.py ${WORK}/pool.onnx ${WORK}/pool.weights
  RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 1 OR NOT err MATCHES "unsupported layer MaxPool")
  message(FATAL_ERROR "unknown layer: status ${rc}, message: ${err}")
endif()
if(EXISTS ${WORK}/pool.weights)
  message(FATAL_ERROR "a weight file was written for a graph the converter refused")
endif()
