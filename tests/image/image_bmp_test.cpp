// The BMP codec against files written by OpenCV and ImageMagick, files it writes read
// back by both (checked when the references were made), and hostile headers.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "image_test_util.h"

using namespace oru_image_test;

namespace {

ImagePtr read_bmp(const std::string &name, uint32_t mode) {
  return ImagePtr(oru_create_image_from_file(oru_test::data_path("image/" + name).c_str(), mode));
}

std::vector<uint8_t> luma(const std::vector<uint8_t> &bgr) {
  std::vector<uint8_t> g(bgr.size() / 3);
  for (size_t i = 0; i < g.size(); ++i)
    g[i] = uint8_t((1868u * bgr[3 * i] + 9617u * bgr[3 * i + 1] + 4899u * bgr[3 * i + 2] + 8192u) >> 14);
  return g;
}

void write_file(const std::string &path, const std::vector<uint8_t> &bytes) {
  FILE *f = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(f);
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

void put32(std::vector<uint8_t> &b, size_t off, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[off + i] = uint8_t(v >> (8 * i));
}

}  // namespace

TEST(ImageBmpRead, ToolWrittenColourFiles) {
  struct Case {
    const char *file;
    int32_t w, h;
  };
  for (const Case &c : {Case{"cv_bgr24.bmp", 9, 6}, Case{"cv_topdown24.bmp", 9, 6}, Case{"im_pal8.bmp", 7, 5}}) {
    const std::vector<uint8_t> expected = ref_bytes(std::string(c.file).substr(0, std::string(c.file).size() - 4) + ".bgr");
    ImagePtr im = read_bmp(c.file, 0);
    ASSERT_TRUE(im) << c.file;
    EXPECT_EQ(im->format, ORU_IMAGE_BGR24) << c.file;
    EXPECT_EQ(im->cols, c.w);
    EXPECT_EQ(im->rows, c.h);
    EXPECT_EQ(im->stride, 3 * c.w);
    EXPECT_EQ(pixels_of(im.get()), expected) << c.file;
    // Mode 1 takes the luma of the same pixels.
    ImagePtr grey = read_bmp(c.file, 1);
    ASSERT_TRUE(grey);
    EXPECT_EQ(grey->format, ORU_IMAGE_GRAY8);
    EXPECT_EQ(pixels_of(grey.get()), luma(expected)) << c.file;
  }
}

TEST(ImageBmpRead, GreyPaletteFiles) {
  for (const char *file : {"cv_gray8.bmp", "im_gray8.bmp"}) {
    const std::string stem = std::string(file).substr(0, std::string(file).size() - 4);
    const std::vector<uint8_t> bgr = ref_bytes(stem + ".bgr");
    ImagePtr im = read_bmp(file, 0);
    ASSERT_TRUE(im) << file;
    EXPECT_EQ(im->format, ORU_IMAGE_GRAY8) << file;
    EXPECT_EQ(pixels_of(im.get()), luma(bgr)) << file;
    ImagePtr colour = read_bmp(file, 2);
    ASSERT_TRUE(colour);
    EXPECT_EQ(colour->format, ORU_IMAGE_BGR24);
    EXPECT_EQ(pixels_of(colour.get()), bgr) << file;
  }
}

TEST(ImageBmpRead, CoreHeaderFilesReadAsGreyInModeZero) {
  for (const char *file : {"im_core24.bmp", "im_corepal8.bmp"}) {
    const std::string stem = std::string(file).substr(0, std::string(file).size() - 4);
    const std::vector<uint8_t> bgr = ref_bytes(stem + ".bgr");
    ImagePtr grey = read_bmp(file, 0);
    ASSERT_TRUE(grey) << file;
    EXPECT_EQ(grey->format, ORU_IMAGE_GRAY8);
    EXPECT_EQ(pixels_of(grey.get()), luma(bgr)) << file;
    ImagePtr colour = read_bmp(file, 2);
    ASSERT_TRUE(colour);
    EXPECT_EQ(pixels_of(colour.get()), bgr) << file;
  }
}

TEST(ImageBmpRead, RefusedEncodingsGiveNull) {
  EXPECT_FALSE(read_bmp("im_rle8.bmp", 0));
  EXPECT_FALSE(read_bmp("im_b32.bmp", 0));
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_create_image_from_file(nullptr, 0), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("file name is null!"), std::string::npos);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_create_image_from_file(oru_test::temp_path("absent.bmp").c_str(), 0), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Opening file errors!"), std::string::npos);
}

TEST(ImageBmpRead, PngAndJpegSignaturesAreRefusedSilently) {
  const std::vector<uint8_t> png = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
  const std::vector<uint8_t> jpg = {0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0, 1};
  for (const auto &bytes : {png, jpg}) {
    const std::string path = oru_test::temp_path("signature.bin");
    write_file(path, bytes);
    testing::internal::CaptureStdout();
    EXPECT_EQ(oru_create_image_from_file(path.c_str(), 0), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  }
}

TEST(ImageBmpRead, PhotographsAreColour24Bit) {
  for (const char *name : {"faces-1.bmp", "faces-2.bmp", "faces-3.bmp"}) {
    const std::string path = std::string(ORU_TEST_DATA_DIR) + "/../../data/images/" + name;
    const std::vector<uint8_t> file = oru_test::read_file(path);
    ASSERT_GT(file.size(), 54u) << name;
    ImagePtr im(oru_create_image_from_file(path.c_str(), 0));
    ASSERT_TRUE(im) << name;
    const int32_t w = int32_t(file[18] | file[19] << 8 | file[20] << 16 | uint32_t(file[21]) << 24);
    const int32_t h = int32_t(file[22] | file[23] << 8 | file[24] << 16 | uint32_t(file[25]) << 24);
    EXPECT_EQ(im->cols, w);
    EXPECT_EQ(im->rows, h < 0 ? -h : h);
    // The top image row of a bottom-up file is the last row in the file.
    const uint32_t off = file[10] | file[11] << 8 | file[12] << 16 | uint32_t(file[13]) << 24;
    const size_t row_bytes = (size_t(w) * 3 + 3) & ~size_t(3);
    const size_t top = h > 0 ? off + row_bytes * size_t(h - 1) : off;
    EXPECT_EQ(0, std::memcmp(row(im.get(), 0), file.data() + top, size_t(w) * 3)) << name;
  }
}

TEST(ImageBmpWrite, FilesMatchThoseOtherReadersAccepted) {
  // The same pixels the reference generator gave the library; OpenCV and ImageMagick read
  // the stored files back as exactly these pixels.
  struct Case {
    const char *name;
    uint32_t format;
    int32_t w, h;
  };
  for (const Case &c : {Case{"lib_bgr24.bmp", ORU_IMAGE_BGR24, 7, 3}, Case{"lib_gray8.bmp", ORU_IMAGE_GRAY8, 5, 2}}) {
    const int32_t ch = c.format == ORU_IMAGE_GRAY8 ? 1 : 3;
    std::vector<uint8_t> px(size_t(c.w) * c.h * ch);
    for (size_t i = 0; i < px.size(); ++i) px[i] = uint8_t((i * 37 + 11) % 256);
    ImagePtr im = image_from(px, c.w, c.h, c.format);
    const std::string path = oru_test::temp_path(c.name);
    ASSERT_EQ(oru_image_write_to_file_with_level(path.c_str(), im.get()), 0u);
    EXPECT_EQ(oru_test::read_file(path), ref_bytes(c.name)) << c.name;
    ImagePtr back(oru_create_image_from_file(path.c_str(), 0));
    ASSERT_TRUE(back);
    EXPECT_EQ(pixels_of(back.get()), px);
  }
}

TEST(ImageBmpWrite, GreyFileSizeAndOffset) {
  ImagePtr im = make_image(5, 2, ORU_IMAGE_GRAY8);
  std::memset(im->data, 7, 10);
  const std::string path = oru_test::temp_path("grey.bmp");
  ASSERT_EQ(oru_image_write_to_file_with_level(path.c_str(), im.get()), 0u);
  const auto bytes = oru_test::read_file(path);
  ASSERT_EQ(bytes.size(), 1078u + 8u * 2u);
  EXPECT_EQ(bytes[10] | bytes[11] << 8, 1078);
  EXPECT_EQ(bytes[28], 8);
  // Palette entry 200 is 200, 200, 200, 0.
  EXPECT_EQ(bytes[54 + 800], 200);
  EXPECT_EQ(bytes[54 + 803], 0);
}

TEST(ImageBmpWrite, RgbIsSwappedInPlaceAndYuvThroughBgr) {
  ImagePtr rgb = make_image(3, 2, ORU_IMAGE_RGB24);
  for (int32_t y = 0; y < 2; ++y)
    for (int32_t x = 0; x < 3; ++x) {
      uint8_t *p = row(rgb.get(), y) + 3 * x;
      p[0] = 200;  // red
      p[1] = uint8_t(10 * x);
      p[2] = uint8_t(y);
    }
  const std::string path = oru_test::temp_path("rgb.bmp");
  ASSERT_EQ(oru_image_write_to_file_with_level(path.c_str(), rgb.get()), 0u);
  EXPECT_EQ(rgb->format, ORU_IMAGE_BGR24);
  EXPECT_EQ(row(rgb.get(), 0)[2], 200);
  ImagePtr back(oru_create_image_from_file(path.c_str(), 0));
  ASSERT_TRUE(back);
  EXPECT_EQ(row(back.get(), 1)[3 + 2], 200);
  EXPECT_EQ(row(back.get(), 1)[3 + 1], 10);

  // Y = 16 with neutral chroma is black.
  ImagePtr yuv = make_image(4, 4, ORU_IMAGE_YUV420P);
  std::memset(yuv->data, 16, 16);
  std::memset(yuv->plane1, 128, 4);
  std::memset(yuv->plane2, 128, 4);
  ASSERT_EQ(oru_image_write_to_file_with_level(path.c_str(), yuv.get()), 0u);
  ImagePtr black(oru_create_image_from_file(path.c_str(), 0));
  ASSERT_TRUE(black);
  EXPECT_EQ(pixels_of(black.get()), std::vector<uint8_t>(48, 0));
}

TEST(ImageBmpWrite, RefusalsLeaveNoFile) {
  ImagePtr four = make_image(4, 4, ORU_IMAGE_FORMAT_3);
  const std::string bmp = oru_test::temp_path("four.bmp"), png = oru_test::temp_path("four.png");
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_write_to_file_with_level(bmp.c_str(), four.get()), ORU_RET_ERR_DATA_LENGTH);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("48 bit must save to be PNG format!\n"), std::string::npos);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_write_to_file_with_level(png.c_str(), four.get()), ORU_RET_ERR_DATA_LENGTH);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(oru_test::read_file(bmp).empty());
  EXPECT_TRUE(oru_test::read_file(png).empty());

  ImagePtr bgr = make_image(4, 4, ORU_IMAGE_BGR24);
  // A relative name: temporary paths carry dots of their own.
  const std::string nodot = "oru_image_test_nodot";
  EXPECT_EQ(oru_image_write_to_file_with_level(nodot.c_str(), bgr.get()), ORU_RET_ERR_PARA);
  EXPECT_TRUE(oru_test::read_file(nodot).empty());
  EXPECT_EQ(oru_image_write_to_file_with_level(oru_test::temp_path("x.jpg").c_str(), bgr.get()),
            ORU_RET_ERR_DATA_LENGTH);
  EXPECT_EQ(oru_image_write_to_file_with_level(oru_test::temp_path("x.tif").c_str(), bgr.get()),
            ORU_RET_ERR_NOT_SUPPORT);
  ImagePtr lab = make_image(4, 4, ORU_IMAGE_LAB24);
  EXPECT_EQ(oru_image_write_to_file_with_level(bmp.c_str(), lab.get()), ORU_RET_ERR_PARA);
}

// Hostile headers: each must come back as null without reading past the file or
// allocating what the header claims (the allocation count stays small).
TEST(ImageBmpRead, HostileHeadersAreRefused) {
  const std::vector<uint8_t> good = oru_test::read_file(oru_test::data_path("image/cv_bgr24.bmp"));
  ASSERT_GT(good.size(), 54u);
  struct Mutation {
    const char *what;
    size_t off;
    uint32_t value;
  };
  const Mutation cases[] = {
      {"width 2^31 - 1", 18, 0x7FFFFFFFu},  {"height 2^31 - 1", 22, 0x7FFFFFFFu},
      {"height -2^31", 22, 0x80000000u},    {"offset past the end", 10, 0xFFFFFFF0u},
      {"offset near the end", 10, uint32_t(good.size() - 4)}, {"negative header size", 14, 0x80000010u},
      {"bit count 8, colours used 2^32-1", 28, 8u},
  };
  for (const Mutation &m : cases) {
    std::vector<uint8_t> bytes = good;
    put32(bytes, m.off, m.value);
    if (m.off == 28) {
      bytes[30] = bytes[31] = 0;
      put32(bytes, 46, 0xFFFFFFFFu);
      put32(bytes, 18, 4000);  // rows that the file doesn't hold
    }
    const std::string path = oru_test::temp_path("hostile.bmp");
    write_file(path, bytes);
    testing::internal::CaptureStdout();
    const int64_t before = oru_test::malloc_calls();
    oru_image *im = oru_create_image_from_file(path.c_str(), 0);
    const int64_t calls = oru_test::malloc_calls() - before;
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(im, nullptr) << m.what;
    EXPECT_LE(calls, 4) << m.what;
    oru_release_matrix_no_error(&im);
  }
  // Truncated rows.
  for (size_t keep : {size_t(2), size_t(14), size_t(30), size_t(54), good.size() - 1}) {
    std::vector<uint8_t> bytes(good.begin(), good.begin() + long(keep));
    const std::string path = oru_test::temp_path("short.bmp");
    write_file(path, bytes);
    testing::internal::CaptureStdout();
    oru_image *im = oru_create_image_from_file(path.c_str(), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(im, nullptr) << keep;
    oru_release_matrix_no_error(&im);
  }
}

TEST(ImageBmpRead, PaletteLongerThanTheFile) {
  // An 8-bit 2 x 1 file whose table claims 256 entries but whose pixels sit where the table would be.
  std::vector<uint8_t> f(54 + 8 + 4, 0);
  f[0] = 'B';
  f[1] = 'M';
  put32(f, 10, 54 + 8);
  put32(f, 14, 40);
  put32(f, 18, 2);
  put32(f, 22, 1);
  f[26] = 1;
  f[28] = 8;
  put32(f, 46, 256);
  const uint8_t table[8] = {10, 20, 30, 0, 40, 50, 60, 0};
  std::memcpy(f.data() + 54, table, 8);
  f[62] = 1;
  f[63] = 0;
  const std::string path = oru_test::temp_path("shortpal.bmp");
  write_file(path, f);
  ImagePtr im(oru_create_image_from_file(path.c_str(), 2));
  ASSERT_TRUE(im);
  const uint8_t expected[6] = {40, 50, 60, 10, 20, 30};
  EXPECT_EQ(0, std::memcmp(im->data, expected, 6));
}
