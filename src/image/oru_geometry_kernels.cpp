// Plain forms of the geometry inner loops: the reference of the vector forms.
#include "image/oru_geometry_kernels.h"

#include <cstring>

namespace oru {

void mirror_row_c1_plain(uint8_t *dst, const uint8_t *src, int32_t n) {
  for (int32_t i = 0; i < n; ++i) dst[i] = src[n - 1 - i];
}

void mirror_row_c3_plain(uint8_t *dst, const uint8_t *src, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    const uint8_t *s = src + 3 * int64_t(n - 1 - i);
    dst[3 * i] = s[0];
    dst[3 * i + 1] = s[1];
    dst[3 * i + 2] = s[2];
  }
}

void transpose8_c1_plain(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width) {
  for (int32_t j = 0; j < width; ++j) {
    uint8_t *d = dst + dst_stride * j;
    for (int i = 0; i < 8; ++i) d[i] = src[src_stride * i + j];
  }
}

void transpose8_c3_plain(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width) {
  for (int32_t j = 0; j < width; ++j) {
    uint8_t *d = dst + dst_stride * j;
    for (int i = 0; i < 8; ++i) std::memcpy(d + 3 * i, src + src_stride * i + 3 * j, 3);
  }
}

void warp_affine_bilinear_c3_plain(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                   const float *inv, int32_t y, int32_t x0, int32_t n, int32_t zero_outside) {
  const float fyv = float(y);
  const float by = inv[1] * fyv, dy = inv[4] * fyv;
  for (int32_t k = 0; k < n; ++k) {
    const float fx = float(x0 + k);
    const float xs = (inv[0] * fx + by) + inv[2];
    const float ys = (inv[3] * fx + dy) + inv[5];
    uint8_t *d = dst + 3 * int64_t(x0 + k);
    // The cut toward zero of xs lies in 0 to sw - 2 exactly when -1 < xs < sw - 1; testing
    // the float first keeps the cast defined (and sends NaN outside).
    if (!(xs > -1.0f && ys > -1.0f && xs < float(sw - 1) && ys < float(sh - 1))) {
      if (zero_outside) d[0] = d[1] = d[2] = 0;
      continue;
    }
    const int32_t X = int32_t(xs), Y = int32_t(ys);
    const float wx = xs - float(X), wy = ys - float(Y);
    const float ax = 1.0f - wx, ay = 1.0f - wy;
    const uint8_t *p0 = src + src_stride * Y + 3 * int64_t(X), *p1 = p0 + src_stride;
    for (int c = 0; c < 3; ++c) {
      const float top = ax * float(p0[c]) + wx * float(p0[c + 3]);
      const float bottom = ax * float(p1[c]) + wx * float(p1[c + 3]);
      // Just inside the left or top edge a weight is negative; the byte saturates.
      const int32_t v = int32_t((ay * top + wy * bottom) + 0.5f);
      d[c] = uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
    }
  }
}

void rbf_map_row_plain(float *out, const float *in, int32_t m, const float *p, const float *w, int32_t n, float a) {
  for (int32_t e = 0; e < m; ++e) {
    const float x0 = in[2 * e], y = in[2 * e + 1];
    const float x = x0 < 1.0f ? x0 : 1.0f;
    float dx = 0.0f, dy = 0.0f;
    for (int32_t i = 0; i < n; ++i) {
      const float ex = x - p[2 * i], ey = y - p[2 * i + 1];
      const float k = rbf_fast_exp(-a * (ex * ex + ey * ey));
      dx += k * w[2 * i];
      dy += k * w[2 * i + 1];
    }
    const float ox = x + dx, oy = y + dy;
    out[2 * e] = ox < 0.0f ? 0.0f : ox > 1.0f ? 1.0f : ox;
    out[2 * e + 1] = oy < 0.0f ? 0.0f : oy > 1.0f ? 1.0f : oy;
  }
}

namespace {

template <int C>
void rotate_bilinear_row(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh, int32_t x,
                         int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill) {
  uint32_t X = uint32_t(x), Y = uint32_t(y);
  for (int32_t k = 0; k < n; ++k, X += uint32_t(step_x), Y += uint32_t(step_y), dst += C) {
    const int32_t xi = int32_t(X) >> 11, yi = int32_t(Y) >> 11;
    if (int32_t(X) < 0 || int32_t(Y) < 0 || xi >= sw - 1 || yi >= sh - 1) {
      for (int c = 0; c < C; ++c) dst[c] = uint8_t(fill);
      continue;
    }
    const int32_t wx = int32_t(X & 0x7FF), wy = int32_t(Y & 0x7FF);
    const uint8_t *p0 = src + src_stride * yi + C * int64_t(xi), *p1 = p0 + src_stride;
    for (int c = 0; c < C; ++c) {
      const int32_t top = ((2048 - wx) * p0[c] + wx * p0[c + C]) >> 11;
      const int32_t bottom = ((2048 - wx) * p1[c] + wx * p1[c + C]) >> 11;
      dst[c] = uint8_t(((2048 - wy) * top + wy * bottom + 1024) >> 11);
    }
  }
}

}  // namespace

void rotate_bilinear_row_c1_plain(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                  int32_t x, int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill) {
  rotate_bilinear_row<1>(dst, src, src_stride, sw, sh, x, y, step_x, step_y, n, fill);
}

void rotate_bilinear_row_c3_plain(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                  int32_t x, int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill) {
  rotate_bilinear_row<3>(dst, src, src_stride, sw, sh, x, y, step_x, step_y, n, fill);
}

}  // namespace oru
