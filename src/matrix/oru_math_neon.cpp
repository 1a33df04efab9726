// NEON forms of the table-driven exponential and of the float sigmoid.
#include "kernels/simd/oru_simd_neon.h"

#include <cmath>

#include "matrix/oru_l1_kernels.h"
#include "kernels/simd/oru_simd_expf.h"

namespace oru {

void fast_expl_neon(double *x, int64_t n) {
  const uint64x2_t abs_mask = vdupq_n_u64(0x7FFFFFFFFFFFFFFFULL);
  const uint64x2_t sign_mask = vdupq_n_u64(0x8000000000000000ULL);
  const uint64x2_t big_limit = vdupq_n_u64((uint64_t(1034) << 52) - 1);
  const uint64x2_t clamp = vreinterpretq_u64_f64(vdupq_n_f64(kFastExpClamp));
  const float64x2_t scale = vdupq_n_f64(kFastExpScale);
  const float64x2_t sixty_fourth = vdupq_n_f64(0.015625);
  int64_t i = 0;
  for (; i + 2 <= n; i += 2) {
    const float64x2_t v = vld1q_f64(x + i);
    const uint64x2_t bits = vreinterpretq_u64_f64(v);
    const uint64x2_t big = vcgtq_u64(vandq_u64(bits, abs_mask), big_limit);
    const float64x2_t pinned = vreinterpretq_f64_u64(vorrq_u64(clamp, vandq_u64(bits, sign_mask)));
    const float64x2_t y = vbslq_f64(big, pinned, vmulq_f64(v, scale));
    const float64x2_t kd = vrndiq_f64(y);  // current rounding mode, as lrint
    const int64x2_t k = vcvtq_s64_f64(kd);
    const float64x2_t r = vmulq_f64(vsubq_f64(y, kd), sixty_fourth);
    int64x2_t field = vaddq_s64(vshrq_n_s64(k, 6), vdupq_n_s64(1023));
    field = vbslq_s64(vcltzq_s64(field), vdupq_n_s64(0), field);
    field = vbslq_s64(vcgtq_s64(field, vdupq_n_s64(2047)), vdupq_n_s64(2047), field);
    const float64x2_t s = vreinterpretq_f64_s64(vshlq_n_s64(field, 52));
    const double tab[2] = {expTab[vgetq_lane_s64(k, 0) & 63], expTab[vgetq_lane_s64(k, 1) & 63]};
    const float64x2_t t = vld1q_f64(tab);
    float64x2_t p = vdupq_n_f64(kFastExpP5);
    p = vaddq_f64(vmulq_f64(p, r), vdupq_n_f64(kFastExpP4));
    p = vaddq_f64(vmulq_f64(p, r), vdupq_n_f64(kFastExpP3));
    p = vaddq_f64(vmulq_f64(p, r), vdupq_n_f64(kFastExpP2));
    p = vaddq_f64(vmulq_f64(p, r), vdupq_n_f64(kFastExpP1));
    p = vaddq_f64(vmulq_f64(p, r), vdupq_n_f64(kFastExpP0));
    vst1q_f64(x + i, vmulq_f64(vmulq_f64(t, s), p));
  }
  for (; i < n; ++i) x[i] = fast_exp_one(x[i]);
}

void sigmoid_real32_neon(float *x, int64_t n) {
  const float32x4_t one = vdupq_n_f32(1.0f);
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const float32x4_t e = simd::exp_f32<simd::Neon, false>(vld1q_f32(x + i));
    vst1q_f32(x + i, vdivq_f32(e, vaddq_f32(e, one)));
  }
  sigmoid_real32_plain(x + i, n - i);
}

}  // namespace oru
