#include <arm_neon.h>

#include "kernels/activation/oru_cg_relu_kernel.h"

namespace oru {

// fmax would pass a NaN through; a greater-than mask keeps x only where x > 0, as the plain form.
void relu_f32_neon(float *dst, const float *src, int64_t n) {
  const float32x4_t zero = vdupq_n_f32(0.0f);
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const float32x4_t a = vld1q_f32(src + i);
    const float32x4_t b = vld1q_f32(src + i + 4);
    const uint32x4_t ma = vcgtq_f32(a, zero);
    const uint32x4_t mb = vcgtq_f32(b, zero);
    vst1q_f32(dst + i, vreinterpretq_f32_u32(vandq_u32(vreinterpretq_u32_f32(a), ma)));
    vst1q_f32(dst + i + 4, vreinterpretq_f32_u32(vandq_u32(vreinterpretq_u32_f32(b), mb)));
  }
  for (; i + 4 <= n; i += 4) {
    const float32x4_t a = vld1q_f32(src + i);
    vst1q_f32(dst + i, vreinterpretq_f32_u32(vandq_u32(vreinterpretq_u32_f32(a), vcgtq_f32(a, zero))));
  }
  relu_f32_plain(dst + i, src + i, n - i);
}

}  // namespace oru
