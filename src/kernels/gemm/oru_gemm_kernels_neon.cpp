// NEON forms of the tile kernels: separate multiply and add (never the fused form), rising l,
// so the bits match the plain forms.
#include "kernels/simd/oru_simd_neon.h"

#include "kernels/gemm/oru_gemm_finish.h"
#include "kernels/gemm/oru_gemm_kernels.h"

namespace oru {
namespace {

using simd::finish_strided;

inline float32x4_t finish(float32x4_t c, float32x4_t ab, float alpha, float beta) {
  return simd::finish<simd::Neon>(c, ab, alpha, beta);
}

inline float64x2_t finish(float64x2_t c, float64x2_t ab, double alpha, double beta) {
  return simd::finish<simd::NeonD>(c, ab, alpha, beta);
}

}  // namespace

void mat_mul_4xkx24_kernel_neon(int32_t k, const float *a, const float *b, float *c, int64_t rs_c,
                                int64_t cs_c, float alpha, float beta) {
  float32x4_t acc[4][6];
  for (int i = 0; i < 4; ++i)
    for (int v = 0; v < 6; ++v) acc[i][v] = vdupq_n_f32(0.0f);
  for (int32_t l = 0; l < k; ++l, a += 4, b += 24) {
    float32x4_t bv[6];
    for (int v = 0; v < 6; ++v) bv[v] = vld1q_f32(b + 4 * v);
    for (int i = 0; i < 4; ++i) {
      const float32x4_t ai = vdupq_n_f32(a[i]);
      for (int v = 0; v < 6; ++v) acc[i][v] = vaddq_f32(acc[i][v], vmulq_f32(ai, bv[v]));
    }
  }
  if (cs_c == 1) {
    for (int i = 0; i < 4; ++i)
      for (int v = 0; v < 6; ++v) {
        float *p = c + i * rs_c + 4 * v;
        vst1q_f32(p, finish(vld1q_f32(p), acc[i][v], alpha, beta));
      }
    return;
  }
  float ab[4][24];
  for (int i = 0; i < 4; ++i)
    for (int v = 0; v < 6; ++v) vst1q_f32(&ab[i][4 * v], acc[i][v]);
  finish_strided(c, rs_c, cs_c, ab, alpha, beta);
}

void mat_mul_4xkx12_kernel_neon(int32_t k, const double *a, const double *b, double *c,
                                int64_t rs_c, int64_t cs_c, double alpha, double beta) {
  float64x2_t acc[4][6];
  for (int i = 0; i < 4; ++i)
    for (int v = 0; v < 6; ++v) acc[i][v] = vdupq_n_f64(0.0);
  for (int32_t l = 0; l < k; ++l, a += 4, b += 12) {
    float64x2_t bv[6];
    for (int v = 0; v < 6; ++v) bv[v] = vld1q_f64(b + 2 * v);
    for (int i = 0; i < 4; ++i) {
      const float64x2_t ai = vdupq_n_f64(a[i]);
      for (int v = 0; v < 6; ++v) acc[i][v] = vaddq_f64(acc[i][v], vmulq_f64(ai, bv[v]));
    }
  }
  if (cs_c == 1) {
    for (int i = 0; i < 4; ++i)
      for (int v = 0; v < 6; ++v) {
        double *p = c + i * rs_c + 2 * v;
        vst1q_f64(p, finish(vld1q_f64(p), acc[i][v], alpha, beta));
      }
    return;
  }
  double ab[4][12];
  for (int i = 0; i < 4; ++i)
    for (int v = 0; v < 6; ++v) vst1q_f64(&ab[i][2 * v], acc[i][v]);
  finish_strided(c, rs_c, cs_c, ab, alpha, beta);
}

void mat_mul_8xkx8_kernel_neon(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                               float, float beta) {
  float32x4_t acc[8][2];
  for (int i = 0; i < 8; ++i) acc[i][0] = acc[i][1] = vdupq_n_f32(0.0f);
  for (int32_t l = 0; l < k; ++l, a += 8, b += 8) {
    const float32x4_t b0 = vld1q_f32(b), b1 = vld1q_f32(b + 4);
    for (int i = 0; i < 8; ++i) {
      const float32x4_t ai = vdupq_n_f32(a[i]);
      acc[i][0] = vaddq_f32(acc[i][0], vmulq_f32(ai, b0));
      acc[i][1] = vaddq_f32(acc[i][1], vmulq_f32(ai, b1));
    }
  }
  for (int i = 0; i < 8; ++i) {
    float *ci = c + int64_t(i) * ldc;
    for (int v = 0; v < 2; ++v) {
      const float32x4_t cv = beta == 0.0f ? vdupq_n_f32(0.0f) : vld1q_f32(ci + 4 * v);
      vst1q_f32(ci + 4 * v, vaddq_f32(cv, acc[i][v]));
    }
  }
}

void mat_mul_1xkx16_kernel_neon(int32_t k, const float *a, const float *b, float *c, int32_t,
                                float, float beta) {
  float32x4_t acc[4];
  for (int v = 0; v < 4; ++v) acc[v] = beta == 0.0f ? vdupq_n_f32(0.0f) : vld1q_f32(c + 4 * v);
  for (int32_t l = 0; l < k; ++l, b += 16) {
    const float32x4_t al = vdupq_n_f32(a[l]);
    for (int v = 0; v < 4; ++v) acc[v] = vaddq_f32(acc[v], vmulq_f32(al, vld1q_f32(b + 4 * v)));
  }
  for (int v = 0; v < 4; ++v) vst1q_f32(c + 4 * v, acc[v]);
}

}  // namespace oru
