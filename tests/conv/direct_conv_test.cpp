// Direct CHW kernels against PyTorch references, the specialised loops against the
// general ones, and refusals of bad arguments.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "conv/oru_conv_internal.h"
#include "conv_case_file.h"

using namespace conv_test;

namespace {

constexpr double kTol = 2e-5;

bool is_pointwise_shape(const oru_conv2d_params &p) {
  return p.kernel_w == 1 && p.kernel_h == 1 && p.stride_w == 1 && p.stride_h == 1 && p.pad_w == 0 && p.pad_h == 0;
}

// Runs the convolution kernel a conv operator of method 0 would pick, then the bias.
uint32_t run_direct(oru_tensor *out, const oru_tensor *in, const oru_tensor *w, const oru_conv2d_params &p) {
  uint32_t workers = 1, st;
  if (p.dilation_w != 1 || p.dilation_h != 1)
    st = oru_tensor_dilated_conv2d_chw(out, in, w, &p, &workers);
  else if (oru::is_depthwise(p) && p.groups > 1)
    st = oru_tensor_depthwise_conv2d_chw(out, in, w, &p, &workers);
  else if (is_pointwise_shape(p))
    st = oru_tensor_pointwise_conv2d_chw(out, in, w, &p, &workers);
  else
    st = oru_tensor_std_conv2d_chw(out, in, w, &p, &workers);
  if (st == 0 && p.has_bias == 1) st = oru_tensor_bias_chw(out, out, w, &p, &workers);
  return st;
}

TEST(DirectConv, MatchesPyTorchOnEveryReferenceCase) {
  std::vector<Case> cases = load_cases();
  ASSERT_GE(cases.size(), 60u);
  int checked = 0;
  for (const Case &c : cases) {
    if (c.kind != 0) continue;
    SCOPED_TRACE(describe(c));
    TensorPtr in = make_tensor(c.input.dims, c.input.values);
    TensorPtr w = make_tensor({int32_t(c.weight.values.size())}, c.weight.values);
    TensorPtr out = make_tensor(c.expected.dims);
    ASSERT_EQ(run_direct(out.get(), in.get(), w.get(), c.params), 0u);
    EXPECT_LT(max_rel_error(values_of(out.get()), c.expected.values), kTol);
    ++checked;
  }
  EXPECT_GE(checked, 40);
}

// The fused operators' one-pass path (bias and activation applied as sums are stored)
// against the kernel followed by the separate bias pass: bit for bit, on every reference
// shape without dilation and every activation; with no activation it also meets PyTorch.
TEST(DirectConv, BiasAndActivationInOnePassEqualTheSeparatePass) {
  int checked = 0;
  for (const Case &c : load_cases()) {
    if (c.kind != 0 || c.params.has_bias != 1 || c.params.dilation_w != 1 || c.params.dilation_h != 1) continue;
    if (c.params.groups != 1 && !oru::is_depthwise(c.params)) continue;
    // A 1x1 kernel goes to the pointwise loop, which serves stride 1 and no padding only.
    const bool one_by_one = c.params.kernel_w == 1 && c.params.kernel_h == 1 && c.params.groups == 1;
    if (one_by_one && !is_pointwise_shape(c.params)) continue;
    SCOPED_TRACE(describe(c));
    TensorPtr in = make_tensor(c.input.dims, c.input.values);
    TensorPtr w = make_tensor({int32_t(c.weight.values.size())}, c.weight.values);
    for (int act = oru::act_none; act <= oru::act_tanh; ++act) {
      oru_conv2d_params nobias = c.params;
      nobias.has_bias = 0;
      TensorPtr sep = make_tensor(c.expected.dims), one = make_tensor(c.expected.dims);
      ASSERT_EQ(run_direct(sep.get(), in.get(), w.get(), nobias), 0u);
      ASSERT_EQ(oru::bias_act_chw(sep.get(), sep.get(), w.get(), &c.params, act), 0u);
      uint32_t workers = 1;
      ASSERT_EQ(oru::direct_conv_bias_act_chw(one.get(), in.get(), w.get(), &c.params, &workers, act), 0u);
      const std::vector<float> a = values_of(sep.get()), b = values_of(one.get());
      ASSERT_EQ(a.size(), b.size());
      EXPECT_EQ(0, std::memcmp(a.data(), b.data(), a.size() * sizeof(float))) << "act " << act;
      if (act == oru::act_none) {
        EXPECT_LT(max_rel_error(b, c.expected.values), kTol);
      }
    }
    ++checked;
  }
  EXPECT_GE(checked, 20);
}

TEST(DirectConv, TransposedMatchesPyTorchWithRotatedKernels) {
  int checked = 0;
  for (const Case &c : load_cases()) {
    if (c.kind != 1) continue;
    SCOPED_TRACE(describe(c));
    const oru_conv2d_params &p = c.params;
    // Turn every kernel over by 180 degrees, as the operator does before its first run.
    std::vector<float> rotated(c.weight.values.size());
    int64_t ks = int64_t(p.kernel_w) * p.kernel_h;
    for (size_t k = 0; k < rotated.size() / size_t(ks); ++k)
      for (int64_t j = 0; j < ks; ++j) rotated[k * ks + j] = c.weight.values[k * ks + ks - 1 - j];
    TensorPtr in = make_tensor(c.input.dims, c.input.values);
    TensorPtr w = make_tensor({int32_t(rotated.size())}, rotated);
    TensorPtr out = make_tensor(c.expected.dims);
    ASSERT_EQ(oru_tensor_transposed_conv2d_chw(out.get(), in.get(), w.get(), &p), 0u);
    EXPECT_LT(max_rel_error(values_of(out.get()), c.expected.values), kTol);
    ++checked;
  }
  EXPECT_GE(checked, 4);
}

oru_conv2d_params make_params(int ic, int oc, int k, int s, int pad, int groups) {
  oru_conv2d_params p{};
  p.in_channels = ic;
  p.out_channels = oc;
  p.kernel_w = p.kernel_h = k;
  p.stride_w = p.stride_h = s;
  p.pad_w = p.pad_h = pad;
  p.dilation_w = p.dilation_h = 1;
  p.groups = groups;
  return p;
}

// The specialised loops (rings, stride-2 scans, pointwise blocks) against the general loops
// on random shapes that reach every tail and every edge of the windows.
TEST(DirectConv, SpecialisedLoopsAgreeWithGeneralLoops) {
  std::mt19937 gen(7);
  std::uniform_int_distribution<int> extent(1, 21), chans(1, 9);
  uint32_t workers = 1;
  for (int trial = 0; trial < 120; ++trial) {
    int w = extent(gen), h = extent(gen), ic = chans(gen), oc = chans(gen);
    int kind = trial % 4;  // 0: 3x3 s1, 1: 3x3 s2, 2: depthwise 3x3 s1/s2, 3: pointwise
    if (trial % 10 == 0) w = 16, h = 8 * (1 + trial % 3), ic = oc = 8;
    if (kind == 2) oc = ic;
    int s = kind == 1 || (kind == 2 && trial % 8 == 2) ? 2 : 1;
    oru_conv2d_params p = kind == 3 ? make_params(ic, oc, 1, 1, 0, 1) : make_params(ic, oc, 3, s, 1, kind == 2 ? ic : 1);
    SCOPED_TRACE(::testing::Message() << "kind " << kind << " " << w << "x" << h << " ic " << ic << " oc " << oc
                                      << " s " << s);
    int ow = oru::conv_out_extent(w, p.kernel_w, s, p.pad_w, 1), oh = oru::conv_out_extent(h, p.kernel_h, s, p.pad_h, 1);
    TensorPtr in = make_tensor({w, h, ic}, oru_test::random_values<float>(size_t(w * h * ic), -1, 1, trial));
    int64_t nw = (kind == 2 ? ic : ic * oc) * p.kernel_w * p.kernel_h;
    TensorPtr wt = make_tensor({int32_t(nw)}, oru_test::random_values<float>(size_t(nw), -1, 1, 1000 + trial));
    TensorPtr fast = make_tensor({ow, oh, oc}), ref = make_tensor({ow, oh, oc});
    // Stale contents must not leak into the result of either loop.
    std::fill_n(static_cast<float *>(fast->data), fast->total_elements, 123.0f);
    if (kind == 2) {
      ASSERT_EQ(oru_tensor_depthwise_conv2d_chw(fast.get(), in.get(), wt.get(), &p, &workers), 0u);
      ASSERT_EQ(oru_tensor_depthwise_conv2d_general_chw(ref.get(), in.get(), wt.get(), &p, &workers), 0u);
    } else if (kind == 3) {
      ASSERT_EQ(oru_tensor_pointwise_conv2d_chw(fast.get(), in.get(), wt.get(), &p, &workers), 0u);
      ASSERT_EQ(oru_tensor_std_conv2d_general_chw(ref.get(), in.get(), wt.get(), &p, &workers), 0u);
    } else {
      ASSERT_EQ(oru_tensor_std_conv2d_chw(fast.get(), in.get(), wt.get(), &p, &workers), 0u);
      ASSERT_EQ(oru_tensor_std_conv2d_general_chw(ref.get(), in.get(), wt.get(), &p, &workers), 0u);
    }
    EXPECT_LT(max_rel_error(values_of(fast.get()), values_of(ref.get())), 1e-5);
  }
}

TEST(DirectConv, StrideTwoOnSevenByNineGivesFourByFive) {
  // Hand check: one input channel of ones, kernel of ones, padding 1. A window's sum is
  // the number of its taps inside the input.
  oru_conv2d_params p = make_params(1, 1, 3, 2, 1, 1);
  TensorPtr in = make_tensor({7, 9, 1}, std::vector<float>(63, 1.0f));
  TensorPtr w = make_tensor({9}, std::vector<float>(9, 1.0f));
  TensorPtr out = make_tensor({4, 5, 1});
  uint32_t workers = 1;
  ASSERT_EQ(oru_tensor_std_conv2d_chw(out.get(), in.get(), w.get(), &p, &workers), 0u);
  std::vector<float> got = values_of(out.get());
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 4; ++x) {
      float rows = y == 0 ? 2.0f : 3.0f;  // odd height 9: the last window (rows 7..9) has 2 rows, ...
      if (y == 4) rows = 2.0f;             // ... and it is output row 4
      float cols = x == 0 || x == 3 ? 2.0f : 3.0f;
      EXPECT_EQ(got[size_t(y * 4 + x)], rows * cols) << x << "," << y;
    }
}

TEST(DirectConv, RefusesBadArguments) {
  uint32_t workers = 1;
  oru_conv2d_params p = make_params(2, 3, 3, 1, 1, 1);
  TensorPtr in = make_tensor({6, 6, 2}, std::vector<float>(72, 1.0f));
  TensorPtr w = make_tensor({54 + 3}, std::vector<float>(57, 1.0f));
  TensorPtr out = make_tensor({6, 6, 3});
  EXPECT_EQ(oru_tensor_std_conv2d_chw(nullptr, in.get(), w.get(), &p, &workers), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_std_conv2d_chw(out.get(), in.get(), w.get(), nullptr, &workers), ORU_RET_ERR_PARA);
  oru_conv2d_params zero_stride = p;
  zero_stride.stride_h = 0;
  EXPECT_EQ(oru_tensor_std_conv2d_chw(out.get(), in.get(), w.get(), &zero_stride, &workers), ORU_RET_ERR_PARA);
  oru_conv2d_params wrong_in = p;
  wrong_in.in_channels = 3;
  EXPECT_EQ(oru_tensor_std_conv2d_chw(out.get(), in.get(), w.get(), &wrong_in, &workers), ORU_RET_ERR_PARA);
  // Kernel larger than the padded input.
  oru_conv2d_params big = make_params(2, 3, 9, 1, 1, 1);
  EXPECT_EQ(oru_tensor_std_conv2d_chw(out.get(), in.get(), w.get(), &big, &workers), ORU_RET_ERR_PARA);
  // Output plane that disagrees with the shape formula would be written past its end.
  TensorPtr small = make_tensor({5, 6, 3});
  EXPECT_EQ(oru_tensor_std_conv2d_chw(small.get(), in.get(), w.get(), &p, &workers), ORU_RET_ERR_PARA);
  // Depthwise kernel with channels that aren't the group count; pointwise with a 3x3 kernel.
  EXPECT_EQ(oru_tensor_depthwise_conv2d_chw(out.get(), in.get(), w.get(), &p, &workers), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_pointwise_conv2d_chw(out.get(), in.get(), w.get(), &p, &workers), ORU_RET_ERR_PARA);
  // Too few weights for the kernels.
  TensorPtr few = make_tensor({10});
  EXPECT_EQ(oru_tensor_std_conv2d_chw(out.get(), in.get(), few.get(), &p, &workers), ORU_RET_ERR_PARA);
  // Groups between full and depthwise are not served.
  oru_conv2d_params grouped = make_params(4, 4, 3, 1, 1, 2);
  TensorPtr in4 = make_tensor({6, 6, 4}), out4 = make_tensor({6, 6, 4}), w4 = make_tensor({4 * 4 * 9});
  EXPECT_EQ(oru_tensor_dilated_conv2d_chw(out4.get(), in4.get(), w4.get(), &grouped, &workers), ORU_RET_ERR_PARA);
}

}  // namespace
