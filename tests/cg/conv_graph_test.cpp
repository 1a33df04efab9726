// Convolution operators end to end through the graph: every reference case of PyTorch
// under conv methods 0 and 2, the fused operators against conv -> batch norm -> activation,
// the two methods against each other, lifecycle rules and refusals.
#include <gtest/gtest.h>

#include <random>

#include "../conv/conv_case_file.h"

using namespace conv_test;

namespace {

struct GraphDeleter {
  void operator()(oru_cg_handle *h) const { oru_release_computation_graph_handle(&h); }
};
using GraphPtr = std::unique_ptr<oru_cg_handle, GraphDeleter>;

// input (node 0) and weights (node 1) into one operator (node 2).
struct ConvGraph {
  GraphPtr graph;
  TensorPtr input, weight;
  uint32_t bind_status = 0, prepare_status = 0;

  ConvGraph(int32_t op, const void *params, uint32_t method, const Array &in, const std::vector<float> &words) {
    graph.reset(oru_create_computation_graph_handle(nullptr));
    input = make_tensor(in.dims, in.values);
    weight = make_tensor({int32_t(words.size())}, words);
    oru_cg_handle *h = graph.get();
    EXPECT_EQ(oru_cg_set_conv_method(h, method), 0u);
    EXPECT_EQ(oru_add_one_edge_into_computation_graph(h, 0, 2), 0u);
    EXPECT_EQ(oru_add_one_edge_into_computation_graph(h, 1, 2), 0u);
    EXPECT_EQ(oru_computation_graph_topo_sort(h), 0u);
    oru_cg_node_desc in_desc{ORU_CG_OP_INPUT, input.get()}, w_desc{ORU_CG_OP_WEIGHT, weight.get()}, op_desc{op, nullptr};
    EXPECT_EQ(oru_bind_operator_onto_computation_graph(h, 0, &in_desc, nullptr), 0u);
    EXPECT_EQ(oru_bind_operator_onto_computation_graph(h, 1, &w_desc, nullptr), 0u);
    bind_status = oru_bind_operator_onto_computation_graph(h, 2, &op_desc, params);
    if (bind_status == 0) prepare_status = oru_prepare_inference_computation(h);
  }
  oru_tensor *output() { return oru_get_computation_node_inference_data(graph.get(), 2); }
  uint32_t run() { return oru_computation_graph_inference(graph.get()); }
};

int32_t op_for(const Case &c) {
  const oru_conv2d_params &p = c.params;
  if (c.kind == 1) return ORU_CG_OP_TRANSPOSED_CONV2D;
  if (c.kind == 2) return ORU_CG_OP_CONV2D_BN2D_ACT;
  if (c.kind == 3) return ORU_CG_OP_CONV2D_ACT;
  if (p.dilation_w != 1 || p.dilation_h != 1) return ORU_CG_OP_DILATED_CONV2D;
  if (p.groups > 1) return ORU_CG_OP_DEPTHWISE_CONV2D;
  if (p.kernel_w == 1 && p.kernel_h == 1 && p.stride_w == 1 && p.pad_w == 0) return ORU_CG_OP_POINTWISE_CONV2D;
  return ORU_CG_OP_STD_CONV2D;
}

// Whether the im2col family serves a shape: square, one padding and stride, known depthwise modes.
bool im2col_serves(const oru_conv2d_params &p) {
  if (p.kernel_w != p.kernel_h || p.pad_w != p.pad_h || p.stride_w != p.stride_h || p.dilation_w != 1) return false;
  if (p.groups == 1) return true;
  const int k = p.kernel_w;
  return (k == 3 && p.pad_w == 1 && p.stride_w <= 2) || (k == 5 && p.pad_w == 2 && p.stride_w <= 2);
}

struct Params {
  oru_conv2d_params conv;
  int32_t act_word[2];  // the extension of the fused records
};

// The parameter record of a case as its operator reads it.
Params record_of(const Case &c) {
  Params r{};
  r.conv = c.params;
  if (c.kind == 2) {
    std::memcpy(&r.act_word[0], &c.bn_eps, 4);
    r.act_word[1] = c.act;
  } else {
    r.act_word[0] = c.act;
  }
  return r;
}

TEST(ConvGraph, EveryReferenceCaseUnderBothMethods) {
  int runs = 0;
  for (const Case &c : load_cases()) {
    const int32_t op = op_for(c);
    for (uint32_t method : {0u, 2u}) {
      const bool method_matters = op != ORU_CG_OP_DILATED_CONV2D && op != ORU_CG_OP_TRANSPOSED_CONV2D;
      if (method == 2 && (!method_matters || !im2col_serves(c.params))) continue;
      if (method == 0 && op == ORU_CG_OP_POINTWISE_CONV2D && c.params.stride_w != 1) continue;
      SCOPED_TRACE(describe(c) + " method " + std::to_string(method));
      Params rec = record_of(c);
      ConvGraph g(op, &rec, method, c.input, c.weight.values);
      ASSERT_EQ(g.bind_status, 0u);
      ASSERT_EQ(g.prepare_status, 0u);
      ASSERT_EQ(g.run(), 0u);
      oru_tensor *out = g.output();
      ASSERT_NE(out, nullptr);
      ASSERT_EQ(std::vector<int32_t>(out->dims, out->dims + 3), c.expected.dims);
      std::vector<float> expected = c.expected.values;
      if (op == ORU_CG_OP_DILATED_CONV2D && c.params.has_bias == 1) {
        // The dilated operator has no bias step: take PyTorch's bias back out.
        const size_t plane = size_t(c.expected.dims[0] * c.expected.dims[1]);
        const size_t bias_at = c.weight.values.size() - size_t(c.params.out_channels);
        for (size_t i = 0; i < expected.size(); ++i) expected[i] -= c.weight.values[bias_at + i / plane];
      }
      EXPECT_LT(max_rel_error(values_of(out), expected), 2e-5);
      ++runs;
    }
  }
  EXPECT_GE(runs, 100);
}

// Methods 0 and 2 on random shapes of the kinds a small detector uses, with bias.
TEST(ConvGraph, DirectAndIm2colAgree) {
  std::mt19937 gen(3);
  std::uniform_int_distribution<int> extent(1, 23), chans(1, 12);
  for (int trial = 0; trial < 60; ++trial) {
    int kind = trial % 5;  // 3x3 s1, 3x3 s2, depthwise 3x3, pointwise, 5x5
    oru_conv2d_params p{};
    int ic = chans(gen), oc = kind == 2 ? ic : chans(gen);
    int k = kind == 3 ? 1 : kind == 4 ? 5 : 3;
    p.in_channels = ic;
    p.out_channels = oc;
    p.kernel_w = p.kernel_h = k;
    p.stride_w = p.stride_h = (kind == 1 || (kind == 2 && trial % 2)) ? 2 : 1;
    p.pad_w = p.pad_h = k / 2;
    p.dilation_w = p.dilation_h = 1;
    p.groups = kind == 2 ? ic : 1;
    p.has_bias = 1;
    int w = extent(gen), h = extent(gen);
    if (kind == 4) w = std::max(w, 2), h = std::max(h, 2);
    Array in{{w, h, ic}, oru_test::random_values<float>(size_t(w * h * ic), -1, 1, 50 + trial)};
    size_t nw = size_t((kind == 2 ? ic : ic * oc) * k * k + oc);
    std::vector<float> words = oru_test::random_values<float>(nw, -1, 1, 90 + trial);
    int32_t op = kind == 2 ? ORU_CG_OP_DEPTHWISE_CONV2D : kind == 3 ? ORU_CG_OP_POINTWISE_CONV2D : ORU_CG_OP_STD_CONV2D;
    SCOPED_TRACE(::testing::Message() << "kind " << kind << " " << w << "x" << h << " ic " << ic << " oc " << oc);
    ConvGraph direct(op, &p, 0, in, words), gemm(op, &p, 2, in, words);
    ASSERT_EQ(direct.prepare_status, 0u);
    ASSERT_EQ(gemm.prepare_status, 0u);
    ASSERT_EQ(direct.run(), 0u);
    ASSERT_EQ(gemm.run(), 0u);
    // The sums run in different orders; 1e-5 relative to 1 + |value| covers the rounding.
    EXPECT_LT(max_rel_error(values_of(direct.output()), values_of(gemm.output())), 1e-5);
  }
}

oru_conv2d_params small_params() {
  oru_conv2d_params p{};
  p.in_channels = 2;
  p.out_channels = 3;
  p.kernel_w = p.kernel_h = 3;
  p.stride_w = p.stride_h = 2;
  p.pad_w = p.pad_h = 1;
  p.dilation_w = p.dilation_h = 1;
  p.groups = 1;
  p.has_bias = 1;
  return p;
}

TEST(ConvGraph, OutputShapesAndBindTimeMethod) {
  oru_conv2d_params p = small_params();
  p.in_channels = 1;
  Array in{{7, 9, 1}, std::vector<float>(63, 1.0f)};
  std::vector<float> words(9 * 3 + 3, 0.5f);
  ConvGraph g(ORU_CG_OP_STD_CONV2D, &p, 2, in, words);
  ASSERT_EQ(g.prepare_status, 0u);
  ASSERT_NE(g.output(), nullptr);
  EXPECT_EQ(g.output()->dims[0], 4);
  EXPECT_EQ(g.output()->dims[1], 5);
  EXPECT_EQ(g.output()->dims[2], 3);
  // A method set after the bind leaves the operator on the one it copied.
  auto *ctx = static_cast<oru_conv2d_context *>(g.graph->contexts[2]);
  EXPECT_EQ(ctx->conv_method, 2u);
  EXPECT_EQ(oru_cg_set_conv_method(g.graph.get(), 0), 0u);
  EXPECT_EQ(ctx->conv_method, 2u);
  EXPECT_EQ(oru_cg_set_conv_method(g.graph.get(), 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_get_cg_conv_method(g.graph.get()), 0u);

  // Transposed: kernel 3, stride 2, padding 1, out_pad_h 1 on 5x5 gives 9 wide, 10 high.
  oru_conv2d_params t = small_params();
  t.in_channels = 1;
  t.out_channels = 1;
  t.out_pad_h = 1;
  t.has_bias = 0;
  Array in5{{5, 5, 1}, std::vector<float>(25, 1.0f)};
  ConvGraph tg(ORU_CG_OP_TRANSPOSED_CONV2D, &t, 2, in5, std::vector<float>(9, 1.0f));
  ASSERT_EQ(tg.prepare_status, 0u);
  EXPECT_EQ(tg.output()->dims[0], 9);
  EXPECT_EQ(tg.output()->dims[1], 10);
}

TEST(ConvGraph, TransposedTurnsItsKernelsOnce) {
  oru_conv2d_params t = small_params();
  t.in_channels = 1;
  t.out_channels = 1;
  t.has_bias = 0;
  Array in{{4, 4, 1}, oru_test::random_values<float>(16, -1, 1, 4)};
  std::vector<float> words = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  ConvGraph g(ORU_CG_OP_TRANSPOSED_CONV2D, &t, 2, in, words);
  ASSERT_EQ(g.prepare_status, 0u);
  ASSERT_EQ(g.run(), 0u);
  std::vector<float> first = values_of(g.output());
  EXPECT_EQ(values_of(g.weight.get()), (std::vector<float>{9, 8, 7, 6, 5, 4, 3, 2, 1}));
  ASSERT_EQ(g.run(), 0u);
  EXPECT_EQ(values_of(g.output()), first);
  EXPECT_EQ(values_of(g.weight.get()), (std::vector<float>{9, 8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST(ConvGraph, FusedDepthwiseTakesChannelsKernelsAndEpsZeroIsDefault) {
  // Hand check of the folding: depthwise 1x1 kernels of 2 channels, so each output is
  // act(gamma (w x + b - mean) / sqrt(var + eps) + beta).
  oru_conv2d_bn2d_act_params p{};
  p.conv = small_params();
  p.conv.in_channels = p.conv.out_channels = p.conv.groups = 2;
  p.conv.kernel_w = p.conv.kernel_h = 1;
  p.conv.stride_w = p.conv.stride_h = 1;
  p.conv.pad_w = p.conv.pad_h = 0;
  p.conv.has_bias = 1;
  p.bn_eps = 0.0f;
  p.act = 0;
  // kernels (2), bias (2), gamma, beta, mean, var.
  std::vector<float> words = {2.0f, -1.0f, 0.5f, 1.0f, 3.0f, 1.0f, 0.5f, -2.0f, 0.25f, 1.0f, 4.0f, 0.0f};
  Array in{{2, 1, 2}, {1.0f, -1.0f, 2.0f, 4.0f}};
  ConvGraph g(ORU_CG_OP_CONV2D_BN2D_ACT, &p, 0, in, words);
  ASSERT_EQ(g.prepare_status, 0u);
  ASSERT_EQ(g.run(), 0u);
  std::vector<float> got = values_of(g.output());
  const double eps = 1e-5;
  auto expect = [&](int c, float x) {
    double conv = double(words[size_t(c)]) * x + words[size_t(2 + c)];
    return double(words[size_t(4 + c)]) * (conv - words[size_t(8 + c)]) / std::sqrt(double(words[size_t(10 + c)]) + eps) +
           words[size_t(6 + c)];
  };
  EXPECT_NEAR(got[0], expect(0, 1.0f), 1e-4);
  EXPECT_NEAR(got[1], expect(0, -1.0f), 1e-4);
  EXPECT_NEAR(got[2], expect(1, 2.0f), 1e-3);
  EXPECT_NEAR(got[3], expect(1, 4.0f), 1e-3);
}

TEST(ConvGraph, FusedActivationOutsideTheTableLeavesTheRawConvolution) {
  // act 7: the convolution's output, with neither bias nor activation. One input channel of
  // ones and a 1x1 kernel of 2 give 2 everywhere, whatever the bias and batch-norm words say.
  oru_conv2d_act_params p{};
  p.conv = small_params();
  p.conv.in_channels = p.conv.out_channels = 1;
  p.conv.kernel_w = p.conv.kernel_h = 1;
  p.conv.stride_w = p.conv.stride_h = 1;
  p.conv.pad_w = p.conv.pad_h = 0;
  p.act = 7;
  Array in{{3, 2, 1}, std::vector<float>(6, 1.0f)};
  for (uint32_t method : {0u, 2u}) {
    ConvGraph g(ORU_CG_OP_CONV2D_ACT, &p, method, in, {2.0f, -100.0f});
    ASSERT_EQ(g.prepare_status, 0u);
    ASSERT_EQ(g.run(), 0u);
    EXPECT_EQ(values_of(g.output()), std::vector<float>(6, 2.0f)) << method;
  }
  // Groups between full and depthwise: no convolution runs, only the tail on the output's
  // contents (here: ReLU with bias 1 over a cleared output gives 1).
  oru_conv2d_act_params g2{};
  g2.conv = small_params();
  g2.conv.in_channels = g2.conv.out_channels = 8;
  g2.conv.groups = 2;
  g2.conv.kernel_w = g2.conv.kernel_h = 1;
  g2.conv.stride_w = g2.conv.stride_h = 1;
  g2.conv.pad_w = g2.conv.pad_h = 0;
  g2.act = 1;
  Array in8{{2, 2, 8}, std::vector<float>(32, 5.0f)};
  std::vector<float> words(8 * 8 + 8, 1.0f);
  ConvGraph g(ORU_CG_OP_CONV2D_ACT, &g2, 0, in8, words);
  ASSERT_EQ(g.prepare_status, 0u);
  std::fill_n(static_cast<float *>(g.output()->data), 32, 0.0f);
  ASSERT_EQ(g.run(), 0u);
  EXPECT_EQ(values_of(g.output()), std::vector<float>(32, 1.0f));
}

TEST(ConvGraph, RefusalsGiveStatusesNotCrashes) {
  std::vector<float> words(2 * 3 * 9 + 3, 0.1f);
  Array in{{6, 6, 2}, std::vector<float>(72, 1.0f)};
  // Zero stride: the output can't be shaped.
  oru_conv2d_params zero = small_params();
  zero.stride_w = 0;
  for (uint32_t method : {0u, 2u}) {
    ConvGraph g(ORU_CG_OP_STD_CONV2D, &zero, method, in, words);
    EXPECT_EQ(g.prepare_status, ORU_RET_ERR_MEMORY);
  }
  // Kernel larger than the padded input.
  oru_conv2d_params big = small_params();
  big.kernel_w = big.kernel_h = 11;
  ConvGraph g_big(ORU_CG_OP_STD_CONV2D, &big, 0, in, words);
  EXPECT_EQ(g_big.prepare_status, ORU_RET_ERR_MEMORY);
  // Channels not divisible by the groups: im2col refuses at prepare, the direct kernel at run
  // (the weights are too few for a full convolution).
  oru_conv2d_params grouped = small_params();
  grouped.in_channels = 2;
  grouped.out_channels = 3;
  grouped.groups = 2;
  std::vector<float> few(3 * 9 + 3, 0.1f);
  ConvGraph g_grouped(ORU_CG_OP_STD_CONV2D, &grouped, 2, in, few);
  EXPECT_EQ(g_grouped.prepare_status, ORU_RET_ERR_MEMORY);
  ConvGraph g_grouped0(ORU_CG_OP_STD_CONV2D, &grouped, 0, in, few);
  ASSERT_EQ(g_grouped0.prepare_status, 0u);
  EXPECT_EQ(g_grouped0.run(), ORU_RET_ERR_PARA);
  // Input channels that disagree with the record.
  oru_conv2d_params wrong = small_params();
  wrong.in_channels = 5;
  std::vector<float> many(5 * 3 * 9 + 3, 0.1f);
  for (uint32_t method : {0u, 2u}) {
    ConvGraph g(ORU_CG_OP_STD_CONV2D, &wrong, method, in, many);
    ASSERT_EQ(g.prepare_status, 0u);
    EXPECT_EQ(g.run(), ORU_RET_ERR_PARA);
  }
  // Null parameters at bind.
  ConvGraph g_null(ORU_CG_OP_STD_CONV2D, nullptr, 2, in, words);
  EXPECT_EQ(g_null.bind_status, ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_get_conv2d_inference_data(nullptr, 2), nullptr);
  void *null_ctx = nullptr;
  EXPECT_EQ(oru_uninit_std_conv2d_context(&null_ctx), ORU_RET_ERR_PARA);
}

TEST(ConvGraph, RunsAllocateOnlyTheirScratchAndRepeatExactly) {
  Array in{{15, 11, 2}, oru_test::random_values<float>(330, -1, 1, 8)};
  // A pointwise node of method 0 works in the output alone: no allocation at all.
  oru_conv2d_params pw = small_params();
  pw.kernel_w = pw.kernel_h = 1;
  pw.stride_w = pw.stride_h = 1;
  pw.pad_w = pw.pad_h = 0;
  ConvGraph point(ORU_CG_OP_POINTWISE_CONV2D, &pw, 0, in, oru_test::random_values<float>(2 * 3 + 3, -1, 1, 7));
  ASSERT_EQ(point.prepare_status, 0u);
  int64_t before = oru_test::malloc_calls();
  ASSERT_EQ(point.run(), 0u);
  EXPECT_EQ(oru_test::malloc_calls(), before);

  // The other loops take a fixed number of scratch blocks per run (rows of the stride-2
  // scan, the im2col row panels), the same every run, and give the same values again.
  oru_conv2d_params p = small_params();
  std::vector<float> words = oru_test::random_values<float>(2 * 3 * 9 + 3, -1, 1, 9);
  for (uint32_t method : {0u, 2u}) {
    ConvGraph g(ORU_CG_OP_STD_CONV2D, &p, method, in, words);
    ASSERT_EQ(g.prepare_status, 0u);
    before = oru_test::malloc_calls();
    ASSERT_EQ(g.run(), 0u);
    const int64_t first_count = oru_test::malloc_calls() - before;
    EXPECT_LE(first_count, 2) << method;
    std::vector<float> first = values_of(g.output());
    before = oru_test::malloc_calls();
    ASSERT_EQ(g.run(), 0u);
    EXPECT_EQ(oru_test::malloc_calls() - before, first_count) << method;
    EXPECT_EQ(values_of(g.output()), first) << method;
  }
}

}  // namespace
