// The AVX-512 traits of the vector recipe (core/oru_dispatch.h): sixteen floats or eight
// doubles, with masked tails. Every AVX-512 file includes it (or oru_simd_x86.h) first.
#ifndef ORU_KERNELS_SIMD_AVX512_H
#define ORU_KERNELS_SIMD_AVX512_H

#include "kernels/simd/oru_simd_x86.h"

#include <cstdint>

namespace oru {
namespace simd {
namespace {

struct Avx512 {
  using V = __m512;
  using I = __m512i;
  static constexpr int64_t kLanes = 16;
  static constexpr bool kMasked = true;

  static V load(const float *p) { return _mm512_loadu_ps(p); }
  static void store(float *p, V v) { _mm512_storeu_ps(p, v); }
  // The first n (< kLanes) elements; the others read as zero and are never written.
  static __mmask16 mask(int64_t n) { return static_cast<__mmask16>((1u << n) - 1u); }
  static V load_tail(const float *p, int64_t n) { return _mm512_maskz_loadu_ps(mask(n), p); }
  static void store_tail(float *p, V v, int64_t n) { _mm512_mask_storeu_ps(p, mask(n), v); }
  static V set1(float s) { return _mm512_set1_ps(s); }
  static V zero() { return _mm512_setzero_ps(); }
  static V add(V a, V b) { return _mm512_add_ps(a, b); }
  static V sub(V a, V b) { return _mm512_sub_ps(a, b); }
  static V mul(V a, V b) { return _mm512_mul_ps(a, b); }
  static V div(V a, V b) { return _mm512_div_ps(a, b); }
  static V fma(V a, V b, V c) { return _mm512_fmadd_ps(a, b, c); }
  static V fnma(V a, V b, V c) { return _mm512_fnmadd_ps(a, b, c); }
  static V max(V a, V b) { return _mm512_max_ps(a, b); }
  static V min(V a, V b) { return _mm512_min_ps(a, b); }
  static V pick_gt(V a, V b) { return _mm512_max_ps(a, b); }
  static V pick_lt(V a, V b) { return _mm512_min_ps(a, b); }
  static V select_ge(V a, V b, V t, V f) { return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(a, b, _CMP_GE_OQ), f, t); }
  static V select_gt(V a, V b, V t, V f) { return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(a, b, _CMP_GT_OQ), f, t); }
  static V keep_nan(V y, V x) { return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(x, x, _CMP_UNORD_Q), y, x); }

  static V round(V a) { return _mm512_roundscale_ps(a, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC); }
  static I to_int(V a) { return _mm512_cvtps_epi32(a); }
  static I half(I a) { return _mm512_srai_epi32(a, 1); }
  static I isub(I a, I b) { return _mm512_sub_epi32(a, b); }
  static V pow2(I e) { return _mm512_castsi512_ps(_mm512_slli_epi32(_mm512_add_epi32(e, _mm512_set1_epi32(127)), 23)); }

  static float hmax(V v) { return _mm512_reduce_max_ps(v); }
  static float hsum(V v) { return _mm512_reduce_add_ps(v); }

  static V load_even(const float *p) {
    const __m512i ei = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    return _mm512_permutex2var_ps(load(p), ei, load(p + kLanes));
  }
  static void load_pairs(const float *p, V &even, V &odd) {
    const __m512i ei = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    const __m512i oi = _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
    const V lo = load(p), hi = load(p + kLanes);
    even = _mm512_permutex2var_ps(lo, ei, hi);
    odd = _mm512_permutex2var_ps(lo, oi, hi);
  }
  static void store_pairs(float *p, V even, V odd) {
    const __m512i lo = _mm512_setr_epi32(0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    const __m512i hi = _mm512_setr_epi32(8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
    store(p, _mm512_permutex2var_ps(even, lo, odd));
    store(p + kLanes, _mm512_permutex2var_ps(even, hi, odd));
  }
};

struct Avx512D {
  using V = __m512d;
  static constexpr int64_t kLanes = 8;
  static constexpr bool kMasked = true;
  static V load(const double *p) { return _mm512_loadu_pd(p); }
  static void store(double *p, V v) { _mm512_storeu_pd(p, v); }
  static __mmask8 mask(int64_t n) { return static_cast<__mmask8>((1u << n) - 1u); }
  static V load_tail(const double *p, int64_t n) { return _mm512_maskz_loadu_pd(mask(n), p); }
  static void store_tail(double *p, V v, int64_t n) { _mm512_mask_storeu_pd(p, mask(n), v); }
  static V set1(double s) { return _mm512_set1_pd(s); }
  static V zero() { return _mm512_setzero_pd(); }
  static V add(V a, V b) { return _mm512_add_pd(a, b); }
  static V sub(V a, V b) { return _mm512_sub_pd(a, b); }
  static V mul(V a, V b) { return _mm512_mul_pd(a, b); }
  static V div(V a, V b) { return _mm512_div_pd(a, b); }
};

}  // namespace
}  // namespace simd
}  // namespace oru

#endif
