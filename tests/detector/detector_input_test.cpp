// Detector input: the eight planar transforms, the aspect padding, the patch paster and
// the dropping of the fourth byte, checked against values worked out by hand.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "oru_detector.h"
#include "oru_test_util.h"

namespace {

struct ImageDeleter {
  void operator()(oru_image *im) const { oru_release_matrix(&im); }
};
using ImagePtr = std::unique_ptr<oru_image, ImageDeleter>;

uint8_t *row(const oru_image *im, int32_t y) { return static_cast<uint8_t *>(im->data) + y * im->stride; }

// A 5 x 3 BGR header over a caller buffer with padded rows, so that the stride is honoured.
oru_image test_image(std::vector<uint8_t> &backing) {
  const int32_t w = 5, h = 3, stride = 20;
  backing.assign(size_t(stride) * h, 0xEE);
  std::mt19937 gen(5);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < 3 * w; ++x) backing[size_t(y) * stride + x] = uint8_t(gen());
  oru_image im;
  uint8_t *planes[3] = {backing.data(), nullptr, nullptr};
  const int32_t sizes[3] = {int32_t(backing.size()), 0, 0};
  EXPECT_EQ(oru_set_image_header_and_data(&im, w, h, ORU_IMAGE_BGR24, planes, sizes), 0u);
  im.stride = stride;
  return im;
}

}  // namespace

TEST(DetectorInput, EightTransformsByHand) {
  std::vector<uint8_t> backing;
  const oru_image header = test_image(backing);
  const oru_image *im = &header;
  const int32_t n = 15;
  std::vector<float> f(3 * n);
  std::vector<int16_t> q(3 * n);
  oru_tensor tf{}, tq{};
  tf.data = f.data();
  tq.data = q.data();
  auto byte = [&](int i, int k) { return backing[size_t(i / 5) * 20 + 3 * (i % 5) + k]; };
  struct FloatCase {
    void (*fn)(oru_tensor *, const oru_image *);
    int order[3];
    bool ssd;
  };
  const FloatCase fcases[] = {{oru_transform_image_data_for_pfld_detector, {0, 1, 2}, false},
                              {oru_transform_image_data_for_pfld_detector_rgb24, {2, 1, 0}, false},
                              {oru_transform_image_data_for_ssd_detector, {2, 1, 0}, true},
                              {oru_transform_image_data_for_ssd_detector_rgb24, {0, 1, 2}, true}};
  for (const FloatCase &c : fcases) {
    c.fn(&tf, im);
    for (int p = 0; p < 3; ++p)
      for (int i = 0; i < n; ++i) {
        const int v = byte(i, c.order[p]);
        const float want = c.ssd ? float((v - 127.5) / 128.0) : float(std::round(v / 255.0 * 1e7) / 1e7);
        ASSERT_EQ(f[size_t(p) * n + i], want) << p << " " << i;
      }
  }
  struct FixedCase {
    void (*fn)(oru_tensor *, const oru_image *);
    int order[3];
    bool ssd;
  };
  const FixedCase qcases[] = {{oru_transform_image_data_for_pfld_detector_fp16, {0, 1, 2}, false},
                              {oru_transform_image_data_for_pfld_detector_rgb24_fp16, {2, 1, 0}, false},
                              {oru_transform_image_data_for_ssd_detector_fp16, {2, 1, 0}, true},
                              {oru_transform_image_data_for_ssd_detector_rgb24_fp16, {0, 1, 2}, true}};
  for (const FixedCase &c : qcases) {
    c.fn(&tq, im);
    for (int p = 0; p < 3; ++p)
      for (int i = 0; i < n; ++i) {
        const int v = byte(i, c.order[p]);
        // 64.250984 * 255 is just above 16384: byte / 255 with 14 fractional bits.
        const int want = c.ssd ? v - 127 : int(v * 64.250984);
        ASSERT_EQ(q[size_t(p) * n + i], want) << p << " " << i;
      }
  }
}

TEST(DetectorInput, ExtremePixelValues) {
  ImagePtr im(oru_create_image(1, 1, ORU_IMAGE_BGR24));
  uint8_t *p = static_cast<uint8_t *>(im->data);
  p[0] = 255;
  p[1] = p[2] = 0;  // pure blue
  float f[3];
  int16_t q[3];
  oru_tensor tf{}, tq{};
  tf.data = f;
  tq.data = q;
  oru_transform_image_data_for_ssd_detector(&tf, im.get());
  EXPECT_EQ(f[2], 0.99609375f);
  EXPECT_EQ(f[0], -0.99609375f);
  oru_transform_image_data_for_ssd_detector_rgb24(&tf, im.get());
  EXPECT_EQ(f[0], 0.99609375f);
  oru_transform_image_data_for_ssd_detector_fp16(&tq, im.get());
  EXPECT_EQ(q[0], -127);
  EXPECT_EQ(q[2], 128);
  oru_transform_image_data_for_pfld_detector_fp16(&tq, im.get());
  EXPECT_EQ(q[0], 16384);
  EXPECT_EQ(q[1], 0);
  oru_transform_image_data_for_pfld_detector(&tf, im.get());
  EXPECT_EQ(f[0], 1.0f);
  EXPECT_EQ(f[1], 0.0f);
  // An empty image writes nothing.
  f[0] = 42.0f;
  oru_image empty = *im;
  empty.rows = 0;
  oru_transform_image_data_for_pfld_detector(&tf, &empty);
  EXPECT_EQ(f[0], 42.0f);
}

TEST(DetectorInput, BorderImagePadsToTheRatio) {
  ImagePtr src(oru_create_image(100, 100, ORU_IMAGE_BGR24));
  std::memset(src->data, 77, 300 * 100);
  int32_t top, bottom, left, right;
  ImagePtr tall(oru_create_border_image(&top, &bottom, &left, &right, src.get(), 2.0f));
  ASSERT_TRUE(tall);
  EXPECT_EQ(tall->cols, 100);
  EXPECT_EQ(tall->rows, 200);
  EXPECT_EQ(top, 50);
  EXPECT_EQ(bottom, 50);
  EXPECT_EQ(left, 0);
  EXPECT_EQ(right, 0);
  EXPECT_EQ(row(tall.get(), 49)[150], 0);
  EXPECT_EQ(row(tall.get(), 50)[0], 77);
  EXPECT_EQ(row(tall.get(), 149)[299], 77);
  EXPECT_EQ(row(tall.get(), 150)[0], 0);
  ImagePtr wide(oru_create_border_image(&top, &bottom, &left, &right, src.get(), 0.5f));
  ASSERT_TRUE(wide);
  EXPECT_EQ(wide->cols, 200);
  EXPECT_EQ(left, 50);
  EXPECT_EQ(right, 50);
  EXPECT_EQ(row(wide.get(), 10)[3 * 49 + 2], 0);
  EXPECT_EQ(row(wide.get(), 10)[3 * 50], 77);
  EXPECT_EQ(row(wide.get(), 10)[3 * 150], 0);

  ImagePtr too_wide(oru_create_image(4097, 4, ORU_IMAGE_BGR24));
  EXPECT_EQ(oru_create_border_image(&top, &bottom, &left, &right, too_wide.get(), 1.0f), nullptr);
  ImagePtr grey(oru_create_image(10, 10, ORU_IMAGE_GRAY8));
  EXPECT_EQ(oru_create_border_image(&top, &bottom, &left, &right, grey.get(), 1.5f), nullptr);
  EXPECT_EQ(oru_create_border_image(&top, &bottom, &left, &right, src.get(), 0.0f), nullptr);
}

TEST(DetectorInput, YuvBorderPlacesChromaAtHalfOffsets) {
  ImagePtr src(oru_create_image(8, 8, ORU_IMAGE_YUV420P));
  std::memset(src->data, 30, 64);
  std::memset(src->plane1, 40, 16);
  std::memset(src->plane2, 50, 16);
  int32_t top, bottom, left, right;
  // Ratio 1.75: 14 rows, top 3 (odd): chroma rows start at 1.
  ImagePtr out(oru_create_border_image(&top, &bottom, &left, &right, src.get(), 1.75f));
  ASSERT_TRUE(out);
  EXPECT_EQ(top, 3);
  EXPECT_EQ(bottom, 3);
  const uint8_t *u = static_cast<uint8_t *>(out->plane1);
  EXPECT_EQ(u[0 * out->stride1], 128);
  EXPECT_EQ(u[1 * out->stride1], 40);
  EXPECT_EQ(u[4 * out->stride1], 40);
  EXPECT_EQ(u[5 * out->stride1], 128);
  EXPECT_EQ(row(out.get(), 2)[0], 0);
  EXPECT_EQ(row(out.get(), 3)[0], 30);
}

TEST(DetectorInput, PatchWithBorder) {
  ImagePtr src(oru_create_image(6, 4, ORU_IMAGE_BGR24)), dst(oru_create_image(5, 5, ORU_IMAGE_BGR24));
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 18; ++x) row(src.get(), y)[x] = uint8_t(1 + y * 18 + x);
  std::memset(dst->data, 0xFF, 75);
  const int32_t so[2] = {1, 1}, dorig[2] = {2, 1}, size[2] = {3, 2};
  ASSERT_EQ(oru_image_cropped_patch_with_border(dst.get(), dorig, src.get(), so, size), 0u);
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 5; ++x)
      for (int k = 0; k < 3; ++k) {
        const bool inside = y >= 1 && y < 3 && x >= 2;
        const int want = inside ? 1 + (y - 1 + 1) * 18 + 3 * (x - 2 + 1) + k : 0;
        ASSERT_EQ(row(dst.get(), y)[3 * x + k], want) << y << "," << x;
      }
  // Too large for the source: refused, destination untouched.
  std::memset(dst->data, 0xFF, 75);
  const int32_t big[2] = {7, 2};
  EXPECT_EQ(oru_image_cropped_patch_with_border(dst.get(), dorig, src.get(), so, big), ORU_RET_ERR_PARA);
  EXPECT_EQ(row(dst.get(), 0)[0], 0xFF);
  // A negative x origin blanks the destination and pastes nothing.
  const int32_t neg[2] = {-1, 0};
  ASSERT_EQ(oru_image_cropped_patch_with_border(dst.get(), neg, src.get(), so, size), 0u);
  for (int i = 0; i < 15; ++i) ASSERT_EQ(row(dst.get(), 1)[i], 0);
}

TEST(DetectorInput, DropTheFourthByte) {
  const uint8_t rgba[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  uint8_t rgb[6] = {};
  EXPECT_EQ(oru_convert_rgba_to_rgb(rgb, rgba, 2, 1), 0u);
  const uint8_t want[6] = {1, 2, 3, 5, 6, 7};
  EXPECT_EQ(0, std::memcmp(rgb, want, 6));
  EXPECT_EQ(oru_convert_rgba_to_rgb(rgb, rgba, 2, 0), 0u);
  EXPECT_EQ(oru_convert_rgba_to_rgb(rgb, nullptr, 2, 1), ORU_RET_ERR_PARA);
}
