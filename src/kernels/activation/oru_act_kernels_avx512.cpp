// GCC 12 flags the deliberately undefined pass-through operand inside its own AVX-512 headers.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <cmath>

#include "kernels/activation/oru_act_kernels.h"

namespace oru {
namespace {

// The same exponential as the eight-lane form: polynomial in r, 2^n applied as two halves.
inline __m512 exp16(__m512 x) {
  const __m512 xc = _mm512_min_ps(_mm512_max_ps(x, _mm512_set1_ps(-104.0f)), _mm512_set1_ps(89.0f));
  const __m512 n = _mm512_roundscale_ps(_mm512_mul_ps(xc, _mm512_set1_ps(1.44269504088896341f)),
                                        _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
  __m512 r = _mm512_fnmadd_ps(n, _mm512_set1_ps(0.693359375f), xc);
  r = _mm512_fnmadd_ps(n, _mm512_set1_ps(-2.12194440e-4f), r);
  __m512 p = _mm512_set1_ps(1.9875691500e-4f);
  p = _mm512_fmadd_ps(p, r, _mm512_set1_ps(1.3981999507e-3f));
  p = _mm512_fmadd_ps(p, r, _mm512_set1_ps(8.3334519073e-3f));
  p = _mm512_fmadd_ps(p, r, _mm512_set1_ps(4.1665795894e-2f));
  p = _mm512_fmadd_ps(p, r, _mm512_set1_ps(1.6666665459e-1f));
  p = _mm512_fmadd_ps(p, r, _mm512_set1_ps(5.0000001201e-1f));
  __m512 y = _mm512_fmadd_ps(p, _mm512_mul_ps(r, r), _mm512_add_ps(r, _mm512_set1_ps(1.0f)));
  const __m512i ni = _mm512_cvtps_epi32(n);
  const __m512i n1 = _mm512_srai_epi32(ni, 1);
  const __m512i n2 = _mm512_sub_epi32(ni, n1);
  const __m512i bias = _mm512_set1_epi32(127);
  const __m512 s1 = _mm512_castsi512_ps(_mm512_slli_epi32(_mm512_add_epi32(n1, bias), 23));
  const __m512 s2 = _mm512_castsi512_ps(_mm512_slli_epi32(_mm512_add_epi32(n2, bias), 23));
  y = _mm512_mul_ps(_mm512_mul_ps(y, s1), s2);
  return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(x, x, _CMP_UNORD_Q), y, x);
}

int64_t softmax_pairs(float *y, const float *x, int64_t rows) {
  const __m512 one = _mm512_set1_ps(1.0f);
  const __m512i even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
  const __m512i odd = _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
  const __m512i lo_idx = _mm512_setr_epi32(0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
  const __m512i hi_idx = _mm512_setr_epi32(8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
  int64_t r = 0;
  for (; r + 16 <= rows; r += 16) {
    const __m512 lo = _mm512_loadu_ps(x + 2 * r);
    const __m512 hi = _mm512_loadu_ps(x + 2 * r + 16);
    const __m512 a = _mm512_permutex2var_ps(lo, even, hi);
    const __m512 b = _mm512_permutex2var_ps(lo, odd, hi);
    const __m512 e = exp16(_mm512_sub_ps(_mm512_min_ps(a, b), _mm512_max_ps(a, b)));
    const __m512 s = _mm512_add_ps(one, e);
    const __m512 ya = _mm512_div_ps(_mm512_mask_blend_ps(_mm512_cmp_ps_mask(a, b, _CMP_GE_OQ), e, one), s);
    const __m512 yb = _mm512_div_ps(_mm512_mask_blend_ps(_mm512_cmp_ps_mask(b, a, _CMP_GT_OQ), e, one), s);
    _mm512_storeu_ps(y + 2 * r, _mm512_permutex2var_ps(ya, lo_idx, yb));
    _mm512_storeu_ps(y + 2 * r + 16, _mm512_permutex2var_ps(ya, hi_idx, yb));
  }
  return r;
}

}  // namespace

void sigmoid_f32_avx512(float *y, const float *x, int64_t n) {
  const __m512 one = _mm512_set1_ps(1.0f);
  int64_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m512 e = exp16(_mm512_loadu_ps(x + i));
    _mm512_storeu_ps(y + i, _mm512_div_ps(e, _mm512_add_ps(e, one)));
  }
  if (i < n) {
    const __mmask16 k = static_cast<__mmask16>((1u << (n - i)) - 1u);
    const __m512 e = exp16(_mm512_maskz_loadu_ps(k, x + i));
    _mm512_mask_storeu_ps(y + i, k, _mm512_div_ps(e, _mm512_add_ps(e, one)));
  }
}

void softmax_rows_f32_avx512(float *y, const float *x, int64_t rows, int64_t len) {
  int64_t r = 0;
  if (len == 2) r = softmax_pairs(y, x, rows);
  for (; r < rows; ++r) {
    const float *xr = x + r * len;
    float *yr = y + r * len;
    __m512 vm = _mm512_set1_ps(-3.4028235e38f);
    int64_t i = 0;
    for (; i + 16 <= len; i += 16) vm = _mm512_max_ps(_mm512_loadu_ps(xr + i), vm);
    float m = _mm512_reduce_max_ps(vm);
    for (; i < len; ++i) m = xr[i] > m ? xr[i] : m;
    const __m512 mv = _mm512_set1_ps(m);
    __m512 vs = _mm512_setzero_ps();
    for (i = 0; i + 16 <= len; i += 16) vs = _mm512_add_ps(vs, exp16(_mm512_sub_ps(_mm512_loadu_ps(xr + i), mv)));
    float s = _mm512_reduce_add_ps(vs);
    for (; i < len; ++i) s += std::exp(xr[i] - m);
    const float t = m + (s == 0.0f ? -100.0f : std::log(s));
    const __m512 tv = _mm512_set1_ps(t);
    for (i = 0; i + 16 <= len; i += 16) _mm512_storeu_ps(yr + i, exp16(_mm512_sub_ps(_mm512_loadu_ps(xr + i), tv)));
    for (; i < len; ++i) yr[i] = std::exp(xr[i] - t);
  }
}

void hswish_f32_avx512(float *y, const float *x, int64_t n) {
  const __m512 three = _mm512_set1_ps(3.0f), six = _mm512_set1_ps(6.0f), zero = _mm512_setzero_ps();
  const __m512 c = _mm512_set1_ps(kHswishScale);
  int64_t i = 0;
  for (; i < n; i += 16) {
    const __mmask16 k = n - i >= 16 ? __mmask16(0xFFFF) : static_cast<__mmask16>((1u << (n - i)) - 1u);
    const __m512 v = _mm512_maskz_loadu_ps(k, x + i);
    __m512 t = _mm512_max_ps(zero, _mm512_add_ps(v, three));
    t = _mm512_min_ps(six, t);
    _mm512_mask_storeu_ps(y + i, k, _mm512_mul_ps(_mm512_mul_ps(v, t), c));
  }
}

void add_f32_avx512(float *out, const float *a, const float *b, int64_t n) {
  for (int64_t i = 0; i < n; i += 16) {
    const __mmask16 k = n - i >= 16 ? __mmask16(0xFFFF) : static_cast<__mmask16>((1u << (n - i)) - 1u);
    _mm512_mask_storeu_ps(out + i, k, _mm512_add_ps(_mm512_maskz_loadu_ps(k, a + i), _mm512_maskz_loadu_ps(k, b + i)));
  }
}

void add_scalar_f32_avx512(float *out, const float *a, float s, int64_t n) {
  const __m512 sv = _mm512_set1_ps(s);
  for (int64_t i = 0; i < n; i += 16) {
    const __mmask16 k = n - i >= 16 ? __mmask16(0xFFFF) : static_cast<__mmask16>((1u << (n - i)) - 1u);
    _mm512_mask_storeu_ps(out + i, k, _mm512_add_ps(_mm512_maskz_loadu_ps(k, a + i), sv));
  }
}

}  // namespace oru
