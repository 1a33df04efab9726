// NEON forms of the geometry inner loops. The warp keeps the plain form's order of
// separate multiplies and adds, so results agree bit for bit.
#include <arm_neon.h>

#include <cstring>

#include "image/oru_geometry_kernels.h"

namespace oru {
namespace {

// Eight rows of eight bytes into eight columns: out[j] byte i = in[i] byte j.
inline void transpose8x8(const uint8x8_t in[8], uint8x8_t out[8]) {
  const uint8x8x2_t t0 = vtrn_u8(in[0], in[1]), t1 = vtrn_u8(in[2], in[3]);
  const uint8x8x2_t t2 = vtrn_u8(in[4], in[5]), t3 = vtrn_u8(in[6], in[7]);
  auto h = [](uint8x8_t v) { return vreinterpret_u16_u8(v); };
  const uint16x4x2_t u0 = vtrn_u16(h(t0.val[0]), h(t1.val[0])), u1 = vtrn_u16(h(t0.val[1]), h(t1.val[1]));
  const uint16x4x2_t u2 = vtrn_u16(h(t2.val[0]), h(t3.val[0])), u3 = vtrn_u16(h(t2.val[1]), h(t3.val[1]));
  auto w = [](uint16x4_t v) { return vreinterpret_u32_u16(v); };
  const uint32x2x2_t c04 = vtrn_u32(w(u0.val[0]), w(u2.val[0])), c15 = vtrn_u32(w(u1.val[0]), w(u3.val[0]));
  const uint32x2x2_t c26 = vtrn_u32(w(u0.val[1]), w(u2.val[1])), c37 = vtrn_u32(w(u1.val[1]), w(u3.val[1]));
  out[0] = vreinterpret_u8_u32(c04.val[0]);
  out[4] = vreinterpret_u8_u32(c04.val[1]);
  out[1] = vreinterpret_u8_u32(c15.val[0]);
  out[5] = vreinterpret_u8_u32(c15.val[1]);
  out[2] = vreinterpret_u8_u32(c26.val[0]);
  out[6] = vreinterpret_u8_u32(c26.val[1]);
  out[3] = vreinterpret_u8_u32(c37.val[0]);
  out[7] = vreinterpret_u8_u32(c37.val[1]);
}

}  // namespace

void mirror_row_c1_neon(uint8_t *dst, const uint8_t *src, int32_t n) {
  int32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const uint8x16_t r = vrev64q_u8(vld1q_u8(src + n - 16 - i));
    vst1q_u8(dst + i, vcombine_u8(vget_high_u8(r), vget_low_u8(r)));
  }
  mirror_row_c1_plain(dst + i, src, n - i);
}

void mirror_row_c3_neon(uint8_t *dst, const uint8_t *src, int32_t n) {
  int32_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint8x8x3_t v = vld3_u8(src + 3 * int64_t(n - 8 - i));
    for (int c = 0; c < 3; ++c) v.val[c] = vrev64_u8(v.val[c]);
    vst3_u8(dst + 3 * int64_t(i), v);
  }
  mirror_row_c3_plain(dst + 3 * int64_t(i), src, n - i);
}

void transpose8_c1_neon(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width) {
  int32_t j = 0;
  for (; j + 8 <= width; j += 8) {
    uint8x8_t in[8], out[8];
    for (int r = 0; r < 8; ++r) in[r] = vld1_u8(src + src_stride * r + j);
    transpose8x8(in, out);
    for (int k = 0; k < 8; ++k) vst1_u8(dst + dst_stride * (j + k), out[k]);
  }
  if (j < width) transpose8_c1_plain(src + j, src_stride, dst + dst_stride * j, dst_stride, width - j);
}

void transpose8_c3_neon(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width) {
  int32_t j = 0;
  // Split into channel planes, transpose each plane, interleave again.
  for (; j + 8 <= width; j += 8) {
    uint8x8_t in[3][8], out[3][8];
    for (int r = 0; r < 8; ++r) {
      const uint8x8x3_t v = vld3_u8(src + src_stride * r + 3 * int64_t(j));
      for (int c = 0; c < 3; ++c) in[c][r] = v.val[c];
    }
    for (int c = 0; c < 3; ++c) transpose8x8(in[c], out[c]);
    for (int k = 0; k < 8; ++k) {
      uint8x8x3_t v;
      for (int c = 0; c < 3; ++c) v.val[c] = out[c][k];
      vst3_u8(dst + dst_stride * (j + k), v);
    }
  }
  if (j < width) transpose8_c3_plain(src + 3 * int64_t(j), src_stride, dst + dst_stride * j, dst_stride, width - j);
}

void warp_affine_bilinear_c3_neon(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                  const float *inv, int32_t y, int32_t x0, int32_t n, int32_t zero_outside) {
  const float fyv = float(y);
  const float32x4_t i0 = vdupq_n_f32(inv[0]), i3 = vdupq_n_f32(inv[3]), i2 = vdupq_n_f32(inv[2]),
                    i5 = vdupq_n_f32(inv[5]), by = vdupq_n_f32(inv[1] * fyv), dy = vdupq_n_f32(inv[4] * fyv);
  const float32x4_t minus1 = vdupq_n_f32(-1.0f), xmax = vdupq_n_f32(float(sw - 1)), ymax = vdupq_n_f32(float(sh - 1)),
                    one = vdupq_n_f32(1.0f), half = vdupq_n_f32(0.5f);
  const int32x4_t lanes = {0, 1, 2, 3};
  int32_t k = 0;
  for (; k + 4 <= n; k += 4) {
    const float32x4_t fx = vcvtq_f32_s32(vaddq_s32(vdupq_n_s32(x0 + k), lanes));
    const float32x4_t xs = vaddq_f32(vaddq_f32(vmulq_f32(i0, fx), by), i2);
    const float32x4_t ys = vaddq_f32(vaddq_f32(vmulq_f32(i3, fx), dy), i5);
    const uint32x4_t in = vandq_u32(vandq_u32(vcgtq_f32(xs, minus1), vcgtq_f32(ys, minus1)),
                                    vandq_u32(vcltq_f32(xs, xmax), vcltq_f32(ys, ymax)));
    uint8_t *d = dst + 3 * int64_t(x0 + k);
    uint32_t inside[4];
    vst1q_u32(inside, in);
    if (!(inside[0] | inside[1] | inside[2] | inside[3])) {
      if (zero_outside) std::memset(d, 0, 12);
      continue;
    }
    const int32x4_t X = vandq_s32(vcvtq_s32_f32(xs), vreinterpretq_s32_u32(in));
    const int32x4_t Y = vandq_s32(vcvtq_s32_f32(ys), vreinterpretq_s32_u32(in));
    const float32x4_t wx = vsubq_f32(xs, vcvtq_f32_s32(X)), wy = vsubq_f32(ys, vcvtq_f32_s32(Y));
    const float32x4_t ax = vsubq_f32(one, wx), ay = vsubq_f32(one, wy);
    int32_t xi[4], yi[4];
    vst1q_s32(xi, X);
    vst1q_s32(yi, Y);
    // Neighbours gathered lane by lane: [channel][p00, p01, p10, p11][lane].
    float p[3][4][4] = {};
    for (int l = 0; l < 4; ++l) {
      if (!inside[l]) continue;
      const uint8_t *p0 = src + src_stride * yi[l] + 3 * int64_t(xi[l]), *p1 = p0 + src_stride;
      for (int c = 0; c < 3; ++c) {
        p[c][0][l] = float(p0[c]);
        p[c][1][l] = float(p0[c + 3]);
        p[c][2][l] = float(p1[c]);
        p[c][3][l] = float(p1[c + 3]);
      }
    }
    int32_t v[3][4];
    for (int c = 0; c < 3; ++c) {
      const float32x4_t top = vaddq_f32(vmulq_f32(ax, vld1q_f32(p[c][0])), vmulq_f32(wx, vld1q_f32(p[c][1])));
      const float32x4_t bottom = vaddq_f32(vmulq_f32(ax, vld1q_f32(p[c][2])), vmulq_f32(wx, vld1q_f32(p[c][3])));
      const float32x4_t s = vaddq_f32(vaddq_f32(vmulq_f32(ay, top), vmulq_f32(wy, bottom)), half);
      vst1q_s32(v[c], vminq_s32(vmaxq_s32(vcvtq_s32_f32(s), vdupq_n_s32(0)), vdupq_n_s32(255)));
    }
    for (int l = 0; l < 4; ++l) {
      if (!inside[l]) {
        if (zero_outside) d[3 * l] = d[3 * l + 1] = d[3 * l + 2] = 0;
        continue;
      }
      for (int c = 0; c < 3; ++c) d[3 * l + c] = uint8_t(v[c][l]);
    }
  }
  warp_affine_bilinear_c3_plain(dst, src, src_stride, sw, sh, inv, y, x0 + k, n - k, zero_outside);
}


namespace {

// Positions and weights four lanes at a time; the neighbours are loaded lane by lane
// (no gathers), then the two 11-bit blends run on the vectors.
template <int C>
void rotate_bilinear_row_neon(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh, int32_t x,
                              int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill) {
  int32_t k = 0;
  uint32_t X0 = uint32_t(x), Y0 = uint32_t(y);
  const uint32x4_t lanes = {0, 1, 2, 3};
  const int32x4_t wlast = vdupq_n_s32(sw - 1), hlast = vdupq_n_s32(sh - 1), frac = vdupq_n_s32(0x7FF),
                  one = vdupq_n_s32(2048), half = vdupq_n_s32(1024);
  for (; k + 4 <= n; k += 4) {
    const int32x4_t X = vreinterpretq_s32_u32(vmlaq_n_u32(vdupq_n_u32(X0 + uint32_t(step_x) * uint32_t(k)), lanes, uint32_t(step_x)));
    const int32x4_t Y = vreinterpretq_s32_u32(vmlaq_n_u32(vdupq_n_u32(Y0 + uint32_t(step_y) * uint32_t(k)), lanes, uint32_t(step_y)));
    const int32x4_t xi = vshrq_n_s32(X, 11), yi = vshrq_n_s32(Y, 11);
    const uint32x4_t in = vandq_u32(vandq_u32(vcgeq_s32(X, vdupq_n_s32(0)), vcgeq_s32(Y, vdupq_n_s32(0))),
                                    vandq_u32(vcltq_s32(xi, wlast), vcltq_s32(yi, hlast)));
    const int32x4_t wx = vandq_s32(X, frac), wy = vandq_s32(Y, frac), ax = vsubq_s32(one, wx), ay = vsubq_s32(one, wy);
    uint32_t inside[4];
    int32_t xs[4], ys[4];
    vst1q_u32(inside, in);
    vst1q_s32(xs, xi);
    vst1q_s32(ys, yi);
    int32_t p[C][4][4] = {};  // [channel][p00, p01, p10, p11][lane]
    for (int l = 0; l < 4; ++l) {
      if (!inside[l]) continue;
      const uint8_t *p0 = src + src_stride * ys[l] + C * int64_t(xs[l]), *p1 = p0 + src_stride;
      for (int c = 0; c < C; ++c) {
        p[c][0][l] = p0[c];
        p[c][1][l] = p0[c + C];
        p[c][2][l] = p1[c];
        p[c][3][l] = p1[c + C];
      }
    }
    int32_t v[C][4];
    for (int c = 0; c < C; ++c) {
      const int32x4_t top = vshrq_n_s32(vmlaq_s32(vmulq_s32(ax, vld1q_s32(p[c][0])), wx, vld1q_s32(p[c][1])), 11);
      const int32x4_t bottom = vshrq_n_s32(vmlaq_s32(vmulq_s32(ax, vld1q_s32(p[c][2])), wx, vld1q_s32(p[c][3])), 11);
      const int32x4_t r = vshrq_n_s32(vaddq_s32(vmlaq_s32(vmulq_s32(ay, top), wy, bottom), half), 11);
      vst1q_s32(v[c], vbslq_s32(in, r, vdupq_n_s32(fill)));
    }
    for (int l = 0; l < 4; ++l)
      for (int c = 0; c < C; ++c) dst[C * (k + l) + c] = uint8_t(v[c][l]);
  }
  X0 += uint32_t(step_x) * uint32_t(k);
  Y0 += uint32_t(step_y) * uint32_t(k);
  (C == 1 ? rotate_bilinear_row_c1_plain : rotate_bilinear_row_c3_plain)(dst + C * int64_t(k), src, src_stride, sw, sh,
                                                                        int32_t(X0), int32_t(Y0), step_x, step_y,
                                                                        n - k, fill);
}

}  // namespace

void rotate_bilinear_row_c1_neon(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                 int32_t x, int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill) {
  rotate_bilinear_row_neon<1>(dst, src, src_stride, sw, sh, x, y, step_x, step_y, n, fill);
}

void rotate_bilinear_row_c3_neon(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                 int32_t x, int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill) {
  rotate_bilinear_row_neon<3>(dst, src, src_stride, sw, sh, x, y, step_x, step_y, n, fill);
}


void rbf_map_row_neon(float *out, const float *in, int32_t m, const float *p, const float *w, int32_t n, float a) {
  // The plain form's operations in its order, four elements at once, with separate
  // multiplies and adds. NaN falls through the comparisons as in the plain form.
  const float32x4_t neg_a = vdupq_n_f32(-a), lo = vdupq_n_f32(-40.0f), one = vdupq_n_f32(1.0f), zero = vdupq_n_f32(0.0f);
  auto clamp01 = [&](float32x4_t v) {
    v = vbslq_f32(vcltq_f32(v, zero), zero, v);
    return vbslq_f32(vcgtq_f32(v, one), one, v);
  };
  int32_t e = 0;
  for (; e + 4 <= m; e += 4) {
    const float32x4x2_t xy = vld2q_f32(in + 2 * e);
    const float32x4_t x = vbslq_f32(vcltq_f32(xy.val[0], one), xy.val[0], one), y = xy.val[1];
    float32x4_t dx = zero, dy = zero;
    for (int32_t i = 0; i < n; ++i) {
      const float32x4_t ex = vsubq_f32(x, vdupq_n_f32(p[2 * i])), ey = vsubq_f32(y, vdupq_n_f32(p[2 * i + 1]));
      float32x4_t t = vmulq_f32(neg_a, vaddq_f32(vmulq_f32(ex, ex), vmulq_f32(ey, ey)));
      t = vbslq_f32(vcltq_f32(t, lo), lo, t);
      const int32x4_t k = vcvtq_s32_f32(vmulq_f32(t, vdupq_n_f32(1.442695f)));
      const float32x4_t f = vsubq_f32(t, vmulq_f32(vdupq_n_f32(0.6931472f), vcvtq_f32_s32(k))), g = vmulq_f32(f, f);
      const float32x4_t head =
          vaddq_f32(vaddq_f32(vmulq_f32(f, vdupq_n_f32(1.0000001f)), one),
                    vmulq_f32(g, vaddq_f32(vmulq_f32(f, vdupq_n_f32(0.1666657f)), vdupq_n_f32(0.5000006f))));
      const float32x4_t tail =
          vaddq_f32(vaddq_f32(vmulq_f32(f, vdupq_n_f32(0.008336937f)), vdupq_n_f32(0.04165989f)),
                    vmulq_f32(g, vaddq_f32(vmulq_f32(f, vdupq_n_f32(0.00019578093f)), vdupq_n_f32(0.0014122663f))));
      const float32x4_t P = vaddq_f32(head, vmulq_f32(vmulq_f32(g, g), tail));
      const float32x4_t kv =
          vreinterpretq_f32_s32(vaddq_s32(vreinterpretq_s32_f32(P), vshlq_n_s32(k, 23)));
      dx = vaddq_f32(dx, vmulq_f32(kv, vdupq_n_f32(w[2 * i])));
      dy = vaddq_f32(dy, vmulq_f32(kv, vdupq_n_f32(w[2 * i + 1])));
    }
    float32x4x2_t o;
    o.val[0] = clamp01(vaddq_f32(x, dx));
    o.val[1] = clamp01(vaddq_f32(y, dy));
    vst2q_f32(out + 2 * e, o);
  }
  rbf_map_row_plain(out + 2 * e, in + 2 * e, m - e, p, w, n, a);
}

}  // namespace oru
