// AVX-512 forms of the table-driven exponential and of the float sigmoid.
#include "kernels/simd/oru_simd_avx512.h"

#include <cmath>

#include "matrix/oru_l1_kernels.h"
#include "kernels/simd/oru_simd_expf.h"

namespace oru {

void fast_expl_avx512(double *x, int64_t n) {
  const __m512i abs_mask = _mm512_set1_epi64(0x7FFFFFFFFFFFFFFFLL);
  const __m512i sign_mask = _mm512_set1_epi64(int64_t(0x8000000000000000ULL));
  const __m512i big_limit = _mm512_set1_epi64((int64_t(1034) << 52) - 1);
  const __m512d clamp = _mm512_set1_pd(kFastExpClamp);
  const __m512d scale = _mm512_set1_pd(kFastExpScale);
  const __m512d sixty_fourth = _mm512_set1_pd(0.015625);
  const __m256i bias = _mm256_set1_epi32(1023), zero = _mm256_setzero_si256(), top = _mm256_set1_epi32(2047);
  const __m256i low6 = _mm256_set1_epi32(63);
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m512d v = _mm512_loadu_pd(x + i);
    const __m512i bits = _mm512_castpd_si512(v);
    const __mmask8 big = _mm512_cmpgt_epi64_mask(_mm512_and_si512(bits, abs_mask), big_limit);
    const __m512d pinned = _mm512_castsi512_pd(_mm512_or_si512(_mm512_castpd_si512(clamp), _mm512_and_si512(bits, sign_mask)));
    const __m512d y = _mm512_mask_blend_pd(big, _mm512_mul_pd(v, scale), pinned);
    const __m256i k = _mm512_cvtpd_epi32(y);  // current rounding mode, as lrint
    const __m512d r = _mm512_mul_pd(_mm512_sub_pd(y, _mm512_cvtepi32_pd(k)), sixty_fourth);
    const __m256i field =
        _mm256_min_epi32(_mm256_max_epi32(_mm256_add_epi32(_mm256_srai_epi32(k, 6), bias), zero), top);
    const __m512d s = _mm512_castsi512_pd(_mm512_slli_epi64(_mm512_cvtepi32_epi64(field), 52));
    const __m512d t = _mm512_i32gather_pd(_mm256_and_si256(k, low6), expTab, 8);
    __m512d p = _mm512_set1_pd(kFastExpP5);
    p = _mm512_add_pd(_mm512_mul_pd(p, r), _mm512_set1_pd(kFastExpP4));
    p = _mm512_add_pd(_mm512_mul_pd(p, r), _mm512_set1_pd(kFastExpP3));
    p = _mm512_add_pd(_mm512_mul_pd(p, r), _mm512_set1_pd(kFastExpP2));
    p = _mm512_add_pd(_mm512_mul_pd(p, r), _mm512_set1_pd(kFastExpP1));
    p = _mm512_add_pd(_mm512_mul_pd(p, r), _mm512_set1_pd(kFastExpP0));
    _mm512_storeu_pd(x + i, _mm512_mul_pd(_mm512_mul_pd(t, s), p));
  }
  for (; i < n; ++i) x[i] = fast_exp_one(x[i]);
}

void sigmoid_real32_avx512(float *x, int64_t n) {
  const __m512 one = _mm512_set1_ps(1.0f);
  int64_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m512 e = simd::exp_f32<simd::Avx512, false>(_mm512_loadu_ps(x + i));
    _mm512_storeu_ps(x + i, _mm512_div_ps(e, _mm512_add_ps(e, one)));
  }
  sigmoid_real32_plain(x + i, n - i);
}

}  // namespace oru
