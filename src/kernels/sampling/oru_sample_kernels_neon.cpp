// NEON forms of the sampling row kernels; without a gather, the four taps go lane by lane.
#include <arm_neon.h>

#include "kernels/sampling/oru_sample_kernels_simd.h"

namespace {

struct Neon {
  using T = float32x4_t;
  using I = const int32_t *;
  static constexpr int W = 4;
  static T load(const float *p) { return vld1q_f32(p); }
  static void store(float *p, T v) { vst1q_f32(p, v); }
  static T set1(float v) { return vdupq_n_f32(v); }
  static T add(T a, T b) { return vaddq_f32(a, b); }
  static T mul(T a, T b) { return vmulq_f32(a, b); }
  static I load_index(const int32_t *p) { return p; }
  static T gather(const float *base, I idx) {
    T v = vdupq_n_f32(base[idx[0]]);
    v = vld1q_lane_f32(base + idx[1], v, 1);
    v = vld1q_lane_f32(base + idx[2], v, 2);
    return vld1q_lane_f32(base + idx[3], v, 3);
  }
};

}  // namespace

ORU_SAMPLE_FORMS(neon, Neon)
