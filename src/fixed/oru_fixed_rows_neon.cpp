// NEON forms of the fixed-point row kernels: widening multiplies into 32-bit lanes, the
// rounding term added and an arithmetic shift (a shift by a negative count), the low
// halves narrowed and added with wrap-around, so they equal the plain forms bit for bit.
#include <arm_neon.h>

#include "fixed/oru_fixed_internal.h"

namespace oru {
namespace {

template <int OC>
void pointwise_strip(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane, const int16_t *w,
                     int64_t ldw, int64_t ic, int32x4_t round, int32x4_t shift) {
  int32x4_t lo[OC], hi[OC];
  for (int o = 0; o < OC; ++o) lo[o] = hi[o] = vdupq_n_s32(0);
  for (int64_t i = 0; i < ic; ++i) {
    const int16x8_t x = vld1q_s16(in + i * in_plane);
    for (int o = 0; o < OC; ++o) {
      const int16x4_t wo = vdup_n_s16(w[o * ldw + i]);
      lo[o] = vaddq_s32(lo[o], vshlq_s32(vaddq_s32(vmull_s16(vget_low_s16(x), wo), round), shift));
      hi[o] = vaddq_s32(hi[o], vshlq_s32(vaddq_s32(vmull_s16(vget_high_s16(x), wo), round), shift));
    }
  }
  for (int o = 0; o < OC; ++o) {
    int16_t *y = out + o * out_plane;
    vst1q_s16(y, vaddq_s16(vld1q_s16(y), vcombine_s16(vmovn_s32(lo[o]), vmovn_s32(hi[o]))));
  }
}

}  // namespace

void fx_pointwise_block_neon(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane,
                             const int16_t *w, int64_t ldw, int oc, int64_t ic, int64_t n, int shift) {
  int64_t p = 0;
  if (oc >= 1 && oc <= 4) {
    const int32x4_t round = vdupq_n_s32(shift > 0 ? int32_t(1u << (shift - 1)) : 0);
    const int32x4_t s = vdupq_n_s32(-shift);
    for (; p + 8 <= n; p += 8) {
      switch (oc) {
        case 1: pointwise_strip<1>(out + p, out_plane, in + p, in_plane, w, ldw, ic, round, s); break;
        case 2: pointwise_strip<2>(out + p, out_plane, in + p, in_plane, w, ldw, ic, round, s); break;
        case 3: pointwise_strip<3>(out + p, out_plane, in + p, in_plane, w, ldw, ic, round, s); break;
        default: pointwise_strip<4>(out + p, out_plane, in + p, in_plane, w, ldw, ic, round, s); break;
      }
    }
  }
  if (p < n) fx_pointwise_block_plain(out + p, out_plane, in + p, in_plane, w, ldw, oc, ic, n - p, shift);
}

void fx_conv3x3_row_neon(int16_t *out, int64_t n, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                         const int16_t *k9, int shift, int stride, bool accumulate) {
  const int32x4_t round = vdupq_n_s32(shift > 0 ? int32_t(1u << (shift - 1)) : 0);
  const int32x4_t s = vdupq_n_s32(-shift);
  const int16_t *rows[3] = {r0, r1, r2};
  int64_t x = 0;
  // Loads reach column x + 9 (stride 1) or 2x + 16 (stride 2), inside padded rows of n + 2
  // and 2n + 1.
  for (; stride <= 2 && x + 8 <= n; x += 8) {
    int32x4_t lo = vdupq_n_s32(0), hi = vdupq_n_s32(0);
    for (int r = 0; r < 3; ++r)
      for (int k = 0; k < 3; ++k) {
        int16x8_t a;
        if (stride == 1) {
          a = vld1q_s16(rows[r] + x + k);
        } else {
          // columns 2x + k of 8 outputs: evens of a load at 2x, odds at 2x, evens-after at 2x + 1
          a = k == 2 ? vld2q_s16(rows[r] + 2 * x + 1).val[1] : vld2q_s16(rows[r] + 2 * x).val[k];
        }
        const int16x4_t kw = vdup_n_s16(k9[3 * r + k]);
        lo = vmlal_s16(lo, vget_low_s16(a), kw);
        hi = vmlal_s16(hi, vget_high_s16(a), kw);
      }
    lo = vshlq_s32(vaddq_s32(lo, round), s);
    hi = vshlq_s32(vaddq_s32(hi, round), s);
    int16x8_t v = vcombine_s16(vmovn_s32(lo), vmovn_s32(hi));
    if (accumulate) v = vaddq_s16(v, vld1q_s16(out + x));
    vst1q_s16(out + x, v);
  }
  if (x < n) {
    const int64_t c = x * stride;
    fx_conv3x3_row_plain(out + x, n - x, r0 + c, r1 + c, r2 + c, k9, shift, stride, accumulate);
  }
}

void fx_bias_act_row_neon(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up, int act,
                          int q_out) {
  const int32x4_t vb = vdupq_n_s32(b), round = vdupq_n_s32(down > 0 ? int32_t(1u << (down - 1)) : 0);
  const int32x4_t sx = vdupq_n_s32(up_x), sd = vdupq_n_s32(-down), su = vdupq_n_s32(up);
  const int32x4_t three = vdupq_n_s32(3 << q_out), six = vdupq_n_s32(6 << q_out), zero = vdupq_n_s32(0);
  const int32x4_t rq = vdupq_n_s32(q_out > 0 ? int32_t(1u << (q_out - 1)) : 0), sq = vdupq_n_s32(-q_out);
  auto lanes = [&](int32x4_t v) {
    int32x4_t t = vaddq_s32(vshlq_s32(v, sx), vb);
    t = up > 0 ? vshlq_s32(t, su) : vshlq_s32(vaddq_s32(t, round), sd);
    if (act == 1) {
      t = vmaxq_s32(t, zero);
    } else if (act == 2) {
      const int32x4_t c = vminq_s32(vmaxq_s32(vaddq_s32(t, three), zero), six);
      const int32x4_t p = vshlq_s32(vaddq_s32(vmulq_s32(c, t), rq), sq);
      t = vshrq_n_s32(vaddq_s32(vmulq_s32(p, vdupq_n_s32(5461)), vdupq_n_s32(16384)), 15);
    } else if (act == 3) {
      t = vminq_s32(vmaxq_s32(t, zero), six);
    }
    return vmovn_s32(t);
  };
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const int16x8_t v = vld1q_s16(x + i);
    vst1q_s16(y + i, vcombine_s16(lanes(vmovl_s16(vget_low_s16(v))), lanes(vmovl_s16(vget_high_s16(v)))));
  }
  if (i < n) fx_bias_act_row_plain(y + i, x + i, n - i, b, up_x, down, up, act, q_out);
}

}  // namespace oru
