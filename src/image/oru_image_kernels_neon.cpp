// NEON forms of the image row kernels, with the plain forms' integer arithmetic.
#include <arm_neon.h>

#include <cstring>

#include "image/oru_image_kernels.h"

namespace oru {
namespace {

// (p << 11) + (q - p) * w + 1024 >> 11, written as p*(2048 - w) + q*w in 32 bits.
inline uint8x8_t blend8(uint8x8_t p, uint8x8_t q, uint16_t wp, uint16_t wq) {
  const uint16x8_t pw = vmovl_u8(p), qw = vmovl_u8(q);
  uint32x4_t lo = vmull_n_u16(vget_low_u16(pw), wp), hi = vmull_n_u16(vget_high_u16(pw), wp);
  lo = vmlal_n_u16(lo, vget_low_u16(qw), wq);
  hi = vmlal_n_u16(hi, vget_high_u16(qw), wq);
  return vmovn_u16(vcombine_u16(vrshrn_n_u32(lo, 11), vrshrn_n_u32(hi, 11)));
}

inline uint16x8_t luma8(uint8x8_t b, uint8x8_t g, uint8x8_t r) {
  const uint16x8_t bw = vmovl_u8(b), gw = vmovl_u8(g), rw = vmovl_u8(r);
  uint32x4_t lo = vmull_n_u16(vget_low_u16(bw), 1868), hi = vmull_n_u16(vget_high_u16(bw), 1868);
  lo = vmlal_n_u16(lo, vget_low_u16(gw), 9617);
  hi = vmlal_n_u16(hi, vget_high_u16(gw), 9617);
  lo = vmlal_n_u16(lo, vget_low_u16(rw), 4899);
  hi = vmlal_n_u16(hi, vget_high_u16(rw), 4899);
  // +8192 >> 14 is a rounding shift by 14.
  return vcombine_u16(vrshrn_n_u32(lo, 14), vrshrn_n_u32(hi, 14));
}

// Four int32 sums plus bias, >> 13, for one colour channel of four pixels.
inline int32x4_t shift13(int32x4_t s, int32x4_t bias) { return vshrq_n_s32(vaddq_s32(s, bias), 13); }

inline uint8x8_t to_u8(int32x4_t lo, int32x4_t hi) { return vqmovun_s16(vcombine_s16(vqmovn_s32(lo), vqmovn_s32(hi))); }

}  // namespace

void bgr_to_gray_row_neon(uint8_t *dst, const uint8_t *bgr, int32_t n) {
  int32_t x = 0;
  for (; x + 16 <= n; x += 16) {
    const uint8x16x3_t p = vld3q_u8(bgr + 3 * x);
    const uint16x8_t lo = luma8(vget_low_u8(p.val[0]), vget_low_u8(p.val[1]), vget_low_u8(p.val[2]));
    const uint16x8_t hi = luma8(vget_high_u8(p.val[0]), vget_high_u8(p.val[1]), vget_high_u8(p.val[2]));
    vst1q_u8(dst + x, vcombine_u8(vmovn_u16(lo), vmovn_u16(hi)));
  }
  bgr_to_gray_row_plain(dst + x, bgr + 3 * x, n - x);
}

void yuv420_to_bgr_rows_neon(uint8_t *d0, uint8_t *d1, const uint8_t *y0, const uint8_t *y1, const uint8_t *u,
                             const uint8_t *v, int32_t n) {
  const int32x4_t bias = vdupq_n_s32(4096 - 152560);
  int32_t x = 0;
  for (; x + 8 <= n; x += 8) {
    // Four chroma samples serve eight pixels of each row.
    const uint8x8_t u8 = vld1_u8(u + (x >> 1)), v8 = vld1_u8(v + (x >> 1));
    const int16x8_t uu = vsubq_s16(vreinterpretq_s16_u16(vmovl_u8(vzip1_u8(u8, u8))), vdupq_n_s16(128));
    const int16x8_t vv = vsubq_s16(vreinterpretq_s16_u16(vmovl_u8(vzip1_u8(v8, v8))), vdupq_n_s16(128));
    int32x4_t cb[2], cg[2], cr[2];
    for (int h = 0; h < 2; ++h) {
      const int16x4_t uh = h ? vget_high_s16(uu) : vget_low_s16(uu), vh = h ? vget_high_s16(vv) : vget_low_s16(vv);
      cb[h] = vmull_n_s16(uh, 16531);
      cg[h] = vmlal_n_s16(vmull_n_s16(uh, -3203), vh, -6660);
      cr[h] = vmull_n_s16(vh, 13074);
    }
    const uint8_t *ys[2] = {y0, y1};
    uint8_t *ds[2] = {d0, d1};
    for (int r = 0; r < 2; ++r) {
      const int16x8_t yy = vreinterpretq_s16_u16(vmovl_u8(vld1_u8(ys[r] + x)));
      int32x4_t yl[2] = {vmull_n_s16(vget_low_s16(yy), 9535), vmull_n_s16(vget_high_s16(yy), 9535)};
      uint8x8x3_t out;
      out.val[0] = to_u8(shift13(vaddq_s32(yl[0], cb[0]), bias), shift13(vaddq_s32(yl[1], cb[1]), bias));
      out.val[1] = to_u8(shift13(vaddq_s32(yl[0], cg[0]), bias), shift13(vaddq_s32(yl[1], cg[1]), bias));
      out.val[2] = to_u8(shift13(vaddq_s32(yl[0], cr[0]), bias), shift13(vaddq_s32(yl[1], cr[1]), bias));
      vst3_u8(ds[r] + 3 * x, out);
    }
  }
  yuv420_to_bgr_rows_plain(d0 + 3 * x, d1 + 3 * x, y0 + x, y1 + x, u + (x >> 1), v + (x >> 1), n - x);
}

void yuv420_to_bgr_rows_q15_neon(uint8_t *d0, uint8_t *d1, const uint8_t *y0, const uint8_t *y1,
                                 const uint8_t *u, const uint8_t *v, int32_t n) {
  // Sixteen pixels of each row a step; every product is a rounding doubling multiply.
  for (int32_t x = 0; x + 16 <= n; x += 16) {
    const uint8x8_t u8 = vld1_u8(u + (x >> 1)), v8 = vld1_u8(v + (x >> 1));
    const int16x8_t uq = vshlq_n_s16(vsubq_s16(vreinterpretq_s16_u16(vmovl_u8(u8)), vdupq_n_s16(128)), 2);
    const int16x8_t vq = vshlq_n_s16(vsubq_s16(vreinterpretq_s16_u16(vmovl_u8(v8)), vdupq_n_s16(128)), 2);
    const int16x8_t cb = vqrdmulhq_n_s16(uq, 16531);
    const int16x8_t cg = vaddq_s16(vqrdmulhq_n_s16(uq, -3203), vqrdmulhq_n_s16(vq, -6660));
    const int16x8_t cr = vqrdmulhq_n_s16(vq, 13074);
    // Each chroma value serves two neighbouring pixels.
    const int16x8x2_t b2 = vzipq_s16(cb, cb), g2 = vzipq_s16(cg, cg), r2 = vzipq_s16(cr, cr);
    const uint8_t *ys[2] = {y0, y1};
    uint8_t *ds[2] = {d0, d1};
    for (int r = 0; r < 2; ++r) {
      const uint8x16_t yy = vld1q_u8(ys[r] + x);
      uint8x16x3_t out;
      int16x8_t py[2];
      for (int h = 0; h < 2; ++h) {
        const uint8x8_t part = h ? vget_high_u8(yy) : vget_low_u8(yy);
        const int16x8_t yq = vshlq_n_s16(vsubq_s16(vreinterpretq_s16_u16(vmovl_u8(part)), vdupq_n_s16(16)), 2);
        py[h] = vqrdmulhq_n_s16(yq, 9535);
      }
      out.val[0] = vcombine_u8(vqmovun_s16(vaddq_s16(py[0], b2.val[0])), vqmovun_s16(vaddq_s16(py[1], b2.val[1])));
      out.val[1] = vcombine_u8(vqmovun_s16(vaddq_s16(py[0], g2.val[0])), vqmovun_s16(vaddq_s16(py[1], g2.val[1])));
      out.val[2] = vcombine_u8(vqmovun_s16(vaddq_s16(py[0], r2.val[0])), vqmovun_s16(vaddq_s16(py[1], r2.val[1])));
      vst3q_u8(ds[r] + 3 * x, out);
    }
  }
}

void bgr_to_yuv420_rows_q15_neon(uint8_t *y0, uint8_t *y1, uint8_t *u, uint8_t *v, const uint8_t *s0,
                                 const uint8_t *s1, int32_t n) {
  auto widen = [](uint8x8_t a) { return vreinterpretq_s16_u16(vmovl_u8(a)); };
  auto luma = [&](const uint8x8x3_t &p) {
    const int16x8_t y = vaddq_s16(vaddq_s16(vqrdmulhq_n_s16(widen(p.val[0]), 3211), vqrdmulhq_n_s16(widen(p.val[1]), 16515)),
                                  vaddq_s16(vqrdmulhq_n_s16(widen(p.val[2]), 8421), vdupq_n_s16(16)));
    return vqmovun_s16(y);
  };
  for (int32_t x = 0; x + 8 <= n; x += 8) {
    const uint8x8x3_t a = vld3_u8(s0 + 3 * x), b = vld3_u8(s1 + 3 * x);
    vst1_u8(y0 + x, luma(a));
    vst1_u8(y1 + x, luma(b));
    // Block averages of four chroma blocks: pairwise sums of both rows, + 2 >> 2.
    int16x4_t avg[3];
    for (int c = 0; c < 3; ++c) {
      const uint16x4_t sum = vadd_u16(vpaddl_u8(a.val[c]), vpaddl_u8(b.val[c]));
      avg[c] = vreinterpret_s16_u16(vshr_n_u16(vadd_u16(sum, vdup_n_u16(2)), 2));
    }
    const int16x8_t ba = vcombine_s16(avg[0], avg[0]), ga = vcombine_s16(avg[1], avg[1]), ra = vcombine_s16(avg[2], avg[2]);
    const int16x8_t uu = vaddq_s16(vaddq_s16(vqrdmulhq_n_s16(ba, 14385), vqrdmulhq_n_s16(ga, -9535)),
                                   vaddq_s16(vqrdmulhq_n_s16(ra, -4850), vdupq_n_s16(128)));
    const int16x8_t vv = vaddq_s16(vaddq_s16(vqrdmulhq_n_s16(ba, -2327), vqrdmulhq_n_s16(ga, -12059)),
                                   vaddq_s16(vqrdmulhq_n_s16(ra, 14385), vdupq_n_s16(128)));
    const uint8x8_t u8 = vqmovun_s16(uu), v8 = vqmovun_s16(vv);
    const uint32_t u4 = vget_lane_u32(vreinterpret_u32_u8(u8), 0), v4 = vget_lane_u32(vreinterpret_u32_u8(v8), 0);
    std::memcpy(u + (x >> 1), &u4, 4);
    std::memcpy(v + (x >> 1), &v4, 4);
  }
}

void bilinear_vertical_row_neon(uint8_t *dst, const uint8_t *a, const uint8_t *b, int32_t wy, int32_t n) {
  int32_t i = 0;
  const uint16_t wa = uint16_t(2048 - wy), wb = uint16_t(wy);
  for (; i + 16 <= n; i += 16) {
    const uint8x16_t va = vld1q_u8(a + i), vb = vld1q_u8(b + i);
    vst1q_u8(dst + i, vcombine_u8(blend8(vget_low_u8(va), vget_low_u8(vb), wa, wb),
                                  blend8(vget_high_u8(va), vget_high_u8(vb), wa, wb)));
  }
  bilinear_vertical_row_plain(dst + i, a + i, b + i, wy, n - i);
}

namespace {
template <int L>
inline void load_pixel(const uint8_t *p, const uint8_t *q, uint8x8x3_t &vp, uint8x8x3_t &vq) {
  vp = vld3_lane_u8(p, vp, L);
  vq = vld3_lane_u8(q, vq, L);
}
}  // namespace

void bilinear_horizontal_c3_neon(uint8_t *out, const uint8_t *s, const int32_t *off, const int32_t *wexp,
                                 int32_t n) {
  int32_t x = 0;
  uint8x8x3_t vp = {}, vq = {};
  for (; x + 8 <= n; x += 8) {
    // Lane loads of three bytes split the channels of eight scattered pixels.
    const int32_t *a = off + x;
    load_pixel<0>(s + a[0], s + a[0] + 3, vp, vq);
    load_pixel<1>(s + a[1], s + a[1] + 3, vp, vq);
    load_pixel<2>(s + a[2], s + a[2] + 3, vp, vq);
    load_pixel<3>(s + a[3], s + a[3] + 3, vp, vq);
    load_pixel<4>(s + a[4], s + a[4] + 3, vp, vq);
    load_pixel<5>(s + a[5], s + a[5] + 3, vp, vq);
    load_pixel<6>(s + a[6], s + a[6] + 3, vp, vq);
    load_pixel<7>(s + a[7], s + a[7] + 3, vp, vq);
    // Every third weight word is one pixel's.
    const uint32x4_t w0 = vld3q_u32(reinterpret_cast<const uint32_t *>(wexp + 3 * x)).val[0];
    const uint32x4_t w1 = vld3q_u32(reinterpret_cast<const uint32_t *>(wexp + 3 * x + 12)).val[0];
    const uint16x8_t wq = vcombine_u16(vshrn_n_u32(w0, 16), vshrn_n_u32(w1, 16));
    const uint16x8_t wp = vcombine_u16(vmovn_u32(w0), vmovn_u32(w1));
    uint8x8x3_t r;
    for (int k = 0; k < 3; ++k) {
      const uint16x8_t p = vmovl_u8(vp.val[k]), q = vmovl_u8(vq.val[k]);
      uint32x4_t lo = vmull_u16(vget_low_u16(p), vget_low_u16(wp)), hi = vmull_u16(vget_high_u16(p), vget_high_u16(wp));
      lo = vmlal_u16(lo, vget_low_u16(q), vget_low_u16(wq));
      hi = vmlal_u16(hi, vget_high_u16(q), vget_high_u16(wq));
      r.val[k] = vmovn_u16(vcombine_u16(vrshrn_n_u32(lo, 11), vrshrn_n_u32(hi, 11)));
    }
    vst3_u8(out + 3 * x, r);
  }
  bilinear_horizontal_c3_plain(out + 3 * x, s, off + x, wexp + 3 * x, n - x);
}

void box2_row_c1_neon(uint8_t *dst, const uint8_t *r0, const uint8_t *r1, int32_t n) {
  int32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const uint16x8_t s = vaddq_u16(vpaddlq_u8(vld1q_u8(r0 + 2 * i)), vpaddlq_u8(vld1q_u8(r1 + 2 * i)));
    const uint16x8_t t = vaddq_u16(vpaddlq_u8(vld1q_u8(r0 + 2 * i + 16)), vpaddlq_u8(vld1q_u8(r1 + 2 * i + 16)));
    vst1q_u8(dst + i, vcombine_u8(vrshrn_n_u16(s, 2), vrshrn_n_u16(t, 2)));
  }
  box2_row_c1_plain(dst + i, r0 + 2 * i, r1 + 2 * i, n - i);
}

void box2_row_c3_neon(uint8_t *dst, const uint8_t *r0, const uint8_t *r1, int32_t n) {
  int32_t i = 0;
  for (; i + 24 <= n; i += 24) {
    // 16 source pixels of each row make 8 destination pixels.
    const uint8x16x3_t a = vld3q_u8(r0 + 2 * i), b = vld3q_u8(r1 + 2 * i);
    uint8x8x3_t out;
    for (int c = 0; c < 3; ++c)
      out.val[c] = vrshrn_n_u16(vaddq_u16(vpaddlq_u8(a.val[c]), vpaddlq_u8(b.val[c])), 2);
    vst3_u8(dst + i, out);
  }
  box2_row_c3_plain(dst + i, r0 + 2 * i, r1 + 2 * i, n - i);
}

}  // namespace oru
