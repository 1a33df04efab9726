// A rectangle copied out of an image, with the edge repeated where it sticks out, and
// the even-aligned rectangle within percentage margins.
#include <cmath>
#include <cstring>

#include "image/oru_image_internal.h"

using namespace oru;

namespace {

inline int32_t clamp(int32_t v, int32_t lo, int32_t hi) { return v < lo ? lo : v > hi ? hi : v; }

void copy_patch(uint8_t *dst, int64_t dst_stride, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                int32_t ox, int32_t oy, int32_t w, int32_t h, int32_t ch) {
  if (sw < 1 || sh < 1) return;
  const bool whole_rows = ox >= 0 && int64_t(ox) + w <= sw;
  for (int32_t r = 0; r < h; ++r) {
    const uint8_t *s = src + src_stride * clamp(oy + r, 0, sh - 1);
    uint8_t *d = dst + dst_stride * r;
    if (whole_rows) {
      std::memcpy(d, s + int64_t(ox) * ch, size_t(w) * size_t(ch));
      continue;
    }
    for (int32_t c = 0; c < w; ++c) std::memcpy(d + int64_t(c) * ch, s + int64_t(clamp(ox + c, 0, sw - 1)) * ch, size_t(ch));
  }
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_precompute_image_cropped_size(int32_t origin[2], int32_t size[2], const oru_image *image,
                                                   const int32_t margins[4]) {
  if (!origin || !image || !margins || !size) return ORU_RET_ERR_PARA;
  const float W = float(image->cols), H = float(image->rows);
  const int32_t x0 = int32_t(std::rint(W * float(margins[0]) / 100.0f));
  const int32_t y0 = int32_t(std::rint(H * float(margins[1]) / 100.0f));
  const int32_t x1 = int32_t(std::rint((1.0f - float(margins[2]) / 100.0f) * W));
  const int32_t y1 = int32_t(std::rint((1.0f - float(margins[3]) / 100.0f) * H));
  origin[0] = x0 & ~1;
  origin[1] = y0 & ~1;
  size[0] = (x1 & ~1) - (x0 & ~1);
  size[1] = (y1 & ~1) - (y0 & ~1);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_image_cropped_patch(oru_image *dst, const oru_image *src, int32_t origin[2],
                                         const int32_t size[2]) {
  if (!dst || !src || !origin || !size || !dst->data || !src->data || size[0] != dst->cols ||
      size[1] != dst->rows || dst->channels != src->channels)
    return ORU_RET_ERR_PARA;
  uint8_t *d = static_cast<uint8_t *>(dst->data);
  const uint8_t *s = static_cast<const uint8_t *>(src->data);
  if (src->format == ORU_IMAGE_YUV420P) {
    if (dst->format != ORU_IMAGE_YUV420P) return ORU_RET_ERR_PARA;
    copy_patch(d, dst->stride, s, src->stride, src->cols, src->rows, origin[0], origin[1], size[0], size[1], 1);
    origin[0] >>= 1;
    origin[1] >>= 1;
    if (dst->rows < 2) return ORU_RET_OK;
    for (int p = 0; p < 2; ++p)
      copy_patch(static_cast<uint8_t *>(p ? dst->plane2 : dst->plane1), dst->stride >> 1,
                 static_cast<const uint8_t *>(p ? src->plane2 : src->plane1), src->stride >> 1, src->cols >> 1,
                 src->rows >> 1, origin[0], origin[1], size[0] >> 1, size[1] >> 1, 1);
    return ORU_RET_OK;
  }
  // Planar layouts other than 4:2:0 have no pixels of `channels` bytes.
  if ((src->channels != 1 && src->channels != 3) || src->format == ORU_IMAGE_YUV444P ||
      src->format == ORU_IMAGE_FORMAT_12 || src->format == ORU_IMAGE_FORMAT_13)
    return ORU_RET_ERR_NOT_SUPPORT;
  copy_patch(d, dst->stride, s, src->stride, src->cols, src->rows, origin[0], origin[1], size[0], size[1],
             src->channels);
  return ORU_RET_OK;
}

}  // extern "C"
