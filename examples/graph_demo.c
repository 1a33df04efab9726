/* The smallest network: one input node feeding one ReLU node. It builds the graph,
 * runs it on a few values, and prints the input next to the rectified result. */
#include <stdio.h>
#include <string.h>

#include "orucore.h"

int main(void) {
  const int32_t dims[3] = {4, 2, 1}; /* width 4, height 2, one channel */
  const float values[8] = {-3.0f, -0.5f, 0.0f, 0.25f, 1.0f, -7.0f, 2.5f, -0.0f};
  float before[8];
  oru_cg_node_desc input = {ORU_CG_OP_INPUT, NULL};
  oru_cg_node_desc relu = {ORU_CG_OP_RELU, NULL};
  oru_cg_handle *graph = NULL;
  oru_tensor *out = NULL;
  uint32_t status = ORU_RET_OK;
  int i;

  oru_tensor *x = oru_create_tensor(3, dims, aif32);
  if (!x) return 1;
  memcpy(x->data, values, sizeof values);
  memcpy(before, values, sizeof values);
  input.tensor = x;

  graph = oru_create_computation_graph_handle(NULL);
  if (!graph) {
    oru_release_tensor(&x);
    return 1;
  }
  if (status == ORU_RET_OK) status = oru_add_one_edge_into_computation_graph(graph, 0, 1);
  if (status == ORU_RET_OK) status = oru_computation_graph_topo_sort(graph);
  if (status == ORU_RET_OK) status = oru_bind_operator_onto_computation_graph(graph, 0, &input, NULL);
  if (status == ORU_RET_OK) status = oru_bind_operator_onto_computation_graph(graph, 1, &relu, NULL);
  if (status == ORU_RET_OK) status = oru_prepare_inference_computation(graph);
  if (status == ORU_RET_OK) status = oru_computation_graph_inference(graph);
  if (status == ORU_RET_OK) out = oru_get_computation_node_inference_data(graph, 1);

  if (out) {
    const float *y = (const float *)out->data;
    printf("input -> relu, %lld values\n", (long long)out->total_elements);
    for (i = 0; i < 8; ++i) printf("  %6.2f -> %6.2f\n", before[i], y[i]);
  } else {
    printf("graph failed with status %u\n", status);
  }
  oru_release_computation_graph_handle(&graph);
  oru_release_tensor(&x);
  return out ? 0 : 1;
}
