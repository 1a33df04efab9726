// AVX2 forms of the tile kernels: separate multiply and add, rising l, so the bits match
// the plain forms.
#include "kernels/simd/oru_simd_avx2.h"

#include "kernels/gemm/oru_gemm_finish.h"
#include "kernels/gemm/oru_gemm_kernels.h"

namespace oru {
namespace {

using simd::finish;
using simd::finish_strided;

}  // namespace

void mat_mul_4xkx24_kernel_avx2(int32_t k, const float *a, const float *b, float *c, int64_t rs_c,
                                int64_t cs_c, float alpha, float beta) {
  __m256 acc[4][3];
  for (int i = 0; i < 4; ++i)
    for (int v = 0; v < 3; ++v) acc[i][v] = _mm256_setzero_ps();
  for (int32_t l = 0; l < k; ++l, a += 4, b += 24) {
    const __m256 b0 = _mm256_loadu_ps(b), b1 = _mm256_loadu_ps(b + 8), b2 = _mm256_loadu_ps(b + 16);
    for (int i = 0; i < 4; ++i) {
      const __m256 ai = _mm256_broadcast_ss(a + i);
      acc[i][0] = _mm256_add_ps(acc[i][0], _mm256_mul_ps(ai, b0));
      acc[i][1] = _mm256_add_ps(acc[i][1], _mm256_mul_ps(ai, b1));
      acc[i][2] = _mm256_add_ps(acc[i][2], _mm256_mul_ps(ai, b2));
    }
  }
  if (cs_c == 1) {
    for (int i = 0; i < 4; ++i)
      for (int v = 0; v < 3; ++v) {
        float *p = c + i * rs_c + v * 8;
        _mm256_storeu_ps(p, finish<simd::Avx2>(_mm256_loadu_ps(p), acc[i][v], alpha, beta));
      }
    return;
  }
  alignas(32) float ab[4][24];
  for (int i = 0; i < 4; ++i)
    for (int v = 0; v < 3; ++v) _mm256_store_ps(&ab[i][v * 8], acc[i][v]);
  finish_strided(c, rs_c, cs_c, ab, alpha, beta);
}

void mat_mul_4xkx12_kernel_avx2(int32_t k, const double *a, const double *b, double *c,
                                int64_t rs_c, int64_t cs_c, double alpha, double beta) {
  __m256d acc[4][3];
  for (int i = 0; i < 4; ++i)
    for (int v = 0; v < 3; ++v) acc[i][v] = _mm256_setzero_pd();
  for (int32_t l = 0; l < k; ++l, a += 4, b += 12) {
    const __m256d b0 = _mm256_loadu_pd(b), b1 = _mm256_loadu_pd(b + 4), b2 = _mm256_loadu_pd(b + 8);
    for (int i = 0; i < 4; ++i) {
      const __m256d ai = _mm256_broadcast_sd(a + i);
      acc[i][0] = _mm256_add_pd(acc[i][0], _mm256_mul_pd(ai, b0));
      acc[i][1] = _mm256_add_pd(acc[i][1], _mm256_mul_pd(ai, b1));
      acc[i][2] = _mm256_add_pd(acc[i][2], _mm256_mul_pd(ai, b2));
    }
  }
  if (cs_c == 1) {
    for (int i = 0; i < 4; ++i)
      for (int v = 0; v < 3; ++v) {
        double *p = c + i * rs_c + v * 4;
        _mm256_storeu_pd(p, finish<simd::Avx2D>(_mm256_loadu_pd(p), acc[i][v], alpha, beta));
      }
    return;
  }
  alignas(32) double ab[4][12];
  for (int i = 0; i < 4; ++i)
    for (int v = 0; v < 3; ++v) _mm256_store_pd(&ab[i][v * 4], acc[i][v]);
  finish_strided(c, rs_c, cs_c, ab, alpha, beta);
}

void mat_mul_8xkx8_kernel_avx2(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                               float, float beta) {
  __m256 acc[8];
  for (int i = 0; i < 8; ++i) acc[i] = _mm256_setzero_ps();
  for (int32_t l = 0; l < k; ++l, a += 8, b += 8) {
    const __m256 bv = _mm256_loadu_ps(b);
    for (int i = 0; i < 8; ++i) acc[i] = _mm256_add_ps(acc[i], _mm256_mul_ps(_mm256_broadcast_ss(a + i), bv));
  }
  for (int i = 0; i < 8; ++i) {
    float *ci = c + int64_t(i) * ldc;
    const __m256 cv = beta == 0.0f ? _mm256_setzero_ps() : _mm256_loadu_ps(ci);
    _mm256_storeu_ps(ci, _mm256_add_ps(cv, acc[i]));
  }
}

void mat_mul_1xkx16_kernel_avx2(int32_t k, const float *a, const float *b, float *c, int32_t,
                                float, float beta) {
  __m256 c0 = beta == 0.0f ? _mm256_setzero_ps() : _mm256_loadu_ps(c);
  __m256 c1 = beta == 0.0f ? _mm256_setzero_ps() : _mm256_loadu_ps(c + 8);
  for (int32_t l = 0; l < k; ++l, b += 16) {
    const __m256 al = _mm256_broadcast_ss(a + l);
    c0 = _mm256_add_ps(c0, _mm256_mul_ps(al, _mm256_loadu_ps(b)));
    c1 = _mm256_add_ps(c1, _mm256_mul_ps(al, _mm256_loadu_ps(b + 8)));
  }
  _mm256_storeu_ps(c, c0);
  _mm256_storeu_ps(c + 8, c1);
}

}  // namespace oru
