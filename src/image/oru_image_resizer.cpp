// Whole-image and crop resizing: the choice of worker by format, method and size ratio.
// The workers differ in the last bit, so the choice is part of the result.
#include <cstring>

#include "core/oru_report.h"
#include "image/oru_image_internal.h"
#include "image/oru_image_resizer_internal.h"

using namespace oru;

namespace {

uint8_t *bytes(void *p) { return static_cast<uint8_t *>(p); }
const uint8_t *cbytes(const void *p) { return static_cast<const uint8_t *>(p); }

bool one_plane_format(uint32_t f) {
  return f == ORU_IMAGE_BGR24 || f == ORU_IMAGE_RGB24 || f == ORU_IMAGE_GRAY8 || f == ORU_IMAGE_LAB24 ||
         f == ORU_IMAGE_FORMAT_11;
}

// Runs a one-channel worker on the luma plane, then on both chroma planes at half size.
template <typename Worker>
uint32_t on_yuv420_planes(oru_image *dst, const oru_image *src, Worker worker) {
  uint32_t st = worker(bytes(dst->data), dst->cols, dst->rows, int32_t(dst->stride), cbytes(src->data), src->cols,
                       src->rows, int32_t(src->stride));
  if (st != ORU_RET_OK) return st;
  const int32_t dw = dst->cols / 2, dh = dst->rows / 2, sw = src->cols / 2, sh = src->rows / 2;
  const int32_t ds = int32_t(dst->stride / 2), ss = int32_t(src->stride / 2);
  if (dw < 1 || dh < 1 || sw < 1 || sh < 1) return ORU_RET_OK;
  st = worker(bytes(dst->plane1), dw, dh, ds, cbytes(src->plane1), sw, sh, ss);
  if (st != ORU_RET_OK) return st;
  return worker(bytes(dst->plane2), dw, dh, ds, cbytes(src->plane2), sw, sh, ss);
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_image_resizer(oru_image *dst, const oru_image *src, uint32_t method) {
  if (!is_image(dst) || !is_image(src) || dst->type != src->type ||
      !(one_plane_format(dst->format) || dst->format == ORU_IMAGE_YUV420P))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  const uint32_t sf = src->format;
  if (dst->rows == src->rows && dst->cols == src->cols && dst->depth == src->depth) {
    if (dst->data == src->data) return ORU_RET_OK;
    std::memcpy(dst->data, src->data, size_t(int64_t(src->rows) * src->depth * src->stride));
    if (dst->format == ORU_IMAGE_YUV420P) {
      const size_t quarter = size_t(int64_t(src->rows) * src->cols / 4);
      std::memcpy(dst->plane1, src->plane1, quarter);
      std::memcpy(dst->plane2, src->plane2, quarter);
    }
    return ORU_RET_OK;
  }
  auto box = [](uint8_t *d, int32_t dw, int32_t dh, int32_t ds, const uint8_t *s, int32_t sw, int32_t sh,
                int32_t ss) { return resizer2_linear(d, dw, dh, ds, s, sw, sh, ss, 1); };
  if (src->rows == 2 * dst->rows && src->cols == 2 * dst->cols) {
    if (one_plane_format(sf)) {
      resizer2_linear(bytes(dst->data), dst->cols, dst->rows, int32_t(dst->stride), cbytes(src->data), src->cols,
                      src->rows, int32_t(src->stride), src->channels);
    } else if (sf == ORU_IMAGE_YUV420P) {
      box(bytes(dst->data), dst->cols, dst->rows, int32_t(dst->stride), cbytes(src->data), src->cols, src->rows,
          int32_t(src->stride));
      if (dst->cols >= 2 && dst->rows >= 2) on_yuv420_planes(dst, src, box);
    }
    return ORU_RET_OK;
  }
  const bool grows = dst->rows > src->rows;
  auto bilinear1 = [grows](uint8_t *d, int32_t dw, int32_t dh, int32_t ds, const uint8_t *s, int32_t sw, int32_t sh,
                           int32_t ss) {
    return grows ? fast_bilinear_resizer(d, dw, dh, ds, 1, s, sw, sh, ss, 0)
                 : gray_image_resizer_bilinear(d, dw, dh, ds, s, sw, sh, ss);
  };
  auto nearest1 = [](uint8_t *d, int32_t dw, int32_t dh, int32_t ds, const uint8_t *s, int32_t sw, int32_t sh,
                     int32_t ss) { return resizer_nn(d, dw, dh, ds, s, sw, sh, ss, 1); };
  uint8_t *d = bytes(dst->data);
  const uint8_t *s = cbytes(src->data);
  const int32_t dw = dst->cols, dh = dst->rows, ds = int32_t(dst->stride);
  const int32_t sw = src->cols, sh = src->rows, ss = int32_t(src->stride);
  if (one_plane_format(sf)) {
    uint32_t st = ORU_RET_OK;
    if (method == ORU_RESIZE_BILINEAR) {
      if (grows)
        st = fast_bilinear_resizer(d, dw, dh, ds, src->channels, s, sw, sh, ss, 0);
      else if (src->channels == 3)
        st = bgr_resizer_bilinear(d, dw, dh, ds, s, sw, sh, ss);
      else if (src->channels == 1)
        st = gray_image_resizer_bilinear(d, dw, dh, ds, s, sw, sh, ss);
    } else if (method == ORU_RESIZE_NEAREST) {
      st = resizer_nn(d, dw, dh, ds, s, sw, sh, ss, src->channels);
    }
    return st;
  }
  if (sf == ORU_IMAGE_YUV420P) {
    uint32_t st;
    if (method == ORU_RESIZE_BILINEAR)
      st = on_yuv420_planes(dst, src, bilinear1);
    else if (method == ORU_RESIZE_NEAREST)
      st = on_yuv420_planes(dst, src, nearest1);
    else
      ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "Current version can not support!");
    return st;
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_image_crop_resizer(oru_image *dst, const oru_image *src, const int32_t centre[2],
                                        int32_t box[2], const int32_t dsize[2]) {
  if (!dst || !src || !centre || !box || !dsize || dsize[0] != dst->cols || dsize[1] != dst->rows ||
      dst->channels != src->channels)
    return ORU_RET_ERR_PARA;
  int32_t left = centre[0] - (box[0] >> 1), top = centre[1] - (box[1] >> 1);
  uint8_t *d = bytes(dst->data);
  const uint8_t *s = cbytes(src->data);
  const int32_t dw = dst->cols, dh = dst->rows, ds = int32_t(dst->stride);
  const int32_t sw = src->cols, sh = src->rows, ss = int32_t(src->stride);
  switch (src->format) {
    case ORU_IMAGE_BGR24:
      return resizer_sub_bgr_image_nn_bilinear(d, dw, dh, ds, s, sw, sh, ss, box[0], box[1], left, top);
    case ORU_IMAGE_GRAY8:
      return resizer_sub_gray_image_nn_bilinear(d, dw, dh, ds, s, sw, sh, ss, box[0], box[1], left, top);
    case ORU_IMAGE_YUV420P: {
      if ((box[0] & 1) || (box[1] & 1)) return ORU_RET_ERR_PARA;
      uint32_t st = resizer_sub_gray_image_nn_bilinear(d, dw, dh, ds, s, sw, sh, ss, box[0], box[1], left, top);
      if (st != ORU_RET_OK) return st;
      left >>= 1;
      top >>= 1;
      box[0] /= 2;
      box[1] /= 2;
      for (int p = 0; p < 2; ++p) {
        st = resizer_sub_gray_image_nn_bilinear(bytes(p ? dst->plane2 : dst->plane1), dw / 2, dh / 2, ds / 2,
                                                cbytes(p ? src->plane2 : src->plane1), sw / 2, sh / 2, ss / 2,
                                                box[0], box[1], left, top);
        if (st != ORU_RET_OK) return st;
      }
      return ORU_RET_OK;
    }
    default:
      return ORU_RET_ERR_PARA;
  }
}

}  // extern "C"
