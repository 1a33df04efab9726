// Flat float pooling over the planes of a CHW tensor, with windows that do not overlap:
// output (x, y) of a plane takes the kw x kh window whose top left corner is (x*kw, y*kh).
#ifndef ORU_CG_CPU_POOL_KERNELS_H
#define ORU_CG_CPU_POOL_KERNELS_H

#include <cstdint>

#include "core/oru_dispatch.h"

namespace oru {

struct PoolPlanes {
  const float *in;
  float *out;
  int32_t in_w;       // input row length, elements
  int64_t in_plane;   // input plane pitch, elements
  int32_t out_w, out_h;
  int64_t out_plane;  // output plane pitch, elements
  int32_t channels;
  int32_t kw, kh;     // window, also the stride; the caller keeps every window inside the input
};

// Max: the window's first element, replaced by any later element greater than it (a NaN never
// replaces it). Average: a sum from 0 row after row, then divided by kw and by kh, in that
// order. Vector forms keep that order per output, so they agree with the plain form bit for bit.
void max_pool2d_f32_plain(const PoolPlanes &p);
void max_pool2d_f32_avx2(const PoolPlanes &p);
void max_pool2d_f32_avx512(const PoolPlanes &p);
void max_pool2d_f32_neon(const PoolPlanes &p);

void avg_pool2d_f32_plain(const PoolPlanes &p);
void avg_pool2d_f32_avx2(const PoolPlanes &p);
void avg_pool2d_f32_avx512(const PoolPlanes &p);
void avg_pool2d_f32_neon(const PoolPlanes &p);

void max_pool2d_f32(const PoolPlanes &p);
void avg_pool2d_f32(const PoolPlanes &p);

namespace pool_detail {
// Internal linkage: the plain and the vector-ISA files each keep their own copy, so the
// linker can never hand the plain form a copy compiled for a wider instruction set.
namespace {

// One output per plane (global pooling): eight planes summed side by side, each still in
// its own row-after-row order, so the independent chains overlap in the pipeline.
template <bool IsMax>
inline void whole_planes(const PoolPlanes &p) {
  const int32_t kw = p.kw, kh = p.kh;
  int32_t c = 0;
  for (; c + 8 <= p.channels; c += 8) {
    float acc[8];
    const float *base[8];
    for (int j = 0; j < 8; ++j) {
      base[j] = p.in + (c + j) * p.in_plane;
      acc[j] = IsMax ? base[j][0] : 0.0f;
    }
    for (int32_t y = 0; y < kh; ++y)
      for (int32_t x = 0; x < kw; ++x) {
        const int64_t off = int64_t(y) * p.in_w + x;
        for (int j = 0; j < 8; ++j) {
          const float e = base[j][off];
          if (IsMax)
            acc[j] = e > acc[j] ? e : acc[j];
          else
            acc[j] = acc[j] + e;
        }
      }
    for (int j = 0; j < 8; ++j)
      p.out[(c + j) * p.out_plane] = IsMax ? acc[j] : acc[j] / float(kw) / float(kh);
  }
  for (; c < p.channels; ++c) {
    const float *b = p.in + c * p.in_plane;
    float acc = IsMax ? b[0] : 0.0f;
    for (int32_t y = 0; y < kh; ++y)
      for (int32_t x = 0; x < kw; ++x) {
        const float e = b[int64_t(y) * p.in_w + x];
        if (IsMax)
          acc = e > acc ? e : acc;
        else
          acc = acc + e;
      }
    p.out[c * p.out_plane] = IsMax ? acc : acc / float(kw) / float(kh);
  }
}

// One window, the reference order.
template <bool IsMax>
inline float window(const float *w, int32_t in_w, int32_t kw, int32_t kh) {
  float acc = IsMax ? w[0] : 0.0f;
  for (int32_t y = 0; y < kh; ++y)
    for (int32_t x = 0; x < kw; ++x) {
      const float e = w[int64_t(y) * in_w + x];
      if (IsMax)
        acc = e > acc ? e : acc;
      else
        acc = acc + e;
    }
  return IsMax ? acc : acc / float(kw) / float(kh);
}

}  // namespace
}  // namespace pool_detail
}  // namespace oru

#endif
