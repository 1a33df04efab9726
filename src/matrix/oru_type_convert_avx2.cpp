// AVX2 forms of the conversions that image and tensor code calls most.
#include <immintrin.h>

#include <cstdint>

#include "matrix/oru_l1_kernels.h"

namespace oru {

void cvt_ai8u_to_aif32_avx2(float *d, const uint8_t *s, int64_t n) {
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(s + i));
    _mm256_storeu_ps(d + i, _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(bytes)));
  }
  for (; i < n; ++i) d[i] = float(s[i]);
}

void cvt_aif32_to_ai8u_avx2(uint8_t *d, const float *s, int64_t n) {
  // Round in the current mode as rint does; the saturating packs are the clamp to 0..255.
  // From 2^31 on the plain form keeps the low 32 bits of the integer, where the conversion
  // gives its out-of-range value: such a group of sixteen takes the plain step.
  const __m128i out_of_range = _mm_set1_epi32(INT32_MIN);
  int64_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i a = _mm_cvtps_epi32(_mm_loadu_ps(s + i));
    const __m128i b = _mm_cvtps_epi32(_mm_loadu_ps(s + i + 4));
    const __m128i c = _mm_cvtps_epi32(_mm_loadu_ps(s + i + 8));
    const __m128i e = _mm_cvtps_epi32(_mm_loadu_ps(s + i + 12));
    const __m128i ab = _mm_or_si128(_mm_cmpeq_epi32(a, out_of_range), _mm_cmpeq_epi32(b, out_of_range));
    const __m128i ce = _mm_or_si128(_mm_cmpeq_epi32(c, out_of_range), _mm_cmpeq_epi32(e, out_of_range));
    if (_mm_movemask_epi8(_mm_or_si128(ab, ce))) {
      for (int64_t k = 0; k < 16; ++k) d[i + k] = f_to_u8(double(s[i + k]));
      continue;
    }
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, e));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d + i), bytes);
  }
  for (; i < n; ++i) d[i] = f_to_u8(double(s[i]));
}

void cvt_aif32_to_aif64_avx2(double *d, const float *s, int64_t n) {
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) _mm256_storeu_pd(d + i, _mm256_cvtps_pd(_mm_loadu_ps(s + i)));
  for (; i < n; ++i) d[i] = double(s[i]);
}

void cvt_aif64_to_aif32_avx2(float *d, const double *s, int64_t n) {
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) _mm_storeu_ps(d + i, _mm256_cvtpd_ps(_mm256_loadu_pd(s + i)));
  for (; i < n; ++i) d[i] = float(s[i]);
}

}  // namespace oru
