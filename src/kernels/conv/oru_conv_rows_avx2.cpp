// AVX2 forms of the convolution row kernels.
#include <immintrin.h>

#include "kernels/conv/oru_conv_rows_simd.h"

namespace {

struct Avx2 {
  using T = __m256;
  static constexpr int W = 8;
  static T load(const float *p) { return _mm256_loadu_ps(p); }
  static void store(float *p, T v) { _mm256_storeu_ps(p, v); }
  static T set1(float v) { return _mm256_set1_ps(v); }
  static T add(T a, T b) { return _mm256_add_ps(a, b); }
  static T mul(T a, T b) { return _mm256_mul_ps(a, b); }
  static T max(T a, T b) { return _mm256_max_ps(a, b); }
  static T min(T a, T b) { return _mm256_min_ps(a, b); }
  // p[0], p[2], ..., p[14].
  static T load_even(const float *p) {
    __m256 s = _mm256_shuffle_ps(_mm256_loadu_ps(p), _mm256_loadu_ps(p + 8), 0x88);
    return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(s), 0xD8));
  }
};

}  // namespace

ORU_CONV_ROW_FORMS(avx2, Avx2)
