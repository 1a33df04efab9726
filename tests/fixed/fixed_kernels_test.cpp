// The fixed-point kernels against NumPy integer models of their rules
// (tests/oracles/fixed_reference.py), bit for bit, on random shapes and Q values, and the
// rules' own edge cases by hand.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fixed/oru_fixed_internal.h"
#include "oru_case_reader.h"
#include "oru_test_util.h"
#include "orucore.h"

namespace {

using Array = oru_test::CaseArray<int16_t>;

struct Case {
  int32_t kind = 0;
  std::vector<int32_t> ints;
  std::vector<Array> inputs;
  Array expected;
};

std::vector<Case> load_cases() {
  oru_test::CaseReader r("fixed/fixed_cases.bin", "ORUFIXD1");
  std::vector<Case> cases;
  int32_t count = 0;
  if (!r.ok() || !r.take(&count, 4)) return cases;
  for (int32_t i = 0; i < count; ++i) {
    Case c;
    int32_t n = 0, m = 0;
    if (!r.take(&c.kind, 4) || !r.take(&n, 4) || n < 0 || n > 64) break;
    c.ints.resize(size_t(n));
    if (!r.take(c.ints.data(), 4 * size_t(n)) || !r.take(&m, 4) || m < 1 || m > 8) break;
    c.inputs.resize(size_t(m));
    bool ok = true;
    for (Array &a : c.inputs) ok = ok && r.take_array(a);
    if (!ok || !r.take_array(c.expected)) break;
    cases.push_back(std::move(c));
  }
  return cases;
}

struct TensorDeleter {
  void operator()(oru_tensor *t) const { oru_release_tensor(&t); }
};
using TensorPtr = std::unique_ptr<oru_tensor, TensorDeleter>;

TensorPtr make(const std::vector<int32_t> &dims, const std::vector<int16_t> &values = {}) {
  TensorPtr t(oru_create_tensor(int32_t(dims.size()), dims.data(), ai16s));
  if (t && !values.empty()) std::memcpy(t->data, values.data(), values.size() * 2);
  return t;
}

std::vector<int16_t> values_of(const oru_tensor *t) {
  const int16_t *p = static_cast<const int16_t *>(t->data);
  return std::vector<int16_t>(p, p + t->total_elements);
}

oru_conv2d_params conv_params(const std::vector<int32_t> &ints) {
  oru_conv2d_params p;
  std::memcpy(&p, ints.data() + 3, sizeof p);
  return p;
}

// Runs one case's kernel; the output holds a pattern first, so a value left unwritten shows.
std::vector<int16_t> run_case(const Case &c, uint32_t *status, bool general) {
  const std::vector<int32_t> &q = c.ints;
  TensorPtr out = make(c.expected.dims, std::vector<int16_t>(c.expected.values.size(), int16_t(0x5a5a)));
  std::vector<TensorPtr> in;
  for (const Array &a : c.inputs) in.push_back(make(a.dims, a.values));
  const uint32_t workers = 1;
  switch (c.kind) {
    case 0: case 1: case 2: {
      const oru_conv2d_params p = conv_params(q);
      using Fn = decltype(&oru_tensor_std_conv2d_chw_fpi16);
      Fn fn = c.kind == 0 ? (general ? oru_tensor_std_conv2d_general_chw_fpi16 : oru_tensor_std_conv2d_chw_fpi16)
              : c.kind == 1 ? (general ? oru_tensor_depthwise_conv2d_general_chw_fpi16
                                       : oru_tensor_depthwise_conv2d_chw_fpi16)
                            : oru_tensor_pointwise_conv2d_chw_fpi16;
      *status = fn(out.get(), q[0], in[0].get(), q[1], in[1].get(), q[2], &p, &workers);
      break;
    }
    case 3: {
      oru_conv2d_act_params p{conv_params(q), q[17]};
      *status = oru_tensor_conv2d_act_chw_fpi16(out.get(), q[0], in[0].get(), q[1], in[1].get(), q[2], &p, &workers);
      break;
    }
    case 4: {
      oru_conv2d_bn2d_act_params p{conv_params(q), 0.0f, q[17]};
      *status =
          oru_tensor_conv2d_bn2d_act_chw_fpi16(out.get(), q[0], in[0].get(), q[1], in[1].get(), q[2], &p, &workers);
      break;
    }
    case 5: {
      const oru_conv2d_params p = conv_params(q);
      *status = oru_tensor_bias_chw_fpi16(out.get(), q[0], in[0].get(), q[1], in[1].get(), q[2], &p);
      break;
    }
    case 6:
      *status = oru_tensor_add_fpi16(out.get(), q[0], in[0].get(), q[1], in[1].get(), q[2]);
      break;
    case 7: {
      oru_cg_bn_params p{0, 0.0f};
      std::memcpy(&p.eps, &q[6], 4);
      *status = oru_tensor_batchnorm1d_fpi16(out.get(), q[0], in[0].get(), q[1], in[1].get(), q[2], q[3], q[4], q[5],
                                             &p);
      break;
    }
    case 8: {
      oru_cg_linear_params p{q[3], q[4], 1};
      *status = oru_tensor_linear_bias_fpi16(out.get(), q[0], in[0].get(), q[1], in[1].get(), q[2], &p);
      break;
    }
    case 9:
      *status = oru_tensor_avg_pool2d_fpi16(out.get(), q[0], in[0].get(), q[1], q[2]);
      break;
    case 10:
      *status = oru_tensor_hswish_fpi16(out.get(), q[0], in[0].get(), q[1]);
      break;
    case 11: {
      oru_cg_affine_params p{0, 0, 1.0f, 1.0f, 0, 0};
      *status = oru_tensor_affine_fpi16(out.get(), q[0], in[0].get(), q[1], in[1].get(), q[2], &p);
      break;
    }
    default:
      *status = 99;
  }
  return values_of(out.get());
}

void expect_family(int32_t first_kind, int32_t last_kind, bool general) {
  const std::vector<Case> cases = load_cases();
  ASSERT_GT(cases.size(), 50u) << "missing tests/data/fixed/fixed_cases.bin";
  std::vector<int> seen(12, 0);
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case &c = cases[i];
    if (c.kind < first_kind || c.kind > last_kind || (general && c.kind > 1)) continue;
    ++seen[size_t(c.kind)];
    uint32_t status = 1;
    const std::vector<int16_t> got = run_case(c, &status, general);
    EXPECT_EQ(status, 0u) << "case " << i << " kind " << c.kind;
    EXPECT_EQ(got, c.expected.values) << "case " << i << " kind " << c.kind << " q " << c.ints[0] << " "
                                      << c.ints[1] << " " << c.ints[2];
  }
  for (int32_t k = first_kind; k <= (general ? 1 : last_kind); ++k) EXPECT_GE(seen[size_t(k)], 2) << "kind " << k;
}

TEST(FixedKernels, ConvolutionsBiasAndTailsMatchTheIntegerModel) { expect_family(0, 5, false); }
TEST(FixedKernels, GeneralLoopsMatchTheIntegerModel) { expect_family(0, 1, true); }
TEST(FixedKernels, ElementWiseLinearPoolingAndAffineMatchTheIntegerModel) { expect_family(6, 11, false); }

// The rules' small cases, where the arithmetic can be followed by eye.
TEST(FixedKernels, RoundingShiftAndWrapByHand) {
  const uint32_t workers = 1;
  oru_conv2d_params p{};
  p.in_channels = 2;
  p.out_channels = 1;
  p.kernel_w = p.kernel_h = 1;
  p.stride_w = p.stride_h = 1;
  p.dilation_w = p.dilation_h = 1;
  p.groups = 1;
  struct Row {
    int16_t x0, x1, w0, w1;
    int32_t q_out, q_in, q_w;
    int16_t expected;
  } rows[] = {
      {3, 0, 1, 0, 0, 1, 0, 2},            // s = 1: a term of 3 rounds up to 2
      {-3, 0, 1, 0, 0, 1, 0, -1},          // (-3 + 1) >> 1 floors to -1
      {5, 7, 1, 1, 4, 2, 2, 12},           // s = 0: plain sums
      {30000, 30000, 1, 1, 0, 0, 0, -5536} // past 32767 the sum wraps
  };
  for (const Row &r : rows) {
    for (bool std_path : {false, true}) {
      TensorPtr in = make({1, 1, 2}, {r.x0, r.x1}), w = make({2}, {r.w0, r.w1}), out = make({1, 1, 1});
      const uint32_t st = std_path ? oru_tensor_std_conv2d_chw_fpi16(out.get(), r.q_out, in.get(), r.q_in, w.get(),
                                                                      r.q_w, &p, &workers)
                                   : oru_tensor_pointwise_conv2d_chw_fpi16(out.get(), r.q_out, in.get(), r.q_in,
                                                                           w.get(), r.q_w, &p, &workers);
      EXPECT_EQ(st, 0u);
      EXPECT_EQ(values_of(out.get())[0], r.expected) << r.x0 << " " << r.x1 << " std " << std_path;
    }
  }
  // Average of 1, 2, 3, 4 is 10 / 4 truncated; h-swish of -3 in Q 8 is 0.
  TensorPtr pin = make({2, 2, 1}, {1, 2, 3, 4}), pout = make({1, 1, 1});
  EXPECT_EQ(oru_tensor_avg_pool2d_fpi16(pout.get(), 0, pin.get(), 0, 2), 0u);
  EXPECT_EQ(values_of(pout.get())[0], 2);
  TensorPtr hin = make({1}, {int16_t(-3 * 256)}), hout = make({1}, {77});
  EXPECT_EQ(oru_tensor_hswish_fpi16(hout.get(), 8, hin.get(), 8), 0u);
  EXPECT_EQ(values_of(hout.get())[0], 0);
}

TEST(FixedKernels, ConcatCopiesWhateverTheQAndBatchNormMayComputeNothing) {
  TensorPtr a = make({2, 1}, {1, -2}), b = make({3, 1}, {300, 4, -5}), out = make({5, 1});
  oru_tensor *inputs[2] = {a.get(), b.get()};
  const int32_t qs[2] = {8, 9};
  EXPECT_EQ(oru_tensor_concat_fpi16(out.get(), 8, inputs, qs, 0, 2), 0u);
  EXPECT_EQ(values_of(out.get()), (std::vector<int16_t>{1, -2, 300, 4, -5}));
  const int32_t bad_q[2] = {8, 16};
  EXPECT_EQ(oru_tensor_concat_fpi16(out.get(), 8, inputs, bad_q, 0, 2), uint32_t(ORU_RET_ERR_PARA));
  // q_gamma + q_in - q_var = 4 + 8 - 10 is below q_beta 6: the output stays as it was.
  TensorPtr x = make({2}, {100, 200}), w = make({8}, {1, 1, 1, 1, 1, 1, 1, 1}), y = make({2}, {7, 7});
  EXPECT_EQ(oru_tensor_batchnorm1d_fpi16(y.get(), 8, x.get(), 8, w.get(), 4, 6, 8, 10, nullptr), 0u);
  EXPECT_EQ(values_of(y.get()), (std::vector<int16_t>{7, 7}));
  // A per-channel add takes one value per channel and refuses any other count.
  TensorPtr pa = make({2, 1, 3}, {1, 2, 3, 4, 5, 6}), pb = make({3}, {10, 20, 30}), pb4 = make({4}),
            po = make({2, 1, 3});
  EXPECT_EQ(oru_tensor_add_fpi16(po.get(), 4, pa.get(), 4, pb.get(), 4), 0u);
  EXPECT_EQ(values_of(po.get()), (std::vector<int16_t>{11, 12, 23, 24, 35, 36}));
  EXPECT_EQ(oru_tensor_add_fpi16(po.get(), 4, pa.get(), 4, pb4.get(), 4), uint32_t(ORU_RET_ERR_PARA));
}

TEST(FixedKernels, RefusalsOfBadArguments) {
  const uint32_t workers = 1;
  oru_conv2d_params p{};
  p.in_channels = p.out_channels = p.groups = 1;
  p.kernel_w = p.kernel_h = 3;
  p.stride_w = p.stride_h = p.pad_w = p.pad_h = 1;
  TensorPtr in = make({4, 4, 1}), w = make({10}), out = make({4, 4, 1});
  for (int k = 0; k < 16; ++k) static_cast<int16_t *>(in->data)[k] = int16_t(k);
  EXPECT_EQ(oru_tensor_std_conv2d_chw_fpi16(out.get(), 8, in.get(), 8, w.get(), 8, nullptr, &workers),
            uint32_t(ORU_RET_ERR_PARA));
  EXPECT_EQ(oru_tensor_std_conv2d_chw_fpi16(out.get(), 16, in.get(), 8, w.get(), 8, &p, &workers),
            uint32_t(ORU_RET_ERR_PARA));
  EXPECT_EQ(oru_tensor_std_conv2d_chw_fpi16(nullptr, 8, in.get(), 8, w.get(), 8, &p, &workers),
            uint32_t(ORU_RET_ERR_PARA));
  oru_conv2d_params two = p;
  two.out_channels = 2;
  EXPECT_EQ(oru_tensor_depthwise_conv2d_chw_fpi16(out.get(), 8, in.get(), 8, w.get(), 8, &two, &workers),
            uint32_t(ORU_RET_ERR_PARA));
  // A float tensor is not read as 16-bit values.
  int32_t dims[3] = {4, 4, 1};
  oru_tensor *f = oru_create_tensor(3, dims, aif32);
  EXPECT_EQ(oru_tensor_depthwise_conv2d_chw_fpi16(out.get(), 8, f, 8, w.get(), 8, &p, &workers),
            uint32_t(ORU_RET_ERR_PARA));
  EXPECT_EQ(oru_tensor_hswish_fpi16(out.get(), 8, f, 8), uint32_t(ORU_RET_ERR_PARA));
  oru_release_tensor(&f);
  EXPECT_EQ(oru_tensor_relu_fpi16(out.get(), 0, in.get(), 0, nullptr, nullptr, nullptr, nullptr),
            uint32_t(ORU_RET_ERR_PARA));
  int dummy = 0;
  EXPECT_EQ(oru_tensor_relu_fpi16(out.get(), 0, in.get(), 0, nullptr, nullptr, nullptr, &dummy), 0u);
  EXPECT_EQ(values_of(out.get()), values_of(in.get()));
}

}  // namespace
