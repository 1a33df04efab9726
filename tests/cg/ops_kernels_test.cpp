// Vector forms of the element-wise and pooling kernels against their plain twins, and the
// vector exponential against double-precision references.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "kernels/activation/oru_act_kernels.h"
#include "kernels/pooling/oru_pool_kernels.h"
#include "oru_form_tester.h"
#include "oru_test_util.h"

namespace {

using oru::Isa;

uint32_t bits(float f) {
  uint32_t u;
  std::memcpy(&u, &f, 4);
  return u;
}

const int64_t kLengths[] = {0, 1, 3, 7, 8, 9, 15, 16, 17, 31, 33, 64, 100, 1000};

TEST(ActKernels, HswishValuesFromTheFormula) {
  const float x[] = {-4.0f, -3.0f, 0.0f, 1.0f, 3.0f, 10.0f};
  float y[6];
  oru::hswish_f32(y, x, 6);
  EXPECT_EQ(y[0], 0.0f);
  EXPECT_EQ(y[1], 0.0f);
  EXPECT_EQ(y[2], 0.0f);
  EXPECT_NEAR(y[3], 4.0 / 6.0, 1e-7);
  EXPECT_NEAR(y[4], 3.0, 1e-6);
  EXPECT_NEAR(y[5], 10.0, 1e-5);
}

// Every form, the plain one too, against double-precision references.
class ActOracle : public ::testing::TestWithParam<Isa> {};
ORU_FORM_SUITE_WITH_PLAIN(ActOracle);

TEST_P(ActOracle, SigmoidFormsWithinFewUlpOfDouble) {
  ORU_SKIP_UNLESS_FORM(ORU_KERNEL_FORMS(oru::sigmoid_f32), "sigmoid_f32");
  for (int64_t n : kLengths) {
    auto x = oru_test::random_values<float>(n, -30.0, 30.0, 21u + uint32_t(n));
    oru_test::run_form(ORU_KERNEL_FORMS(oru::sigmoid_f32), GetParam(), [&](Isa isa, auto f) {
      std::vector<float> y(n);
      f(y.data(), x.data(), n);
      for (int64_t i = 0; i < n; ++i) {
        const double e = std::exp(double(x[i]));
        const float ref = float(e / (e + 1.0));
        ASSERT_LE(oru_test::ulps(y[i], ref), 4) << oru::isa_name(isa) << " x=" << x[i];
      }
    });
  }
}

void softmax_reference(std::vector<double> &y, const std::vector<float> &x, int64_t rows, int64_t len) {
  y.assign(x.size(), 0.0);
  for (int64_t r = 0; r < rows; ++r) {
    double m = -1e300, s = 0;
    for (int64_t i = 0; i < len; ++i) m = std::max(m, double(x[r * len + i]));
    for (int64_t i = 0; i < len; ++i) s += std::exp(double(x[r * len + i]) - m);
    for (int64_t i = 0; i < len; ++i) y[r * len + i] = std::exp(double(x[r * len + i]) - m) / s;
  }
}

TEST_P(ActOracle, SoftmaxFormsAgainstDoubleReference) {
  ORU_SKIP_UNLESS_FORM(ORU_KERNEL_FORMS(oru::softmax_rows_f32), "softmax_rows_f32");
  std::mt19937 gen(5);
  for (int trial = 0; trial < 40; ++trial) {
    const int64_t len = trial < 10 ? 2 : 1 + int64_t(gen() % 70);
    const int64_t rows = 1 + int64_t(gen() % 50);
    auto x = oru_test::random_values<float>(size_t(rows * len), -20.0, 20.0, 100u + trial);
    std::vector<double> ref;
    softmax_reference(ref, x, rows, len);
    oru_test::run_form(ORU_KERNEL_FORMS(oru::softmax_rows_f32), GetParam(), [&](Isa isa, auto f) {
      // In place, as the graph runs it.
      std::vector<float> y = x;
      f(y.data(), y.data(), rows, len);
      // y = exp(x - t): the rounding of t = m + log S is about |m| ulp, and x - t scales
      // the exponential's own error by -log(y).
      for (size_t i = 0; i < y.size(); ++i) {
        float m = x[i / len * len];
        for (int64_t j = 0; j < len; ++j) m = std::max(m, x[i / len * len + j]);
        ASSERT_NEAR(y[i], ref[i], 1.2e-7 * (std::fabs(m) + 4.0 - std::log(ref[i])) * ref[i] + 1e-37)
            << oru::isa_name(isa) << " rows=" << rows << " len=" << len << " i=" << i;
      }
    });
  }
}

TEST_P(ActOracle, SoftmaxHugeAndEqualRows) {
  ORU_SKIP_UNLESS_FORM(ORU_KERNEL_FORMS(oru::softmax_rows_f32), "softmax_rows_f32");
  for (int64_t len : {2, 5, 37}) {
    std::vector<float> x(size_t(3 * len), 7.0f);
    for (int64_t i = 0; i < len; ++i) x[size_t(len + i)] = i == 0 ? 1e30f : 0.0f;
    oru_test::run_form(ORU_KERNEL_FORMS(oru::softmax_rows_f32), GetParam(), [&](Isa isa, auto f) {
      std::vector<float> y(x.size());
      f(y.data(), x.data(), 3, len);
      for (int64_t i = 0; i < len; ++i) {
        EXPECT_NEAR(y[size_t(i)], 1.0 / double(len), 1e-6) << oru::isa_name(isa);
        EXPECT_EQ(y[size_t(len + i)], i == 0 ? 1.0f : 0.0f) << oru::isa_name(isa);
      }
    });
  }
}

// Every activation form against its plain twin through the form tester: swept lengths and
// offsets, special values, in place, a guard past the end.
class ActForms : public ::testing::TestWithParam<Isa> {};
ORU_FORM_SUITE(ActForms);

using Unary = void (*)(float *, const float *, int64_t);
const auto unary = [](Unary f, float *y, const float *const *x, int64_t n) { f(y, x[0], n); };

TEST_P(ActForms, ReluBitForBit) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::relu_f32), "relu_f32");
  oru_test::check_elementwise<float>(oru::relu_f32_plain, f, {}, unary);
}

TEST_P(ActForms, HswishBitForBit) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::hswish_f32), "hswish_f32");
  oru_test::ElementwiseCheck c;
  c.lo = -8, c.hi = 8;
  oru_test::check_elementwise<float>(oru::hswish_f32_plain, f, c, unary);
}

TEST_P(ActForms, SigmoidWithinFewUlpOfPlain) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::sigmoid_f32), "sigmoid_f32");
  oru_test::ElementwiseCheck c;
  // Around the exponential's edges as well: e^x overflows above about 88.72, where inf / inf
  // is NaN as with expf, and reaches denormals below -87.
  c.lo = -30, c.hi = 30, c.max_ulps = 4, c.abs_tol = 1e-37;
  c.extra = {88.0, 88.72283172607421875, 88.72283935546875, 89.0, 200.0, -87.0, -90.0, -103.0, -104.5, -200.0};
  oru_test::check_elementwise<float>(oru::sigmoid_f32_plain, f, c, unary);
}

TEST_P(ActForms, AddBitForBit) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::add_f32), "add_f32");
  oru_test::ElementwiseCheck c;
  c.inputs = 2, c.any_nan = true;
  oru_test::check_elementwise<float>(oru::add_f32_plain, f, c,
                                     [](decltype(f) g, float *y, const float *const *x, int64_t n) { g(y, x[0], x[1], n); });
}

TEST_P(ActForms, AddScalarBitForBit) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::add_scalar_f32), "add_scalar_f32");
  oru_test::check_elementwise<float>(oru::add_scalar_f32_plain, f, {},
                                     [](decltype(f) g, float *y, const float *const *x, int64_t n) { g(y, x[0], 0.375f, n); });
}

TEST(ActKernels, ReluPlainFormGivesPositiveZeroForNegativesNegativeZeroAndNaN) {
  const float in[] = {-1.0f, -0.0f, std::nanf(""), -std::numeric_limits<float>::infinity(), 2.5f, 1e-45f};
  float out[6];
  oru::relu_f32_plain(out, in, 6);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(bits(out[i]), 0u) << i;
  EXPECT_EQ(out[4], 2.5f);
  EXPECT_EQ(out[5], 1e-45f);
}

TEST(ActKernels, Relu6Clamps) {
  const float x[] = {-1.0f, 0.0f, 3.0f, 6.0f, 7.0f, -0.0f, std::nanf("")};
  float y[7];
  oru::relu6_f32(y, x, 7);
  const float want[] = {0.0f, 0.0f, 3.0f, 6.0f, 6.0f, 0.0f, 0.0f};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(bits(y[i]), bits(want[i])) << i;
}

// Reference pooling straight from the definition, in double for the average.
void pool_reference(std::vector<float> &out, const std::vector<float> &in, int32_t w, int32_t h, int32_t c, int32_t k,
                    bool is_max) {
  const int32_t ow = w / k, oh = h / k;
  out.assign(size_t(ow) * oh * c, 0.0f);
  for (int32_t ch = 0; ch < c; ++ch)
    for (int32_t oy = 0; oy < oh; ++oy)
      for (int32_t ox = 0; ox < ow; ++ox) {
        double acc = is_max ? -1e300 : 0.0;
        for (int32_t y = 0; y < k; ++y)
          for (int32_t x = 0; x < k; ++x) {
            const double v = in[size_t(ch) * w * h + size_t(oy * k + y) * w + size_t(ox * k + x)];
            acc = is_max ? std::max(acc, v) : acc + v;
          }
        out[size_t(ch) * ow * oh + size_t(oy) * ow + ox] = float(is_max ? acc : acc / (k * k));
      }
}

class PoolForms : public ::testing::TestWithParam<Isa> {};
ORU_FORM_SUITE(PoolForms);

TEST_P(PoolForms, AgreeWithPlainAndReference) {
  ORU_FORM_UNDER_TEST(max_form, ORU_KERNEL_FORMS(oru::max_pool2d_f32), "max_pool2d_f32");
  ORU_FORM_UNDER_TEST(avg_form, ORU_KERNEL_FORMS(oru::avg_pool2d_f32), "avg_pool2d_f32");
  const Isa isa = GetParam();
  std::mt19937 gen(9);
  for (int trial = 0; trial < 30; ++trial) {
    const int32_t k = trial % 3 == 2 ? 3 : 2;
    const int32_t w = k * (1 + int32_t(gen() % 40)), h = k * (1 + int32_t(gen() % 6)), c = 1 + int32_t(gen() % 5);
    auto in = oru_test::random_values<float>(size_t(w) * h * c, -3.0, -0.5 + trial % 2 * 4.0, 300u + trial);
    for (bool is_max : {true, false}) {
      std::vector<float> ref;
      pool_reference(ref, in, w, h, c, k, is_max);
      std::vector<float> plain(ref.size());
      oru::PoolPlanes p{in.data(), plain.data(), w, int64_t(w) * h, w / k, h / k, int64_t(w / k) * (h / k), c, k, k};
      (is_max ? oru::max_pool2d_f32_plain : oru::avg_pool2d_f32_plain)(p);
      for (size_t i = 0; i < ref.size(); ++i) ASSERT_NEAR(plain[i], ref[i], 1e-5) << "w=" << w << " k=" << k;
      auto check = [&](auto f) {
        std::vector<float> y(ref.size() + 1, 77.0f);
        oru::PoolPlanes q = p;
        q.out = y.data();
        f(q);
        for (size_t i = 0; i < ref.size(); ++i) ASSERT_EQ(bits(y[i]), bits(plain[i])) << oru::isa_name(isa) << " w=" << w;
        EXPECT_EQ(y[ref.size()], 77.0f);
      };
      check(is_max ? max_form : avg_form);
    }
  }
}

TEST_P(PoolForms, GlobalWindowsOverManyPlanes) {
  ORU_FORM_UNDER_TEST(max_form, ORU_KERNEL_FORMS(oru::max_pool2d_f32), "max_pool2d_f32");
  ORU_FORM_UNDER_TEST(avg_form, ORU_KERNEL_FORMS(oru::avg_pool2d_f32), "avg_pool2d_f32");
  const Isa isa = GetParam();
  // Planes of 7 x 7 and 20 x 13 (not square: the kernel takes kw and kh), channel counts
  // that leave lanes over.
  const struct {
    int32_t w, h, c;
  } shapes[] = {{7, 7, 13}, {20, 13, 19}, {3, 3, 4}, {16, 16, 8}, {9, 5, 45}};
  for (const auto &s : shapes) {
    auto in = oru_test::random_values<float>(size_t(s.w) * s.h * s.c, -2.0, 1.0, 77u + uint32_t(s.w));
    for (bool is_max : {true, false}) {
      std::vector<float> ref(size_t(s.c));
      // The fixed order: one window at a time.
      for (int32_t i = 0; i < s.c; ++i)
        ref[size_t(i)] = is_max ? oru::pool_detail::window<true>(in.data() + i * s.w * s.h, s.w, s.w, s.h)
                                : oru::pool_detail::window<false>(in.data() + i * s.w * s.h, s.w, s.w, s.h);
      double sum0 = 0, max0 = in[0];
      for (int32_t i = 0; i < s.w * s.h; ++i) sum0 += in[size_t(i)], max0 = std::max(max0, double(in[size_t(i)]));
      EXPECT_NEAR(ref[0], is_max ? max0 : sum0 / (s.w * s.h), 1e-5);
      auto check = [&](auto f) {
        std::vector<float> y(size_t(s.c), 55.0f);
        oru::PoolPlanes p{in.data(), y.data(), s.w, int64_t(s.w) * s.h, 1, 1, 1, s.c, s.w, s.h};
        f(p);
        for (int32_t i = 0; i < s.c; ++i)
          ASSERT_EQ(bits(y[size_t(i)]), bits(ref[size_t(i)])) << oru::isa_name(isa) << " plane " << i << " w=" << s.w;
      };
      check(is_max ? max_form : avg_form);
    }
  }
}

}  // namespace
