// The image record: layouts of the formats, creation, re-creation and borrowed planes.
#include <gtest/gtest.h>

#include "image_test_util.h"

using namespace oru_image_test;

TEST(ImageCore, LayoutOfEachFormat) {
  struct Case {
    uint32_t format, type;
    int64_t stride, stride1;
    int32_t channels;
  };
  // Width 5: the planar 4:2:0 formats round the luma stride up to 8.
  const Case cases[] = {{0, 16, 15, 0, 3}, {1, 16, 15, 0, 3}, {2, 0, 5, 0, 1},   {3, 24, 20, 0, 4},
                        {5, 16, 8, 4, 3},  {6, 16, 5, 5, -1}, {7, 8, 10, 0, 2},  {8, 17, 15, 0, 3},
                        {12, 16, 8, 0, 3}, {14, 18, 30, 0, 3}};
  for (const Case &c : cases) {
    ImagePtr im = make_image(5, 3, c.format);
    ASSERT_TRUE(im) << c.format;
    EXPECT_EQ(im->kind, ORU_IMAGE_KIND);
    EXPECT_EQ(im->type, c.type) << c.format;
    EXPECT_EQ(im->stride, c.stride) << c.format;
    EXPECT_EQ(im->stride1, c.stride1) << c.format;
    EXPECT_EQ(im->channels, c.channels) << c.format;
    EXPECT_EQ(im->format, c.format);
    EXPECT_EQ(im->depth, 1);
    EXPECT_EQ(im->owns_data, 1u);
  }
}

TEST(ImageCore, PlanarPlanesLieInOneBlock) {
  ImagePtr yuv = make_image(6, 4, ORU_IMAGE_YUV420P);
  uint8_t *base = static_cast<uint8_t *>(yuv->data);
  // A = 8 * 4 = 32; plane1 at A, plane2 at A + A / 4.
  EXPECT_EQ(static_cast<uint8_t *>(yuv->plane1), base + 32);
  EXPECT_EQ(static_cast<uint8_t *>(yuv->plane2), base + 40);
  ImagePtr p444 = make_image(6, 4, ORU_IMAGE_YUV444P);
  EXPECT_EQ(static_cast<uint8_t *>(p444->plane1), static_cast<uint8_t *>(p444->data) + 24);
  EXPECT_EQ(static_cast<uint8_t *>(p444->plane2), static_cast<uint8_t *>(p444->data) + 48);
}

TEST(ImageCore, CreationRefusals) {
  EXPECT_TRUE(make_image(1, 1, ORU_IMAGE_GRAY8));
  EXPECT_FALSE(make_image(0, 4, ORU_IMAGE_GRAY8));
  EXPECT_FALSE(make_image(4, 0, ORU_IMAGE_GRAY8));
  EXPECT_FALSE(make_image(4, 4, 15));
}

TEST(ImageCore, RecreateTakesNewSizeOrKeepsHeader) {
  oru_image *im = oru_create_image(8, 8, ORU_IMAGE_BGR24);
  ASSERT_EQ(oru_recreate_image(im, 10, 6), im);
  EXPECT_EQ(im->cols, 10);
  EXPECT_EQ(im->rows, 6);
  EXPECT_EQ(im->stride, 30);
  EXPECT_TRUE(im->data != nullptr);
  EXPECT_EQ(im->owns_data, 1u);
  // Below 4 the header stays, but the block is renewed.
  ASSERT_EQ(oru_recreate_image(im, 3, 6), im);
  EXPECT_EQ(im->cols, 10);
  EXPECT_TRUE(im->data != nullptr);
  EXPECT_EQ(oru_recreate_image(nullptr, 5, 5), nullptr);
  EXPECT_EQ(oru_recreate_image(im, 0, 5), im);
  EXPECT_EQ(oru_release_matrix(&im), 0u);
  EXPECT_EQ(im, nullptr);
}

TEST(ImageCore, HeaderAndBorrowedData) {
  oru_image im;
  EXPECT_EQ(oru_set_image_header(&im, 3, 100, ORU_IMAGE_GRAY8), ORU_RET_ERR_PARA);
  ASSERT_EQ(oru_set_image_header(&im, 8, 6, ORU_IMAGE_YUV420P), 0u);
  EXPECT_EQ(im.owns_data, 0u);
  EXPECT_EQ(im.data, nullptr);
  EXPECT_EQ(im.stride, 8);
  EXPECT_EQ(im.stride1, 4);
  std::vector<uint8_t> buf(8 * 6 * 3 / 2);
  EXPECT_EQ(oru_set_image_data(&im, buf.data(), 15), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_set_image_data(&im, buf.data(), 47), ORU_RET_ERR_DATA_LENGTH);
  ASSERT_EQ(oru_set_image_data(&im, buf.data(), int64_t(buf.size())), 0u);
  EXPECT_EQ(im.data, buf.data());
  EXPECT_EQ(im.plane1, buf.data() + 48);
  EXPECT_EQ(im.plane2, buf.data() + 48 + 12);

  ASSERT_EQ(oru_set_image_header(&im, 4, 4, ORU_IMAGE_FORMAT_3), 0u);
  EXPECT_EQ(oru_set_image_data(&im, buf.data(), int64_t(buf.size())), ORU_RET_ERR_DATA_LENGTH);
  EXPECT_EQ(im.data, buf.data());
}

TEST(ImageCore, HeaderAndDataOverCallerPlanes) {
  std::vector<uint8_t> y(64), u(16), v(16);
  uint8_t *planes[3] = {y.data(), u.data(), v.data()};
  const int32_t strides[3] = {8, 4, 4};
  oru_image im;
  ASSERT_EQ(oru_set_image_header_and_data(&im, 2, 2, ORU_IMAGE_YUV420P, planes, strides), 0u);
  EXPECT_EQ(im.stride, 8);
  EXPECT_EQ(im.plane2, v.data());
  EXPECT_EQ(im.owns_data, 0u);
  const int32_t sizes[3] = {int32_t(y.size()), 0, 0};
  ASSERT_EQ(oru_set_image_header_and_data(&im, 8, 8, ORU_IMAGE_GRAY8, planes, sizes), 0u);
  EXPECT_EQ(im.data, y.data());
  const int32_t short_sizes[3] = {63, 0, 0};
  EXPECT_EQ(oru_set_image_header_and_data(&im, 8, 8, ORU_IMAGE_GRAY8, planes, short_sizes), ORU_RET_ERR_DATA_LENGTH);
  EXPECT_EQ(oru_set_image_header_and_data(&im, 8, 8, ORU_IMAGE_GRAY8, nullptr, sizes), ORU_RET_ERR_PARA);
}
