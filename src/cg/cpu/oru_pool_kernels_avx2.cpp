#include <immintrin.h>

#include "cg/cpu/oru_pool_kernels.h"

namespace oru {
namespace {

inline void split_pairs(const float *row, __m256 &even, __m256 &odd) {
  const __m256 lo = _mm256_loadu_ps(row), hi = _mm256_loadu_ps(row + 8);
  even = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(lo, hi, 0x88)), 0xD8));
  odd = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(lo, hi, 0xDD)), 0xD8));
}

// 2 x 2 windows, eight outputs at a time, in the reference order of the window.
template <bool IsMax>
void pool2x2(const PoolPlanes &p) {
  const __m256 half = _mm256_set1_ps(2.0f);
  for (int32_t c = 0; c < p.channels; ++c) {
    const float *in = p.in + c * p.in_plane;
    float *out = p.out + c * p.out_plane;
    for (int32_t oy = 0; oy < p.out_h; ++oy) {
      const float *r0 = in + int64_t(2 * oy) * p.in_w;
      const float *r1 = r0 + p.in_w;
      float *o = out + int64_t(oy) * p.out_w;
      int32_t ox = 0;
      for (; ox + 8 <= p.out_w; ox += 8) {
        __m256 a00, a01, a10, a11;
        split_pairs(r0 + 2 * ox, a00, a01);
        split_pairs(r1 + 2 * ox, a10, a11);
        __m256 v;
        if (IsMax) {
          v = _mm256_max_ps(a01, a00);
          v = _mm256_max_ps(a10, v);
          v = _mm256_max_ps(a11, v);
        } else {
          v = _mm256_add_ps(_mm256_setzero_ps(), a00);
          v = _mm256_add_ps(v, a01);
          v = _mm256_add_ps(v, a10);
          v = _mm256_add_ps(v, a11);
          v = _mm256_div_ps(_mm256_div_ps(v, half), half);
        }
        _mm256_storeu_ps(o + ox, v);
      }
      for (; ox < p.out_w; ++ox) o[ox] = pool_detail::window<IsMax>(r0 + 2 * ox, p.in_w, 2, 2);
    }
  }
}

}  // namespace

void max_pool2d_f32_avx2(const PoolPlanes &p) {
  if (p.kw == 2 && p.kh == 2)
    pool2x2<true>(p);
  else
    max_pool2d_f32_plain(p);
}

void avg_pool2d_f32_avx2(const PoolPlanes &p) {
  if (p.kw == 2 && p.kh == 2)
    pool2x2<false>(p);
  else
    avg_pool2d_f32_plain(p);
}

}  // namespace oru
