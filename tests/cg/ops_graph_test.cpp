// The float operators run through the graph API, against PyTorch and NumPy references.
#include <gtest/gtest.h>

#include <cmath>

#include "ops_graph_support.h"
#include "oru_fixed.h"

namespace {

using ops_test::Array;
using ops_test::load_case;
using ops_test::Net;

// input -> op, run once; returns the op node's output (null on any failure).
oru_tensor *run_unary(Net &net, int32_t op, const Array &x) {
  net.edge(0, 1);
  EXPECT_EQ(net.sort(), 0u);
  oru_tensor *in = net.tensor(x);
  EXPECT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, in), 0u);
  EXPECT_EQ(net.bind_op(1, op), 0u);
  EXPECT_EQ(net.prepare(), 0u);
  EXPECT_EQ(net.run(), 0u);
  return net.out(1);
}

TEST(UnaryOps, MatchTorchInPlace) {
  const struct {
    const char *file;
    int32_t op;
    double tol;
  } cases[] = {{"sigmoid", ORU_CG_OP_SIGMOID, 3e-7},   {"hswish", ORU_CG_OP_HSWISH, 3e-7},
               {"relu6", ORU_CG_OP_RELU6, 0},          {"softmax_7x5", ORU_CG_OP_SOFTMAX, 2e-6},
               {"softmax_2x33", ORU_CG_OP_SOFTMAX, 2e-6}, {"softmax_37x3", ORU_CG_OP_SOFTMAX, 3e-6}};
  for (const auto &c : cases) {
    const auto data = load_case(c.file);
    ASSERT_EQ(data.size(), 2u) << c.file;
    Net net;
    oru_tensor *y = run_unary(net, c.op, data[0]);
    // On the CPU the unary operators work in place: the output is the client's tensor.
    EXPECT_EQ(y, net.tensors[0]) << c.file;
    ops_test::expect_close(y, data[1], c.tol, c.file);
  }
}

TEST(UnaryOps, SoftmaxRowsFollowDimZero) {
  Net net;
  Array x{{3, 2}, {1, 2, 3, 5, 5, 5}};
  oru_tensor *y = run_unary(net, ORU_CG_OP_SOFTMAX, x);
  const auto v = ops_test::values_of(y);
  ASSERT_EQ(v.size(), 6u);
  const double s = std::exp(1.0) + std::exp(2.0) + std::exp(3.0);
  EXPECT_NEAR(v[0], std::exp(1.0) / s, 1e-7);
  EXPECT_NEAR(v[2], std::exp(3.0) / s, 1e-7);
  for (int i = 3; i < 6; ++i) EXPECT_NEAR(v[size_t(i)], 1.0 / 3.0, 1e-7);
}

TEST(UnaryOps, ChainSharesTheClientTensor) {
  Net net;
  net.edge(0, 1);
  net.edge(1, 2);
  ASSERT_EQ(net.sort(), 0u);
  oru_tensor *in = net.tensor({4, 1}, {-1, 0, 1, 2});
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, in), 0u);
  ASSERT_EQ(net.bind_op(1, ORU_CG_OP_RELU), 0u);
  ASSERT_EQ(net.bind_op(2, ORU_CG_OP_SOFTMAX), 0u);
  ASSERT_EQ(net.prepare(), 0u);
  ASSERT_EQ(net.run(), 0u);
  EXPECT_EQ(net.out(1), in);
  EXPECT_EQ(net.out(2), in);
  const auto v = ops_test::values_of(in);
  const double s = 2 + std::exp(1.0) + std::exp(2.0);
  EXPECT_NEAR(v[0], 1 / s, 1e-7);
  EXPECT_NEAR(v[3], std::exp(2.0) / s, 1e-7);
}

// a (node 0) and b (node 1) -> op (node 2).
uint32_t run_binary(Net &net, int32_t op, const Array &a, const Array &b, int32_t b_kind = ORU_CG_OP_INPUT) {
  net.edge(0, 2);
  net.edge(1, 2);
  EXPECT_EQ(net.sort(), 0u);
  EXPECT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor(a)), 0u);
  EXPECT_EQ(net.bind_tensor(1, b_kind, net.tensor(b)), 0u);
  EXPECT_EQ(net.bind_op(2, op), 0u);
  const uint32_t st = net.prepare();
  return st ? st : net.run();
}

TEST(BinaryOps, AddAndMulBroadcastsAgainstTorch) {
  const struct {
    const char *file;
    int32_t op;
  } cases[] = {{"add_same", ORU_CG_OP_ADD}, {"add_channel", ORU_CG_OP_ADD}, {"mul_channel", ORU_CG_OP_MUL},
               {"mul_same", ORU_CG_OP_MUL}};
  for (const auto &c : cases) {
    const auto d = load_case(c.file);
    ASSERT_EQ(d.size(), 3u);
    Net net;
    ASSERT_EQ(run_binary(net, c.op, d[0], d[1]), 0u) << c.file;
    ops_test::expect_close(net.out(2), d[2], 1e-7, c.file);
    EXPECT_NE(net.out(2), net.tensors[0]) << "add and mul have an output of their own";
  }
}

TEST(BinaryOps, MulScalesChannelsFromEitherSide) {
  const auto d = load_case("mul_channel");
  Net net;
  ASSERT_EQ(run_binary(net, ORU_CG_OP_MUL, d[1], d[0]), 0u);
  ops_test::expect_close(net.out(2), d[2], 1e-7, "mul reversed");
}

TEST(BinaryOps, AddRefusesAVectorAsFirstOperand) {
  const auto d = load_case("add_channel");
  Net net;
  testing::internal::CaptureStdout();
  EXPECT_EQ(run_binary(net, ORU_CG_OP_ADD, d[1], d[0]), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
}

TEST(BinaryOps, AddNeedsExactlyTwoEdges) {
  Net net;
  net.edge(0, 1);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor({3}, {1, 2, 3})), 0u);
  ASSERT_EQ(net.bind_op(1, ORU_CG_OP_ADD), 0u);
  testing::internal::CaptureStdout();
  EXPECT_EQ(net.prepare(), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
}

TEST(BinaryOps, BiasAddsPerChannelInPlace) {
  const auto d = load_case("add_channel");
  Net net;
  ASSERT_EQ(run_binary(net, ORU_CG_OP_BIAS, d[0], d[1], ORU_CG_OP_WEIGHT), 0u);
  EXPECT_EQ(net.out(2), net.tensors[0]);
  ops_test::expect_close(net.tensors[0], d[2], 1e-7, "bias");
}

TEST(LinearOp, RowsTimesWeightsWithBiasOnTheFirstRow) {
  const auto d = load_case("linear");
  ASSERT_EQ(d.size(), 4u);
  for (int32_t has_bias : {0, 1}) {
    Net net;
    oru_cg_linear_params p{13, 7, has_bias};
    net.edge(0, 2);
    net.edge(1, 2);
    ASSERT_EQ(net.sort(), 0u);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor(d[0])), 0u);
    ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_WEIGHT, net.tensor(d[1])), 0u);
    ASSERT_EQ(net.bind_op(2, ORU_CG_OP_LINEAR, &p), 0u);
    ASSERT_EQ(net.prepare(), 0u);
    ASSERT_EQ(net.run(), 0u);
    ops_test::expect_close(net.out(2), d[has_bias ? 3 : 2], 1e-5, "linear");
  }
}

TEST(BatchNorm, OneAndTwoDimensionalAgainstReferences) {
  for (const char *file : {"bn1d", "bn2d"}) {
    const auto d = load_case(file);
    ASSERT_EQ(d.size(), 4u);
    Net net;
    oru_cg_bn_params p{0, d[3].values[0]};
    net.edge(1, 2);
    net.edge(0, 2);
    ASSERT_EQ(net.sort(), 0u);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor(d[0])), 0u);
    ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_WEIGHT, net.tensor(d[1])), 0u);
    ASSERT_EQ(net.bind_op(2, std::string(file) == "bn1d" ? ORU_CG_OP_BN1D : ORU_CG_OP_BN2D, &p), 0u);
    ASSERT_EQ(net.prepare(), 0u);
    ASSERT_EQ(net.run(), 0u);
    ops_test::expect_close(net.out(2), d[2], 1e-6, file);
  }
}

TEST(BatchNorm, RefusesMoreThanTwoEdges) {
  Net net;
  oru_cg_bn_params p{0, 1e-5f};
  for (int32_t s : {0, 1, 2}) net.edge(s, 3);
  ASSERT_EQ(net.sort(), 0u);
  for (int32_t s : {0, 1, 2}) ASSERT_EQ(net.bind_tensor(s, ORU_CG_OP_INPUT, net.tensor({4}, {1, 2, 3, 4})), 0u);
  ASSERT_EQ(net.bind_op(3, ORU_CG_OP_BN1D, &p), 0u);
  testing::internal::CaptureStdout();
  EXPECT_EQ(net.prepare(), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
}

TEST(AffineOp, MatchesTorchGridSampleInEitherEdgeOrder) {
  for (const char *file : {"affine_a", "affine_b", "affine_c"}) {
    const auto d = load_case(file);
    ASSERT_EQ(d.size(), 4u);
    for (bool matrix_first : {false, true}) {
      Net net;
      oru_cg_affine_params p{0, 0, d[3].values[0], d[3].values[0], 0, int32_t(d[3].values[1])};
      net.edge(matrix_first ? 1 : 0, 2);
      net.edge(matrix_first ? 0 : 1, 2);
      ASSERT_EQ(net.sort(), 0u);
      ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor(d[0])), 0u);
      ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_INPUT, net.tensor(d[1])), 0u);
      ASSERT_EQ(net.bind_op(2, ORU_CG_OP_AFFINE, &p), 0u);
      ASSERT_EQ(net.prepare(), 0u);
      ASSERT_EQ(net.run(), 0u);
      ops_test::expect_close(net.out(2), d[2], 2e-5, file);
    }
  }
}

TEST(AffineOp, IdentityGivesTheInputBack) {
  for (int32_t corners : {0, 1}) {
    Net net;
    oru_cg_affine_params p{0, 0, 1.0f, 1.0f, 0, corners};
    net.edge(0, 2);
    net.edge(1, 2);
    ASSERT_EQ(net.sort(), 0u);
    const auto x = oru_test::random_values<float>(5 * 4 * 2, -1, 1, 3);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor({5, 4, 2}, x)), 0u);
    ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_INPUT, net.tensor({6}, {1, 0, 0, 0, 1, 0})), 0u);
    ASSERT_EQ(net.bind_op(2, ORU_CG_OP_AFFINE, &p), 0u);
    ASSERT_EQ(net.prepare(), 0u);
    ASSERT_EQ(net.run(), 0u);
    ops_test::expect_close(net.out(2), Array{{5, 4, 2}, x}, 1e-5, "identity");
  }
}

TEST(PoolOps, MaxAndAverageAgainstTorch) {
  for (const char *file : {"pool_2", "pool_3", "pool_global"}) {
    const auto d = load_case(file);
    ASSERT_EQ(d.size(), 4u);
    const int32_t k = int32_t(d[3].values[0]);
    for (int which = 0; which < 2; ++which) {
      Net net;
      oru_cg_pool_params p{k, k, k, k, {0, 0}};
      net.edge(0, 1);
      ASSERT_EQ(net.sort(), 0u);
      ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor(d[0])), 0u);
      ASSERT_EQ(net.bind_op(1, which == 0 ? ORU_CG_OP_MAX_POOL2D : ORU_CG_OP_AVG_POOL2D, &p), 0u);
      ASSERT_EQ(net.prepare(), 0u);
      ASSERT_EQ(net.run(), 0u);
      ops_test::expect_close(net.out(1), d[size_t(1 + which)], 1e-6, file);
    }
  }
}

TEST(ShapeOps, ConcatAlongChannelsAndRowsAgainstNumpy) {
  for (const char *file : {"concat_c", "concat_w"}) {
    const auto d = load_case(file);
    Net net;
    const int32_t ids[2] = {0, 1};
    oru_cg_concat_params p{uint32_t(d[0].dims.size() == 3 ? 2 : 0), 2, ids};
    net.edge(0, 2);
    net.edge(1, 2);
    ASSERT_EQ(net.sort(), 0u);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor(d[0])), 0u);
    ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_INPUT, net.tensor(d[1])), 0u);
    ASSERT_EQ(net.bind_op(2, ORU_CG_OP_CONCAT, &p), 0u);
    ASSERT_EQ(net.prepare(), 0u);
    ASSERT_EQ(net.run(), 0u);
    ops_test::expect_close(net.out(2), d[2], 0, file);
  }
}

TEST(ShapeOps, ConcatFollowsItsListAndRefusesStrangers) {
  Net net;
  const int32_t ids[2] = {1, 0};
  oru_cg_concat_params p{2, 2, ids};
  net.edge(0, 3);
  net.edge(1, 3);
  net.edge(2, 4);
  net.edge(0, 4);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor({1, 1, 2}, {1, 2})), 0u);
  ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_INPUT, net.tensor({1, 1, 1}, {9})), 0u);
  ASSERT_EQ(net.bind_tensor(2, ORU_CG_OP_INPUT, net.tensor({1, 1, 1}, {5})), 0u);
  ASSERT_EQ(net.bind_op(3, ORU_CG_OP_CONCAT, &p), 0u);
  const int32_t wrong[2] = {1, 0};
  oru_cg_concat_params q{2, 2, wrong};
  ASSERT_EQ(net.bind_op(4, ORU_CG_OP_CONCAT, &q), 0u);
  testing::internal::CaptureStdout();
  // Node 4's edges come from 2 and 0, but its list names 1 and 0.
  EXPECT_EQ(net.prepare(), ORU_RET_ERR_PARA);
  // Node 3 comes first in the order and was prepared; node 4 has no output and stops the run.
  EXPECT_EQ(net.run(), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(ops_test::values_of(net.out(3)), (std::vector<float>{9, 1, 2}));
}

TEST(ShapeOps, SplitAndShuffleAgainstNumpy) {
  {
    const auto d = load_case("split_odd");
    Net net;
    oru_cg_split_params p{0, 2, 1, 2, 0};
    net.edge(0, 1);
    ASSERT_EQ(net.sort(), 0u);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor(d[0])), 0u);
    ASSERT_EQ(net.bind_op(1, ORU_CG_OP_SPLIT, &p), 0u);
    ASSERT_EQ(net.prepare(), 0u);
    ASSERT_EQ(net.run(), 0u);
    ops_test::expect_close(net.out(1), d[1], 0, "split");
  }
  {
    const auto d = load_case("shuffle");
    Net net;
    std::vector<int32_t> order;
    for (float f : d[1].values) order.push_back(int32_t(f));
    oru_cg_shuffle_params p{0, int32_t(order.size()), order.data()};
    net.edge(0, 1);
    ASSERT_EQ(net.sort(), 0u);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor(d[0])), 0u);
    ASSERT_EQ(net.bind_op(1, ORU_CG_OP_SHUFFLE, &p), 0u);
    order.assign(order.size(), 0);  // the operator keeps its own copy
    ASSERT_EQ(net.prepare(), 0u);
    ASSERT_EQ(net.run(), 0u);
    ops_test::expect_close(net.out(1), d[2], 0, "shuffle");
  }
}

TEST(ShapeOps, SplitRefusesMoreGroupsThanChannels) {
  Net net;
  oru_cg_split_params p{0, 7, 0, 1, 0};
  net.edge(0, 1);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor({2, 2, 6}, {})), 0u);
  ASSERT_EQ(net.bind_op(1, ORU_CG_OP_SPLIT, &p), 0u);
  testing::internal::CaptureStdout();
  EXPECT_EQ(net.prepare(), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
}

TEST(ShapeOps, ReshapeInfersOneDimensionAndCopies) {
  const struct {
    oru_cg_reshape_params p;
    uint32_t status;
  } cases[] = {{{2, {-1, 6, 0, 0, 0}}, 0}, {{2, {-1, -1, 0, 0, 0}}, 1}, {{2, {0, 24, 0, 0, 0}}, 1},
               {{6, {24, 1, 1, 1, 1}}, 1}, {{3, {2, -1, 3, 0, 0}}, 0}};
  for (const auto &c : cases) {
    Net net;
    net.edge(0, 1);
    ASSERT_EQ(net.sort(), 0u);
    const auto x = oru_test::random_values<float>(24, -1, 1, 5);
    oru_tensor *in = net.tensor({4, 3, 2}, x);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, in), 0u);
    ASSERT_EQ(net.bind_op(1, ORU_CG_OP_RESHAPE, &c.p), 0u);
    testing::internal::CaptureStdout();
    ASSERT_EQ(net.prepare(), c.status);
    testing::internal::GetCapturedStdout();
    if (c.status) continue;
    ASSERT_EQ(net.run(), 0u);
    oru_tensor *y = net.out(1);
    ASSERT_NE(y, nullptr);
    const std::vector<int32_t> want = c.p.ndims == 2 ? std::vector<int32_t>{4, 6} : std::vector<int32_t>{2, 4, 3};
    EXPECT_EQ(ops_test::dims_of(y), want);
    EXPECT_EQ(ops_test::values_of(y), x);
    static_cast<float *>(in->data)[0] = 100.0f;
    EXPECT_EQ(ops_test::values_of(y)[0], x[0]) << "a copy, not a view";
  }
}

TEST(OpsContract, NullParameterRecordsAreRefusedAtBind) {
  const int32_t ops[] = {ORU_CG_OP_LINEAR,  ORU_CG_OP_BN1D,    ORU_CG_OP_BN2D,  ORU_CG_OP_AFFINE, ORU_CG_OP_MAX_POOL2D,
                         ORU_CG_OP_AVG_POOL2D, ORU_CG_OP_RESHAPE, ORU_CG_OP_SPLIT, ORU_CG_OP_CONCAT, ORU_CG_OP_SHUFFLE};
  for (int32_t op : ops) {
    Net net;
    net.edge(0, 1);
    ASSERT_EQ(net.sort(), 0u);
    EXPECT_EQ(net.bind_op(1, op, nullptr), ORU_RET_ERR_PARA) << op;
  }
}

TEST(OpsContract, RebindingANodeKeepsTheFirstBinding) {
  Net net;
  net.edge(0, 1);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_op(1, ORU_CG_OP_SOFTMAX), 0u);
  testing::internal::CaptureStdout();
  EXPECT_EQ(net.bind_op(1, ORU_CG_OP_HSWISH), ORU_RET_ERR_PARA);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("the 1 th node operator has been bound!"), std::string::npos);
  oru_tensor *in = net.tensor({2}, {0, 0});
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, in), 0u);
  ASSERT_EQ(net.prepare(), 0u);
  ASSERT_EQ(net.run(), 0u);
  EXPECT_FLOAT_EQ(ops_test::values_of(in)[0], 0.5f) << "still a softmax";
}

TEST(OpsContract, FloatTensorsInAFixedPointGraphAreRefusedWithOneReport) {
  const int32_t ops[] = {ORU_CG_OP_HSWISH, ORU_CG_OP_SIGMOID};
  for (int32_t op : ops) {
    Net net(64, ORU_CG_BACKEND_FIXED);
    auto *q = static_cast<int32_t *>(oru_calloc(64, 4));
    q[0] = q[1] = 8;
    ASSERT_EQ(oru_cg_set_ptr_q_list(net.h, q), 0u);
    net.edge(0, 1);
    ASSERT_EQ(net.sort(), 0u);
    oru_tensor *in = oru_create_tensor(1, std::vector<int32_t>{8}.data(), aif32);
    net.tensors.push_back(in);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, in), 0u);
    ASSERT_EQ(net.bind_op(1, op), 0u);
    testing::internal::CaptureStdout();
    ASSERT_EQ(net.prepare(), 0u);
    EXPECT_EQ(net.run(), ORU_RET_ERR_PARA);
    const std::string out = testing::internal::GetCapturedStdout();
    size_t reports = 0;
    for (size_t at = out.find("Error occurred"); at != std::string::npos; at = out.find("Error occurred", at + 1))
      ++reports;
    EXPECT_EQ(reports, 1u) << out;
  }
}

TEST(OpsContract, RunningAllocatesNothing) {
  // input -> max pool -> hswish -> avg pool(global) -> reshape -> linear -> softmax, plus concat of two branches.
  Net net;
  oru_cg_pool_params mp{2, 2, 2, 2, {0, 0}};
  oru_cg_pool_params gp{4, 4, 4, 4, {0, 0}};
  oru_cg_reshape_params rp{2, {3, 1, 0, 0, 0}};
  oru_cg_linear_params lp{6, 4, 1};
  const int32_t ids[2] = {5, 4};
  oru_cg_concat_params cp{0, 2, ids};
  net.edge(0, 1);
  net.edge(1, 2);
  net.edge(2, 3);
  net.edge(3, 4);
  net.edge(3, 5);
  net.edge(4, 6);
  net.edge(5, 6);
  net.edge(6, 8);
  net.edge(7, 8);
  net.edge(8, 9);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor({8, 8, 3}, oru_test::random_values<float>(192, -1, 1, 1))),
            0u);
  ASSERT_EQ(net.bind_op(1, ORU_CG_OP_MAX_POOL2D, &mp), 0u);
  ASSERT_EQ(net.bind_op(2, ORU_CG_OP_HSWISH), 0u);
  ASSERT_EQ(net.bind_op(3, ORU_CG_OP_AVG_POOL2D, &gp), 0u);
  ASSERT_EQ(net.bind_op(4, ORU_CG_OP_RESHAPE, &rp), 0u);
  ASSERT_EQ(net.bind_op(5, ORU_CG_OP_RESHAPE, &rp), 0u);
  ASSERT_EQ(net.bind_op(6, ORU_CG_OP_CONCAT, &cp), 0u);
  ASSERT_EQ(net.bind_tensor(7, ORU_CG_OP_WEIGHT, net.tensor({28}, oru_test::random_values<float>(28, -1, 1, 2))), 0u);
  ASSERT_EQ(net.bind_op(8, ORU_CG_OP_LINEAR, &lp), 0u);
  ASSERT_EQ(net.bind_op(9, ORU_CG_OP_SOFTMAX), 0u);
  ASSERT_EQ(net.prepare(), 0u);
  ASSERT_EQ(net.run(), 0u);
  const int64_t before = oru_test::malloc_calls();
  ASSERT_EQ(net.run(), 0u);
  EXPECT_EQ(oru_test::malloc_calls(), before);
  const auto v = ops_test::values_of(net.out(9));
  ASSERT_EQ(v.size(), 4u);
  EXPECT_NEAR(v[0] + v[1] + v[2] + v[3], 1.0, 1e-6);
}

}  // namespace

namespace {

TEST(AffineOp, TranslationOutsideThePlaneGivesZeros) {
  Net net;
  oru_cg_affine_params p{0, 0, 1.0f, 1.0f, 0, 0};
  net.edge(0, 2);
  net.edge(1, 2);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor({4, 3, 1}, std::vector<float>(12, 1.0f))), 0u);
  ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_INPUT, net.tensor({6}, {1, 0, 5, 0, 1, 0})), 0u);
  ASSERT_EQ(net.bind_op(2, ORU_CG_OP_AFFINE, &p), 0u);
  ASSERT_EQ(net.prepare(), 0u);
  ASSERT_EQ(net.run(), 0u);
  EXPECT_EQ(ops_test::values_of(net.out(2)), std::vector<float>(12, 0.0f));
}

TEST(AffineOp, ScaleTruncatesTheOutputSize) {
  Net net;
  oru_cg_affine_params p{0, 0, 0.33f, 0.5f, 0, 0};
  net.edge(0, 2);
  net.edge(1, 2);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor({10, 6, 2}, {})), 0u);
  ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_INPUT, net.tensor({6}, {1, 0, 0, 0, 1, 0})), 0u);
  ASSERT_EQ(net.bind_op(2, ORU_CG_OP_AFFINE, &p), 0u);
  ASSERT_EQ(net.prepare(), 0u);
  EXPECT_EQ(ops_test::dims_of(net.out(2)), (std::vector<int32_t>{3, 3, 2}));
}

TEST(PoolOps, MaxOfNegativeWindowsIsNotZero) {
  Net net;
  oru_cg_pool_params p{2, 2, 2, 2, {0, 0}};
  net.edge(0, 1);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor({2, 2, 1}, {-4, -2, -3, -5})), 0u);
  ASSERT_EQ(net.bind_op(1, ORU_CG_OP_MAX_POOL2D, &p), 0u);
  ASSERT_EQ(net.prepare(), 0u);
  ASSERT_EQ(net.run(), 0u);
  EXPECT_EQ(ops_test::values_of(net.out(1)), std::vector<float>{-2});
}

TEST(BinaryOps, MulOfTwoChannelVectorsTakesTheFirstCase) {
  Net net;
  ASSERT_EQ(run_binary(net, ORU_CG_OP_MUL, Array{{1, 1, 3}, {1, 2, 3}}, Array{{1, 1, 3}, {4, 5, 6}}), 0u);
  EXPECT_EQ(ops_test::values_of(net.out(2)), (std::vector<float>{4, 10, 18}));
}

}  // namespace
