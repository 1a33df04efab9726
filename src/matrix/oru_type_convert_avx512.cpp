// AVX-512 forms of the conversions that image and tensor code calls most.
#include "kernels/simd/oru_simd_avx512.h"

#include <cstdint>

#include "matrix/oru_l1_kernels.h"

namespace oru {

void cvt_ai8u_to_aif32_avx512(float *d, const uint8_t *s, int64_t n) {
  int64_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i));
    _mm512_storeu_ps(d + i, _mm512_cvtepi32_ps(_mm512_cvtepu8_epi32(bytes)));
  }
  for (; i < n; ++i) d[i] = float(s[i]);
}

void cvt_aif32_to_ai8u_avx512(uint8_t *d, const float *s, int64_t n) {
  // Round in the current mode as rint does, clamp, then keep the low byte. From 2^31 on the
  // plain form keeps the low 32 bits of the integer, where the conversion gives its
  // out-of-range value: such a group of sixteen takes the plain step.
  const __m512i lo = _mm512_setzero_si512(), hi = _mm512_set1_epi32(255);
  const __m512i out_of_range = _mm512_set1_epi32(INT32_MIN);
  int64_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m512i r = _mm512_cvtps_epi32(_mm512_loadu_ps(s + i));
    if (_mm512_cmpeq_epi32_mask(r, out_of_range)) {
      for (int64_t k = 0; k < 16; ++k) d[i + k] = f_to_u8(double(s[i + k]));
      continue;
    }
    const __m512i v = _mm512_min_epi32(_mm512_max_epi32(r, lo), hi);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d + i), _mm512_cvtepi32_epi8(v));
  }
  for (; i < n; ++i) d[i] = f_to_u8(double(s[i]));
}

void cvt_aif32_to_aif64_avx512(double *d, const float *s, int64_t n) {
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) _mm512_storeu_pd(d + i, _mm512_cvtps_pd(_mm256_loadu_ps(s + i)));
  for (; i < n; ++i) d[i] = double(s[i]);
}

void cvt_aif64_to_aif32_avx512(float *d, const double *s, int64_t n) {
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(d + i, _mm512_cvtpd_ps(_mm512_loadu_pd(s + i)));
  for (; i < n; ++i) d[i] = float(s[i]);
}

}  // namespace oru
