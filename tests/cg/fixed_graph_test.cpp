// A small network with every operator that has a fixed-point form, run in fixed point and
// in float from the same weights: each node's fixed-point result, scaled by its Q, stays
// within a few steps of that Q of the float one. And the fixed-point graph's refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

#include "ops_graph_support.h"
#include "oru_fixed.h"

namespace {

using ops_test::Net;

enum Node : int32_t {
  kInput, kW2, kConvBn, kW4, kDepthwise, kW6, kConvAct, kW8, kStd, kAdd, kConcat, kHswish, kBiasW, kBias,
  kPool, kReshape, kLinearW, kLinear, kBnW, kBn1d, kSigmoid, kMatrix, kAffine, kW23, kPointwise, kNodes
};

std::vector<float> uniform(size_t n, float lo, float hi, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> d(lo, hi);
  std::vector<float> v(n);
  for (float &x : v) x = d(gen);
  return v;
}

oru_conv2d_params conv(int32_t ic, int32_t oc, int32_t k, int32_t stride, int32_t groups, int32_t bias) {
  oru_conv2d_params p{};
  p.in_channels = ic;
  p.out_channels = oc;
  p.kernel_w = p.kernel_h = k;
  p.stride_w = p.stride_h = stride;
  p.pad_w = p.pad_h = k / 2;
  p.dilation_w = p.dilation_h = 1;
  p.groups = groups;
  p.has_bias = bias;
  return p;
}

// The network's weights and its input, the same for both backends.
struct Weights {
  std::vector<float> input = uniform(16 * 12 * 3, -1.0f, 1.0f, 1);
  std::vector<float> conv_bn = [] {
    auto w = uniform(8 * 3 * 9, -0.4f, 0.4f, 2);
    auto g = uniform(8, 0.5f, 1.0f, 3), b = uniform(8, -0.3f, 0.3f, 4), m = uniform(8, -0.2f, 0.2f, 5),
         v = uniform(8, 0.5f, 1.5f, 6);
    for (auto *part : {&g, &b, &m, &v}) w.insert(w.end(), part->begin(), part->end());
    return w;
  }();
  std::vector<float> depthwise = uniform(8 * 9 + 8, -0.5f, 0.5f, 7);
  std::vector<float> pointwise = uniform(6 * 8 + 6, -0.5f, 0.5f, 8);
  std::vector<float> standard = uniform(6 * 8 * 9 + 6, -0.2f, 0.2f, 9);
  std::vector<float> bias = uniform(12, -0.5f, 0.5f, 10);
  std::vector<float> linear = uniform(144 * 10 + 10, -0.05f, 0.05f, 11);
  std::vector<float> bn1d = [] {
    auto g = uniform(10, 0.5f, 0.9f, 12), b = uniform(10, -0.5f, 0.5f, 13), m = uniform(10, -0.5f, 0.5f, 14),
         v = uniform(10, 1.0f, 3.0f, 15);
    g.insert(g.end(), b.begin(), b.end());
    g.insert(g.end(), m.begin(), m.end());
    g.insert(g.end(), v.begin(), v.end());
    return g;
  }();
  std::vector<float> matrix = {0.9f, 0.1f, 0.05f, -0.1f, 0.8f, -0.05f};
  std::vector<float> last = uniform(4 * 6 + 4, -0.5f, 0.5f, 16);
};

// Builds the network; in fixed point the data tensors are the float ones in the Q of
// their node, and q holds the Q list (which the graph takes over).
void build(Net &net, const Weights &w, bool fixed, const std::vector<int32_t> &q) {
  ASSERT_EQ(oru_cg_set_conv_method(net.h, 0), 0u);
  const std::pair<int32_t, int32_t> edges[] = {
      {kInput, kConvBn}, {kW2, kConvBn},       {kConvBn, kDepthwise}, {kW4, kDepthwise}, {kDepthwise, kConvAct},
      {kW6, kConvAct},   {kDepthwise, kStd},   {kW8, kStd},           {kConvAct, kAdd},  {kStd, kAdd},
      {kConvAct, kConcat}, {kStd, kConcat},    {kConcat, kHswish},    {kHswish, kBias},  {kBiasW, kBias},
      {kBias, kPool},    {kPool, kReshape},    {kReshape, kLinear},   {kLinearW, kLinear}, {kLinear, kBn1d},
      {kBnW, kBn1d},     {kBn1d, kSigmoid},    {kAdd, kAffine},       {kMatrix, kAffine}, {kAffine, kPointwise},
      {kW23, kPointwise}};
  for (auto e : edges) net.edge(e.first, e.second);
  ASSERT_EQ(net.sort(), 0u);
  auto data = [&](int32_t node, const std::vector<int32_t> &dims, const std::vector<float> &v) {
    oru_tensor *f = net.tensor(dims, v);
    if (!fixed) return f;
    oru_tensor *t = oru_create_tensor(int32_t(dims.size()), dims.data(), ai16s);
    net.tensors.push_back(t);
    EXPECT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(t, f, 0, int32_t(v.size()), q[size_t(node)]), 0u);
    return t;
  };
  ASSERT_EQ(net.bind_tensor(kInput, ORU_CG_OP_INPUT, data(kInput, {16, 12, 3}, w.input)), 0u);
  ASSERT_EQ(net.bind_tensor(kMatrix, ORU_CG_OP_INPUT, data(kMatrix, {6}, w.matrix)), 0u);
  const std::pair<int32_t, const std::vector<float> *> weights[] = {
      {kW2, &w.conv_bn}, {kW4, &w.depthwise}, {kW6, &w.pointwise}, {kW8, &w.standard}, {kBiasW, &w.bias},
      {kLinearW, &w.linear}, {kBnW, &w.bn1d}, {kW23, &w.last}};
  for (auto p : weights)
    ASSERT_EQ(net.bind_tensor(p.first, ORU_CG_OP_WEIGHT, net.tensor({int32_t(p.second->size())}, *p.second)), 0u);
  const oru_conv2d_bn2d_act_params cbn{conv(3, 8, 3, 1, 1, 0), 1e-5f, ORU_ACT_RELU};
  const oru_conv2d_params dw = conv(8, 8, 3, 2, 8, 1), st = conv(8, 6, 3, 1, 1, 1), pw = conv(6, 4, 1, 1, 1, 1);
  const oru_conv2d_act_params ca{conv(8, 6, 1, 1, 1, 1), ORU_ACT_HSWISH};
  const int32_t concat_ids[2] = {kConvAct, kStd};
  const oru_cg_concat_params cc{2, 2, concat_ids};
  const oru_cg_pool_params pool{2, 2, 2, 2, {0, 0}};
  const oru_cg_reshape_params rs{2, {144, 1, 0, 0, 0}};
  const oru_cg_linear_params lin{144, 10, 1};
  const oru_cg_bn_params bn{0, 1e-5f};
  const oru_cg_affine_params af{0, 0, 1.0f, 1.0f, 0, 0};
  ASSERT_EQ(net.bind_op(kConvBn, ORU_CG_OP_CONV2D_BN2D_ACT, &cbn), 0u);
  ASSERT_EQ(net.bind_op(kDepthwise, ORU_CG_OP_DEPTHWISE_CONV2D, &dw), 0u);
  ASSERT_EQ(net.bind_op(kConvAct, ORU_CG_OP_CONV2D_ACT, &ca), 0u);
  ASSERT_EQ(net.bind_op(kStd, ORU_CG_OP_STD_CONV2D, &st), 0u);
  ASSERT_EQ(net.bind_op(kAdd, ORU_CG_OP_ADD), 0u);
  ASSERT_EQ(net.bind_op(kConcat, ORU_CG_OP_CONCAT, &cc), 0u);
  ASSERT_EQ(net.bind_op(kHswish, ORU_CG_OP_HSWISH), 0u);
  ASSERT_EQ(net.bind_op(kBias, ORU_CG_OP_BIAS), 0u);
  ASSERT_EQ(net.bind_op(kPool, ORU_CG_OP_AVG_POOL2D, &pool), 0u);
  ASSERT_EQ(net.bind_op(kReshape, ORU_CG_OP_RESHAPE, &rs), 0u);
  ASSERT_EQ(net.bind_op(kLinear, ORU_CG_OP_LINEAR, &lin), 0u);
  ASSERT_EQ(net.bind_op(kBn1d, ORU_CG_OP_BN1D, &bn), 0u);
  ASSERT_EQ(net.bind_op(kSigmoid, ORU_CG_OP_SIGMOID), 0u);
  ASSERT_EQ(net.bind_op(kAffine, ORU_CG_OP_AFFINE, &af), 0u);
  ASSERT_EQ(net.bind_op(kPointwise, ORU_CG_OP_POINTWISE_CONV2D, &pw), 0u);
  if (fixed) {
    auto *list = static_cast<int32_t *>(oru_calloc(kNodes, 4));
    std::copy(q.begin(), q.end(), list);
    ASSERT_EQ(oru_cg_set_ptr_q_list(net.h, list), 0u);
  }
  ASSERT_EQ(net.prepare(), 0u);
  ASSERT_EQ(net.run(), 0u);
}

// The nodes whose results are compared: every operator's, read where its result stays
// (in-place nodes share their producer's tensor, so the chain's last node speaks for it).
const int32_t kObserved[] = {kConvBn, kDepthwise, kConvAct, kStd, kAdd, kPool, kReshape, kLinear,
                             kSigmoid, kAffine, kPointwise, kBias};

TEST(FixedGraph, EveryOperatorStaysWithinAFewStepsOfItsQ) {
  const Weights w;
  Net reference(kNodes);
  build(reference, w, false, {});
  // Calibration: each node's Q holds its largest float magnitude with two bits to spare (the
  // convolutions hold their sums before the bias in the same Q); the input and the matrix
  // take the Q of their values.
  std::vector<int32_t> q(kNodes, 15);
  for (int32_t node = 0; node < kNodes; ++node) {
    const oru_tensor *t = node == kInput ? reference.tensors[0] : node == kMatrix ? reference.tensors[1]
                                                                                : reference.out(node);
    if (!t || t->type != aif32) continue;
    int32_t qq = 0;
    ASSERT_EQ(oru_tensor_calc_q(&qq, t, 0, int32_t(t->total_elements)), 0u) << node;
    q[size_t(node)] = node == kInput || node == kMatrix ? qq : std::max(0, qq - 2);
  }
  q[kHswish] = q[kConcat] = std::min(q[kConvAct], q[kStd]);  // what concat derives; hswish keeps it
  q[kConvAct] = q[kStd] = q[kConcat];                           // concat copies without rescaling
  q[kSigmoid] = 15;                                             // the fixed-point sigmoid's own Q
  Net fixed(kNodes, ORU_CG_BACKEND_FIXED);
  build(fixed, w, true, q);
  // Stated bound: 8 steps of the node's Q (this network reaches about 5.3, in the standard
  // convolution after two layers): each input channel's and each product's rounding adds a
  // half step, and the errors of the layers before carry on.
  const double bound = 8.0;
  for (int32_t node : kObserved) {
    const oru_tensor *f = reference.out(node), *x = fixed.out(node);
    ASSERT_NE(f, nullptr) << node;
    ASSERT_NE(x, nullptr) << node;
    ASSERT_EQ(x->type, uint32_t(ai16s)) << node;
    ASSERT_EQ(x->total_elements, f->total_elements) << node;
    const int32_t qn = int32_t(oru_cg_get_q_from_list(fixed.h, node));
    ASSERT_GE(qn, 0);
    const double step = std::ldexp(1.0, -qn);
    const float *fv = static_cast<const float *>(f->data);
    const int16_t *xv = static_cast<const int16_t *>(x->data);
    double worst = 0.0;
    for (int64_t i = 0; i < f->total_elements; ++i) worst = std::max(worst, std::fabs(xv[i] * step - fv[i]) / step);
    EXPECT_LE(worst, bound) << "node " << node << " Q " << qn;
    RecordProperty("node_" + std::to_string(node) + "_steps", std::to_string(worst));
  }
  // The operators that derive their Q wrote it for the nodes behind them: the bias one
  // below the smaller of its input's and its values', concat the smaller of its inputs'.
  oru_tensor *bias = reference.tensors[6];
  int32_t q_bias = 0;
  ASSERT_EQ(oru_tensor_calc_q(&q_bias, bias, 0, int32_t(bias->total_elements)), 0u);
  EXPECT_EQ(int32_t(oru_cg_get_q_from_list(fixed.h, kBias)), std::min(q[kHswish], q_bias) - 1);
  EXPECT_EQ(int32_t(oru_cg_get_q_from_list(fixed.h, kConcat)), q[kConcat]);
}

TEST(FixedGraph, MissingListBadQAndFloatInputAreRefusedWithOneReport) {
  auto count_reports = [](const std::string &out) {
    size_t n = 0;
    for (size_t at = out.find("Error occurred"); at != std::string::npos; at = out.find("Error occurred", at + 1)) ++n;
    return n;
  };
  oru_conv2d_params p = conv(2, 3, 3, 1, 1, 1);
  auto make_net = [&](Net &net, uint32_t type) {
    ASSERT_EQ(oru_cg_set_conv_method(net.h, 0), 0u);
    net.edge(0, 2);
    net.edge(1, 2);
    ASSERT_EQ(net.sort(), 0u);
    int32_t dims[3] = {5, 4, 2};
    oru_tensor *in = oru_create_tensor(3, dims, type);
    std::memset(in->data, 0, size_t(in->total_bytes));
    net.tensors.push_back(in);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, in), 0u);
    ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_WEIGHT, net.tensor({2 * 3 * 9 + 3}, uniform(57, -1, 1, 3))), 0u);
    ASSERT_EQ(net.bind_op(2, ORU_CG_OP_STD_CONV2D, &p), 0u);
  };
  auto set_list = [](Net &net, int32_t q_in, int32_t q_out) {
    auto *list = static_cast<int32_t *>(oru_calloc(8, 4));
    list[0] = q_in;
    list[2] = q_out;
    ASSERT_EQ(oru_cg_set_ptr_q_list(net.h, list), 0u);
  };
  {  // no Q list at prepare
    Net net(8, ORU_CG_BACKEND_FIXED);
    make_net(net, ai16s);
    testing::internal::CaptureStdout();
    EXPECT_EQ(net.prepare(), uint32_t(ORU_RET_ERR_PARA));
    EXPECT_EQ(count_reports(testing::internal::GetCapturedStdout()), 1u);
  }
  for (int32_t bad : {-1, 16}) {  // a Q outside 0 to 15
    Net net(8, ORU_CG_BACKEND_FIXED);
    make_net(net, ai16s);
    set_list(net, 8, bad);
    testing::internal::CaptureStdout();
    EXPECT_EQ(net.prepare(), uint32_t(ORU_RET_ERR_PARA));
    EXPECT_EQ(count_reports(testing::internal::GetCapturedStdout()), 1u) << bad;
  }
  {  // a float tensor fed to a fixed-point graph
    Net net(8, ORU_CG_BACKEND_FIXED);
    make_net(net, aif32);
    set_list(net, 8, 8);
    ASSERT_EQ(net.prepare(), 0u);
    testing::internal::CaptureStdout();
    EXPECT_EQ(net.run(), uint32_t(ORU_RET_ERR_PARA));
    EXPECT_EQ(count_reports(testing::internal::GetCapturedStdout()), 1u);
  }
  {  // fixed point under a method without fixed-point kernels is refused at bind
    Net net(8, ORU_CG_BACKEND_FIXED);
    ASSERT_EQ(oru_cg_set_conv_method(net.h, 2), 0u);
    net.edge(0, 1);
    ASSERT_EQ(net.sort(), 0u);
    testing::internal::CaptureStdout();
    EXPECT_EQ(net.bind_op(1, ORU_CG_OP_STD_CONV2D, &p), uint32_t(ORU_RET_ERR_NOT_SUPPORT));
    EXPECT_EQ(count_reports(testing::internal::GetCapturedStdout()), 1u);
  }
}

}  // namespace
