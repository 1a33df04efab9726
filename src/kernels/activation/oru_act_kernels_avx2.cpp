#include <immintrin.h>

#include <cmath>

#include "kernels/activation/oru_act_kernels.h"

namespace oru {
namespace {

// e^x to a couple of ulp: x = n ln2 + r, a degree-6 polynomial in r, and 2^n applied as two
// halves so that results near the float limits (overflow to inf, subnormals) come out right.
inline __m256 exp8(__m256 x) {
  const __m256 xc = _mm256_min_ps(_mm256_max_ps(x, _mm256_set1_ps(-104.0f)), _mm256_set1_ps(89.0f));
  const __m256 n = _mm256_round_ps(_mm256_mul_ps(xc, _mm256_set1_ps(1.44269504088896341f)),
                                   _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
  __m256 r = _mm256_fnmadd_ps(n, _mm256_set1_ps(0.693359375f), xc);
  r = _mm256_fnmadd_ps(n, _mm256_set1_ps(-2.12194440e-4f), r);
  __m256 p = _mm256_set1_ps(1.9875691500e-4f);
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(1.3981999507e-3f));
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(8.3334519073e-3f));
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(4.1665795894e-2f));
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(1.6666665459e-1f));
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(5.0000001201e-1f));
  __m256 y = _mm256_fmadd_ps(p, _mm256_mul_ps(r, r), _mm256_add_ps(r, _mm256_set1_ps(1.0f)));
  const __m256i ni = _mm256_cvtps_epi32(n);
  const __m256i n1 = _mm256_srai_epi32(ni, 1);
  const __m256i n2 = _mm256_sub_epi32(ni, n1);
  const __m256i bias = _mm256_set1_epi32(127);
  const __m256 s1 = _mm256_castsi256_ps(_mm256_slli_epi32(_mm256_add_epi32(n1, bias), 23));
  const __m256 s2 = _mm256_castsi256_ps(_mm256_slli_epi32(_mm256_add_epi32(n2, bias), 23));
  y = _mm256_mul_ps(_mm256_mul_ps(y, s1), s2);
  return _mm256_blendv_ps(y, x, _mm256_cmp_ps(x, x, _CMP_UNORD_Q));
}

inline float hmax8(__m256 v) {
  __m128 m = _mm_max_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
  m = _mm_max_ps(m, _mm_movehl_ps(m, m));
  m = _mm_max_ss(m, _mm_shuffle_ps(m, m, 1));
  return _mm_cvtss_f32(m);
}

inline float hsum8(__m256 v) {
  __m128 s = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
  s = _mm_add_ps(s, _mm_movehl_ps(s, s));
  s = _mm_add_ss(s, _mm_shuffle_ps(s, s, 1));
  return _mm_cvtss_f32(s);
}

// Two-class rows, eight at a time: with m the larger value and e = exp(smaller - m), the
// results are 1 / (1 + e) and e / (1 + e), one exponential per row.
int64_t softmax_pairs(float *y, const float *x, int64_t rows) {
  const __m256 one = _mm256_set1_ps(1.0f);
  int64_t r = 0;
  for (; r + 8 <= rows; r += 8) {
    const __m256 lo = _mm256_loadu_ps(x + 2 * r);
    const __m256 hi = _mm256_loadu_ps(x + 2 * r + 8);
    const __m256 a = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(lo, hi, 0x88)), 0xD8));
    const __m256 b = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(lo, hi, 0xDD)), 0xD8));
    const __m256 e = exp8(_mm256_sub_ps(_mm256_min_ps(a, b), _mm256_max_ps(a, b)));
    const __m256 s = _mm256_add_ps(one, e);
    const __m256 ya = _mm256_div_ps(_mm256_blendv_ps(e, one, _mm256_cmp_ps(a, b, _CMP_GE_OQ)), s);
    const __m256 yb = _mm256_div_ps(_mm256_blendv_ps(e, one, _mm256_cmp_ps(b, a, _CMP_GT_OQ)), s);
    const __m256 u0 = _mm256_unpacklo_ps(ya, yb);
    const __m256 u1 = _mm256_unpackhi_ps(ya, yb);
    _mm256_storeu_ps(y + 2 * r, _mm256_permute2f128_ps(u0, u1, 0x20));
    _mm256_storeu_ps(y + 2 * r + 8, _mm256_permute2f128_ps(u0, u1, 0x31));
  }
  return r;
}

}  // namespace

void sigmoid_f32_avx2(float *y, const float *x, int64_t n) {
  const __m256 one = _mm256_set1_ps(1.0f);
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256 e = exp8(_mm256_loadu_ps(x + i));
    _mm256_storeu_ps(y + i, _mm256_div_ps(e, _mm256_add_ps(e, one)));
  }
  if (i < n) sigmoid_f32_plain(y + i, x + i, n - i);
}

void softmax_rows_f32_avx2(float *y, const float *x, int64_t rows, int64_t len) {
  int64_t r = 0;
  if (len == 2) r = softmax_pairs(y, x, rows);
  for (; r < rows; ++r) {
    const float *xr = x + r * len;
    float *yr = y + r * len;
    __m256 vm = _mm256_set1_ps(-3.4028235e38f);
    int64_t i = 0;
    for (; i + 8 <= len; i += 8) vm = _mm256_max_ps(_mm256_loadu_ps(xr + i), vm);
    float m = hmax8(vm);
    for (; i < len; ++i) m = xr[i] > m ? xr[i] : m;
    const __m256 mv = _mm256_set1_ps(m);
    __m256 vs = _mm256_setzero_ps();
    for (i = 0; i + 8 <= len; i += 8) vs = _mm256_add_ps(vs, exp8(_mm256_sub_ps(_mm256_loadu_ps(xr + i), mv)));
    float s = hsum8(vs);
    for (; i < len; ++i) s += std::exp(xr[i] - m);
    const float t = m + (s == 0.0f ? -100.0f : std::log(s));
    const __m256 tv = _mm256_set1_ps(t);
    for (i = 0; i + 8 <= len; i += 8) _mm256_storeu_ps(yr + i, exp8(_mm256_sub_ps(_mm256_loadu_ps(xr + i), tv)));
    for (; i < len; ++i) yr[i] = std::exp(xr[i] - t);
  }
}

void hswish_f32_avx2(float *y, const float *x, int64_t n) {
  const __m256 three = _mm256_set1_ps(3.0f), six = _mm256_set1_ps(6.0f), zero = _mm256_setzero_ps();
  const __m256 c = _mm256_set1_ps(kHswishScale);
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256 v = _mm256_loadu_ps(x + i);
    // Operand order matches the plain comparisons, so a NaN passes through the same way.
    __m256 t = _mm256_max_ps(zero, _mm256_add_ps(v, three));
    t = _mm256_min_ps(six, t);
    _mm256_storeu_ps(y + i, _mm256_mul_ps(_mm256_mul_ps(v, t), c));
  }
  if (i < n) hswish_f32_plain(y + i, x + i, n - i);
}

void add_f32_avx2(float *out, const float *a, const float *b, int64_t n) {
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(out + i, _mm256_add_ps(_mm256_loadu_ps(a + i), _mm256_loadu_ps(b + i)));
  for (; i < n; ++i) out[i] = a[i] + b[i];
}

void add_scalar_f32_avx2(float *out, const float *a, float s, int64_t n) {
  const __m256 sv = _mm256_set1_ps(s);
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(out + i, _mm256_add_ps(_mm256_loadu_ps(a + i), sv));
  for (; i < n; ++i) out[i] = a[i] + s;
}

}  // namespace oru
