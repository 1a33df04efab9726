// Rotation by any whole-degree angle with scale about a centre. Bilinear sampling, and
// nearest sampling of three-byte pixels, step through the destination in 11-bit fixed
// point; nearest sampling of one-byte planes evaluates each position in float.
#include <cmath>

#include "core/oru_report.h"
#include "image/oru_geometry_kernels.h"
#include "image/oru_image_geometry2d_internal.h"
#include "image/oru_image_internal.h"

using namespace oru;

namespace {

constexpr float kPi = 3.1415927f;
constexpr int32_t kFrac = 11;

float degrees_to_radians(int32_t degrees) { return float(degrees) * kPi / 180.0f; }

// Source position of destination pixel (x, y), with u = x - dw / 2 and v = y - dh / 2:
// (center_x + u a) - v e, (center_y + u b) + v d.
struct Mapping {
  float center_x, center_y, a, b, e, d, half_w, half_h;
  float source_x(float u, float v) const { return (center_x + u * a) - v * e; }
  float source_y(float u, float v) const { return (center_y + u * b) + v * d; }
};

Mapping make_mapping(int32_t dw, int32_t dh, float scale_x, float scale_y, float angle, float center_x,
                     float center_y) {
  const float c = std::cos(angle), s = std::sin(angle);
  return {center_x, center_y, c / scale_x, s / scale_x, s / scale_y, c / scale_y, float(dw) * 0.5f, float(dh) * 0.5f};
}

int32_t to_fixed(float v) { return int32_t(std::lrint(v * 2048.0f)); }

// Fixed-point stepping over the destination: each row gets the position of its first
// pixel and the column increments; rows advance by the row increments. The sums wrap as
// 32-bit integers would.
template <typename Row>
void fixed_point_rows(int32_t dh, const Mapping &m, Row row) {
  const int32_t cx = to_fixed(m.a), cy = to_fixed(m.b);
  const uint32_t rx = uint32_t(to_fixed(0.0f - m.e)), ry = uint32_t(to_fixed(m.d));
  uint32_t row_x = uint32_t(to_fixed(m.source_x(0.0f - m.half_w, 0.0f - m.half_h)));
  uint32_t row_y = uint32_t(to_fixed(m.source_y(0.0f - m.half_w, 0.0f - m.half_h)));
  for (int32_t y = 0; y < dh; ++y, row_x += rx, row_y += ry) row(y, int32_t(row_x), int32_t(row_y), cx, cy);
}

template <int C>
void rotate_bilinear(uint8_t *dst, int32_t dw, int32_t dh, int32_t dstride, const uint8_t *src, int32_t sw,
                     int32_t sh, int32_t sstride, uint8_t fill, const Mapping &m) {
  static const auto row_c1 = pick(ORU_KERNEL_FORMS(rotate_bilinear_row_c1));
  static const auto row_c3 = pick(ORU_KERNEL_FORMS(rotate_bilinear_row_c3));
  const auto row = C == 1 ? row_c1 : row_c3;
  fixed_point_rows(dh, m, [&](int32_t y, int32_t X, int32_t Y, int32_t cx, int32_t cy) {
    row(dst + int64_t(y) * dstride, src, sstride, sw, sh, X, Y, cx, cy, dw, fill);
  });
}

void rotate_nearest_c3(uint8_t *dst, int32_t dw, int32_t dh, int32_t dstride, const uint8_t *src, int32_t sw,
                       int32_t sh, int32_t sstride, const Mapping &m) {
  fixed_point_rows(dh, m, [&](int32_t y, int32_t x0, int32_t y0, int32_t cx, int32_t cy) {
    uint8_t *d = dst + int64_t(y) * dstride;
    uint32_t X = uint32_t(x0), Y = uint32_t(y0);
    for (int32_t x = 0; x < dw; ++x, X += uint32_t(cx), Y += uint32_t(cy), d += 3) {
      const int64_t xs = int32_t(X), ys = int32_t(Y);
      if (xs < -1024 || ys < -1024 || ((xs + 1024) >> kFrac) >= sw || ((ys + 1024) >> kFrac) >= sh) {
        d[0] = d[1] = d[2] = 0;
        continue;
      }
      const uint8_t *p = src + ((ys + 1024) >> kFrac) * sstride + 3 * ((xs + 1024) >> kFrac);
      d[0] = p[0];
      d[1] = p[1];
      d[2] = p[2];
    }
  });
}

// One-byte planes: each position in float, rounded to nearest (ties to even).
void rotate_nearest_c1(uint8_t *dst, int32_t dw, int32_t dh, int32_t dstride, const uint8_t *src, int32_t sw,
                       int32_t sh, int32_t sstride, uint8_t fill, const Mapping &m) {
  for (int32_t y = 0; y < dh; ++y) {
    uint8_t *d = dst + int64_t(y) * dstride;
    const float v = float(y) - m.half_h;
    for (int32_t x = 0; x < dw; ++x) {
      const float u = float(x) - m.half_w;
      const float xs = std::rint(m.source_x(u, v)), ys = std::rint(m.source_y(u, v));
      d[x] = xs >= 0.0f && ys >= 0.0f && xs < float(sw) && ys < float(sh)
                 ? src[int64_t(ys) * sstride + int64_t(xs)]
                 : fill;
    }
  }
}

}  // namespace

void gray_image_rotation_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height, int32_t dst_stride,
                                  const uint8_t *src, int32_t src_width, int32_t src_height, int32_t src_stride,
                                  uint8_t fill, float scale_x, float scale_y, float angle, float center_x,
                                  float center_y) {
  rotate_bilinear<1>(dst, dst_width, dst_height, dst_stride, src, src_width, src_height, src_stride, fill,
                     make_mapping(dst_width, dst_height, scale_x, scale_y, angle, center_x, center_y));
}

namespace {

// The three planes of a YUV 4:2:0 image: luma at full size, chroma at half size with
// the centre halved; black is luma 16 and chroma 128.
void rotate_yuv420(oru_image *dst, const oru_image *src, const oru_rotation_params &p, float angle) {
  const int32_t dw = dst->cols, dh = dst->rows, sw = src->cols, sh = src->rows;
  const int32_t ds = int32_t(dst->stride), ss = int32_t(src->stride);
  const bool bilinear = p.method == 1;
  auto plane = [&](uint8_t *d, const uint8_t *s, int32_t w, int32_t h, int32_t dstr, int32_t sw_, int32_t sh_,
                   int32_t sstr, uint8_t fill, float cx, float cy) {
    if (bilinear)
      gray_image_rotation_bilinear(d, w, h, dstr, s, sw_, sh_, sstr, fill, p.scale_x, p.scale_y, angle, cx, cy);
    else
      rotate_nearest_c1(d, w, h, dstr, s, sw_, sh_, sstr, fill, make_mapping(w, h, p.scale_x, p.scale_y, angle, cx, cy));
  };
  plane(static_cast<uint8_t *>(dst->data), static_cast<const uint8_t *>(src->data), dw, dh, ds, sw, sh, ss, 16,
        p.center_x, p.center_y);
  if (!bilinear && (dw < 2 || dh < 2)) return;
  const float cx = p.center_x * 0.5f, cy = p.center_y * 0.5f;
  plane(static_cast<uint8_t *>(dst->plane1), static_cast<const uint8_t *>(src->plane1), dw >> 1, dh >> 1, ds >> 1,
        sw >> 1, sh >> 1, ss >> 1, 128, cx, cy);
  plane(static_cast<uint8_t *>(dst->plane2), static_cast<const uint8_t *>(src->plane2), dw >> 1, dh >> 1, ds >> 1,
        sw >> 1, sh >> 1, ss >> 1, 128, cx, cy);
}

// Layouts whose planes are not whole pixels of `channels` bytes.
bool planar_layout(uint32_t format) {
  return format == ORU_IMAGE_YUV444P || format == ORU_IMAGE_FORMAT_12 || format == ORU_IMAGE_FORMAT_13;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_precompute_rotated_image_size(int32_t *out_width, int32_t *out_height, int32_t width,
                                                   int32_t height, int32_t degrees) {
  if (!out_width || !out_height) return ORU_RET_ERR_PARA;
  const float t = degrees_to_radians(degrees), s = std::sin(t), c = std::cos(t);
  const float w = float(width), h = float(height);
  *out_width = int32_t(std::floor(std::fmax(std::fabs(w * c - h * s), std::fabs(w * c + h * s))));
  *out_height = int32_t(std::floor(std::fmax(std::fabs(w * s + h * c), std::fabs(h * c - w * s))));
  return ORU_RET_OK;
}

ORU_API uint32_t oru_image_rotation(oru_image *dst, const oru_image *src, const oru_rotation_params *params) {
  if (!dst || !src || !params || !dst->data || !src->data || dst->depth != 1 || src->depth != 1 ||
      dst->type != src->type || (src->type != ai8u && src->type != 16u))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  if (params->method != 0 && params->method != 1) return ORU_RET_OK;
  const float angle = degrees_to_radians(params->angle);
  if (src->format == ORU_IMAGE_YUV420P) {
    if (dst->format != ORU_IMAGE_YUV420P) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
    rotate_yuv420(dst, src, *params, angle);
    return ORU_RET_OK;
  }
  if (planar_layout(src->format) || planar_layout(dst->format))
    ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "Current version can not support!");
  uint8_t *d = static_cast<uint8_t *>(dst->data);
  const uint8_t *s = static_cast<const uint8_t *>(src->data);
  const int32_t dw = dst->cols, dh = dst->rows, ds = int32_t(dst->stride);
  const int32_t sw = src->cols, sh = src->rows, ss = int32_t(src->stride);
  const Mapping m = make_mapping(dw, dh, params->scale_x, params->scale_y, angle, params->center_x, params->center_y);
  if (src->channels != 1) {
    if (params->method == 1)
      rotate_bilinear<3>(d, dw, dh, ds, s, sw, sh, ss, 0, m);
    else
      rotate_nearest_c3(d, dw, dh, ds, s, sw, sh, ss, m);
  } else if (params->method == 1) {
    rotate_bilinear<1>(d, dw, dh, ds, s, sw, sh, ss, 0, m);
  } else {
    rotate_nearest_c1(d, dw, dh, ds, s, sw, sh, ss, 0, m);
  }
  return ORU_RET_OK;
}

}  // extern "C"
