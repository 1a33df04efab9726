// The im2col record: modes, packing and refusals, and the run on a partial panel against
// the direct general loop.
#include <gtest/gtest.h>

#include "conv/oru_conv_internal.h"
#include "conv_case_file.h"

using namespace conv_test;

namespace {

oru_conv2d_params square(int ic, int oc, int k, int s, int p, int groups) {
  oru_conv2d_params r{};
  r.in_channels = ic;
  r.out_channels = oc;
  r.kernel_w = r.kernel_h = k;
  r.stride_w = r.stride_h = s;
  r.pad_w = r.pad_h = p;
  r.dilation_w = r.dilation_h = 1;
  r.groups = groups;
  return r;
}

struct InfoDeleter {
  void operator()(oru_im2col_gemm_info *i) const { oru_release_im2col_gemm_calc_info(&i); }
};
using InfoPtr = std::unique_ptr<oru_im2col_gemm_info, InfoDeleter>;

InfoPtr make_info(const oru_conv2d_params &p, int w, int h) {
  TensorPtr in = make_tensor({w, h, p.in_channels});
  int64_t n = (p.groups == 1 ? int64_t(p.in_channels) * p.out_channels : p.in_channels) * p.kernel_w * p.kernel_h;
  TensorPtr wt = make_tensor({int32_t(n)}, oru_test::random_values<float>(size_t(n), -1, 1, 1));
  uint32_t workers = 1;
  return InfoPtr(oru_create_im2col_gemm_calc_info(in.get(), wt.get(), &p, &workers));
}

TEST(Im2col, ModesAndPackedSizes) {
  struct Expect {
    oru_conv2d_params p;
    uint32_t mode;
    int32_t packed_cols;
  } cases[] = {
      {square(3, 12, 3, 1, 1, 1), 1, 16}, {square(3, 8, 3, 2, 1, 1), 2, 8},  {square(3, 5, 5, 1, 2, 1), 3, 8},
      {square(3, 5, 5, 2, 2, 1), 4, 8},   {square(4, 9, 1, 1, 0, 1), 5, 16}, {square(3, 4, 7, 1, 3, 1), 0, 4},
      {square(1, 4, 3, 1, 1, 1), 1, 8},   {square(6, 6, 3, 1, 1, 6), 6, 1},  {square(6, 6, 3, 2, 1, 6), 7, 1},
      {square(6, 6, 5, 1, 2, 6), 8, 1},   {square(6, 6, 5, 2, 2, 6), 9, 1},
  };
  for (const Expect &e : cases) {
    InfoPtr info = make_info(e.p, 9, 8);
    ASSERT_NE(info, nullptr) << e.mode;
    EXPECT_EQ(info->mode, e.mode);
    EXPECT_EQ(info->packed_cols, e.packed_cols);
    EXPECT_EQ(info->packed_rows, e.p.kernel_w * e.p.kernel_h * e.p.in_channels);
  }
  // Twelve output channels: the last panel of eight holds four rows of zeros.
  oru_conv2d_params p = square(2, 12, 3, 1, 1, 1);
  InfoPtr info = make_info(p, 5, 5);
  ASSERT_NE(info, nullptr);
  const float *last_panel = info->packed + 8 * 18;
  for (int l = 0; l < 18; ++l)
    for (int i = 4; i < 8; ++i) EXPECT_EQ(last_panel[l * 8 + i], 0.0f);
}

TEST(Im2col, UnservedShapesGiveNoRecord) {
  EXPECT_EQ(make_info(square(4, 4, 7, 1, 3, 4), 9, 9), nullptr);  // depthwise 7x7
  oru_conv2d_params uneven = square(2, 3, 3, 2, 1, 1);
  uneven.stride_h = 1;
  EXPECT_EQ(make_info(uneven, 9, 9), nullptr);
  oru_conv2d_params dilated = square(2, 3, 3, 1, 1, 1);
  dilated.dilation_w = 2;
  EXPECT_EQ(make_info(dilated, 9, 9), nullptr);
  EXPECT_EQ(make_info(square(4, 4, 3, 1, 1, 2), 9, 9), nullptr);  // groups between 1 and channels
  oru_im2col_gemm_info info{};
  EXPECT_EQ(oru_conv2d_im2col_gemm_info_init(2, 3, 2, 2, 3, 0, 1, 1, 1, &info), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_conv2d_im2col_gemm_info_init(2, 3, 2, 2, 3, 1, 1, 1, 1, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_release_im2col_gemm_calc_info(nullptr), ORU_RET_ERR_PARA);
}

TEST(Im2col, PartialPanelMatchesGeneralLoop) {
  // Output width 9: one whole panel of 8 and one of a single column with 7 zero columns;
  // 11 output channels leave a partial tile too.
  for (int k : {1, 3, 5}) {
    oru_conv2d_params p = square(3, 11, k, 1, k / 2, 1);
    TensorPtr in = make_tensor({9, 7, 3}, oru_test::random_values<float>(189, -1, 1, 2));
    int64_t n = 33 * k * k;
    TensorPtr wt = make_tensor({int32_t(n)}, oru_test::random_values<float>(size_t(n), -1, 1, 3));
    uint32_t workers = 1;
    InfoPtr info(oru_create_im2col_gemm_calc_info(in.get(), wt.get(), &p, &workers));
    ASSERT_NE(info, nullptr);
    TensorPtr a = make_tensor({9, 7, 11}), b = make_tensor({9, 7, 11});
    ASSERT_EQ(oru_tensor_std_conv2d_im2col_gemm(a.get(), in.get(), wt.get(), &p, info.get()), 0u);
    ASSERT_EQ(oru_tensor_std_conv2d_general_chw(b.get(), in.get(), wt.get(), &p, &workers), 0u);
    EXPECT_LT(max_rel_error(values_of(a.get()), values_of(b.get())), 1e-5) << k;
    // A mismatched output is refused rather than overrun.
    TensorPtr wrong = make_tensor({8, 7, 11});
    EXPECT_EQ(oru_tensor_std_conv2d_im2col_gemm(wrong.get(), in.get(), wt.get(), &p, info.get()), ORU_RET_ERR_PARA);
    EXPECT_EQ(oru_tensor_std_conv2d_im2col_gemm(a.get(), in.get(), wt.get(), &p, nullptr), ORU_RET_ERR_PARA);
  }
}

}  // namespace
