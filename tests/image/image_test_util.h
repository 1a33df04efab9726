// Helpers of the image tests: owned images, raw reference files and pixel access.
#ifndef ORU_IMAGE_TEST_UTIL_H
#define ORU_IMAGE_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "oru_image.h"
#include "oru_test_util.h"

namespace oru_image_test {

struct ImageDeleter {
  void operator()(oru_image *im) const { oru_release_matrix(&im); }
};
using ImagePtr = std::unique_ptr<oru_image, ImageDeleter>;

inline ImagePtr make_image(int32_t w, int32_t h, uint32_t format) { return ImagePtr(oru_create_image(w, h, format)); }

inline std::vector<uint8_t> ref_bytes(const std::string &name) {
  auto v = oru_test::read_file(oru_test::data_path("image/" + name));
  EXPECT_FALSE(v.empty()) << name;
  return v;
}

inline uint8_t *row(const oru_image *im, int32_t y) { return static_cast<uint8_t *>(im->data) + y * im->stride; }

// Packed copy of rows of a plane.
inline void fill_plane(void *plane, int64_t stride, const uint8_t *src, int32_t bytes_w, int32_t rows) {
  for (int32_t y = 0; y < rows; ++y) std::memcpy(static_cast<uint8_t *>(plane) + y * stride, src + y * bytes_w, bytes_w);
}
inline std::vector<uint8_t> read_plane(const void *plane, int64_t stride, int32_t bytes_w, int32_t rows) {
  std::vector<uint8_t> out(size_t(bytes_w) * rows);
  for (int32_t y = 0; y < rows; ++y)
    std::memcpy(out.data() + size_t(y) * bytes_w, static_cast<const uint8_t *>(plane) + y * stride, bytes_w);
  return out;
}

inline ImagePtr image_from(const std::vector<uint8_t> &pixels, int32_t w, int32_t h, uint32_t format) {
  ImagePtr im = make_image(w, h, format);
  const int32_t ch = format == ORU_IMAGE_GRAY8 ? 1 : 3;
  fill_plane(im->data, im->stride, pixels.data(), w * ch, h);
  return im;
}

inline std::vector<uint8_t> pixels_of(const oru_image *im) {
  const int32_t ch = im->format == ORU_IMAGE_GRAY8 ? 1 : 3;
  return read_plane(im->data, im->stride, im->cols * ch, im->rows);
}

// Largest absolute difference of two byte arrays of equal size.
inline int max_abs_diff(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b) {
  EXPECT_EQ(a.size(), b.size());
  int m = 0;
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) m = std::max(m, std::abs(int(a[i]) - int(b[i])));
  return m;
}

}  // namespace oru_image_test

#endif
