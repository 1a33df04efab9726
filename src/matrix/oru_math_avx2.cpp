// AVX2 forms of the table-driven exponential and of the float sigmoid.
#include "kernels/simd/oru_simd_avx2.h"

#include <cmath>

#include "matrix/oru_l1_kernels.h"
#include "kernels/simd/oru_simd_expf.h"

namespace oru {

void fast_expl_avx2(double *x, int64_t n) {
  const __m256i abs_mask = _mm256_set1_epi64x(0x7FFFFFFFFFFFFFFFLL);
  const __m256i sign_mask = _mm256_set1_epi64x(int64_t(0x8000000000000000ULL));
  const __m256i big_limit = _mm256_set1_epi64x((int64_t(1034) << 52) - 1);
  const __m256d clamp = _mm256_set1_pd(kFastExpClamp);
  const __m256d scale = _mm256_set1_pd(kFastExpScale);
  const __m256d sixty_fourth = _mm256_set1_pd(0.015625);
  const __m128i bias = _mm_set1_epi32(1023), zero = _mm_setzero_si128(), top = _mm_set1_epi32(2047);
  const __m128i low6 = _mm_set1_epi32(63);
  const __m256d all_lanes = _mm256_castsi256_pd(_mm256_set1_epi64x(-1));
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m256d v = _mm256_loadu_pd(x + i);
    const __m256i bits = _mm256_castpd_si256(v);
    // |x| >= 2048: the exponent field exceeds 1033.
    const __m256i big = _mm256_cmpgt_epi64(_mm256_and_si256(bits, abs_mask), big_limit);
    const __m256d pinned = _mm256_or_pd(clamp, _mm256_castsi256_pd(_mm256_and_si256(bits, sign_mask)));
    const __m256d y = _mm256_blendv_pd(_mm256_mul_pd(v, scale), pinned, _mm256_castsi256_pd(big));
    const __m128i k = _mm256_cvtpd_epi32(y);  // current rounding mode, as lrint
    const __m256d r = _mm256_mul_pd(_mm256_sub_pd(y, _mm256_cvtepi32_pd(k)), sixty_fourth);
    const __m128i field = _mm_min_epi32(_mm_max_epi32(_mm_add_epi32(_mm_srai_epi32(k, 6), bias), zero), top);
    const __m256d s = _mm256_castsi256_pd(_mm256_slli_epi64(_mm256_cvtepi32_epi64(field), 52));
    const __m256d t = _mm256_mask_i32gather_pd(_mm256_setzero_pd(), expTab, _mm_and_si128(k, low6), all_lanes, 8);
    __m256d p = _mm256_set1_pd(kFastExpP5);
    p = _mm256_add_pd(_mm256_mul_pd(p, r), _mm256_set1_pd(kFastExpP4));
    p = _mm256_add_pd(_mm256_mul_pd(p, r), _mm256_set1_pd(kFastExpP3));
    p = _mm256_add_pd(_mm256_mul_pd(p, r), _mm256_set1_pd(kFastExpP2));
    p = _mm256_add_pd(_mm256_mul_pd(p, r), _mm256_set1_pd(kFastExpP1));
    p = _mm256_add_pd(_mm256_mul_pd(p, r), _mm256_set1_pd(kFastExpP0));
    _mm256_storeu_pd(x + i, _mm256_mul_pd(_mm256_mul_pd(t, s), p));
  }
  for (; i < n; ++i) x[i] = fast_exp_one(x[i]);
}

void sigmoid_real32_avx2(float *x, int64_t n) {
  const __m256 one = _mm256_set1_ps(1.0f);
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256 e = simd::exp_f32<simd::Avx2, false>(_mm256_loadu_ps(x + i));
    _mm256_storeu_ps(x + i, _mm256_div_ps(e, _mm256_add_ps(e, one)));
  }
  sigmoid_real32_plain(x + i, n - i);
}

}  // namespace oru
