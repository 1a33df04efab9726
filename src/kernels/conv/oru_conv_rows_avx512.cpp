// AVX-512 forms of the convolution row kernels.
#include <immintrin.h>

#include "kernels/conv/oru_conv_rows_simd.h"

namespace {

struct Avx512 {
  using T = __m512;
  static constexpr int W = 16;
  static T load(const float *p) { return _mm512_loadu_ps(p); }
  static void store(float *p, T v) { _mm512_storeu_ps(p, v); }
  static T set1(float v) { return _mm512_set1_ps(v); }
  static T add(T a, T b) { return _mm512_add_ps(a, b); }
  static T mul(T a, T b) { return _mm512_mul_ps(a, b); }
  // a > b ? a : b and a < b ? a : b through masks (GCC 12 warns on the max/min intrinsics).
  static T max(T a, T b) { return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(a, b, _CMP_GT_OQ), b, a); }
  static T min(T a, T b) { return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(a, b, _CMP_LT_OQ), b, a); }
  // p[0], p[2], ..., p[30].
  static T load_even(const float *p) {
    const __m512i idx = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    return _mm512_permutex2var_ps(_mm512_loadu_ps(p), idx, _mm512_loadu_ps(p + 16));
  }
};

}  // namespace

ORU_CONV_ROW_FORMS(avx512, Avx512)
