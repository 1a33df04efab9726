// Every vector form of the convolution row kernels against its plain twin. Multiplies and
// adds are separate in all forms, so they must agree bit for bit. The row kernels go through
// the form tester; the multi-row ones sweep their own shapes.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "conv/oru_conv_internal.h"
#include "core/oru_dispatch.h"
#include "oru_form_tester.h"
#include "oru_test_util.h"

namespace {

std::vector<float> rand_vec(size_t n, uint32_t seed) { return oru_test::random_values<float>(n, -4.0, 4.0, seed); }

bool same_bits(const std::vector<float> &a, const std::vector<float> &b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

class ConvForms : public ::testing::TestWithParam<oru::Isa> {};
ORU_FORM_SUITE(ConvForms);

using Row = void (*)(float *, int64_t, const float *, const float *, const float *, const float *, bool);

// A 3 x 3 row kernel: three input rows of in_scale * n + 2 elements, accumulating or not.
void check_row(Row plain, Row form, int64_t in_scale) {
  const auto k = rand_vec(9, 5);
  for (bool acc : {false, true}) {
    oru_test::ElementwiseCheck c;
    c.inputs = 3, c.in_scale = in_scale, c.in_extra = in_scale == 1 ? 2 : 1, c.in_place = false, c.any_nan = true;
    oru_test::check_elementwise<float>(plain, form, c, [&](Row f, float *y, const float *const *x, int64_t n) {
      f(y, n, x[0], x[1], x[2], k.data(), acc);
    });
  }
}

TEST_P(ConvForms, StrideOneRowMatchesPlain) {
  ORU_FORM_UNDER_TEST(fn, ORU_KERNEL_FORMS(oru::conv3x3_s1_row), "conv3x3_s1_row");
  check_row(oru::conv3x3_s1_row_plain, fn, 1);
}

// Exactly 2n + 1 readable floats per row: the forms must not read past them.
TEST_P(ConvForms, StrideTwoRowMatchesPlain) {
  ORU_FORM_UNDER_TEST(fn, ORU_KERNEL_FORMS(oru::conv3x3_s2_row), "conv3x3_s2_row");
  check_row(oru::conv3x3_s2_row_plain, fn, 2);
}

TEST_P(ConvForms, BiasActivationLineMatchesPlain) {
  ORU_FORM_UNDER_TEST(fn, ORU_KERNEL_FORMS(oru::bias_act_line), "bias_act_line");
  using Fn = decltype(fn);
  for (int act = 0; act <= 7; ++act) {
    oru_test::ElementwiseCheck c;
    c.lo = -8, c.hi = 8, c.any_nan = true;
    oru_test::check_elementwise<float>(oru::bias_act_line_plain, fn, c, [act](Fn f, float *y, const float *const *x, int64_t n) {
      f(y, x[0], 0.25f, n, act);
    });
  }
}

TEST_P(ConvForms, MultiChannelRowsMatchPlain) {
  ORU_FORM_UNDER_TEST(fn, ORU_KERNEL_FORMS(oru::conv3x3_s1_multi), "conv3x3_s1_multi");
  const oru::Isa isa = GetParam();
    for (int64_t n : {1, 3, 4, 7, 8, 15, 16, 17, 31, 33, 40}) {
      for (int64_t ic : {1, 2, 5}) {
        for (int nrows = 1; nrows <= 4; ++nrows) {
          // Six readable rows of n + 2 floats per input channel.
          std::vector<std::vector<float>> data;
          std::vector<const float *> rows;
          for (int64_t j = 0; j < ic * 6; ++j) {
            data.push_back(rand_vec(size_t(n + 2), uint32_t(j * 31 + n)));
            rows.push_back(data.back().data());
          }
          auto k = rand_vec(size_t(ic * 9), uint32_t(ic));
          auto ref = rand_vec(size_t(4 * n), 3), got = ref;
          oru::conv3x3_s1_multi_plain(ref.data(), n, nrows, n, rows.data(), ic, k.data());
          fn(got.data(), n, nrows, n, rows.data(), ic, k.data());
          EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " n " << n << " ic " << ic << " rows " << nrows;
        }
      }
    }
}

TEST_P(ConvForms, StrideTwoMultiChannelRowMatchesPlain) {
  ORU_FORM_UNDER_TEST(fn, ORU_KERNEL_FORMS(oru::conv3x3_s2_multi), "conv3x3_s2_multi");
  const oru::Isa isa = GetParam();
    for (int64_t n : {1, 2, 4, 7, 8, 9, 15, 16, 17, 33}) {
      for (int64_t ic : {1, 3, 4}) {
        // Even rows need n + 1 readable floats, odd rows n.
        std::vector<std::vector<float>> data;
        std::vector<const float *> rows;
        for (int64_t j = 0; j < ic * 6; ++j) {
          data.push_back(rand_vec(size_t(j % 2 == 0 ? n + 1 : n), uint32_t(j * 17 + n)));
          rows.push_back(data.back().data());
        }
        auto k = rand_vec(size_t(ic * 9), uint32_t(ic + 40));
        auto ref = rand_vec(size_t(n), 4), got = ref;
        oru::conv3x3_s2_multi_plain(ref.data(), n, rows.data(), ic, k.data());
        fn(got.data(), n, rows.data(), ic, k.data());
        EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " n " << n << " ic " << ic;
      }
    }
}

TEST_P(ConvForms, PointwiseBlockMatchesPlain) {
  ORU_FORM_UNDER_TEST(fn, ORU_KERNEL_FORMS(oru::pointwise_block), "pointwise_block");
  const oru::Isa isa = GetParam();
    for (int oc = 1; oc <= 4; ++oc)
      for (int ic = 1; ic <= 4; ++ic)
        for (int64_t n : {1, 3, 4, 7, 8, 15, 16, 17, 33, 50}) {
          auto in = rand_vec(size_t(4 * n), uint32_t(n * 3 + ic)), w = rand_vec(16, uint32_t(oc));
          auto ref = rand_vec(size_t(4 * n), 11), got = ref;
          oru::pointwise_block_plain(ref.data(), n, in.data(), n, w.data(), 4, oc, ic, n);
          fn(got.data(), n, in.data(), n, w.data(), 4, oc, ic, n);
          EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " oc " << oc << " ic " << ic << " n " << n;
        }
}

}  // namespace
