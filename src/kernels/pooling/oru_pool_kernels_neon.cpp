// The NEON forms of the pool kernels.
#include "kernels/simd/oru_simd_neon.h"

#include "kernels/pooling/oru_pool_kernels.h"
#include "kernels/pooling/oru_pool_kernels_simd.h"

namespace oru {
namespace {

// One output per plane: four planes in the four lanes, blocks of 4 x 4 transposed so that
// each lane still takes its own plane's elements one after the other.
template <bool IsMax>
inline float32x4_t step(float32x4_t acc, float32x4_t e) {
  return IsMax ? simd::Neon::pick_gt(e, acc) : vaddq_f32(acc, e);
}

template <bool IsMax>
void whole_planes(const PoolPlanes &p) {
  const int32_t kw = p.kw, kh = p.kh;
  int32_t c = 0;
  for (; c + 4 <= p.channels; c += 4) {
    const float *b0 = p.in + c * p.in_plane, *b1 = b0 + p.in_plane, *b2 = b1 + p.in_plane, *b3 = b2 + p.in_plane;
    float32x4_t acc = vdupq_n_f32(0.0f);
    if (IsMax) {
      const float first[4] = {b0[0], b1[0], b2[0], b3[0]};
      acc = vld1q_f32(first);
    }
    for (int32_t y = 0; y < kh; ++y) {
      const int64_t row = int64_t(y) * p.in_w;
      int32_t x = 0;
      for (; x + 4 <= kw; x += 4) {
        const float32x4_t r0 = vld1q_f32(b0 + row + x), r1 = vld1q_f32(b1 + row + x);
        const float32x4_t r2 = vld1q_f32(b2 + row + x), r3 = vld1q_f32(b3 + row + x);
        const float32x4_t t0 = vtrn1q_f32(r0, r1), t1 = vtrn2q_f32(r0, r1);
        const float32x4_t t2 = vtrn1q_f32(r2, r3), t3 = vtrn2q_f32(r2, r3);
        const float32x4_t c0 = vreinterpretq_f32_f64(vtrn1q_f64(vreinterpretq_f64_f32(t0), vreinterpretq_f64_f32(t2)));
        const float32x4_t c1 = vreinterpretq_f32_f64(vtrn1q_f64(vreinterpretq_f64_f32(t1), vreinterpretq_f64_f32(t3)));
        const float32x4_t c2 = vreinterpretq_f32_f64(vtrn2q_f64(vreinterpretq_f64_f32(t0), vreinterpretq_f64_f32(t2)));
        const float32x4_t c3 = vreinterpretq_f32_f64(vtrn2q_f64(vreinterpretq_f64_f32(t1), vreinterpretq_f64_f32(t3)));
        acc = step<IsMax>(acc, c0);
        acc = step<IsMax>(acc, c1);
        acc = step<IsMax>(acc, c2);
        acc = step<IsMax>(acc, c3);
      }
      for (; x < kw; ++x) {
        const int64_t o = row + x;
        const float e[4] = {b0[o], b1[o], b2[o], b3[o]};
        acc = step<IsMax>(acc, vld1q_f32(e));
      }
    }
    if (!IsMax) acc = vdivq_f32(vdivq_f32(acc, vdupq_n_f32(float(kw))), vdupq_n_f32(float(kh)));
    float out[4];
    vst1q_f32(out, acc);
    for (int j = 0; j < 4; ++j) p.out[(c + j) * p.out_plane] = out[j];
  }
  if (c < p.channels) {
    PoolPlanes rest = p;
    rest.in = p.in + c * p.in_plane;
    rest.out = p.out + c * p.out_plane;
    rest.channels = p.channels - c;
    pool_detail::whole_planes<IsMax>(rest);
  }
}

}  // namespace

void max_pool2d_f32_neon(const PoolPlanes &p) { pool_simd::pool_form<simd::Neon, true>(p, whole_planes<true>); }
void avg_pool2d_f32_neon(const PoolPlanes &p) { pool_simd::pool_form<simd::Neon, false>(p, whole_planes<false>); }

}  // namespace oru
