// AVX-512 forms of the convolution row kernels.
#include <immintrin.h>

#include "kernels/conv/oru_conv_rows_simd.h"

namespace {

struct Avx512 {
  using T = __m512;
  static constexpr int W = 16;
  static T load(const float *p) { return _mm512_loadu_ps(p); }
  static void store(float *p, T v) { _mm512_storeu_ps(p, v); }
  // Pointwise tile: 8 output channels x 3 vectors of pixels, 24 accumulators of the 32 registers.
  static constexpr int kPointwiseOut = 8, kPointwiseVecs = 3;
  // Stride-2 multi-channel tile: 4 output channels x 3 vectors, 12 sums and 12 accumulators.
  static constexpr int kStride2Out = 4, kStride2Vecs = 3;
  static T set1(float v) { return _mm512_set1_ps(v); }
  static T add(T a, T b) { return _mm512_add_ps(a, b); }
  static T mul(T a, T b) { return _mm512_mul_ps(a, b); }
  // a * b + c with one rounding.
  static T fma(T a, T b, T c) { return _mm512_fmadd_ps(a, b, c); }
  // a > b ? a : b and a < b ? a : b through masks (GCC 12 warns on the max/min intrinsics).
  static T max(T a, T b) { return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(a, b, _CMP_GT_OQ), b, a); }
  static T min(T a, T b) { return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(a, b, _CMP_LT_OQ), b, a); }
  // p[0], p[2], ..., p[30] and p[1], p[3], ..., p[31].
  static void deinterleave(const float *p, T &even, T &odd) {
    const __m512i ie = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    const __m512i io = _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
    const __m512 a = _mm512_loadu_ps(p), b = _mm512_loadu_ps(p + 16);
    even = _mm512_permutex2var_ps(a, ie, b);
    odd = _mm512_permutex2var_ps(a, io, b);
  }
  // Masked loads read nothing in the lanes they skip, so a tail may end at any float.
  static constexpr bool kMasks = true;
  using M = __mmask16;
  static M mask(int64_t count) { return count >= 16 ? M(0xFFFF) : count <= 0 ? M(0) : M((1u << count) - 1u); }
  static T load_mask(const float *p, M m) { return _mm512_maskz_loadu_ps(m, p); }
  static void store_mask(float *p, T v, M m) { _mm512_mask_storeu_ps(p, m, v); }
};

}  // namespace

ORU_CONV_ROW_FORMS(avx512, Avx512)
