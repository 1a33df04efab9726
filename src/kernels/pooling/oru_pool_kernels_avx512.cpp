#include "kernels/simd/oru_simd_avx512.h"

#include "kernels/pooling/oru_pool_kernels.h"
#include "kernels/pooling/oru_pool_kernels_simd.h"
#include "kernels/pooling/oru_pool_kernels_x86.h"

namespace oru {
namespace {

// Sixteen lanes.
struct Vec512 {
  using V = __m512;
  static constexpr int32_t kLanes = 16;
  static void split(const float *row, V &even, V &odd) {
    const __m512i even_idx = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    const __m512i odd_idx = _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
    const __m512 lo = _mm512_loadu_ps(row), hi = _mm512_loadu_ps(row + 16);
    even = _mm512_permutex2var_ps(lo, even_idx, hi);
    odd = _mm512_permutex2var_ps(lo, odd_idx, hi);
  }
  static V max(V a, V b) { return _mm512_max_ps(a, b); }
  static V add(V a, V b) { return _mm512_add_ps(a, b); }
  static V div(V a, V b) { return _mm512_div_ps(a, b); }
  static V set1(float x) { return _mm512_set1_ps(x); }
  static V zero() { return _mm512_setzero_ps(); }
  template <bool IsMax> static void whole(const PoolPlanes &p) { pool_x86::whole_planes<IsMax>(p); }
  static void store(float *p, V v) { _mm512_storeu_ps(p, v); }
};

}  // namespace

void max_pool2d_f32_avx512(const PoolPlanes &p) { pool_simd::pool_form<Vec512, true>(p); }
void avg_pool2d_f32_avx512(const PoolPlanes &p) { pool_simd::pool_form<Vec512, false>(p); }

}  // namespace oru
