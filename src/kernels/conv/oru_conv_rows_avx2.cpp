// AVX2 forms of the convolution row kernels.
#include <immintrin.h>

#include "kernels/conv/oru_conv_rows_simd.h"

namespace {

struct Avx2 {
  using T = __m256;
  static constexpr int W = 8;
  static T load(const float *p) { return _mm256_loadu_ps(p); }
  static void store(float *p, T v) { _mm256_storeu_ps(p, v); }
  // Pointwise tile: 4 output channels x 3 vectors of pixels, 12 accumulators of the 16 registers.
  static constexpr int kPointwiseOut = 4, kPointwiseVecs = 3;
  // Stride-2 multi-channel tile: 2 output channels x 2 vectors, 4 sums and 4 accumulators.
  static constexpr int kStride2Out = 2, kStride2Vecs = 2;
  static T set1(float v) { return _mm256_set1_ps(v); }
  static T add(T a, T b) { return _mm256_add_ps(a, b); }
  static T mul(T a, T b) { return _mm256_mul_ps(a, b); }
  // a * b + c with one rounding.
  static T fma(T a, T b, T c) { return _mm256_fmadd_ps(a, b, c); }
  static T max(T a, T b) { return _mm256_max_ps(a, b); }
  static T min(T a, T b) { return _mm256_min_ps(a, b); }
  // p[0], p[2], ..., p[14] and p[1], p[3], ..., p[15].
  static void deinterleave(const float *p, T &even, T &odd) {
    const __m256 a = _mm256_loadu_ps(p), b = _mm256_loadu_ps(p + 8);
    even = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(a, b, 0x88)), 0xD8));
    odd = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(a, b, 0xDD)), 0xD8));
  }
  // Masked loads read nothing in the lanes they skip, so a tail may end at any float.
  static constexpr bool kMasks = true;
  using M = __m256i;
  static M mask(int64_t count) {
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(int(count)), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
  }
  static T load_mask(const float *p, M m) { return _mm256_maskload_ps(p, m); }
  static void store_mask(float *p, T v, M m) { _mm256_maskstore_ps(p, m, v); }
};

}  // namespace

ORU_CONV_ROW_FORMS(avx2, Avx2)
