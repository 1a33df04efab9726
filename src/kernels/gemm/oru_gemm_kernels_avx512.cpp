// AVX-512 forms of the tile kernels: separate multiply and add, rising l, so the bits match
// the plain forms.
#include "kernels/simd/oru_simd_avx512.h"
#include "kernels/simd/oru_simd_avx2.h"

#include "kernels/gemm/oru_gemm_finish.h"
#include "kernels/gemm/oru_gemm_kernels.h"

namespace oru {
namespace {

using simd::finish;
using simd::finish_strided;
using F16 = simd::Avx512;
using F8 = simd::Avx2;
using D8 = simd::Avx512D;
using D4 = simd::Avx2D;

}  // namespace

// Each row of the 4 by 24 tile is one 16-lane and one 8-lane accumulator.
void mat_mul_4xkx24_kernel_avx512(int32_t k, const float *a, const float *b, float *c,
                                  int64_t rs_c, int64_t cs_c, float alpha, float beta) {
  __m512 lo[4];
  __m256 hi[4];
  for (int i = 0; i < 4; ++i) {
    lo[i] = _mm512_setzero_ps();
    hi[i] = _mm256_setzero_ps();
  }
  for (int32_t l = 0; l < k; ++l, a += 4, b += 24) {
    const __m512 b0 = _mm512_loadu_ps(b);
    const __m256 b1 = _mm256_loadu_ps(b + 16);
    for (int i = 0; i < 4; ++i) {
      const __m512 ai = _mm512_set1_ps(a[i]);
      lo[i] = _mm512_add_ps(lo[i], _mm512_mul_ps(ai, b0));
      hi[i] = _mm256_add_ps(hi[i], _mm256_mul_ps(_mm256_set1_ps(a[i]), b1));
    }
  }
  if (cs_c == 1) {
    for (int i = 0; i < 4; ++i) {
      float *p = c + i * rs_c;
      _mm512_storeu_ps(p, finish<F16>(_mm512_loadu_ps(p), lo[i], alpha, beta));
      _mm256_storeu_ps(p + 16, finish<F8>(_mm256_loadu_ps(p + 16), hi[i], alpha, beta));
    }
    return;
  }
  alignas(64) float ab[4][24];
  for (int i = 0; i < 4; ++i) {
    _mm512_storeu_ps(&ab[i][0], lo[i]);
    _mm256_storeu_ps(&ab[i][16], hi[i]);
  }
  finish_strided(c, rs_c, cs_c, ab, alpha, beta);
}

// Each row of the 4 by 12 tile is one 8-lane and one 4-lane accumulator.
void mat_mul_4xkx12_kernel_avx512(int32_t k, const double *a, const double *b, double *c,
                                  int64_t rs_c, int64_t cs_c, double alpha, double beta) {
  __m512d lo[4];
  __m256d hi[4];
  for (int i = 0; i < 4; ++i) {
    lo[i] = _mm512_setzero_pd();
    hi[i] = _mm256_setzero_pd();
  }
  for (int32_t l = 0; l < k; ++l, a += 4, b += 12) {
    const __m512d b0 = _mm512_loadu_pd(b);
    const __m256d b1 = _mm256_loadu_pd(b + 8);
    for (int i = 0; i < 4; ++i) {
      const __m512d ai = _mm512_set1_pd(a[i]);
      lo[i] = _mm512_add_pd(lo[i], _mm512_mul_pd(ai, b0));
      hi[i] = _mm256_add_pd(hi[i], _mm256_mul_pd(_mm256_set1_pd(a[i]), b1));
    }
  }
  if (cs_c == 1) {
    for (int i = 0; i < 4; ++i) {
      double *p = c + i * rs_c;
      _mm512_storeu_pd(p, finish<D8>(_mm512_loadu_pd(p), lo[i], alpha, beta));
      _mm256_storeu_pd(p + 8, finish<D4>(_mm256_loadu_pd(p + 8), hi[i], alpha, beta));
    }
    return;
  }
  alignas(64) double ab[4][12];
  for (int i = 0; i < 4; ++i) {
    _mm512_storeu_pd(&ab[i][0], lo[i]);
    _mm256_storeu_pd(&ab[i][8], hi[i]);
  }
  finish_strided(c, rs_c, cs_c, ab, alpha, beta);
}

// Two rows of the 8 by 8 tile share one 16-lane accumulator: row 2p in the low half,
// row 2p + 1 in the high half, which halves the arithmetic instructions.
void mat_mul_8xkx8_kernel_avx512(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                                 float, float beta) {
  __m512 acc[4];
  __m512i pair[4];
  for (int p = 0; p < 4; ++p) {
    acc[p] = _mm512_setzero_ps();
    pair[p] = _mm512_inserti64x4(_mm512_set1_epi32(2 * p), _mm256_set1_epi32(2 * p + 1), 1);
  }
  for (int32_t l = 0; l < k; ++l, a += 8, b += 8) {
    const __m512 bv = _mm512_broadcast_f32x8(_mm256_loadu_ps(b));
    const __m512 av = _mm512_zextps256_ps512(_mm256_loadu_ps(a));
    for (int p = 0; p < 4; ++p)
      acc[p] = _mm512_add_ps(acc[p], _mm512_mul_ps(_mm512_permutexvar_ps(pair[p], av), bv));
  }
  for (int p = 0; p < 4; ++p) {
    float *c0 = c + int64_t(2 * p) * ldc;
    float *c1 = c0 + ldc;
    const __m256 v0 = beta == 0.0f ? _mm256_setzero_ps() : _mm256_loadu_ps(c0);
    const __m256 v1 = beta == 0.0f ? _mm256_setzero_ps() : _mm256_loadu_ps(c1);
    _mm256_storeu_ps(c0, _mm256_add_ps(v0, _mm512_extractf32x8_ps(acc[p], 0)));
    _mm256_storeu_ps(c1, _mm256_add_ps(v1, _mm512_extractf32x8_ps(acc[p], 1)));
  }
}

void mat_mul_1xkx16_kernel_avx512(int32_t k, const float *a, const float *b, float *c, int32_t,
                                  float, float beta) {
  __m512 acc = beta == 0.0f ? _mm512_setzero_ps() : _mm512_loadu_ps(c);
  for (int32_t l = 0; l < k; ++l, b += 16)
    acc = _mm512_add_ps(acc, _mm512_mul_ps(_mm512_set1_ps(a[l]), _mm512_loadu_ps(b)));
  _mm512_storeu_ps(c, acc);
}

}  // namespace oru
