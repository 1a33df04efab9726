// Affine and perspective maps from point correspondences, and the warp that pulls
// three-byte pixels through the inverse map.
#include <cmath>
#include <cstring>

#include "core/oru_report.h"
#include "image/oru_geometry_kernels.h"
#include "image/oru_image_internal.h"

using namespace oru;

namespace {

// Added to the denominators so that a degenerate triangle or quadrilateral gives huge
// entries instead of a division by zero.
constexpr float kEps = 1.1920929e-7f;

void affine_map(oru_map_geometry2d *map, const float *pt) {
  const float x0 = pt[0], y0 = pt[1], x1 = pt[2], y1 = pt[3], x2 = pt[4], y2 = pt[5];
  const float D = x2 * (y1 - y0) + x0 * (y2 - y1) + x1 * (y0 - y2) + kEps;
  float *f = map->forward;
  for (int r = 0; r < 2; ++r) {
    const float u0 = pt[8 + r], u1 = pt[10 + r], u2 = pt[12 + r];
    f[3 * r] = (y2 * (u0 - u1) + y0 * (u1 - u2) + y1 * (u2 - u0)) / D;
    f[3 * r + 1] = (x2 * (u1 - u0) + x0 * (u2 - u1) + x1 * (u0 - u2)) / D;
    f[3 * r + 2] = (x2 * (y1 * u0 - y0 * u1) + x0 * (y2 * u1 - y1 * u2) + x1 * (y0 * u2 - y2 * u0)) / D;
  }
  f[6] = 0.0f;
  f[7] = 0.0f;
  f[8] = 1.0f;
  const float a = f[0], b = f[1], c = f[2], d = f[3], e = f[4], ff = f[5];
  const float det = a * e - b * d + kEps;
  float *i = map->inverse;
  i[0] = e / det;
  i[1] = -b / det;
  i[2] = (b * ff - c * e) / det;
  i[3] = -d / det;
  i[4] = a / det;
  i[5] = (c * d - a * ff) / det;
  i[6] = 0.0f;
  i[7] = 0.0f;
  i[8] = 1.0f;
}

// The matrix that takes the unit square's corners (0,0), (1,0), (1,1), (0,1) to q0..q3.
void square_to_quad(float M[9], const float *q) {
  const float x0 = q[0], y0 = q[1], x1 = q[2], y1 = q[3], x2 = q[4], y2 = q[5], x3 = q[6], y3 = q[7];
  const float dx1 = x1 - x2, dx2 = x3 - x2, dy1 = y1 - y2, dy2 = y3 - y2;
  const float sx = x0 - x1 + x2 - x3, sy = y0 - y1 + y2 - y3;
  const float den = dx1 * dy2 - dx2 * dy1 + kEps;
  const float g = (sx * dy2 - dx2 * sy) / den, h = (dx1 * sy - sx * dy1) / den;
  const float m[9] = {x1 - x0 + g * x1, x3 - x0 + h * x3, x0, y1 - y0 + g * y1, y3 - y0 + h * y3, y0, g, h, 1.0f};
  std::memcpy(M, m, sizeof(m));
}

// Inverse by adjugate and determinant, in float, with no guard.
void invert3(float out[9], const float m[9]) {
  const float c0 = m[4] * m[8] - m[5] * m[7], c1 = m[5] * m[6] - m[3] * m[8], c2 = m[3] * m[7] - m[4] * m[6];
  const float det = m[0] * c0 + m[1] * c1 + m[2] * c2;
  const float adj[9] = {c0, m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
                        c1, m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
                        c2, m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
  for (int k = 0; k < 9; ++k) out[k] = adj[k] / det;
}

void multiply3(float out[9], const float a[9], const float b[9]) {
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) out[3 * r + c] = a[3 * r] * b[c] + a[3 * r + 1] * b[3 + c] + a[3 * r + 2] * b[6 + c];
}

void perspective_map(oru_map_geometry2d *map, const float *pt) {
  float ms[9], md[9], ms_inv[9];
  square_to_quad(ms, pt);
  square_to_quad(md, pt + 8);
  invert3(ms_inv, ms);
  multiply3(map->forward, md, ms_inv);
  invert3(map->inverse, map->forward);
}

inline void put3(uint8_t *d, const uint8_t *s) {
  d[0] = s[0];
  d[1] = s[1];
  d[2] = s[2];
}

// Perspective rows: positions through 1 / w, bilinear values rounded to nearest.
void warp_perspective_row(uint8_t *dst, const uint8_t *src, int64_t ss, int32_t sw, int32_t sh, const float *i,
                          int32_t y, int32_t n, bool bilinear) {
  const float fy = float(y);
  for (int32_t x = 0; x < n; ++x, dst += 3) {
    const float fx = float(x);
    const float rw = 1.0f / ((i[6] * fx + i[7] * fy) + i[8]);
    const float xs = ((i[0] * fx + i[1] * fy) + i[2]) * rw, ys = ((i[3] * fx + i[4] * fy) + i[5]) * rw;
    if (bilinear) {
      if (!(xs >= 0.0f && ys >= 0.0f && xs < float(sw - 1) && ys < float(sh - 1))) {
        dst[0] = dst[1] = dst[2] = 0;
        continue;
      }
      const int32_t X = int32_t(xs), Y = int32_t(ys);
      const float wx = xs - float(X), wy = ys - float(Y), ax = 1.0f - wx, ay = 1.0f - wy;
      const uint8_t *p0 = src + ss * Y + 3 * int64_t(X), *p1 = p0 + ss;
      for (int c = 0; c < 3; ++c) {
        const float top = ax * float(p0[c]) + wx * float(p0[c + 3]);
        const float bottom = ax * float(p1[c]) + wx * float(p1[c + 3]);
        dst[c] = uint8_t(std::lrint(ay * top + wy * bottom));
      }
    } else {
      const float X = std::rint(xs), Y = std::rint(ys);
      if (!(X >= 0.0f && Y >= 0.0f && X < float(sw) && Y < float(sh))) {
        dst[0] = dst[1] = dst[2] = 0;
        continue;
      }
      put3(dst, src + ss * int32_t(Y) + 3 * int64_t(int32_t(X)));
    }
  }
}

// Affine nearest rows: the position plus one half, cut toward zero.
void warp_affine_nearest_row(uint8_t *dst, const uint8_t *src, int64_t ss, int32_t sw, int32_t sh, const float *i,
                             int32_t y, int32_t n, bool zero_outside) {
  const float by = i[1] * float(y), dy = i[4] * float(y);
  for (int32_t x = 0; x < n; ++x, dst += 3) {
    const float xs = ((i[0] * float(x) + by) + i[2]) + 0.5f, ys = ((i[3] * float(x) + dy) + i[5]) + 0.5f;
    if (!(xs > -1.0f && ys > -1.0f && xs < float(sw) && ys < float(sh))) {
      if (zero_outside) dst[0] = dst[1] = dst[2] = 0;
      continue;
    }
    put3(dst, src + ss * int32_t(ys) + 3 * int64_t(int32_t(xs)));
  }
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_make_map_geometry2d_transformation(oru_map_geometry2d *map, const float points[16],
                                                        int32_t mode) {
  if (!map || !points) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  map->mode = mode;
  if (mode == ORU_MAP_AFFINE)
    affine_map(map, points);
  else if (mode == ORU_MAP_PERSPECTIVE)
    perspective_map(map, points);
  else
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  return ORU_RET_OK;
}

ORU_API uint32_t oru_image_2d_geometry_transformation_with_border_mode(oru_image *dst, const oru_image *src,
                                                                       const oru_map_geometry2d *map,
                                                                       int32_t method, int32_t border) {
  if (!dst || !map || !is_image(src) || !dst->data || !src->data || dst->type != src->type ||
      (dst->format != ORU_IMAGE_BGR24 && dst->format != ORU_IMAGE_RGB24) || src->channels != 3)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Parameters error!");
  if ((method != 0 && method != 1) || (map->mode != ORU_MAP_AFFINE && map->mode != ORU_MAP_PERSPECTIVE))
    return ORU_RET_OK;
  static const auto affine_bilinear = pick(ORU_KERNEL_FORMS(warp_affine_bilinear_c3));
  const uint8_t *s = static_cast<const uint8_t *>(src->data);
  const int32_t sw = src->cols, sh = src->rows;
  for (int32_t y = 0; y < dst->rows; ++y) {
    uint8_t *d = static_cast<uint8_t *>(dst->data) + dst->stride * y;
    if (map->mode == ORU_MAP_PERSPECTIVE)
      warp_perspective_row(d, s, src->stride, sw, sh, map->inverse, y, dst->cols, method == 1);
    else if (method == 1)
      affine_bilinear(d, s, src->stride, sw, sh, map->inverse, y, 0, dst->cols, border == 0);
    else
      warp_affine_nearest_row(d, s, src->stride, sw, sh, map->inverse, y, dst->cols, border == 0);
  }
  return ORU_RET_OK;
}

}  // extern "C"
