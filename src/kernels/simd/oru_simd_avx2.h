// The AVX2 traits of the vector recipe (core/oru_dispatch.h): eight floats or four doubles.
// Internal to each including file, which compiles it with its own flags.
#ifndef ORU_KERNELS_SIMD_AVX2_H
#define ORU_KERNELS_SIMD_AVX2_H

#include "kernels/simd/oru_simd_x86.h"

#include <cstdint>

namespace oru {
namespace simd {
namespace {

struct Avx2 {
  using V = __m256;
  using I = __m256i;
  static constexpr int64_t kLanes = 8;
  static constexpr bool kMasked = false;

  static V load(const float *p) { return _mm256_loadu_ps(p); }
  static void store(float *p, V v) { _mm256_storeu_ps(p, v); }
  static V set1(float s) { return _mm256_set1_ps(s); }
  static V zero() { return _mm256_setzero_ps(); }
  static V add(V a, V b) { return _mm256_add_ps(a, b); }
  static V sub(V a, V b) { return _mm256_sub_ps(a, b); }
  static V mul(V a, V b) { return _mm256_mul_ps(a, b); }
  static V div(V a, V b) { return _mm256_div_ps(a, b); }
  // a * b + c and c - a * b, rounded once.
  static V fma(V a, V b, V c) { return _mm256_fmadd_ps(a, b, c); }
  static V fnma(V a, V b, V c) { return _mm256_fnmadd_ps(a, b, c); }
  // The instruction's own rule: b unless a is the larger (smaller), so a NaN in either gives b.
  static V max(V a, V b) { return _mm256_max_ps(a, b); }
  static V min(V a, V b) { return _mm256_min_ps(a, b); }
  // a > b ? a : b and a < b ? a : b, the plain forms' comparisons.
  static V pick_gt(V a, V b) { return _mm256_max_ps(a, b); }
  static V pick_lt(V a, V b) { return _mm256_min_ps(a, b); }
  static V select_ge(V a, V b, V t, V f) { return _mm256_blendv_ps(f, t, _mm256_cmp_ps(a, b, _CMP_GE_OQ)); }
  static V select_gt(V a, V b, V t, V f) { return _mm256_blendv_ps(f, t, _mm256_cmp_ps(a, b, _CMP_GT_OQ)); }
  // y, with x wherever x is a NaN.
  static V keep_nan(V y, V x) { return _mm256_blendv_ps(y, x, _mm256_cmp_ps(x, x, _CMP_UNORD_Q)); }

  static V round(V a) { return _mm256_round_ps(a, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC); }
  static I to_int(V a) { return _mm256_cvtps_epi32(a); }
  static I half(I a) { return _mm256_srai_epi32(a, 1); }
  static I isub(I a, I b) { return _mm256_sub_epi32(a, b); }
  // 2^e for e in the normal exponent range.
  static V pow2(I e) { return _mm256_castsi256_ps(_mm256_slli_epi32(_mm256_add_epi32(e, _mm256_set1_epi32(127)), 23)); }

  static float hmax(V v) {
    __m128 m = _mm_max_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
    m = _mm_max_ps(m, _mm_movehl_ps(m, m));
    m = _mm_max_ss(m, _mm_shuffle_ps(m, m, 1));
    return _mm_cvtss_f32(m);
  }
  static float hsum(V v) {
    __m128 s = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
    s = _mm_add_ps(s, _mm_movehl_ps(s, s));
    s = _mm_add_ss(s, _mm_shuffle_ps(s, s, 1));
    return _mm_cvtss_f32(s);
  }

  // The even and the odd elements of 2 * kLanes floats, and back.
  static V load_even(const float *p) {
    const V s = _mm256_shuffle_ps(load(p), load(p + kLanes), 0x88);
    return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(s), 0xD8));
  }
  static void load_pairs(const float *p, V &even, V &odd) {
    const V lo = load(p), hi = load(p + kLanes);
    even = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(lo, hi, 0x88)), 0xD8));
    odd = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(lo, hi, 0xDD)), 0xD8));
  }
  static void store_pairs(float *p, V even, V odd) {
    const V u0 = _mm256_unpacklo_ps(even, odd), u1 = _mm256_unpackhi_ps(even, odd);
    store(p, _mm256_permute2f128_ps(u0, u1, 0x20));
    store(p + kLanes, _mm256_permute2f128_ps(u0, u1, 0x31));
  }
};

struct Avx2D {
  using V = __m256d;
  static constexpr int64_t kLanes = 4;
  static constexpr bool kMasked = false;
  static V load(const double *p) { return _mm256_loadu_pd(p); }
  static void store(double *p, V v) { _mm256_storeu_pd(p, v); }
  static V set1(double s) { return _mm256_set1_pd(s); }
  static V zero() { return _mm256_setzero_pd(); }
  static V add(V a, V b) { return _mm256_add_pd(a, b); }
  static V sub(V a, V b) { return _mm256_sub_pd(a, b); }
  static V mul(V a, V b) { return _mm256_mul_pd(a, b); }
  static V div(V a, V b) { return _mm256_div_pd(a, b); }
};

}  // namespace
}  // namespace simd
}  // namespace oru

#endif
