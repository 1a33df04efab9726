// Resizers against a NumPy model of each fixed-point scheme (bit-exact) and OpenCV's
// resize (within one), the choice of worker, and the vector row kernels.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "image/oru_image_kernels.h"
#include "image/oru_image_resizer_internal.h"
#include "image_test_util.h"
#include "oru_form_tester.h"

using namespace oru_image_test;

namespace {

ImagePtr src_image(const std::string &name, int32_t w, int32_t h, uint32_t format) {
  return image_from(ref_bytes("rs_src_" + name + ".raw"), w, h, format);
}

std::vector<uint8_t> resize(const oru_image *src, int32_t w, int32_t h, uint32_t method) {
  ImagePtr dst = make_image(w, h, src->format);
  EXPECT_EQ(oru_image_resizer(dst.get(), src, method), 0u);
  return pixels_of(dst.get());
}

}  // namespace

TEST(ImageResize, BilinearShrinkMatchesModelAndOpenCv) {
  ImagePtr bgr = src_image("bgr_37x29", 37, 29, ORU_IMAGE_BGR24);
  ImagePtr grey = src_image("gray_37x29", 37, 29, ORU_IMAGE_GRAY8);
  const auto b = resize(bgr.get(), 23, 17, ORU_RESIZE_BILINEAR);
  EXPECT_EQ(b, ref_bytes("rs_lin_bgr_23x17.raw"));
  EXPECT_LE(max_abs_diff(b, ref_bytes("rs_cvlin_bgr_23x17.raw")), 1);
  // Same rows, wider: still the row-table scheme, with a vertical weight of 0 everywhere.
  EXPECT_EQ(resize(bgr.get(), 51, 29, ORU_RESIZE_BILINEAR), ref_bytes("rs_lin_bgr_51x29.raw"));
  const auto g = resize(grey.get(), 23, 17, ORU_RESIZE_BILINEAR);
  EXPECT_EQ(g, ref_bytes("rs_lin_gray_23x17.raw"));
  EXPECT_LE(max_abs_diff(g, ref_bytes("rs_cvlin_gray_23x17.raw")), 1);
  EXPECT_EQ(resize(grey.get(), 23, 29, ORU_RESIZE_BILINEAR), ref_bytes("rs_lin_gray_23x29.raw"));
}

TEST(ImageResize, BilinearGrowthMatchesModelAndOpenCv) {
  ImagePtr bgr = src_image("bgr_13x9", 13, 9, ORU_IMAGE_BGR24);
  ImagePtr grey = src_image("gray_13x9", 13, 9, ORU_IMAGE_GRAY8);
  const auto b = resize(bgr.get(), 29, 21, ORU_RESIZE_BILINEAR);
  EXPECT_EQ(b, ref_bytes("rs_fast_bgr_29x21.raw"));
  EXPECT_LE(max_abs_diff(b, ref_bytes("rs_cvlin_bgr_29x21.raw")), 1);
  EXPECT_EQ(resize(grey.get(), 29, 21, ORU_RESIZE_BILINEAR), ref_bytes("rs_fast_gray_29x21.raw"));
  // Taller but narrower still takes the growth scheme.
  EXPECT_EQ(resize(bgr.get(), 7, 21, ORU_RESIZE_BILINEAR), ref_bytes("rs_fast_bgr_7x21.raw"));
}

TEST(ImageResize, FloatGrowthMatchesOpenCv) {
  const auto src_bytes = ref_bytes("rs_src_f32_13x9.raw"), want_bytes = ref_bytes("rs_cvlin_f32_29x21.raw");
  std::vector<float> src(src_bytes.size() / 4), want(want_bytes.size() / 4), got(want.size(), -9.0f);
  std::memcpy(src.data(), src_bytes.data(), src_bytes.size());
  std::memcpy(want.data(), want_bytes.data(), want_bytes.size());
  ASSERT_EQ(fast_bilinear_resizer(reinterpret_cast<uint8_t *>(got.data()), 29, 21, 29 * 3 * 4, 3,
                                  reinterpret_cast<const uint8_t *>(src.data()), 13, 9, 13 * 3 * 4, 1),
            0u);
  for (size_t i = 0; i < want.size(); ++i) ASSERT_NEAR(got[i], want[i], 1e-5f) << i;
  EXPECT_EQ(fast_bilinear_resizer(reinterpret_cast<uint8_t *>(got.data()), 29, 21, 29 * 3 * 4, 3,
                                  reinterpret_cast<const uint8_t *>(src.data()), 13, 9, 13 * 3 * 4, 2),
            ORU_RET_ERR_NOT_SUPPORT);
}

TEST(ImageResize, NearestAndHalfMatchModel) {
  ImagePtr bgr = src_image("bgr_37x29", 37, 29, ORU_IMAGE_BGR24);
  ImagePtr grey = src_image("gray_37x29", 37, 29, ORU_IMAGE_GRAY8);
  const auto nn = resize(bgr.get(), 23, 40, ORU_RESIZE_NEAREST);
  EXPECT_EQ(nn, ref_bytes("rs_nn_bgr_23x40.raw"));
  EXPECT_EQ(nn, ref_bytes("rs_cvnn_bgr_23x40.raw"));
  EXPECT_EQ(resize(grey.get(), 50, 11, ORU_RESIZE_NEAREST), ref_bytes("rs_nn_gray_50x11.raw"));
  ImagePtr even = src_image("bgr_38x30", 38, 30, ORU_IMAGE_BGR24);
  ImagePtr even_g = src_image("gray_38x30", 38, 30, ORU_IMAGE_GRAY8);
  // Exactly half: the 2 x 2 box, whatever the method, equal to OpenCV's area resize.
  const auto box = resize(even.get(), 19, 15, 7);
  EXPECT_EQ(box, ref_bytes("rs_box_bgr_19x15.raw"));
  EXPECT_EQ(box, ref_bytes("rs_cvbox_bgr_19x15.raw"));
  EXPECT_EQ(resize(even_g.get(), 19, 15, ORU_RESIZE_NEAREST), ref_bytes("rs_box_gray_19x15.raw"));
}

TEST(ImageResize, CropBoxLeavingTheImageMatchesModel) {
  ImagePtr bgr = src_image("bgr_37x29", 37, 29, ORU_IMAGE_BGR24);
  ImagePtr grey = src_image("gray_37x29", 37, 29, ORU_IMAGE_GRAY8);
  ImagePtr d3 = make_image(20, 12, ORU_IMAGE_BGR24), d1 = make_image(20, 12, ORU_IMAGE_GRAY8);
  const int32_t size[2] = {20, 12};
  const int32_t c3[2] = {3, 25}, c1[2] = {34, 2};
  int32_t box[2] = {30, 16};
  ASSERT_EQ(oru_image_crop_resizer(d3.get(), bgr.get(), c3, box, size), 0u);
  EXPECT_EQ(pixels_of(d3.get()), ref_bytes("rs_crop_bgr_20x12.raw"));
  ASSERT_EQ(oru_image_crop_resizer(d1.get(), grey.get(), c1, box, size), 0u);
  EXPECT_EQ(pixels_of(d1.get()), ref_bytes("rs_crop_gray_20x12.raw"));
  // Refusals: channels differ, size differs from the destination.
  EXPECT_EQ(oru_image_crop_resizer(d3.get(), grey.get(), c1, box, size), ORU_RET_ERR_PARA);
  const int32_t wrong[2] = {19, 12};
  EXPECT_EQ(oru_image_crop_resizer(d1.get(), grey.get(), c1, box, wrong), ORU_RET_ERR_PARA);
}

TEST(ImageResize, CropAtTheOriginRepeatsTheEdge) {
  // A box centred on (0, 0) at scale 1: the part outside repeats row 0 and column 0.
  ImagePtr grey = make_image(8, 8, ORU_IMAGE_GRAY8);
  for (int32_t y = 0; y < 8; ++y)
    for (int32_t x = 0; x < 8; ++x) row(grey.get(), y)[x] = uint8_t(10 * y + x);
  ImagePtr out = make_image(4, 4, ORU_IMAGE_GRAY8);
  const int32_t c[2] = {0, 0}, size[2] = {4, 4};
  int32_t box[2] = {4, 4};
  ASSERT_EQ(oru_image_crop_resizer(out.get(), grey.get(), c, box, size), 0u);
  const uint8_t expected[4][4] = {{0, 0, 0, 1}, {0, 0, 0, 1}, {0, 0, 0, 1}, {10, 10, 10, 11}};
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 4; ++x) EXPECT_EQ(row(out.get(), y)[x], expected[y][x]) << y << "," << x;
}

TEST(ImageResize, YuvCropHalvesTheCallersBox) {
  ImagePtr yuv = make_image(16, 16, ORU_IMAGE_YUV420P), out = make_image(8, 8, ORU_IMAGE_YUV420P);
  std::memset(yuv->data, 50, 16 * 16);
  std::memset(yuv->plane1, 60, 64);
  std::memset(yuv->plane2, 70, 64);
  const int32_t c[2] = {8, 8}, size[2] = {8, 8};
  int32_t odd[2] = {33, 32};
  EXPECT_EQ(oru_image_crop_resizer(out.get(), yuv.get(), c, odd, size), ORU_RET_ERR_PARA);
  int32_t box[2] = {12, 10};
  ASSERT_EQ(oru_image_crop_resizer(out.get(), yuv.get(), c, box, size), 0u);
  EXPECT_EQ(box[0], 6);
  EXPECT_EQ(box[1], 5);
  EXPECT_EQ(static_cast<uint8_t *>(out->data)[9], 50);
  EXPECT_EQ(static_cast<uint8_t *>(out->plane1)[5], 60);
  EXPECT_EQ(static_cast<uint8_t *>(out->plane2)[5], 70);
}

TEST(ImageResize, ChoiceOfWorkerAndRefusals) {
  ImagePtr big = make_image(100, 100, ORU_IMAGE_BGR24);
  std::memset(big->data, 9, 300 * 100);
  ImagePtr odd = make_image(51, 51, ORU_IMAGE_BGR24);
  std::memset(odd->data, 1, 153 * 51);
  EXPECT_EQ(oru_image_resizer(odd.get(), big.get(), 7), 0u);
  EXPECT_EQ(static_cast<uint8_t *>(odd->data)[0], 1);  // untouched
  ImagePtr yuv = make_image(100, 100, ORU_IMAGE_YUV420P), yuv_out = make_image(51, 51, ORU_IMAGE_YUV420P);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_resizer(yuv_out.get(), yuv.get(), 7), ORU_RET_ERR_NOT_SUPPORT);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Current version can not support!"), std::string::npos);
  // Equal sizes: the same buffer is left alone, another one gets a copy.
  EXPECT_EQ(oru_image_resizer(big.get(), big.get(), 1), 0u);
  ImagePtr copy = make_image(100, 100, ORU_IMAGE_BGR24);
  EXPECT_EQ(oru_image_resizer(copy.get(), big.get(), 5), 0u);
  EXPECT_EQ(pixels_of(copy.get()), pixels_of(big.get()));
  ImagePtr grey = make_image(10, 10, ORU_IMAGE_GRAY8);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_resizer(grey.get(), big.get(), 1), ORU_RET_ERR_PARA);
  ImagePtr p444 = make_image(10, 10, ORU_IMAGE_YUV444P);
  EXPECT_EQ(oru_image_resizer(p444.get(), big.get(), 1), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
}

TEST(ImageResize, GrowthFromTwoByTwoRepeatsEdgeColumns) {
  // 2 x 2 grey to 4 x 4: columns 0 and 3 of each row repeat source columns 0 and 1.
  ImagePtr src = make_image(2, 2, ORU_IMAGE_GRAY8);
  const uint8_t px[4] = {0, 200, 100, 40};
  fill_plane(src->data, src->stride, px, 2, 2);
  ImagePtr dst = make_image(4, 4, ORU_IMAGE_GRAY8);
  ASSERT_EQ(oru_image_resizer(dst.get(), src.get(), ORU_RESIZE_BILINEAR), 0u);
  EXPECT_EQ(row(dst.get(), 0)[0], 0);
  EXPECT_EQ(row(dst.get(), 0)[3], 200);
  EXPECT_EQ(row(dst.get(), 3)[0], 100);
  EXPECT_EQ(row(dst.get(), 3)[3], 40);
  // Column 1 of row 0 sits at 0.25: 0 * 0.75 + 200 * 0.25.
  EXPECT_EQ(row(dst.get(), 0)[1], 50);
}

TEST(ImageResize, NearestTakesFloorWithoutHalfShift) {
  uint8_t src[3] = {10, 20, 30}, dst[2] = {0, 0};
  ASSERT_EQ(resizer_nn(dst, 2, 1, 2, src, 3, 1, 3, 1), 0u);
  EXPECT_EQ(dst[0], 10);
  EXPECT_EQ(dst[1], 20);
}

TEST(ImageResize, YuvPlanesResizeTogether) {
  ImagePtr yuv = make_image(16, 12, ORU_IMAGE_YUV420P), out = make_image(10, 6, ORU_IMAGE_YUV420P);
  std::memset(yuv->data, 80, 16 * 12);
  std::memset(yuv->plane1, 90, 8 * 6);
  std::memset(yuv->plane2, 100, 8 * 6);
  ASSERT_EQ(oru_image_resizer(out.get(), yuv.get(), ORU_RESIZE_BILINEAR), 0u);
  EXPECT_EQ(read_plane(out->data, out->stride, 10, 6), std::vector<uint8_t>(60, 80));
  EXPECT_EQ(read_plane(out->plane1, out->stride1, 5, 3), std::vector<uint8_t>(15, 90));
  EXPECT_EQ(read_plane(out->plane2, out->stride2, 5, 3), std::vector<uint8_t>(15, 100));
}

class ImageResizeForms : public ::testing::TestWithParam<oru::Isa> {};
ORU_FORM_SUITE(ImageResizeForms);

// The byte row kernels through the form tester: swept lengths and offsets, random bytes
// (0 and 255 among them), a guard past the end.
template <typename Fn, typename Call>
void check_bytes(Fn plain, Fn form, int64_t in_scale, int64_t in_extra, Call call) {
  oru_test::ElementwiseCheck c;
  c.inputs = 2, c.lo = 0, c.hi = 255.99, c.in_scale = in_scale, c.in_extra = in_extra, c.in_place = false;
  oru_test::check_elementwise<uint8_t>(plain, form, c, call);
}

TEST_P(ImageResizeForms, VerticalAndBoxRowsMatchPlain) {
  using namespace oru;
  ORU_FORM_UNDER_TEST(vertical, ORU_KERNEL_FORMS(bilinear_vertical_row), "bilinear_vertical_row");
  ORU_FORM_UNDER_TEST(box1, ORU_KERNEL_FORMS(box2_row_c1), "box2_row_c1");
  ORU_FORM_UNDER_TEST(box3, ORU_KERNEL_FORMS(box2_row_c3), "box2_row_c3");
  using Vertical = decltype(vertical);
  using Box = decltype(box1);
  for (int32_t wy : {0, 1, 777, 1024, 2047})
    check_bytes(bilinear_vertical_row_plain, vertical, 1, 0, [wy](Vertical f, uint8_t *y, const uint8_t *const *x, int64_t n) {
      f(y, x[0], x[1], wy, int32_t(n));
    });
  check_bytes(box2_row_c1_plain, box1, 2, 6, [](Box f, uint8_t *y, const uint8_t *const *x, int64_t n) {
    f(y, x[0], x[1], int32_t(n));
  });
  // Whole three-byte pixels only.
  check_bytes(box2_row_c3_plain, box3, 2, 6, [](Box f, uint8_t *y, const uint8_t *const *x, int64_t n) {
    f(y, x[0], x[1], int32_t(3 * (n / 3)));
  });
}

TEST_P(ImageResizeForms, HorizontalTapsMatchPlain) {
  using namespace oru;
  const auto horizontal = ORU_KERNEL_FORMS(bilinear_horizontal_c3);
  ORU_SKIP_UNLESS_FORM(horizontal, "bilinear_horizontal_c3");
  std::mt19937 gen(7);
  auto bytes = [&](size_t n) {
    std::vector<uint8_t> v(n);
    for (auto &b : v) b = uint8_t(gen());
    return v;
  };
  for (int32_t n : {0, 1, 5, 15, 16, 17, 31, 32, 33, 47, 48, 49, 64, 95, 96, 97, 200}) {
    // Random taps over a source row of sw pixels; the neighbour is the next pixel.
    const int32_t sw = 2 + n / 2;
    const auto src = bytes(3 * size_t(sw));
    std::vector<int32_t> off(static_cast<size_t>(n)), wexp(3 * static_cast<size_t>(n) + 8, 0);
    for (int32_t x = 0; x < n; ++x) {
      const int32_t c0 = int32_t(gen() % uint32_t(sw - 1)), w = gen() % 5 == 0 ? 0 : int32_t(gen() % 2048);
      off[size_t(x)] = 3 * c0;
      for (int k = 0; k < 3; ++k) wexp[3 * size_t(x) + k] = int32_t(uint32_t(2048 - w) | (uint32_t(w) << 16));
    }
    std::vector<uint8_t> want3(3 * size_t(n) + 1, 0x33);
    horizontal.plain(want3.data(), src.data(), off.data(), wexp.data(), n);
    oru_test::run_form(horizontal, GetParam(), [&](Isa isa, auto fn) {
      std::vector<uint8_t> got(3 * size_t(n) + 1, 0x33);
      fn(got.data(), src.data(), off.data(), wexp.data(), n);
      EXPECT_EQ(got, want3) << isa_name(isa) << " n=" << n;
    });
  }
}
