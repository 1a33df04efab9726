// NEON forms of the binary element-wise kernels. Float division takes the processor's
// reciprocal estimate with three refinement steps over whole groups of 16, then of 8.
#include "kernels/simd/oru_simd_neon.h"

#include "matrix/oru_matrix_basic_l1_simd.h"

ORU_L1_BINARY_FORMS(neon, ::oru::simd::Neon, ::oru::simd::NeonD)

namespace oru {
namespace {

inline float32x4_t reciprocal_divide(float32x4_t a, float32x4_t b) {
  float32x4_t r = vrecpeq_f32(b);
  r = vmulq_f32(vrecpsq_f32(b, r), r);
  r = vmulq_f32(vrecpsq_f32(b, r), r);
  r = vmulq_f32(vrecpsq_f32(b, r), r);
  return vmulq_f32(a, r);
}

}  // namespace

void div_real32_neon(float *d, int64_t n, const float *a, const float *b) {
  int64_t i = 0;
  for (; i + 16 <= n; i += 16)
    for (int64_t k = 0; k < 16; k += 4) vst1q_f32(d + i + k, reciprocal_divide(vld1q_f32(a + i + k), vld1q_f32(b + i + k)));
  if (i + 8 <= n) {
    vst1q_f32(d + i, reciprocal_divide(vld1q_f32(a + i), vld1q_f32(b + i)));
    vst1q_f32(d + i + 4, reciprocal_divide(vld1q_f32(a + i + 4), vld1q_f32(b + i + 4)));
    i += 8;
  }
  for (; i < n; ++i) d[i] = a[i] / b[i];
}

void sqrt_real32_neon(float *x, int64_t n) {
  // x * (1 / sqrt(max(x, smallest normal))): zero stays zero without a division.
  const float32x4_t smallest = vdupq_n_f32(1.17549435e-38f);
  auto root = [smallest](float *p) {
    const float32x4_t v = vld1q_f32(p);
    const float32x4_t m = vmaxq_f32(v, smallest);
    float32x4_t r = vrsqrteq_f32(m);
    r = vmulq_f32(r, vrsqrtsq_f32(vmulq_f32(m, r), r));
    r = vmulq_f32(r, vrsqrtsq_f32(vmulq_f32(m, r), r));
    vst1q_f32(p, vmulq_f32(v, r));
  };
  int64_t i = 0;
  for (; i + 32 <= n; i += 32)
    for (int64_t k = 0; k < 32; k += 4) root(x + i + k);
  if (i + 16 <= n) {
    for (int64_t k = 0; k < 16; k += 4) root(x + i + k);
    i += 16;
  }
  for (; i < n; ++i) x[i] = __builtin_sqrtf(x[i]);
}

}  // namespace oru
