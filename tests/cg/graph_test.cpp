#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "cg/oru_cg_internal.h"
#include "oru_cg.h"
#include "oru_test_util.h"

namespace {

// A handle that goes back on every path out of a test; creation prints an info line.
struct Graph {
  oru_cg_handle *h;
  explicit Graph(const oru_cg_params *p = nullptr) {
    testing::internal::CaptureStdout();
    h = oru_create_computation_graph_handle(p);
    testing::internal::GetCapturedStdout();
  }
  ~Graph() {
    if (h) oru_release_computation_graph_handle(&h);
  }
};

struct Tensor {
  oru_tensor *t;
  explicit Tensor(std::vector<int32_t> dims, uint32_t type = aif32)
      : t(oru_create_tensor(int32_t(dims.size()), dims.data(), type)) {}
  ~Tensor() {
    if (t) oru_release_tensor(&t);
  }
  float *f() const { return static_cast<float *>(t->data); }
};

uint32_t bind_tensor(oru_cg_handle *h, int32_t node, int32_t op, oru_tensor *t) {
  const oru_cg_node_desc d = {op, t};
  return oru_bind_operator_onto_computation_graph(h, node, &d, nullptr);
}

uint32_t bind_op(oru_cg_handle *h, int32_t node, int32_t op) {
  const oru_cg_node_desc d = {op, nullptr};
  return oru_bind_operator_onto_computation_graph(h, node, &d, nullptr);
}

std::vector<int32_t> order_of(const oru_cg_handle *h) {
  return std::vector<int32_t>(h->topo_order, h->topo_order + h->nodes->size);
}

// 0 for x > 0 kept, else +0: the rectifier written out independently of the library.
float rectified(float x) { return std::isnan(x) || x <= 0.0f ? 0.0f : x; }

TEST(GraphHandle, CreationDefaultsAndInfoLines) {
  testing::internal::CaptureStdout();
  oru_cg_handle *h = oru_create_computation_graph_handle(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "ORU_INFO: oru go to cpu backend!\n");
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->max_nodes, 256);
  EXPECT_EQ(h->conv_workers, 1u);
  EXPECT_EQ(h->backend, 0u);
  EXPECT_EQ(oru_get_cg_conv_method(h), 2u);
  EXPECT_EQ(oru_cg_get_dev_type(h), 0u);
  EXPECT_EQ(oru_get_dev_context_from_cg_handle(h), nullptr);
  EXPECT_EQ(h->q_list, nullptr);
  EXPECT_EQ(h->contexts, nullptr);
  EXPECT_EQ(h->topo_order, nullptr);
  ASSERT_NE(h->operators, nullptr);
  EXPECT_EQ(h->operators[16].init_context, &oru_init_relu_context);
  EXPECT_EQ(h->operators[16].get_inference_data, &oru_get_unary_inference_data);
  EXPECT_EQ(h->operators[16].get_dev_data, nullptr);
  EXPECT_EQ(h->operators[6].init_context, nullptr);
  EXPECT_EQ(oru_release_computation_graph_handle(&h), ORU_RET_OK);
  EXPECT_EQ(h, nullptr);
  EXPECT_EQ(oru_release_computation_graph_handle(&h), ORU_RET_ERR_MEMORY);  // a second release
  EXPECT_EQ(oru_release_computation_graph_handle(nullptr), ORU_RET_ERR_MEMORY);

  const oru_cg_params fixed = {12, 3, 99, 99, 1};
  testing::internal::CaptureStdout();
  h = oru_create_computation_graph_handle(&fixed);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "ORU_INFO: oru go to fixed point cpu backend!\n");
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->max_nodes, 12);
  EXPECT_EQ(h->conv_workers, 3u);
  EXPECT_EQ(h->backend, 1u);
  oru_release_computation_graph_handle(&h);

  const oru_cg_params none = {0, 1, 0, 0, 0};
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_create_computation_graph_handle(&none), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout().rfind("Error occurred: Allocating memory failure! ", 0), 0u);
}

TEST(GraphHandle, SettersAndQList) {
  Graph g;
  ASSERT_NE(g.h, nullptr);
  EXPECT_EQ(oru_cg_set_conv_method(g.h, 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_get_cg_conv_method(g.h), 2u);
  EXPECT_EQ(oru_cg_set_conv_method(g.h, 0), ORU_RET_OK);
  EXPECT_EQ(oru_get_cg_conv_method(g.h), 0u);
  EXPECT_EQ(oru_cg_set_dev_type(g.h, 77), ORU_RET_OK);
  EXPECT_EQ(oru_cg_get_dev_type(g.h), 77u);

  EXPECT_EQ(oru_cg_get_q_from_list(g.h, 0), -1);
  auto *q = static_cast<int32_t *>(oru_calloc(256, sizeof(int32_t)));
  q[3] = 11;
  q[255] = 7;
  EXPECT_EQ(oru_cg_set_ptr_q_list(g.h, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_cg_set_ptr_q_list(g.h, q), ORU_RET_OK);  // the handle frees it
  EXPECT_EQ(oru_cg_get_q_from_list(g.h, 3), 11);
  EXPECT_EQ(oru_cg_get_q_from_list(g.h, 255), 7);
  EXPECT_EQ(oru_cg_get_q_from_list(g.h, 256), -1);
  EXPECT_EQ(oru_cg_get_q_from_list(g.h, -1), -1);
  EXPECT_EQ(oru_cg_get_q_from_list(nullptr, 3), -1);
}

TEST(GraphEdges, BoundsListsAndDuplicates) {
  Graph g;
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_add_one_edge_into_computation_graph(g.h, 0, 256), ORU_RET_ERR_PARA);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");  // too large: refused silently
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_add_one_edge_into_computation_graph(g.h, -1, 2), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_add_one_edge_into_computation_graph(nullptr, 0, 1), ORU_RET_ERR_PARA);
  EXPECT_EQ(testing::internal::GetCapturedStdout().rfind("Error occurred: Your input params are wrong! ", 0), 0u);
  EXPECT_EQ(g.h->nodes->size, 0);

  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 3, 255), ORU_RET_OK);
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 3, 1), ORU_RET_OK);
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 3, 1), ORU_RET_OK);
  const auto *nodes = static_cast<const int32_t *>(g.h->nodes->data);
  ASSERT_EQ(g.h->nodes->size, 3);
  EXPECT_EQ(nodes[0], 3);
  EXPECT_EQ(nodes[1], 255);
  EXPECT_EQ(nodes[2], 1);
  ASSERT_EQ(g.h->out_edges[3]->size, 3);
  const auto *out = static_cast<const int32_t *>(g.h->out_edges[3]->data);
  EXPECT_EQ(out[0], 255);
  EXPECT_EQ(out[1], 1);
  EXPECT_EQ(out[2], 1);
  EXPECT_EQ(oru::cg_in_edge_count(g.h, 1), 2);
  EXPECT_EQ(oru::cg_in_edge(g.h, 1, 1), 3);
  // Ids that aren't 0..N-1 can't index the tables the sort makes.
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
}

TEST(GraphSort, WorkedOrdersAndCycle) {
  {
    Graph g;
    for (auto e : {std::pair<int, int>{0, 2}, {1, 2}, {2, 3}})
      ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, e.first, e.second), ORU_RET_OK);
    ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
    EXPECT_EQ(order_of(g.h), (std::vector<int32_t>{0, 1, 2, 3}));
  }
  {
    Graph g;
    ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 1, 0), ORU_RET_OK);
    ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
    EXPECT_EQ(order_of(g.h), (std::vector<int32_t>{1, 0}));
  }
  {
    // Equal rank: rising ids at the start, then the order of out-edge insertion.
    Graph g;
    for (auto e : {std::pair<int, int>{2, 5}, {2, 4}, {2, 3}, {0, 1}})
      ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, e.first, e.second), ORU_RET_OK);
    ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
    EXPECT_EQ(order_of(g.h), (std::vector<int32_t>{0, 2, 1, 5, 4, 3}));
  }
  {
    Graph g;
    ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 0, 1), ORU_RET_OK);
    ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 1, 0), ORU_RET_OK);
    testing::internal::CaptureStdout();
    EXPECT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_ERR_UNKNOWN);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("Error occurred: There exists a cycle in the graph \n", 0), 0u) << out;
  }
}

TEST(GraphRun, InputThroughReluRectifiesTheClientTensorInPlace) {
  Graph g;
  Tensor in({4, 3, 2});
  ASSERT_NE(in.t, nullptr);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<float> x = {-2.5f, -0.0f, 0.0f, 1.5f, nan, -nan, 3e38f, -3e38f, 1e-45f, -1e-45f,
                          std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()};
  const auto more = oru_test::random_values<float>(12, -10, 10, 5);
  x.insert(x.end(), more.begin(), more.end());
  std::memcpy(in.f(), x.data(), 24 * sizeof(float));

  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 0, 1), ORU_RET_OK);
  ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
  ASSERT_EQ(bind_tensor(g.h, 0, ORU_CG_OP_INPUT, in.t), ORU_RET_OK);
  ASSERT_EQ(bind_op(g.h, 1, ORU_CG_OP_RELU), ORU_RET_OK);
  ASSERT_EQ(oru_prepare_inference_computation(g.h), ORU_RET_OK);
  ASSERT_EQ(oru_computation_graph_inference(g.h), ORU_RET_OK);

  EXPECT_EQ(oru_get_computation_node_inference_data(g.h, 1), in.t);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_get_computation_node_inference_data(g.h, 0), nullptr);
  EXPECT_EQ(oru_get_computation_node_inference_dev_data(g.h, 1), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");  // no report for either
  for (int i = 0; i < 24; ++i) {
    const float want = rectified(x[size_t(i)]);
    uint32_t got_bits, want_bits;
    std::memcpy(&got_bits, &in.f()[i], 4);
    std::memcpy(&want_bits, &want, 4);
    EXPECT_EQ(got_bits, want_bits) << "index " << i << " input " << x[size_t(i)];
  }
}

TEST(GraphRun, InferenceAllocatesNothingAfterPrepare) {
  Graph g;
  Tensor in({300});
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 0, 1), ORU_RET_OK);
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 1, 2), ORU_RET_OK);
  ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
  ASSERT_EQ(bind_tensor(g.h, 0, ORU_CG_OP_INPUT, in.t), ORU_RET_OK);
  ASSERT_EQ(bind_op(g.h, 1, ORU_CG_OP_RELU), ORU_RET_OK);
  ASSERT_EQ(bind_op(g.h, 2, ORU_CG_OP_RELU), ORU_RET_OK);
  ASSERT_EQ(oru_prepare_inference_computation(g.h), ORU_RET_OK);
  const auto x = oru_test::random_values<float>(300, -1, 1, 9);
  std::memcpy(in.f(), x.data(), x.size() * 4);
  const int64_t before = oru_test::malloc_calls();
  for (int run = 0; run < 5; ++run) ASSERT_EQ(oru_computation_graph_inference(g.h), ORU_RET_OK);
  EXPECT_EQ(oru_test::malloc_calls(), before);
  EXPECT_EQ(oru_get_computation_node_inference_data(g.h, 2), in.t);
  for (int i = 0; i < 300; ++i) ASSERT_EQ(in.f()[i], rectified(x[size_t(i)]));
}

TEST(GraphBind, SecondBindEmptySlotAndBadOpCodes) {
  Graph g;
  Tensor in({4});
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 0, 1), ORU_RET_OK);
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 1, 2), ORU_RET_OK);
  testing::internal::CaptureStdout();
  EXPECT_EQ(bind_tensor(g.h, 0, ORU_CG_OP_INPUT, in.t), ORU_RET_ERR_PARA);  // before the sort
  testing::internal::GetCapturedStdout();
  ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
  ASSERT_EQ(bind_tensor(g.h, 0, ORU_CG_OP_INPUT, in.t), ORU_RET_OK);

  testing::internal::CaptureStdout();
  EXPECT_EQ(bind_op(g.h, 0, ORU_CG_OP_RELU), ORU_RET_ERR_PARA);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("Error occurred: Params Error! \n", 0), 0u) << out;
  EXPECT_NE(out.find("the 0 th node operator has been bound!\n"), std::string::npos) << out;
  EXPECT_EQ(oru::cg_op_type(g.h, 0), ORU_CG_OP_INPUT);  // the first binding stands

  testing::internal::CaptureStdout();
  EXPECT_EQ(bind_op(g.h, 1, 41), ORU_RET_ERR_PARA);
  EXPECT_EQ(bind_op(g.h, 1, -1), ORU_RET_ERR_PARA);
  EXPECT_EQ(bind_op(g.h, 3, ORU_CG_OP_RELU), ORU_RET_ERR_PARA);  // not a node
  EXPECT_EQ(oru_bind_operator_onto_computation_graph(g.h, 1, nullptr, nullptr), ORU_RET_ERR_PARA);
  out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("Error occurred: Params Error!\n \n", 0), 0u) << out;

  EXPECT_EQ(bind_op(g.h, 1, 6), ORU_RET_OK);  // an empty slot binds, and makes no context
  EXPECT_EQ(bind_op(g.h, 2, ORU_CG_OP_RELU), ORU_RET_OK);
  EXPECT_EQ(oru_prepare_backward_computation(g.h), ORU_RET_ERR_MEMORY);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_prepare_inference_computation(g.h), ORU_RET_ERR_PARA);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(GraphBackward, ScaffoldingOnABoundGraph) {
  Graph g;
  Tensor in({2});
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 0, 1), ORU_RET_OK);
  ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
  ASSERT_EQ(bind_tensor(g.h, 0, ORU_CG_OP_INPUT, in.t), ORU_RET_OK);
  ASSERT_EQ(bind_op(g.h, 1, ORU_CG_OP_RELU), ORU_RET_OK);
  EXPECT_EQ(oru_prepare_backward_computation(g.h), ORU_RET_OK);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_computation_graph_backward(g.h), ORU_RET_OK);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(GraphRun, ReluOfAWeightNodeYieldsNothing) {
  Graph g;
  Tensor w({3});
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 0, 1), ORU_RET_OK);
  ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
  ASSERT_EQ(bind_tensor(g.h, 0, ORU_CG_OP_WEIGHT, w.t), ORU_RET_OK);
  ASSERT_EQ(bind_op(g.h, 1, ORU_CG_OP_RELU), ORU_RET_OK);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_prepare_inference_computation(g.h), ORU_RET_ERR_MEMORY);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "ORU_ERROR: failed to prepare inference node:1!!!\n");
}

TEST(GraphRun, ExternalDeviceGetsAHeaderOutputAndNoWork) {
  Graph g;
  Tensor in({5});
  for (int i = 0; i < 5; ++i) in.f()[i] = -1.0f;
  ASSERT_EQ(oru_cg_set_dev_type(g.h, 2), ORU_RET_OK);
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 0, 1), ORU_RET_OK);
  ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
  ASSERT_EQ(bind_tensor(g.h, 0, ORU_CG_OP_INPUT, in.t), ORU_RET_OK);
  ASSERT_EQ(bind_op(g.h, 1, ORU_CG_OP_RELU), ORU_RET_OK);
  ASSERT_EQ(oru_prepare_inference_computation(g.h), ORU_RET_OK);
  oru_tensor *out = oru_get_computation_node_inference_data(g.h, 1);
  ASSERT_NE(out, nullptr);
  EXPECT_NE(out, in.t);
  EXPECT_EQ(out->data, nullptr);
  EXPECT_EQ(out->total_elements, 5);
  ASSERT_EQ(oru_computation_graph_inference(g.h), ORU_RET_OK);
  EXPECT_EQ(in.f()[0], -1.0f);  // the header has no storage, so nothing was computed
}

}  // namespace

namespace {

TEST(GraphRun, FixedPointHandleGivesUnaryNodesTheirQValues) {
  const oru_cg_params fixed = {8, 1, 0, 0, ORU_CG_BACKEND_FIXED};
  Graph g(&fixed);
  ASSERT_NE(g.h, nullptr);
  Tensor in({4});
  auto *q = static_cast<int32_t *>(oru_calloc(8, sizeof(int32_t)));
  q[0] = 9;
  q[1] = 12;
  ASSERT_EQ(oru_cg_set_ptr_q_list(g.h, q), ORU_RET_OK);
  ASSERT_EQ(oru_add_one_edge_into_computation_graph(g.h, 0, 1), ORU_RET_OK);
  ASSERT_EQ(oru_computation_graph_topo_sort(g.h), ORU_RET_OK);
  ASSERT_EQ(bind_tensor(g.h, 0, ORU_CG_OP_INPUT, in.t), ORU_RET_OK);
  ASSERT_EQ(bind_op(g.h, 1, ORU_CG_OP_RELU), ORU_RET_OK);
  ASSERT_EQ(oru_prepare_inference_computation(g.h), ORU_RET_OK);
  const auto *c = static_cast<const oru_cg_unary_context *>(g.h->contexts[1]);
  EXPECT_EQ(c->q_in, 9);
  EXPECT_EQ(c->q_out, 12);
  EXPECT_EQ(c->backend, 0u);  // relu keeps no backend of its own
}

}  // namespace
