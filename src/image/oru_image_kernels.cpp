// Plain forms of the image row kernels: the reference of the vector forms.
#include "image/oru_image_kernels.h"

#include "image/oru_image_internal.h"

namespace oru {

void bgr_to_gray_row_plain(uint8_t *dst, const uint8_t *bgr, int32_t n) {
  for (int32_t x = 0; x < n; ++x) dst[x] = luma_bgr(bgr[3 * x], bgr[3 * x + 1], bgr[3 * x + 2]);
}

void yuv420_to_bgr_rows_plain(uint8_t *d0, uint8_t *d1, const uint8_t *y0, const uint8_t *y1,
                              const uint8_t *u, const uint8_t *v, int32_t n) {
  for (int32_t x = 0; x < n; x += 2) {
    const int32_t uu = u[x >> 1] - 128, vv = v[x >> 1] - 128;
    const int32_t cb = 16531 * uu + 4096, cg = -3203 * uu - 6660 * vv + 4096, cr = 13074 * vv + 4096;
    const uint8_t *ys[2] = {y0, y1};
    uint8_t *ds[2] = {d0, d1};
    for (int r = 0; r < 2; ++r)
      for (int k = 0; k < 2; ++k) {
        const int32_t y = 9535 * ys[r][x + k] - 152560;
        uint8_t *p = ds[r] + 3 * (x + k);
        p[0] = clamp_u8((y + cb) >> 13);
        p[1] = clamp_u8((y + cg) >> 13);
        p[2] = clamp_u8((y + cr) >> 13);
      }
  }
}

void bilinear_vertical_row_plain(uint8_t *dst, const uint8_t *a, const uint8_t *b, int32_t wy, int32_t n) {
  for (int32_t i = 0; i < n; ++i) dst[i] = uint8_t(((b[i] - a[i]) * wy + (a[i] << 11) + 1024) >> 11);
}

void bilinear_horizontal_c3_plain(uint8_t *out, const uint8_t *s, const int32_t *off, const int32_t *wexp, int32_t n) {
  for (int32_t x = 0; x < n; ++x) {
    const uint8_t *p = s + off[x], *q = p + 3;
    const int32_t w = int32_t(uint32_t(wexp[3 * x]) >> 16);
    for (int k = 0; k < 3; ++k) out[3 * x + k] = uint8_t(((p[k] << 11) + (q[k] - p[k]) * w + 1024) >> 11);
  }
}

void box2_row_c3_plain(uint8_t *dst, const uint8_t *r0, const uint8_t *r1, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    const int32_t x = i / 3, k = i - 3 * x, s = 6 * x + k;
    dst[i] = uint8_t((r0[s] + r0[s + 3] + r1[s] + r1[s + 3] + 2) >> 2);
  }
}

void box2_row_c1_plain(uint8_t *dst, const uint8_t *r0, const uint8_t *r1, int32_t n) {
  for (int32_t i = 0; i < n; ++i) dst[i] = uint8_t((r0[2 * i] + r0[2 * i + 1] + r1[2 * i] + r1[2 * i + 1] + 2) >> 2);
}

}  // namespace oru
