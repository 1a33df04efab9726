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

namespace {
inline int32_t q15(int32_t a, int32_t k) {
  const int32_t r = (a * k + 16384) >> 15;
  return r < -32768 ? -32768 : r > 32767 ? 32767 : r;
}
}  // namespace

void yuv420_to_bgr_rows_q15_plain(uint8_t *d0, uint8_t *d1, const uint8_t *y0, const uint8_t *y1,
                                  const uint8_t *u, const uint8_t *v, int32_t n) {
  for (int32_t x = 0; x < n; ++x) {
    const int32_t uq = 4 * (u[x >> 1] - 128), vq = 4 * (v[x >> 1] - 128);
    const int32_t cb = q15(uq, 16531), cg = q15(uq, -3203) + q15(vq, -6660), cr = q15(vq, 13074);
    for (int r = 0; r < 2; ++r) {
      const int32_t yy = q15(4 * ((r ? y1 : y0)[x] - 16), 9535);
      uint8_t *p = (r ? d1 : d0) + 3 * x;
      p[0] = clamp_u8(yy + cb);
      p[1] = clamp_u8(yy + cg);
      p[2] = clamp_u8(yy + cr);
    }
  }
}

void bgr_to_yuv420_rows_q15_plain(uint8_t *y0, uint8_t *y1, uint8_t *u, uint8_t *v, const uint8_t *s0,
                                  const uint8_t *s1, int32_t n) {
  auto luma = [](const uint8_t *p) { return clamp_u8(q15(p[0], 3211) + q15(p[1], 16515) + q15(p[2], 8421) + 16); };
  for (int32_t x = 0; x < n; x += 2) {
    const uint8_t *p[4] = {s0 + 3 * x, s0 + 3 * x + 3, s1 + 3 * x, s1 + 3 * x + 3};
    y0[x] = luma(p[0]);
    y0[x + 1] = luma(p[1]);
    y1[x] = luma(p[2]);
    y1[x + 1] = luma(p[3]);
    const int32_t ba = (p[0][0] + p[1][0] + p[2][0] + p[3][0] + 2) >> 2;
    const int32_t ga = (p[0][1] + p[1][1] + p[2][1] + p[3][1] + 2) >> 2;
    const int32_t ra = (p[0][2] + p[1][2] + p[2][2] + p[3][2] + 2) >> 2;
    u[x >> 1] = clamp_u8(q15(ba, 14385) + q15(ga, -9535) + q15(ra, -4850) + 128);
    v[x >> 1] = clamp_u8(q15(ba, -2327) + q15(ga, -12059) + q15(ra, 14385) + 128);
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
