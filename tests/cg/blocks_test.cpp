// Network blocks bound with the builders, run end to end against the same network in PyTorch.
#include <gtest/gtest.h>

#include "ops_graph_support.h"

namespace {

using ops_test::load_case;
using ops_test::Net;

TEST(BlockBuilders, SmallNetworkMatchesTorch) {
  const auto d = load_case("blocks");
  ASSERT_EQ(d.size(), 15u);
  for (uint32_t method : {ORU_CG_CONV_DIRECT_CHW, ORU_CG_CONV_IM2COL_GEMM}) {
    Net net;
    ASSERT_EQ(oru_cg_set_conv_method(net.h, method), 0u);
    // Operators on 0..11, their weights on 12..21, in the same order as the file.
    const int32_t conv_nodes[10] = {1, 2, 3, 5, 6, 7, 8, 9, 10, 11};
    const int32_t chain[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {0, 4}, {4, 5},
                                  {5, 6}, {6, 7}, {7, 8}, {8, 9}, {9, 10}, {10, 11}};
    for (const auto &e : chain) net.edge(e[0], e[1]);
    for (int32_t i = 0; i < 10; ++i) net.edge(12 + i, conv_nodes[i]);
    ASSERT_EQ(net.sort(), 0u);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.tensor(d[0])), 0u);
    for (int32_t i = 0; i < 10; ++i)
      ASSERT_EQ(net.bind_tensor(12 + i, ORU_CG_OP_WEIGHT, net.tensor(d[size_t(1 + i)])), 0u);
    ASSERT_EQ(oru_bind_invert_residual(4, 4, 1, 1, 2, 1, net.h), 0u);
    ASSERT_EQ(oru_bind_invert_residual_relu6(4, 6, 2, 0, 3, 5, net.h), 0u);
    ASSERT_EQ(oru_bind_seperable_conv2d(6, 5, 1, 8, net.h), 0u);
    ASSERT_EQ(oru_bind_base_net_conv_dw(5, 8, 1, 10, net.h), 0u);
    ASSERT_EQ(net.prepare(), 0u);
    ASSERT_EQ(net.run(), 0u);
    ops_test::expect_close(net.out(4), d[11], 2e-5, "inverted residual with residual");
    ops_test::expect_close(net.out(7), d[12], 2e-5, "inverted residual without residual");
    ops_test::expect_close(net.out(9), d[13], 2e-5, "separable");
    ops_test::expect_close(net.out(11), d[14], 2e-5, "base depthwise");
    // A second run over the same buffers gives the same result.
    ASSERT_EQ(net.run(), 0u);
    ops_test::expect_close(net.out(11), d[14], 2e-5, "second run");
  }
}

// The op codes and records a builder binds, read back from the handle's contexts.
TEST(BlockBuilders, BindExactlyTheRecipeNodes) {
  for (int32_t residual : {0, 1}) {
    Net net;
    for (int32_t i = 0; i < 5; ++i) net.edge(i, i + 1);
    ASSERT_EQ(net.sort(), 0u);
    ASSERT_EQ(oru_bind_invert_residual(3, 5, 2, residual, 4, 1, net.h), 0u);
    const int32_t codes[3] = {13, 13, 13};
    for (int32_t i = 0; i < 3; ++i) {
      auto *c = static_cast<oru_conv2d_bn2d_act_context *>(net.h->contexts[1 + i]);
      ASSERT_NE(c, nullptr);
      EXPECT_EQ(c->op_type, codes[i]);
      const oru_conv2d_bn2d_act_params &p = c->params;
      const int32_t hidden = 12;
      const int32_t want_in[3] = {3, hidden, hidden}, want_out[3] = {hidden, hidden, 5};
      const int32_t want_k[3] = {1, 3, 1}, want_s[3] = {1, 2, 1}, want_g[3] = {1, hidden, 1}, want_a[3] = {2, 2, 0};
      EXPECT_EQ(p.conv.in_channels, want_in[i]);
      EXPECT_EQ(p.conv.out_channels, want_out[i]);
      EXPECT_EQ(p.conv.kernel_w, want_k[i]);
      EXPECT_EQ(p.conv.kernel_h, want_k[i]);
      EXPECT_EQ(p.conv.stride_w, want_s[i]);
      EXPECT_EQ(p.conv.stride_h, want_s[i]);
      EXPECT_EQ(p.conv.pad_w, want_k[i] == 3 ? 1 : 0);
      EXPECT_EQ(p.conv.pad_h, want_k[i] == 3 ? 1 : 0);
      EXPECT_EQ(p.conv.dilation_w, 1);
      EXPECT_EQ(p.conv.groups, want_g[i]);
      EXPECT_EQ(p.conv.has_bias, 0);
      EXPECT_EQ(p.bn_eps, 1e-5f);
      EXPECT_EQ(p.act, want_a[i]);
    }
    if (residual) {
      ASSERT_NE(net.h->contexts[4], nullptr);
      EXPECT_EQ(*static_cast<int32_t *>(net.h->contexts[4]), ORU_CG_OP_ADD);
    } else {
      EXPECT_EQ(net.h->contexts[4], nullptr);
      EXPECT_EQ(net.h->bound[4], 0u);
    }
  }
}

TEST(BlockBuilders, ExtraNetAndStdConvRecipes) {
  Net net;
  for (int32_t i = 0; i < 4; ++i) net.edge(i, i + 1);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(oru_bind_extra_net(2, 2, 0, net.h), 0u);
  const int32_t in[3] = {32, 8, 8}, out[3] = {8, 8, 32}, k[3] = {1, 3, 1}, s[3] = {1, 2, 1}, g[3] = {1, 8, 1};
  for (int32_t i = 0; i < 3; ++i) {
    auto *c = static_cast<oru_conv2d_act_context *>(net.h->contexts[i]);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->op_type, ORU_CG_OP_CONV2D_ACT);
    EXPECT_EQ(c->params.conv.in_channels, in[i]);
    EXPECT_EQ(c->params.conv.out_channels, out[i]);
    EXPECT_EQ(c->params.conv.kernel_w, k[i]);
    EXPECT_EQ(c->params.conv.stride_h, s[i]);
    EXPECT_EQ(c->params.conv.groups, g[i]);
    EXPECT_EQ(c->params.conv.has_bias, 1);
    EXPECT_EQ(c->params.act, ORU_ACT_RELU);
  }
  ASSERT_EQ(oru_bind_std_conv2d(8, 16, 99, 3, net.h), 0u);
  auto *c = static_cast<oru_conv2d_context *>(net.h->contexts[3]);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->op_type, ORU_CG_OP_STD_CONV2D);
  EXPECT_EQ(c->params.kernel_w, 3);
  EXPECT_EQ(c->params.stride_w, 1);
  EXPECT_EQ(c->params.pad_w, 1);
  EXPECT_EQ(c->params.has_bias, 1);
  ASSERT_EQ(oru_bind_base_net_conv_bn(8, 16, 2, 4, net.h), 0u);
  auto *b = static_cast<oru_conv2d_bn2d_act_context *>(net.h->contexts[4]);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->params.conv.kernel_w, 3);
  EXPECT_EQ(b->params.conv.stride_w, 2);
  EXPECT_EQ(b->params.conv.groups, 1);
  EXPECT_EQ(b->params.act, ORU_ACT_RELU);
}

TEST(BlockBuilders, FailuresStopAtTheFirstBind) {
  EXPECT_EQ(oru_bind_invert_residual(1, 1, 1, 1, 1, 0, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_bind_seperable_conv2d(1, 1, 1, 0, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_bind_full_connect(1, 0, nullptr), ORU_RET_ERR_PARA);
  Net net;
  for (int32_t i = 0; i < 4; ++i) net.edge(i, i + 1);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_op(2, ORU_CG_OP_RELU), 0u);
  testing::internal::CaptureStdout();
  // Node 2 is bound already: nodes 0 and 1 stay bound, node 3 is never reached.
  EXPECT_EQ(oru_bind_invert_residual(2, 2, 1, 1, 1, 0, net.h), ORU_RET_ERR_PARA);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("the 2 th node operator has been bound!"), std::string::npos);
  EXPECT_EQ(net.h->bound[1], 1u);
  EXPECT_EQ(net.h->bound[3], 0u);
  // The linear node gets no record, so the full-connect builder stops there.
  EXPECT_EQ(oru_bind_full_connect(1, 3, net.h), ORU_RET_ERR_PARA);
  EXPECT_EQ(net.h->bound[4], 0u);
}

}  // namespace
