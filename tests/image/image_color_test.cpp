// Colour conversions against a NumPy model of the integer formulas (bit-exact) and
// OpenCV's cvtColor (within one), plus the vector row kernels against the plain ones.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "image/oru_image_kernels.h"
#include "image_test_util.h"
#include "oru_form_tester.h"

using namespace oru_image_test;

namespace {

struct Size {
  int32_t w, h;
  std::string tag() const { return std::to_string(w) + "x" + std::to_string(h); }
};
const Size kSizes[] = {{36, 22}, {37, 23}};

// Arm processors round each product of the 4:2:0 conversions by itself over whole runs
// of columns; their references come from the model of that rounding.
std::string yuv_ref(const std::string &what, const Size &s) {
  const bool arm = oru::best_isa() == oru::Isa::neon;
  return what + (arm ? "_arm_" : "_") + s.tag() + ".raw";
}

ImagePtr source(const Size &s) { return image_from(ref_bytes("conv_src_" + s.tag() + ".bgr"), s.w, s.h, ORU_IMAGE_BGR24); }

std::vector<uint8_t> random_bytes(size_t n, uint32_t seed) {
  std::mt19937 gen(seed);
  std::vector<uint8_t> v(n);
  for (auto &b : v) b = uint8_t(gen());
  return v;
}

}  // namespace

TEST(ImageColor, GreyMatchesModelAndOpenCv) {
  for (const Size &s : kSizes) {
    ImagePtr src = source(s);
    ImagePtr grey = make_image(s.w, s.h, ORU_IMAGE_GRAY8);
    ASSERT_EQ(oru_image_color_space_convert(grey.get(), src.get(), ORU_COLOR_BGR2GRAY), 0u);
    const auto got = pixels_of(grey.get());
    EXPECT_EQ(got, ref_bytes("conv_gray_" + s.tag() + ".raw")) << s.tag();
    EXPECT_LE(max_abs_diff(got, ref_bytes("cv_gray_" + s.tag() + ".raw")), 1);
    // Three-channel destination: the grey value in each byte.
    ImagePtr wide = make_image(s.w, s.h, ORU_IMAGE_BGR24);
    ASSERT_EQ(oru_image_color_space_convert(wide.get(), src.get(), ORU_COLOR_BGR2GRAY), 0u);
    const auto w3 = pixels_of(wide.get());
    for (size_t i = 0; i < got.size(); ++i) ASSERT_TRUE(w3[3 * i] == got[i] && w3[3 * i + 2] == got[i]) << i;
  }
}

TEST(ImageColor, Yuv420BothWaysMatchModel) {
  for (const Size &s : kSizes) {
    ImagePtr src = source(s);
    ImagePtr yuv = make_image(s.w, s.h, ORU_IMAGE_YUV420P);
    ASSERT_EQ(oru_image_color_space_convert(yuv.get(), src.get(), ORU_COLOR_BGR2YUV420P), 0u);
    const auto expected = ref_bytes(yuv_ref("conv_yuv420", s));
    const int32_t cw = (s.w + 1) / 2, ch = (s.h + 1) / 2;
    EXPECT_EQ(read_plane(yuv->data, yuv->stride, s.w, s.h),
              std::vector<uint8_t>(expected.begin(), expected.begin() + s.w * s.h));
    // Full chroma rows; an odd height's last chroma row holds a quarter of the luma stride.
    const int32_t full = s.h / 2;
    const size_t u0 = size_t(s.w) * s.h, v0 = u0 + size_t(cw) * ch;
    for (int p = 0; p < 2; ++p) {
      const void *plane = p ? yuv->plane2 : yuv->plane1;
      const int64_t stride = p ? yuv->stride2 : yuv->stride1;
      const size_t base = p ? v0 : u0;
      EXPECT_EQ(read_plane(plane, stride, cw, full),
                std::vector<uint8_t>(expected.begin() + long(base), expected.begin() + long(base) + cw * full));
      if (s.h & 1) {
        const int32_t n = std::min<int32_t>(cw, int32_t(yuv->stride / 4));
        EXPECT_EQ(read_plane(static_cast<const uint8_t *>(plane) + full * stride, stride, n, 1),
                  std::vector<uint8_t>(expected.begin() + long(base) + cw * full,
                                       expected.begin() + long(base) + cw * full + n));
      }
    }

    // Back to BGR from random planes.
    const auto planes = ref_bytes("conv_yuvsrc_" + s.tag() + ".raw");
    fill_plane(yuv->data, yuv->stride, planes.data(), s.w, s.h);
    fill_plane(yuv->plane1, yuv->stride1, planes.data() + s.w * s.h, cw, s.h / 2);
    fill_plane(yuv->plane2, yuv->stride2, planes.data() + s.w * s.h + cw * ch, cw, s.h / 2);
    ImagePtr bgr = make_image(s.w, s.h, ORU_IMAGE_BGR24);
    ASSERT_EQ(oru_image_color_space_convert(bgr.get(), yuv.get(), ORU_COLOR_YUV420P2BGR), 0u);
    const auto got = pixels_of(bgr.get());
    EXPECT_EQ(got, ref_bytes(yuv_ref("conv_yuv2bgr", s))) << s.tag();
    if (!(s.w & 1) && !(s.h & 1)) {
      // OpenCV's I420 conversion is of the same fixed-point family, but it clamps Y - 16 at
      // zero first; pixels with Y below 16 are left out of the comparison.
      const auto cv = ref_bytes("cv_i420bgr_" + s.tag() + ".raw");
      int compared = 0;
      for (int32_t i = 0; i < s.w * s.h; ++i) {
        if (planes[size_t(i)] < 16) continue;
        ++compared;
        for (int k = 0; k < 3; ++k) ASSERT_LE(std::abs(got[3 * i + k] - cv[3 * i + k]), 1) << i;
      }
      EXPECT_GT(compared, s.w * s.h / 2);
    }
    // The bare-buffer form gives the same pixels.
    std::vector<uint8_t> out(size_t(s.w) * s.h * 3);
    const uint8_t *pp[3] = {static_cast<uint8_t *>(yuv->data), static_cast<uint8_t *>(yuv->plane1),
                            static_cast<uint8_t *>(yuv->plane2)};
    const int32_t st[3] = {int32_t(yuv->stride), int32_t(yuv->stride1), int32_t(yuv->stride2)};
    ASSERT_EQ(oru_image_yuv420p_to_bgr24_convert(out.data(), 3 * s.w, pp, s.w, s.h, st), 0u);
    EXPECT_EQ(out, got);
    EXPECT_EQ(oru_image_yuv420p_to_bgr24_convert(out.data(), 3 * s.w - 1, pp, s.w, s.h, st), ORU_RET_ERR_PARA);
  }
}

TEST(ImageColor, Yuv444BothWaysMatchModel) {
  for (const Size &s : kSizes) {
    ImagePtr src = source(s);
    ImagePtr yuv = make_image(s.w, s.h, ORU_IMAGE_YUV444P);
    ASSERT_EQ(oru_image_color_space_convert(yuv.get(), src.get(), ORU_COLOR_BGR2YUV444P), 0u);
    std::vector<uint8_t> planes;
    for (void *p : {yuv->data, yuv->plane1, yuv->plane2}) {
      const auto v = read_plane(p, yuv->stride, s.w, s.h);
      planes.insert(planes.end(), v.begin(), v.end());
    }
    EXPECT_EQ(planes, ref_bytes("conv_yuv444_" + s.tag() + ".raw"));
    ImagePtr bgr = make_image(s.w, s.h, ORU_IMAGE_BGR24);
    ASSERT_EQ(oru_image_color_space_convert(bgr.get(), yuv.get(), ORU_COLOR_YUV444P2BGR), 0u);
    EXPECT_EQ(pixels_of(bgr.get()), ref_bytes("conv_yuv444bgr_" + s.tag() + ".raw"));
  }
}

TEST(ImageColor, LabMatchesModelAndOpenCv) {
  for (const Size &s : kSizes) {
    ImagePtr src = source(s);
    ImagePtr lab = make_image(s.w, s.h, ORU_IMAGE_LAB24);
    ASSERT_EQ(oru_image_color_space_convert(lab.get(), src.get(), ORU_COLOR_BGR2LAB), 0u);
    const auto got = pixels_of(lab.get());
    // The model builds its cube-root table with an exact cube root: a table entry may
    // differ by one unit, which moves a result by at most one.
    EXPECT_LE(max_abs_diff(got, ref_bytes("conv_lab_" + s.tag() + ".raw")), 1);
    EXPECT_LE(max_abs_diff(got, ref_bytes("cv_lab_" + s.tag() + ".raw")), 1);
    // Back from the model's Lab: OpenCV's inverse runs another float pipeline (no spline),
    // so it is held to two.
    ImagePtr model_lab = image_from(ref_bytes("conv_lab_" + s.tag() + ".raw"), s.w, s.h, ORU_IMAGE_LAB24);
    ImagePtr bgr = make_image(s.w, s.h, ORU_IMAGE_BGR24);
    ASSERT_EQ(oru_image_color_space_convert(bgr.get(), model_lab.get(), ORU_COLOR_LAB2BGR), 0u);
    EXPECT_LE(max_abs_diff(pixels_of(bgr.get()), ref_bytes("cv_lab2bgr_" + s.tag() + ".raw")), 2);
    // A second conversion, with the tables already built, gives the same bytes.
    ASSERT_EQ(oru_image_color_space_convert(lab.get(), src.get(), ORU_COLOR_BGR2LAB), 0u);
    EXPECT_EQ(pixels_of(lab.get()), got);
  }
}

TEST(ImageColor, FixedPoints) {
  ImagePtr px = make_image(1, 1, ORU_IMAGE_BGR24);
  uint8_t *p = static_cast<uint8_t *>(px->data);
  p[0] = p[1] = p[2] = 255;
  ImagePtr grey = make_image(1, 1, ORU_IMAGE_GRAY8);
  ASSERT_EQ(oru_image_color_space_convert(grey.get(), px.get(), ORU_COLOR_BGR2GRAY), 0u);
  EXPECT_EQ(static_cast<uint8_t *>(grey->data)[0], 255);
  ImagePtr lab = make_image(1, 1, ORU_IMAGE_LAB24);
  ASSERT_EQ(oru_image_color_space_convert(lab.get(), px.get(), ORU_COLOR_BGR2LAB), 0u);
  const uint8_t *l = static_cast<uint8_t *>(lab->data);
  EXPECT_EQ(l[0], 255);
  EXPECT_EQ(l[1], 128);
  EXPECT_EQ(l[2], 128);
  p[0] = p[1] = p[2] = 0;
  ImagePtr yuv = make_image(1, 1, ORU_IMAGE_YUV444P);
  ASSERT_EQ(oru_image_color_space_convert(yuv.get(), px.get(), ORU_COLOR_BGR2YUV444P), 0u);
  EXPECT_EQ(static_cast<uint8_t *>(yuv->data)[0], 16);
  EXPECT_EQ(static_cast<uint8_t *>(yuv->plane1)[0], 128);
  EXPECT_EQ(static_cast<uint8_t *>(yuv->plane2)[0], 128);
  p[0] = 9;
  ASSERT_EQ(oru_image_color_space_convert(px.get(), yuv.get(), ORU_COLOR_YUV444P2BGR), 0u);
  EXPECT_EQ(p[0], 0);
}

TEST(ImageColor, SwapInPlaceAndBetweenImages) {
  ImagePtr a = make_image(5, 3, ORU_IMAGE_BGR24);
  const auto px = random_bytes(45, 3);
  fill_plane(a->data, a->stride, px.data(), 15, 3);
  ASSERT_EQ(oru_image_color_space_convert(a.get(), a.get(), ORU_COLOR_BGR2RGB), 0u);
  EXPECT_EQ(a->format, ORU_IMAGE_RGB24);
  const auto swapped = pixels_of(a.get());
  for (size_t i = 0; i < 15; ++i) ASSERT_TRUE(swapped[3 * i] == px[3 * i + 2] && swapped[3 * i + 2] == px[3 * i]);
  ImagePtr b = make_image(5, 3, ORU_IMAGE_LAB24);  // out of place, no format changes hands
  ASSERT_EQ(oru_image_color_space_convert(b.get(), a.get(), ORU_COLOR_RGB2BGR), 0u);
  EXPECT_EQ(b->format, ORU_IMAGE_LAB24);
  EXPECT_EQ(a->format, ORU_IMAGE_RGB24);
  EXPECT_EQ(read_plane(b->data, b->stride, 15, 3), px);
}

TEST(ImageColor, Refusals) {
  ImagePtr a = make_image(4, 4, ORU_IMAGE_BGR24), b = make_image(4, 5, ORU_IMAGE_BGR24);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_color_space_convert(b.get(), a.get(), 1), ORU_RET_ERR_PARA);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Your input params are wrong!"), std::string::npos);
  ImagePtr c = make_image(4, 4, ORU_IMAGE_BGR24);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_color_space_convert(c.get(), a.get(), 1), ORU_RET_ERR_NOT_SUPPORT);
  EXPECT_EQ(oru_image_color_space_convert(c.get(), a.get(), 23), ORU_RET_ERR_NOT_SUPPORT);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_color_space_convert(c.get(), a.get(), ORU_COLOR_BGR2YUV444P), ORU_RET_ERR_PARA);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Color space parameters error!"), std::string::npos);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_color_space_convert(c.get(), a.get(), ORU_COLOR_BGR2YUV420P), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
}

class ImageColorForms : public ::testing::TestWithParam<oru::Isa> {};
ORU_FORM_SUITE(ImageColorForms);

// The per-product rounding of the Arm runs: its NEON form against its plain twin, and
// the plain twin within one of the plain formula (on every host; the test then reports
// the NEON form as skipped where it is not built).
TEST_P(ImageColorForms, ArmRunsMatchTheirTwinAndStayWithinOne) {
  using namespace oru;
  using ToBgr = decltype(&yuv420_to_bgr_rows_q15_plain);
  using FromBgr = decltype(&bgr_to_yuv420_rows_q15_plain);
  const KernelForms<ToBgr> to{&yuv420_to_bgr_rows_q15_plain, nullptr, nullptr,
                              ORU_NEON_FORM(&yuv420_to_bgr_rows_q15_neon)};
  const KernelForms<FromBgr> from{&bgr_to_yuv420_rows_q15_plain, nullptr, nullptr,
                                  ORU_NEON_FORM(&bgr_to_yuv420_rows_q15_neon)};
  for (int32_t n : {16, 32, 48, 128}) {
    const auto y = random_bytes(2 * size_t(n), uint32_t(n)), uv = random_bytes(size_t(n), uint32_t(n) + 1);
    std::vector<uint8_t> w0(3 * size_t(n)), w1 = w0, s0 = w0, s1 = w0;
    to.plain(w0.data(), w1.data(), y.data(), y.data() + n, uv.data(), uv.data() + n / 2, n);
    yuv420_to_bgr_rows_plain(s0.data(), s1.data(), y.data(), y.data() + n, uv.data(), uv.data() + n / 2, n);
    EXPECT_LE(max_abs_diff(w0, s0), 1);
    EXPECT_LE(max_abs_diff(w1, s1), 1);
    oru_test::run_form(to, GetParam(), [&](Isa isa, auto fn) {
      std::vector<uint8_t> g0(3 * size_t(n)), g1 = g0;
      fn(g0.data(), g1.data(), y.data(), y.data() + n, uv.data(), uv.data() + n / 2, n);
      EXPECT_EQ(g0, w0) << isa_name(isa);
      EXPECT_EQ(g1, w1) << isa_name(isa);
    });
    const auto bgr = random_bytes(6 * size_t(n), uint32_t(n) + 2);
    std::vector<uint8_t> want(3 * size_t(n));
    from.plain(want.data(), want.data() + n, want.data() + 2 * n, want.data() + 2 * n + n / 2, bgr.data(),
               bgr.data() + 3 * n, n);
    oru_test::run_form(from, GetParam(), [&](Isa isa, auto fn) {
      std::vector<uint8_t> got(3 * size_t(n));
      fn(got.data(), got.data() + n, got.data() + 2 * n, got.data() + 2 * n + n / 2, bgr.data(), bgr.data() + 3 * n, n);
      EXPECT_EQ(got, want) << isa_name(isa);
    });
  }
  ORU_SKIP_UNLESS_FORM(to, "yuv420_to_bgr_rows_q15");
}

// Every vector form of every row kernel against the plain form, on lengths that hit each tail.
TEST_P(ImageColorForms, GreyRowMatchesPlain) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::bgr_to_gray_row), "bgr_to_gray_row");
  oru_test::ElementwiseCheck c;
  c.lo = 0, c.hi = 255.99, c.in_scale = 3, c.in_extra = 1, c.in_place = false;
  oru_test::check_elementwise<uint8_t>(oru::bgr_to_gray_row_plain, f, c,
                                       [](decltype(f) g, uint8_t *y, const uint8_t *const *x, int64_t n) {
                                         g(y, x[0], int32_t(n));
                                       });
}

TEST_P(ImageColorForms, Yuv420RowsMatchPlain) {
  using namespace oru;
  const auto yuv = ORU_KERNEL_FORMS(yuv420_to_bgr_rows);
  ORU_SKIP_UNLESS_FORM(yuv, "yuv420_to_bgr_rows");
  for (int32_t n : {0, 1, 2, 7, 15, 16, 17, 31, 32, 33, 48, 63, 64, 65, 100, 257}) {
    const int32_t e = n & ~1;
    const auto y = random_bytes(2 * size_t(e) + 2, uint32_t(n) + 100), uv = random_bytes(size_t(e) + 2, uint32_t(n) + 200);
    std::vector<uint8_t> w0(3 * size_t(e) + 1, 0xCD), w1 = w0;
    yuv.plain(w0.data(), w1.data(), y.data(), y.data() + e, uv.data(), uv.data() + e / 2 + 1, e);
    oru_test::run_form(yuv, GetParam(), [&](Isa isa, auto fn) {
      std::vector<uint8_t> g0(3 * size_t(e) + 1, 0xCD), g1 = g0;
      fn(g0.data(), g1.data(), y.data(), y.data() + e, uv.data(), uv.data() + e / 2 + 1, e);
      EXPECT_EQ(g0, w0) << isa_name(isa) << " n=" << e;
      EXPECT_EQ(g1, w1) << isa_name(isa) << " n=" << e;
    });
  }
}
