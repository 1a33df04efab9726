// NEON forms of the conversions that image and tensor code calls most.
#include <arm_neon.h>

#include "matrix/oru_l1_kernels.h"

namespace oru {

void cvt_ai8u_to_aif32_neon(float *d, const uint8_t *s, int64_t n) {
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const uint16x8_t h = vmovl_u8(vld1_u8(s + i));
    vst1q_f32(d + i, vcvtq_f32_u32(vmovl_u16(vget_low_u16(h))));
    vst1q_f32(d + i + 4, vcvtq_f32_u32(vmovl_u16(vget_high_u16(h))));
  }
  for (; i < n; ++i) d[i] = float(s[i]);
}

void cvt_aif32_to_ai8u_neon(uint8_t *d, const float *s, int64_t n) {
  // Ties to even as rint does in the default mode; the saturating narrowings clamp to 0..255.
  // From 2^31 on the plain form keeps the low 32 bits of the integer, which the saturating
  // conversion doesn't: such a group of eight takes the plain step.
  const float32x4_t limit = vdupq_n_f32(2147483648.0f);
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const float32x4_t x0 = vld1q_f32(s + i), x1 = vld1q_f32(s + i + 4);
    if (vmaxvq_u32(vorrq_u32(vcageq_f32(x0, limit), vcageq_f32(x1, limit)))) {
      for (int64_t k = 0; k < 8; ++k) d[i + k] = f_to_u8(double(s[i + k]));
      continue;
    }
    const int32x4_t a = vcvtnq_s32_f32(x0);
    const int32x4_t b = vcvtnq_s32_f32(x1);
    vst1_u8(d + i, vqmovn_u16(vcombine_u16(vqmovun_s32(a), vqmovun_s32(b))));
  }
  for (; i < n; ++i) d[i] = f_to_u8(double(s[i]));
}

void cvt_aif32_to_aif64_neon(double *d, const float *s, int64_t n) {
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const float32x4_t v = vld1q_f32(s + i);
    vst1q_f64(d + i, vcvt_f64_f32(vget_low_f32(v)));
    vst1q_f64(d + i + 2, vcvt_high_f64_f32(v));
  }
  for (; i < n; ++i) d[i] = double(s[i]);
}

void cvt_aif64_to_aif32_neon(float *d, const double *s, int64_t n) {
  int64_t i = 0;
  for (; i + 4 <= n; i += 4)
    vst1q_f32(d + i, vcombine_f32(vcvt_f32_f64(vld1q_f64(s + i)), vcvt_f32_f64(vld1q_f64(s + i + 2))));
  for (; i < n; ++i) d[i] = float(s[i]);
}

}  // namespace oru
