// Rearrangements without resampling: quarter turns with the optional mirror, the
// horizontal mirror and the plane transposition they are built on.
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "image/oru_geometry_kernels.h"
#include "image/oru_image_geometry2d_internal.h"
#include "image/oru_image_internal.h"

using namespace oru;

void transpose_wxh_c_code(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width,
                          int32_t height, int32_t channels) {
  for (int32_t j = 0; j < width; ++j) {
    uint8_t *d = dst + dst_stride * j;
    for (int32_t i = 0; i < height; ++i)
      std::memcpy(d + int64_t(i) * channels, src + src_stride * i + int64_t(j) * channels, size_t(channels));
  }
}

void transpose_plane(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width,
                     int32_t height, int32_t channels) {
  static const auto eight_c1 = pick(ORU_KERNEL_FORMS(transpose8_c1));
  static const auto eight_c3 = pick(ORU_KERNEL_FORMS(transpose8_c3));
  const auto eight = channels == 1 ? eight_c1 : channels == 3 ? eight_c3 : nullptr;
  int32_t i = 0;
  // Eight source rows make one run of eight pixels in every destination row.
  if (eight)
    for (; i + 8 <= height; i += 8) eight(src + src_stride * i, src_stride, dst + int64_t(i) * channels, dst_stride, width);
  transpose_wxh_c_code(src + src_stride * i, src_stride, dst + int64_t(i) * channels, dst_stride, width, height - i,
                       channels);
}

void mirror_copy_row_c_code_bgr(const uint8_t *src, uint8_t *dst, int32_t width) {
  mirror_row_c3_plain(dst, src, width);
}

namespace {

using MirrorFn = void (*)(uint8_t *, const uint8_t *, int32_t);

MirrorFn mirror_for(int32_t channels) {
  static const MirrorFn c1 = pick(ORU_KERNEL_FORMS(mirror_row_c1));
  static const MirrorFn c3 = pick(ORU_KERNEL_FORMS(mirror_row_c3));
  return channels == 1 ? c1 : c3;
}

uint8_t *row_of(const oru_image *im, int32_t r, int64_t stride) { return static_cast<uint8_t *>(im->data) + stride * r; }

// Rows r and rows - 1 - r change places, through one row of scratch, each mirrored or
// not; the source and the destination may be one image.
uint32_t swap_row_pairs(oru_image *dst, const oru_image *src, bool mirror) {
  const int32_t rows = src->rows, ch = src->channels, n = src->cols;
  const size_t bytes = size_t(n) * size_t(ch);
  Scratch<uint8_t> tmp{int64_t(bytes)};
  if (!tmp) return ORU_RET_ERR_MEMORY;
  const MirrorFn mirror_fn = mirror_for(ch);
  auto move = [&](uint8_t *d, const uint8_t *s) {
    if (mirror)
      mirror_fn(d, s, n);
    else
      std::memcpy(d, s, bytes);
  };
  for (int32_t r = 0; r <= (rows - 1) / 2; ++r) {
    const int32_t b = rows - 1 - r;
    move(tmp.get(), row_of(src, r, src->stride));
    if (b != r) move(row_of(dst, r, dst->stride), row_of(src, b, src->stride));
    std::memcpy(row_of(dst, b, dst->stride), tmp.get(), bytes);
  }
  return ORU_RET_OK;
}

// Each row mirrored in place or into the destination; stride serves both images.
uint32_t mirror_rows(oru_image *dst, const oru_image *src, int64_t src_stride, int64_t dst_stride) {
  const int32_t ch = src->channels, n = src->cols;
  const MirrorFn mirror_fn = mirror_for(ch);
  Scratch<uint8_t> tmp;
  const bool in_place = dst->data == src->data;
  if (in_place && !tmp.reset(int64_t(n) * ch)) return ORU_RET_ERR_MEMORY;
  for (int32_t r = 0; r < src->rows; ++r) {
    uint8_t *d = row_of(dst, r, dst_stride);
    const uint8_t *s = row_of(src, r, src_stride);
    if (in_place) {
      std::memcpy(tmp.get(), s, size_t(n) * size_t(ch));
      s = tmp.get();
    }
    mirror_fn(d, s, n);
  }
  return ORU_RET_OK;
}

bool pixel_interleaved(uint32_t format) {
  return format != ORU_IMAGE_YUV420P && format != ORU_IMAGE_YUV444P && format != ORU_IMAGE_FORMAT_12 &&
         format != ORU_IMAGE_FORMAT_13;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_image_rotation_with_special_degree(oru_image *dst, const oru_image *src, int32_t degrees,
                                                        int32_t flip) {
  if (!dst || !src || !dst->data || !src->data) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  const int32_t ch = src->channels;
  // Planar layouts have no pixels of `channels` bytes to move.
  if ((ch != 1 && ch != 3) || !pixel_interleaved(src->format) || !pixel_interleaved(dst->format))
    return ORU_RET_ERR_NOT_SUPPORT;
  if (degrees != 0 && degrees != 90 && degrees != 180 && degrees != 270) return ORU_RET_ERR_NOT_SUPPORT;
  const int32_t rows = src->rows, cols = src->cols;
  // A destination of another shape would be written past its end.
  const bool quarter = degrees == 90 || degrees == 270;
  if (dst->channels != ch || dst->rows != (quarter ? cols : rows) || dst->cols != (quarter ? rows : cols))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  const uint8_t *s = static_cast<const uint8_t *>(src->data);
  uint8_t *d = static_cast<uint8_t *>(dst->data);
  const int64_t ss = src->stride, ds = dst->stride;
  // With flip the source is read bottom row first.
  const uint8_t *s_flip = s + ss * (rows - 1);
  switch (degrees) {
    case 0:
      if (flip) return swap_row_pairs(dst, src, false);
      if (d != s) std::memcpy(d, s, size_t(int64_t(rows) * ss));
      return ORU_RET_OK;
    case 90:
      if (flip)
        transpose_plane(s, ss, d, ds, cols, rows, ch);
      else
        transpose_plane(s_flip, -ss, d, ds, cols, rows, ch);
      return ORU_RET_OK;
    case 180:
      if (flip) return mirror_rows(dst, src, ss, ds);
      return swap_row_pairs(dst, src, true);
    case 270:
      transpose_plane(flip ? s_flip : s, flip ? -ss : ss, d + ds * (cols - 1), -ds, cols, rows, ch);
      return ORU_RET_OK;
    default:
      return ORU_RET_ERR_NOT_SUPPORT;
  }
}

ORU_API uint32_t oru_image_horizontal_flip(oru_image *dst, const oru_image *src) {
  if (!is_image(dst) || !is_image(src) || dst->cols != src->cols || dst->rows != src->rows ||
      dst->format != src->format)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  if ((src->channels != 1 && src->channels != 3) || !pixel_interleaved(src->format))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "can not support!\n");
  return mirror_rows(dst, src, dst->stride, dst->stride);
}

}  // extern "C"
