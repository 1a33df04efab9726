#include <arm_neon.h>

#include "cg/cpu/oru_pool_kernels.h"

namespace oru {
namespace {

// 2 x 2 windows, four outputs at a time, in the reference order of the window. The
// comparisons are spelled out so that a NaN behaves as in the plain form.
template <bool IsMax>
void pool2x2(const PoolPlanes &p) {
  const float32x4_t two = vdupq_n_f32(2.0f);
  for (int32_t c = 0; c < p.channels; ++c) {
    const float *in = p.in + c * p.in_plane;
    float *out = p.out + c * p.out_plane;
    for (int32_t oy = 0; oy < p.out_h; ++oy) {
      const float *r0 = in + int64_t(2 * oy) * p.in_w;
      const float *r1 = r0 + p.in_w;
      float *o = out + int64_t(oy) * p.out_w;
      int32_t ox = 0;
      for (; ox + 4 <= p.out_w; ox += 4) {
        const float32x4x2_t t = vld2q_f32(r0 + 2 * ox);
        const float32x4x2_t b = vld2q_f32(r1 + 2 * ox);
        float32x4_t v;
        if (IsMax) {
          v = t.val[0];
          v = vbslq_f32(vcgtq_f32(t.val[1], v), t.val[1], v);
          v = vbslq_f32(vcgtq_f32(b.val[0], v), b.val[0], v);
          v = vbslq_f32(vcgtq_f32(b.val[1], v), b.val[1], v);
        } else {
          v = vaddq_f32(vdupq_n_f32(0.0f), t.val[0]);
          v = vaddq_f32(v, t.val[1]);
          v = vaddq_f32(v, b.val[0]);
          v = vaddq_f32(v, b.val[1]);
          v = vdivq_f32(vdivq_f32(v, two), two);
        }
        vst1q_f32(o + ox, v);
      }
      for (; ox < p.out_w; ++ox) o[ox] = pool_detail::window<IsMax>(r0 + 2 * ox, p.in_w, 2, 2);
    }
  }
}

}  // namespace

void max_pool2d_f32_neon(const PoolPlanes &p) {
  if (p.kw == 2 && p.kh == 2)
    pool2x2<true>(p);
  else
    max_pool2d_f32_plain(p);
}

void avg_pool2d_f32_neon(const PoolPlanes &p) {
  if (p.kw == 2 && p.kh == 2)
    pool2x2<false>(p);
  else
    avg_pool2d_f32_plain(p);
}

}  // namespace oru
