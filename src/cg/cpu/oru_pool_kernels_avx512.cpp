// GCC 12 flags the deliberately undefined pass-through operand inside its own AVX-512 headers.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include "cg/cpu/oru_pool_kernels.h"

namespace oru {
namespace {

// 2 x 2 windows, sixteen outputs at a time, in the reference order of the window.
template <bool IsMax>
void pool2x2(const PoolPlanes &p) {
  const __m512i even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
  const __m512i odd = _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
  const __m512 two = _mm512_set1_ps(2.0f);
  for (int32_t c = 0; c < p.channels; ++c) {
    const float *in = p.in + c * p.in_plane;
    float *out = p.out + c * p.out_plane;
    for (int32_t oy = 0; oy < p.out_h; ++oy) {
      const float *r0 = in + int64_t(2 * oy) * p.in_w;
      const float *r1 = r0 + p.in_w;
      float *o = out + int64_t(oy) * p.out_w;
      int32_t ox = 0;
      for (; ox + 16 <= p.out_w; ox += 16) {
        const __m512 l0 = _mm512_loadu_ps(r0 + 2 * ox), h0 = _mm512_loadu_ps(r0 + 2 * ox + 16);
        const __m512 l1 = _mm512_loadu_ps(r1 + 2 * ox), h1 = _mm512_loadu_ps(r1 + 2 * ox + 16);
        const __m512 a00 = _mm512_permutex2var_ps(l0, even, h0), a01 = _mm512_permutex2var_ps(l0, odd, h0);
        const __m512 a10 = _mm512_permutex2var_ps(l1, even, h1), a11 = _mm512_permutex2var_ps(l1, odd, h1);
        __m512 v;
        if (IsMax) {
          v = _mm512_max_ps(a01, a00);
          v = _mm512_max_ps(a10, v);
          v = _mm512_max_ps(a11, v);
        } else {
          v = _mm512_add_ps(_mm512_setzero_ps(), a00);
          v = _mm512_add_ps(v, a01);
          v = _mm512_add_ps(v, a10);
          v = _mm512_add_ps(v, a11);
          v = _mm512_div_ps(_mm512_div_ps(v, two), two);
        }
        _mm512_storeu_ps(o + ox, v);
      }
      for (; ox < p.out_w; ++ox) o[ox] = pool_detail::window<IsMax>(r0 + 2 * ox, p.in_w, 2, 2);
    }
  }
}

}  // namespace

void max_pool2d_f32_avx512(const PoolPlanes &p) {
  if (p.kw == 2 && p.kh == 2)
    pool2x2<true>(p);
  else
    max_pool2d_f32_plain(p);
}

void avg_pool2d_f32_avx512(const PoolPlanes &p) {
  if (p.kw == 2 && p.kh == 2)
    pool2x2<false>(p);
  else
    avg_pool2d_f32_plain(p);
}

}  // namespace oru
