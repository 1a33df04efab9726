// Detector input: the planar tensors the networks expect, the aspect padding, the
// patch paster and the dropping of a fourth byte.
#include <cstring>

#include "core/oru_scratch.h"
#include "detector/oru_detector_internal.h"
#include "image/oru_image_internal.h"
#include "oru_detector.h"

namespace oru {
namespace {

struct ValueTables {
  float unit[256];  // i / 255, rounded to seven decimals
  float norm[256];  // (i - 127.5) / 128
  constexpr ValueTables() : unit(), norm() {
    for (int i = 0; i < 256; ++i) {
      const double v = i / 255.0 * 1e7;
      unit[i] = float(double(int64_t(v + 0.5)) / 1e7);
      norm[i] = float((i - 127.5) / 128.0);
    }
  }
};
constexpr ValueTables kTables;

}  // namespace

// The value tables of the float transforms, under the names the detector code knows them by.
static constexpr const float (&map_table)[256] = kTables.unit;
static constexpr const float (&ai8u_to_aif32_norm)[256] = kTables.norm;

namespace {

// One pass over the image, three plane streams out. order[p] is the pixel byte of plane p.
template <typename T, typename Map>
void planar_transform(oru_tensor *tensor, const oru_image *image, const int (&order)[3], Map map) {
  if (!tensor || !image || image->rows < 1 || image->cols < 1) return;
  const int64_t plane = int64_t(image->rows) * image->cols;
  T *p0 = static_cast<T *>(tensor->data), *p1 = p0 + plane, *p2 = p1 + plane;
  for (int32_t y = 0; y < image->rows; ++y) {
    const uint8_t *s = static_cast<const uint8_t *>(image->data) + y * image->stride;
    for (int32_t x = 0; x < image->cols; ++x, s += 3) {
      *p0++ = map(s[order[0]]);
      *p1++ = map(s[order[1]]);
      *p2++ = map(s[order[2]]);
    }
  }
}

constexpr int kKeep[3] = {0, 1, 2};
constexpr int kSwap[3] = {2, 1, 0};

float unit_value(uint8_t v) { return map_table[v]; }
float norm_value(uint8_t v) { return ai8u_to_aif32_norm[v]; }
int16_t q14_value(uint8_t v) { return int16_t(float(v) * 64.250984f); }
int16_t centred_value(uint8_t v) { return int16_t(int32_t(v) - 127); }

}  // namespace

const float *detector_unit_table() { return map_table; }
const float *detector_norm_table() { return ai8u_to_aif32_norm; }

}  // namespace oru

using namespace oru;

uint32_t copy_make_const_border_uint8(const uint8_t *src, int32_t src_stride, int32_t src_size[2], uint8_t *dst,
                                      int32_t dst_stride, int32_t dst_size[2], int32_t top, int32_t left,
                                      int32_t channels, const uint8_t *value) {
  src_size[0] *= channels;
  dst_size[0] *= channels;
  const int32_t sw = src_size[0], sh = src_size[1], dw = dst_size[0], dh = dst_size[1];
  const int32_t lb = left * channels, rb = dw - sw - lb;
  bool zero = true;
  for (int32_t k = 0; k < channels; ++k) zero = zero && value[k] == 0;
  Scratch<uint8_t> border;
  if (!zero) {
    // One row of the value pattern; every border is a block copy from it.
    if (!border.reset(dw)) return ORU_RET_ERR_MEMORY;
    for (int32_t i = 0; i < dw; ++i) border[i] = value[i % channels];
  }
  auto fill = [&](uint8_t *d, int32_t n) {
    if (n <= 0) return;
    if (zero)
      std::memset(d, 0, size_t(n));
    else
      std::memcpy(d, border.get(), size_t(n));
  };
  // Bottom to top, so that an in-place call with the source inside the destination
  // never overwrites a row before it is moved.
  for (int32_t y = dh - 1; y >= 0; --y) {
    uint8_t *d = dst + int64_t(y) * dst_stride;
    const int32_t r = y - top;
    if (r < 0 || r >= sh) {
      fill(d, dw);
      continue;
    }
    const uint8_t *s = src + int64_t(r) * src_stride;
    if (d + lb != s) std::memmove(d + lb, s, size_t(sw));
    fill(d, lb);
    fill(d + lb + sw, rb);
  }
  return ORU_RET_OK;
}

extern "C" {

ORU_API void oru_transform_image_data_for_pfld_detector(oru_tensor *t, const oru_image *im) {
  planar_transform<float>(t, im, kKeep, unit_value);
}
ORU_API void oru_transform_image_data_for_pfld_detector_rgb24(oru_tensor *t, const oru_image *im) {
  planar_transform<float>(t, im, kSwap, unit_value);
}
ORU_API void oru_transform_image_data_for_pfld_detector_fp16(oru_tensor *t, const oru_image *im) {
  planar_transform<int16_t>(t, im, kKeep, q14_value);
}
ORU_API void oru_transform_image_data_for_pfld_detector_rgb24_fp16(oru_tensor *t, const oru_image *im) {
  planar_transform<int16_t>(t, im, kSwap, q14_value);
}
ORU_API void oru_transform_image_data_for_ssd_detector(oru_tensor *t, const oru_image *im) {
  planar_transform<float>(t, im, kSwap, norm_value);
}
ORU_API void oru_transform_image_data_for_ssd_detector_rgb24(oru_tensor *t, const oru_image *im) {
  planar_transform<float>(t, im, kKeep, norm_value);
}
ORU_API void oru_transform_image_data_for_ssd_detector_fp16(oru_tensor *t, const oru_image *im) {
  planar_transform<int16_t>(t, im, kSwap, centred_value);
}
ORU_API void oru_transform_image_data_for_ssd_detector_rgb24_fp16(oru_tensor *t, const oru_image *im) {
  planar_transform<int16_t>(t, im, kKeep, centred_value);
}

ORU_API oru_image *oru_create_border_image(int32_t *top, int32_t *bottom, int32_t *left, int32_t *right,
                                           const oru_image *image, float ratio) {
  if (!(ratio > 0.0f) || !top || !bottom || !left || !right || !image || image->cols < 1 || image->cols > 4096 ||
      image->rows < 1 || image->rows > 4096)
    return nullptr;
  const int32_t w = image->cols, h = image->rows;
  int32_t extra_rows = int32_t(float(w) * ratio + 0.5f) - h;
  int32_t extra_cols = int32_t(float(h) / ratio + 0.5f) - w;
  extra_rows = extra_rows > 0 ? extra_rows : 0;
  extra_cols = extra_cols > 0 ? extra_cols : 0;
  oru_image *out = oru_create_image(w + extra_cols, h + extra_rows, image->format);
  if (!out) return nullptr;
  const int32_t t = int32_t(float(extra_rows) * 0.5f), l = int32_t(float(extra_cols) * 0.5f);
  const uint32_t f = image->format;
  const uint8_t zeros[4] = {0, 0, 0, 0}, grey[1] = {128};
  uint32_t st = ORU_RET_OK;
  if (f == ORU_IMAGE_BGR24 || f == ORU_IMAGE_RGB24) {
    int32_t ss[2] = {w, h}, ds[2] = {out->cols, out->rows};
    st = copy_make_const_border_uint8(static_cast<const uint8_t *>(image->data), int32_t(image->stride), ss,
                                      static_cast<uint8_t *>(out->data), int32_t(out->stride), ds, t, l,
                                      image->channels, zeros);
  } else if (f == ORU_IMAGE_YUV420P) {
    int32_t ss[2] = {w, h}, ds[2] = {out->cols, out->rows};
    st = copy_make_const_border_uint8(static_cast<const uint8_t *>(image->data), int32_t(image->stride), ss,
                                      static_cast<uint8_t *>(out->data), int32_t(out->stride), ds, t, l, 1, zeros);
    const void *sp[2] = {image->plane1, image->plane2};
    void *dp[2] = {out->plane1, out->plane2};
    const int64_t sst[2] = {image->stride1, image->stride2}, dst[2] = {out->stride1, out->stride2};
    for (int p = 0; p < 2 && st == ORU_RET_OK; ++p) {
      int32_t cs[2] = {w / 2, h / 2}, cd[2] = {out->cols / 2, out->rows / 2};
      st = copy_make_const_border_uint8(static_cast<const uint8_t *>(sp[p]), int32_t(sst[p]), cs,
                                        static_cast<uint8_t *>(dp[p]), int32_t(dst[p]), cd, t >> 1, l >> 1, 1, grey);
    }
  } else {
    st = ORU_RET_ERR_PARA;
  }
  if (st != ORU_RET_OK) {
    drop_image(out);
    return nullptr;
  }
  *top = t;
  *bottom = extra_rows - t;
  *left = l;
  *right = extra_cols - l;
  return out;
}

ORU_API uint32_t oru_image_cropped_patch_with_border(oru_image *dst, const int32_t dst_origin[2],
                                                     const oru_image *src, const int32_t src_origin[2],
                                                     const int32_t size[2]) {
  if (!dst || !dst_origin || !src || !src_origin || !size || dst->channels != src->channels) return ORU_RET_ERR_PARA;
  const int32_t w = size[0], h = size[1];
  if (w < 1 || h < 1 || w > src->cols || h > src->rows) return ORU_RET_ERR_PARA;
  const int32_t sx = src_origin[0], sy = src_origin[1], dx = dst_origin[0], dy = dst_origin[1];
  if (int64_t(sx) + w > src->cols || int64_t(sy) + h > src->rows || int64_t(dx) + w > dst->cols ||
      int64_t(dy) + h > dst->rows)
    return ORU_RET_ERR_PARA;
  // Rows of a rectangle; row indices are clamped into each image, columns are not negative here.
  auto paste = [](uint8_t *d, int64_t dstride, int32_t drows, int32_t dx0, int32_t dy0, const uint8_t *s,
                  int64_t sstride, int32_t srows, int32_t sx0, int32_t sy0, int32_t bytes_w, int32_t rows,
                  int32_t px) {
    for (int32_t k = 0; k < rows; ++k) {
      int32_t rs = sy0 + k, rd = dy0 + k;
      rs = rs < 0 ? 0 : rs >= srows ? srows - 1 : rs;
      rd = rd < 0 ? 0 : rd >= drows ? drows - 1 : rd;
      std::memcpy(d + rd * dstride + int64_t(dx0) * px, s + rs * sstride + int64_t(sx0) * px, size_t(bytes_w));
    }
  };
  uint8_t *d = static_cast<uint8_t *>(dst->data);
  const uint8_t *s = static_cast<const uint8_t *>(src->data);
  if (src->format == ORU_IMAGE_YUV420P) {
    std::memset(d, 0, size_t(dst->stride * dst->rows));
    if (sx >= 0 && dx >= 0) paste(d, dst->stride, dst->rows, dx, dy, s, src->stride, src->rows, sx, sy, w, h, 1);
    const void *sp[2] = {src->plane1, src->plane2};
    void *dp[2] = {dst->plane1, dst->plane2};
    const int64_t ss[2] = {src->stride1, src->stride2}, ds[2] = {dst->stride1, dst->stride2};
    for (int p = 0; p < 2; ++p) {
      std::memset(dp[p], 128, size_t((dst->rows >> 1) * ds[p]));
      const int32_t hw = w >> 1, hh = h >> 1;
      const bool fits = (sx >> 1) + hw <= (src->cols >> 1) && (dx >> 1) + hw <= (dst->cols >> 1) &&
                        (sy >> 1) + hh <= (src->rows >> 1) && (dy >> 1) + hh <= (dst->rows >> 1);
      if (sx >= 0 && dx >= 0 && fits && h >= 2 && hw >= 1)
        paste(static_cast<uint8_t *>(dp[p]), ds[p], dst->rows >> 1, dx >> 1, dy >> 1,
              static_cast<const uint8_t *>(sp[p]), ss[p], src->rows >> 1, sx >> 1, sy >> 1, hw, hh, 1);
    }
    return ORU_RET_OK;
  }
  const int32_t c = src->channels;
  if (c != 1 && c != 3) return ORU_RET_ERR_NOT_SUPPORT;
  std::memset(d, 0, size_t(dst->stride * dst->rows));
  if (sx >= 0 && dx >= 0) paste(d, dst->stride, dst->rows, dx, dy, s, src->stride, src->rows, sx, sy, c * w, h, c);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_convert_rgba_to_rgb(uint8_t *dst, const uint8_t *src, int32_t width, int32_t height) {
  if (!dst || !src) return ORU_RET_ERR_PARA;
  if (height < 1 || width < 1) return ORU_RET_OK;
  const int64_t n = int64_t(width) * height;
  for (int64_t i = 0; i < n; ++i) {
    dst[3 * i] = src[4 * i];
    dst[3 * i + 1] = src[4 * i + 1];
    dst[3 * i + 2] = src[4 * i + 2];
  }
  return ORU_RET_OK;
}

}  // extern "C"
