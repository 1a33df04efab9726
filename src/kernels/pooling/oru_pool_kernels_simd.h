// The 2 x 2 windows and the choice of path of the pool kernels, written once over the
// traits of the vector recipe (core/oru_dispatch.h); each vector file instantiates them with
// its own traits and its own global pooling. Adds, divides and comparisons stay in the
// plain form's order, so every form matches its plain twin bit for bit.
#ifndef ORU_KERNELS_POOL_KERNELS_SIMD_H
#define ORU_KERNELS_POOL_KERNELS_SIMD_H

#include <cstdint>

#include "kernels/pooling/oru_pool_kernels.h"

namespace oru {
namespace pool_simd {
// Internal to each including file, which compiles it with its own flags.
namespace {

// 2 x 2 windows, kLanes outputs at a time, in the reference order of the window; pick_gt
// (a > b ? a : b) makes a NaN behave as in the plain form.
template <typename Vec, bool IsMax>
void pool2x2(const PoolPlanes &p) {
  using V = typename Vec::V;
  constexpr int32_t lanes = int32_t(Vec::kLanes);
  const V two = Vec::set1(2.0f);
  for (int32_t c = 0; c < p.channels; ++c) {
    const float *in = p.in + c * p.in_plane;
    float *out = p.out + c * p.out_plane;
    for (int32_t oy = 0; oy < p.out_h; ++oy) {
      const float *r0 = in + int64_t(2 * oy) * p.in_w;
      const float *r1 = r0 + p.in_w;
      float *o = out + int64_t(oy) * p.out_w;
      int32_t ox = 0;
      for (; ox + lanes <= p.out_w; ox += lanes) {
        V a00, a01, a10, a11;
        Vec::load_pairs(r0 + 2 * ox, a00, a01);
        Vec::load_pairs(r1 + 2 * ox, a10, a11);
        V v;
        if (IsMax) {
          v = Vec::pick_gt(a01, a00);
          v = Vec::pick_gt(a10, v);
          v = Vec::pick_gt(a11, v);
        } else {
          v = Vec::add(Vec::zero(), a00);
          v = Vec::add(v, a01);
          v = Vec::add(v, a10);
          v = Vec::add(v, a11);
          v = Vec::div(Vec::div(v, two), two);
        }
        Vec::store(o + ox, v);
      }
      for (; ox < p.out_w; ++ox) o[ox] = pool_detail::window<IsMax>(r0 + 2 * ox, p.in_w, 2, 2);
    }
  }
}

// A vector form: global pooling (whole, the form's own), 2 x 2 windows, or else the plain form.
template <typename Vec, bool IsMax>
void pool_form(const PoolPlanes &p, void (*whole)(const PoolPlanes &)) {
  if (p.out_w == 1 && p.out_h == 1)
    whole(p);
  else if (p.kw == 2 && p.kh == 2)
    pool2x2<Vec, IsMax>(p);
  else if (IsMax)
    max_pool2d_f32_plain(p);
  else
    avg_pool2d_f32_plain(p);
}

}  // namespace
}  // namespace pool_simd
}  // namespace oru

#endif
