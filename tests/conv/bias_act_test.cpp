// Bias and activation passes on CHW and HWG output, the tensor ReLU and softmax, against
// values worked out by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "conv/oru_conv_internal.h"
#include "conv_case_file.h"

using namespace conv_test;

namespace {

oru_conv2d_params bias_params(int channels, int k) {
  oru_conv2d_params p{};
  p.in_channels = 1;
  p.out_channels = channels;
  p.kernel_w = p.kernel_h = k;
  p.groups = 1;
  p.has_bias = 1;
  return p;
}

using BiasFn = uint32_t (*)(oru_tensor *, const oru_tensor *, const oru_tensor *, const oru_conv2d_params *,
                            const uint32_t *);

// One channel with the given values, bias b behind a 1x1 kernel.
std::vector<float> apply(BiasFn fn, const std::vector<float> &x, float b) {
  oru_conv2d_params p = bias_params(1, 1);
  TensorPtr t = make_tensor({int32_t(x.size()), 1, 1}, x);
  TensorPtr w = make_tensor({2}, {0.5f, b});
  uint32_t workers = 1;
  EXPECT_EQ(fn(t.get(), t.get(), w.get(), &p, &workers), 0u);
  return values_of(t.get());
}

TEST(BiasAct, ActivationsByHand) {
  EXPECT_EQ(apply(oru_tensor_bias_chw, {1.0f, -2.0f}, 0.5f), (std::vector<float>{1.5f, -1.5f}));
  EXPECT_EQ(apply(oru_tensor_bias_relu_chw, {1.0f, -2.0f}, 0.5f), (std::vector<float>{1.5f, 0.0f}));
  std::vector<float> leaky = apply(oru_tensor_bias_leaky_relu_chw, {-2.0f, 3.0f}, 0.0f);
  EXPECT_FLOAT_EQ(leaky[0], -0.2f);
  EXPECT_FLOAT_EQ(leaky[1], 3.0f);
  std::vector<float> hs = apply(oru_tensor_bias_hswish_chw, {-4.0f, 2.0f, 0.0f, 9.0f}, 1.0f);
  EXPECT_FLOAT_EQ(hs[0], 0.0f);  // t = -3
  EXPECT_FLOAT_EQ(hs[1], 3.0f);  // t = 3
  EXPECT_NEAR(hs[2], 1.0f * 4.0f / 6.0f, 1e-6);
  EXPECT_FLOAT_EQ(hs[3], 10.0f);
  std::vector<float> sig = apply(oru_tensor_bias_hsigmoid_chw, {-5.0f, 0.0f, 5.0f}, 0.0f);
  EXPECT_FLOAT_EQ(sig[0], 0.0f);
  EXPECT_NEAR(sig[1], 0.5f, 1e-6);
  EXPECT_FLOAT_EQ(sig[2], 1.0f);
  std::vector<float> th = apply(oru_tensor_bias_tanh_chw, {-1.0f, 0.0f, 0.5f}, 0.5f);
  EXPECT_NEAR(th[0], std::tanh(-0.5), 1e-6);
  EXPECT_NEAR(th[1], std::tanh(0.5), 1e-6);
  EXPECT_NEAR(th[2], std::tanh(1.0), 1e-6);
}

TEST(BiasAct, ChwPlanesTakeTheirChannelsBias) {
  // 33 elements a plane: a step of 32 and a scalar; three channels, bias 10, 20, 30 after a
  // 3x3 kernel of one input channel per output.
  oru_conv2d_params p = bias_params(3, 3);
  std::vector<float> words(27 + 3, 0.0f);
  words[27] = 10.0f, words[28] = 20.0f, words[29] = 30.0f;
  std::vector<float> x(99);
  for (size_t i = 0; i < x.size(); ++i) x[i] = float(i);
  TensorPtr in = make_tensor({11, 3, 3}, x), out = make_tensor({11, 3, 3}), w = make_tensor({30}, words);
  uint32_t workers = 1;
  ASSERT_EQ(oru_tensor_bias_chw(out.get(), in.get(), w.get(), &p, &workers), 0u);
  std::vector<float> got = values_of(out.get());
  for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i], float(i) + 10.0f * float(1 + i / 33)) << i;
}

TEST(BiasAct, HwgGroupsOfEightFourAndOne) {
  // 13 channels: a group of 8, one of 4, one single. Channel c of pixel q holds 100 q + c and
  // its bias is -c, so every output is 100 q, unless the walk mixes channels up.
  const int channels = 13, pixels = 6;
  oru_conv2d_params p = bias_params(channels, 1);
  std::vector<float> words(size_t(channels * channels + channels), 0.0f);  // 13 x 1 kernels, n = 13
  p.in_channels = channels;
  for (int c = 0; c < channels; ++c) words[size_t(channels * channels + c)] = -float(c);
  std::vector<float> x(size_t(channels * pixels));
  int base = 0;
  for (int g : {8, 4, 1}) {
    for (int q = 0; q < pixels; ++q)
      for (int j = 0; j < g; ++j) x[size_t(base * pixels + q * g + j)] = float(100 * q + base + j);
    base += g;
  }
  TensorPtr t = make_tensor({3, 2, channels}, x), w = make_tensor({int32_t(words.size())}, words);
  uint32_t workers = 1;
  ASSERT_EQ(oru_tensor_bias_hwg(t.get(), t.get(), w.get(), &p, &workers), 0u);
  std::vector<float> got = values_of(t.get());
  base = 0;
  for (int g : {8, 4, 1}) {
    for (int q = 0; q < pixels; ++q)
      for (int j = 0; j < g; ++j) EXPECT_EQ(got[size_t(base * pixels + q * g + j)], float(100 * q)) << base + j;
    base += g;
  }
  // The fused ReLU form clamps what would be negative.
  for (float &v : x) v = -v;
  TensorPtr neg = make_tensor({3, 2, channels}, x);
  ASSERT_EQ(oru_tensor_bias_relu_hwg(neg.get(), neg.get(), w.get(), &p, &workers), 0u);
  for (float v : values_of(neg.get())) EXPECT_EQ(v, 0.0f);
}

TEST(BiasAct, RefusesMismatchedTensors) {
  oru_conv2d_params p = bias_params(2, 1);
  p.in_channels = 2;
  TensorPtr a = make_tensor({4, 4, 2}), b = make_tensor({4, 5, 2}), w = make_tensor({6});
  uint32_t workers = 1;
  EXPECT_EQ(oru_tensor_bias_chw(a.get(), b.get(), w.get(), &p, &workers), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_bias_chw(a.get(), a.get(), nullptr, &p, &workers), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_bias_chw(a.get(), a.get(), w.get(), nullptr, &workers), ORU_RET_ERR_PARA);
  p.out_channels = 3;
  EXPECT_EQ(oru_tensor_bias_hwg(a.get(), a.get(), w.get(), &p, &workers), ORU_RET_ERR_PARA);
  // Too few words to hold the bias.
  p.out_channels = 2;
  TensorPtr short_w = make_tensor({5});
  EXPECT_EQ(oru_tensor_bias_chw(a.get(), a.get(), short_w.get(), &p, &workers), ORU_RET_ERR_PARA);
}

TEST(BiasAct, ReluAndSoftmax) {
  TensorPtr t = make_tensor({5, 1, 1}, {-1.0f, -0.0f, 2.0f, NAN, 0.5f});
  ASSERT_EQ(oru_tensor_relu(t.get(), t.get(), nullptr), 0u);
  std::vector<float> r = values_of(t.get());
  EXPECT_EQ(r[0], 0.0f);
  EXPECT_FALSE(std::signbit(r[1]));
  EXPECT_EQ(r[2], 2.0f);
  EXPECT_EQ(r[3], 0.0f);
  EXPECT_EQ(r[4], 0.5f);

  std::vector<float> x = {1.0f, 2.0f, 3.0f, -1.0f, 0.0f, 1.0f, 5.0f};
  TensorPtr in = make_tensor({7}, x), out = make_tensor({7}, std::vector<float>(7, 42.0f));
  ASSERT_EQ(oru_tensor_softmax(out.get(), in.get(), 3), 0u);
  std::vector<float> y = values_of(out.get());
  for (int run = 0; run < 2; ++run) {
    double s = 0;
    for (int i = 0; i < 3; ++i) s += std::exp(double(x[size_t(run * 3 + i)]));
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(y[size_t(run * 3 + i)], std::exp(double(x[size_t(run * 3 + i)])) / s, 1e-6);
  }
  EXPECT_EQ(y[6], 42.0f);  // outside the two whole runs: untouched
  TensorPtr low = make_tensor({4}, std::vector<float>(4, -3.4028235e38f)), low_out = make_tensor({4});
  ASSERT_EQ(oru_tensor_softmax(low_out.get(), low.get(), 4), 0u);
  std::vector<float> lo = values_of(low_out.get());
  for (float v : lo) EXPECT_EQ(v, lo[0]);
  EXPECT_EQ(oru_tensor_softmax(out.get(), in.get(), 8), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_softmax(out.get(), in.get(), 0), ORU_RET_ERR_PARA);
}

}  // namespace
