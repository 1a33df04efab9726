#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cg/oru_cg_internal.h"
#include "oru_cg.h"

namespace {

// Every exported graph call on null and on half-built handles: a status or null, never a crash.
// Leaks are the sanitizer build's to find.
TEST(GraphRobustness, NullHandleEverywhere) {
  testing::internal::CaptureStdout();
  oru_cg_node_desc desc = {ORU_CG_OP_RELU, nullptr};
  EXPECT_EQ(oru_release_computation_graph_handle(nullptr), ORU_RET_ERR_MEMORY);
  EXPECT_EQ(oru_cg_set_conv_method(nullptr, 0), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_get_cg_conv_method(nullptr), 0u);
  EXPECT_EQ(oru_cg_set_dev_type(nullptr, 1), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_cg_get_dev_type(nullptr), 0u);
  EXPECT_EQ(oru_get_dev_context_from_cg_handle(nullptr), nullptr);
  int32_t q[4] = {};
  EXPECT_EQ(oru_cg_set_ptr_q_list(nullptr, q), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_cg_get_q_from_list(nullptr, 0), -1);
  EXPECT_EQ(oru_add_one_edge_into_computation_graph(nullptr, 0, 1), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_computation_graph_topo_sort(nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_bind_operator_onto_computation_graph(nullptr, 0, &desc, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_prepare_inference_computation(nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_computation_graph_inference(nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_get_computation_node_inference_data(nullptr, 0), nullptr);
  EXPECT_EQ(oru_get_computation_node_inference_dev_data(nullptr, 0), nullptr);
  EXPECT_EQ(oru_prepare_backward_computation(nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_computation_graph_backward(nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_init_relu_context(nullptr, 0, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_init_unary_context_inference(nullptr, 0), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_get_unary_inference_data(nullptr, 0), nullptr);
  EXPECT_EQ(oru_uninit_unary_context(nullptr), ORU_RET_ERR_PARA);
  void *none = nullptr;
  EXPECT_EQ(oru_uninit_unary_context(&none), ORU_RET_ERR_PARA);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Params Error!"), std::string::npos);
}

TEST(GraphRobustness, HalfBuiltHandlesAndOutOfRangeIds) {
  testing::internal::CaptureStdout();
  oru_cg_handle *h = oru_create_computation_graph_handle(nullptr);
  ASSERT_NE(h, nullptr);
  // Nothing added yet: empty graph operations succeed or refuse, never touch missing tables.
  EXPECT_EQ(oru_computation_graph_topo_sort(h), ORU_RET_OK);
  EXPECT_EQ(oru_prepare_inference_computation(h), ORU_RET_OK);
  EXPECT_EQ(oru_computation_graph_inference(h), ORU_RET_OK);
  EXPECT_EQ(oru_prepare_backward_computation(h), ORU_RET_OK);
  EXPECT_EQ(oru_computation_graph_backward(h), ORU_RET_OK);
  EXPECT_EQ(oru_get_computation_node_inference_data(h, 0), nullptr);

  ASSERT_EQ(oru_add_one_edge_into_computation_graph(h, 0, 1), ORU_RET_OK);
  // Edges but no sort: no tables exist yet.
  oru_cg_node_desc relu = {ORU_CG_OP_RELU, nullptr};
  EXPECT_EQ(oru_bind_operator_onto_computation_graph(h, 1, &relu, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_prepare_inference_computation(h), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_computation_graph_inference(h), ORU_RET_OK);
  EXPECT_EQ(oru_prepare_backward_computation(h), ORU_RET_ERR_MEMORY);
  EXPECT_EQ(oru_init_relu_context(h, 1, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_init_unary_context_inference(h, 1), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_get_unary_inference_data(h, 1), nullptr);

  ASSERT_EQ(oru_computation_graph_topo_sort(h), ORU_RET_OK);
  // Sorted, nothing bound.
  EXPECT_EQ(oru_prepare_inference_computation(h), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_computation_graph_inference(h), ORU_RET_OK);
  EXPECT_EQ(oru_get_computation_node_inference_data(h, 1), nullptr);
  for (int32_t id : {-1, 2, 255, 1 << 30}) {
    EXPECT_EQ(oru_get_computation_node_inference_data(h, id), nullptr);
    EXPECT_EQ(oru_get_computation_node_inference_dev_data(h, id), nullptr);
    EXPECT_EQ(oru_bind_operator_onto_computation_graph(h, id, &relu, nullptr), ORU_RET_ERR_PARA);
    EXPECT_EQ(oru_init_relu_context(h, id, nullptr), ORU_RET_ERR_PARA);
    EXPECT_EQ(oru_init_unary_context_inference(h, id), ORU_RET_ERR_PARA);
    EXPECT_EQ(oru_get_unary_inference_data(h, id), nullptr);
    EXPECT_EQ(oru_cg_get_q_from_list(h, id), -1);
  }
  // A relu whose source is unbound, and a second relu init on the same node.
  ASSERT_EQ(oru_bind_operator_onto_computation_graph(h, 1, &relu, nullptr), ORU_RET_OK);
  EXPECT_EQ(oru_init_relu_context(h, 1, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_init_unary_context_inference(h, 1), ORU_RET_ERR_MEMORY);
  EXPECT_EQ(oru_init_unary_context_inference(h, 0), ORU_RET_ERR_PARA);  // not a unary node
  // An input node without a tensor: the relu gets nothing and prepare stops there.
  oru_cg_node_desc input = {ORU_CG_OP_INPUT, nullptr};
  ASSERT_EQ(oru_bind_operator_onto_computation_graph(h, 0, &input, nullptr), ORU_RET_OK);
  EXPECT_EQ(oru_prepare_inference_computation(h), ORU_RET_ERR_MEMORY);
  EXPECT_EQ(oru_computation_graph_inference(h), ORU_RET_OK);  // nothing to work on: no work
  EXPECT_EQ(oru_release_computation_graph_handle(&h), ORU_RET_OK);
  EXPECT_EQ(h, nullptr);
  testing::internal::GetCapturedStdout();
}

TEST(GraphRobustness, ReluForwardOnBrokenContexts) {
  EXPECT_EQ(oru_cg_relu_func(nullptr), ORU_RET_ERR_PARA);
  oru_cg_unary_context c = {};
  c.op_type = ORU_CG_OP_RELU;
  EXPECT_EQ(oru_cg_relu_func(&c), ORU_RET_OK);  // no tensors: no work

  // A byte tensor behind the float forward holds less than one float: untouched.
  const int32_t three[] = {3};
  oru_tensor *bytes = oru_create_tensor(1, three, ai8u);
  ASSERT_NE(bytes, nullptr);
  std::memset(bytes->data, 0xFF, 3);
  c.input = c.output = bytes;
  EXPECT_EQ(oru_cg_relu_func(&c), ORU_RET_OK);
  EXPECT_EQ(static_cast<uint8_t *>(bytes->data)[2], 0xFF);

  // An output smaller than the input gets only what it holds.
  const int32_t five[] = {5}, two[] = {2};
  oru_tensor *in = oru_create_tensor(1, five, aif32);
  oru_tensor *out = oru_create_tensor(1, two, aif32);
  ASSERT_TRUE(in && out);
  for (int i = 0; i < 5; ++i) static_cast<float *>(in->data)[i] = float(i) - 2.0f;
  c.input = in;
  c.output = out;
  EXPECT_EQ(oru_cg_relu_func(&c), ORU_RET_OK);
  EXPECT_EQ(static_cast<float *>(out->data)[0], 0.0f);
  EXPECT_EQ(static_cast<float *>(out->data)[1], 0.0f);
  oru_release_tensor(&in);
  oru_release_tensor(&out);
  oru_release_tensor(&bytes);
}

}  // namespace
