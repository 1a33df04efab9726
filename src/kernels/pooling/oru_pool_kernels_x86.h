// One output per plane (global pooling) with eight planes in the eight lanes of a vector:
// blocks of 8 x 8 elements are transposed so that each lane still adds (or compares) its
// own plane's elements one after the other, in the reference order. Only for files
// compiled with AVX2.
#ifndef ORU_KERNELS_POOL_KERNELS_X86_H
#define ORU_KERNELS_POOL_KERNELS_X86_H

#include <immintrin.h>

#include "kernels/pooling/oru_pool_kernels.h"

namespace oru {
namespace pool_x86 {
// Internal to each including file: the AVX2 and AVX-512 files compile these with different
// flags, and the linker must not keep one file's copy for the other's.
namespace {

inline void transpose8(__m256 r[8]) {
  const __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]), t1 = _mm256_unpackhi_ps(r[0], r[1]);
  const __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]), t3 = _mm256_unpackhi_ps(r[2], r[3]);
  const __m256 t4 = _mm256_unpacklo_ps(r[4], r[5]), t5 = _mm256_unpackhi_ps(r[4], r[5]);
  const __m256 t6 = _mm256_unpacklo_ps(r[6], r[7]), t7 = _mm256_unpackhi_ps(r[6], r[7]);
  const __m256 s0 = _mm256_shuffle_ps(t0, t2, 0x44), s1 = _mm256_shuffle_ps(t0, t2, 0xEE);
  const __m256 s2 = _mm256_shuffle_ps(t1, t3, 0x44), s3 = _mm256_shuffle_ps(t1, t3, 0xEE);
  const __m256 s4 = _mm256_shuffle_ps(t4, t6, 0x44), s5 = _mm256_shuffle_ps(t4, t6, 0xEE);
  const __m256 s6 = _mm256_shuffle_ps(t5, t7, 0x44), s7 = _mm256_shuffle_ps(t5, t7, 0xEE);
  r[0] = _mm256_permute2f128_ps(s0, s4, 0x20);
  r[1] = _mm256_permute2f128_ps(s1, s5, 0x20);
  r[2] = _mm256_permute2f128_ps(s2, s6, 0x20);
  r[3] = _mm256_permute2f128_ps(s3, s7, 0x20);
  r[4] = _mm256_permute2f128_ps(s0, s4, 0x31);
  r[5] = _mm256_permute2f128_ps(s1, s5, 0x31);
  r[6] = _mm256_permute2f128_ps(s2, s6, 0x31);
  r[7] = _mm256_permute2f128_ps(s3, s7, 0x31);
}

template <bool IsMax>
inline __m256 step(__m256 acc, __m256 e) {
  return IsMax ? _mm256_max_ps(e, acc) : _mm256_add_ps(acc, e);
}

// G groups of eight planes side by side, each group one chain of dependent steps. The
// shuffles of the transposition set the pace here, so one group is used.
template <bool IsMax, int G>
void plane_groups(const PoolPlanes &p, int32_t c) {
  const int32_t kw = p.kw, kh = p.kh;
  const float *base[G][8];
  __m256 acc[G];
  for (int g = 0; g < G; ++g) {
    for (int j = 0; j < 8; ++j) base[g][j] = p.in + (c + 8 * g + j) * p.in_plane;
    acc[g] = IsMax ? _mm256_setr_ps(base[g][0][0], base[g][1][0], base[g][2][0], base[g][3][0], base[g][4][0],
                                    base[g][5][0], base[g][6][0], base[g][7][0])
                   : _mm256_setzero_ps();
  }
  for (int32_t y = 0; y < kh; ++y) {
    const int64_t row = int64_t(y) * p.in_w;
    int32_t x = 0;
    for (; x + 8 <= kw; x += 8) {
      for (int g = 0; g < G; ++g) {
        __m256 r[8];
        for (int j = 0; j < 8; ++j) r[j] = _mm256_loadu_ps(base[g][j] + row + x);
        transpose8(r);
        for (int j = 0; j < 8; ++j) acc[g] = step<IsMax>(acc[g], r[j]);
      }
    }
    for (; x < kw; ++x) {
      const int64_t o = row + x;
      for (int g = 0; g < G; ++g)
        acc[g] = step<IsMax>(acc[g], _mm256_setr_ps(base[g][0][o], base[g][1][o], base[g][2][o], base[g][3][o],
                                                    base[g][4][o], base[g][5][o], base[g][6][o], base[g][7][o]));
    }
  }
  for (int g = 0; g < G; ++g) {
    __m256 a = acc[g];
    if (!IsMax) {
      a = _mm256_div_ps(a, _mm256_set1_ps(float(kw)));
      a = _mm256_div_ps(a, _mm256_set1_ps(float(kh)));
    }
    alignas(32) float out[8];
    _mm256_store_ps(out, a);
    for (int j = 0; j < 8; ++j) p.out[(c + 8 * g + j) * p.out_plane] = out[j];
  }
}

template <bool IsMax>
void whole_planes(const PoolPlanes &p) {
  int32_t c = 0;
  for (; c + 8 <= p.channels; c += 8) plane_groups<IsMax, 1>(p, c);
  if (c < p.channels) {
    PoolPlanes rest = p;
    rest.in = p.in + c * p.in_plane;
    rest.out = p.out + c * p.out_plane;
    rest.channels = p.channels - c;
    pool_detail::whole_planes<IsMax>(rest);
  }
}

}  // namespace
}  // namespace pool_x86
}  // namespace oru

#endif
