/* A C11 client of the umbrella header: it compiles as C, links the shared library
 * and checks a few results through the exported calls. Exit status 0 is a pass. */
#include <stdio.h>
#include <string.h>

#include "orucore.h"

static int failures = 0;

#define EXPECT(cond)                                        \
  do {                                                      \
    if (!(cond)) {                                          \
      printf("c11 client: failed: %s (line %d)\n", #cond, __LINE__); \
      ++failures;                                           \
    }                                                       \
  } while (0)

static void check_allocator(void) {
  void *p = oru_malloc(100);
  EXPECT(p != NULL && ((uintptr_t)p & 31u) == 0);
  EXPECT(oru_realloc(p, 10) == p);
  oru_free(p);
  EXPECT(oru_malloc(0) == NULL);
}

static void check_darray(void) {
  oru_darray *a = oru_create_darray(&oru_darray_str_type);
  const char *word = "orucore";
  EXPECT(a != NULL);
  EXPECT(oru_darray_push_back(a, &word) == ORU_RET_OK);
  EXPECT(a->size == 1 && strcmp(((char **)a->data)[0], word) == 0);
  EXPECT(oru_release_darray(&a) == ORU_RET_OK && a == NULL);
}

static void check_tables(void) {
  EXPECT(strcmp(oru_error_string[2], "Allocating memory failure! ") == 0);
  EXPECT(oru_data_type_bytes[22] == 12 && oru_data_type_bytes[32 + 22] == 3);
  EXPECT(strcmp(oru_get_cpu_hardware_feature_name(ORU_CPU_NEON), "NEON") == 0);
}

/* input -> relu through the exported calls: the client's tensor comes back rectified,
 * and the relu node reports that same tensor as its output. */
static void check_relu_graph(void) {
  const int32_t dims[3] = {3, 2, 1};
  const float x[6] = {-2.0f, -0.0f, 0.5f, 3.0f, -1e-3f, 7.25f};
  const float want[6] = {0.0f, 0.0f, 0.5f, 3.0f, 0.0f, 7.25f};
  oru_cg_node_desc input = {ORU_CG_OP_INPUT, NULL};
  oru_cg_node_desc relu = {ORU_CG_OP_RELU, NULL};
  oru_tensor *t = oru_create_tensor(3, dims, aif32);
  oru_cg_handle *g = oru_create_computation_graph_handle(NULL);
  int i;
  EXPECT(t != NULL && g != NULL);
  if (!t || !g) return;
  memcpy(t->data, x, sizeof x);
  input.tensor = t;
  EXPECT(oru_add_one_edge_into_computation_graph(g, 0, 1) == ORU_RET_OK);
  EXPECT(oru_computation_graph_topo_sort(g) == ORU_RET_OK);
  EXPECT(oru_bind_operator_onto_computation_graph(g, 0, &input, NULL) == ORU_RET_OK);
  EXPECT(oru_bind_operator_onto_computation_graph(g, 1, &relu, NULL) == ORU_RET_OK);
  EXPECT(oru_prepare_inference_computation(g) == ORU_RET_OK);
  EXPECT(oru_computation_graph_inference(g) == ORU_RET_OK);
  EXPECT(oru_get_computation_node_inference_data(g, 1) == t);
  for (i = 0; i < 6; ++i) {
    uint32_t got, expect;
    memcpy(&got, (const float *)t->data + i, 4);
    memcpy(&expect, &want[i], 4);
    EXPECT(got == expect); /* bit for bit: -0 must come out +0 */
  }
  EXPECT(oru_release_computation_graph_handle(&g) == ORU_RET_OK && g == NULL);
  EXPECT(oru_release_tensor(&t) == ORU_RET_OK && t == NULL);
}

int main(void) {
  check_allocator();
  check_darray();
  check_tables();
  check_relu_graph();
  if (failures == 0) printf("c11 client: all checks passed\n");
  return failures == 0 ? 0 : 1;
}
