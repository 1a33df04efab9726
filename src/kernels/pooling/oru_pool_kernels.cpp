#include "kernels/pooling/oru_pool_kernels.h"

namespace oru {
namespace {

template <bool IsMax>
void pool_plain(const PoolPlanes &p) {
  if (p.out_w == 1 && p.out_h == 1) {
    pool_detail::whole_planes<IsMax>(p);
    return;
  }
  for (int32_t c = 0; c < p.channels; ++c) {
    const float *in = p.in + c * p.in_plane;
    float *out = p.out + c * p.out_plane;
    for (int32_t oy = 0; oy < p.out_h; ++oy)
      for (int32_t ox = 0; ox < p.out_w; ++ox)
        out[int64_t(oy) * p.out_w + ox] =
            pool_detail::window<IsMax>(in + int64_t(oy) * p.kh * p.in_w + int64_t(ox) * p.kw, p.in_w, p.kw, p.kh);
  }
}

}  // namespace

void max_pool2d_f32_plain(const PoolPlanes &p) { pool_plain<true>(p); }
void avg_pool2d_f32_plain(const PoolPlanes &p) { pool_plain<false>(p); }

void max_pool2d_f32(const PoolPlanes &p) {
  static const auto f = pick(ORU_KERNEL_FORMS(max_pool2d_f32));
  f(p);
}

void avg_pool2d_f32(const PoolPlanes &p) {
  static const auto f = pick(ORU_KERNEL_FORMS(avg_pool2d_f32));
  f(p);
}

}  // namespace oru
