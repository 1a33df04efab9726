#include <immintrin.h>

#include "kernels/pooling/oru_pool_kernels.h"
#include "kernels/pooling/oru_pool_kernels_simd.h"
#include "kernels/pooling/oru_pool_kernels_x86.h"

namespace oru {
namespace {

// Eight lanes.
struct Vec256 {
  using V = __m256;
  static constexpr int32_t kLanes = 8;
  static void split(const float *row, V &even, V &odd) {
    const __m256 lo = _mm256_loadu_ps(row), hi = _mm256_loadu_ps(row + 8);
    even = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(lo, hi, 0x88)), 0xD8));
    odd = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(lo, hi, 0xDD)), 0xD8));
  }
  static V max(V a, V b) { return _mm256_max_ps(a, b); }
  static V add(V a, V b) { return _mm256_add_ps(a, b); }
  static V div(V a, V b) { return _mm256_div_ps(a, b); }
  static V set1(float x) { return _mm256_set1_ps(x); }
  static V zero() { return _mm256_setzero_ps(); }
  template <bool IsMax> static void whole(const PoolPlanes &p) { pool_x86::whole_planes<IsMax>(p); }
  static void store(float *p, V v) { _mm256_storeu_ps(p, v); }
};

}  // namespace

void max_pool2d_f32_avx2(const PoolPlanes &p) { pool_simd::pool_form<Vec256, true>(p); }
void avg_pool2d_f32_avx2(const PoolPlanes &p) { pool_simd::pool_form<Vec256, false>(p); }

}  // namespace oru
