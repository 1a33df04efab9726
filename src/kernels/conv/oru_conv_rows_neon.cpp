// NEON forms of the convolution row kernels.
#include <arm_neon.h>

#include "kernels/conv/oru_conv_rows_simd.h"

namespace {

struct Neon {
  using T = float32x4_t;
  static constexpr int W = 4;
  static T load(const float *p) { return vld1q_f32(p); }
  static void store(float *p, T v) { vst1q_f32(p, v); }
  static T set1(float v) { return vdupq_n_f32(v); }
  static T add(T a, T b) { return vaddq_f32(a, b); }
  static T mul(T a, T b) { return vmulq_f32(a, b); }
  // a > b ? a : b and a < b ? a : b, as the plain form writes them (vmax would pass NaN on).
  static T max(T a, T b) { return vbslq_f32(vcgtq_f32(a, b), a, b); }
  static T min(T a, T b) { return vbslq_f32(vcltq_f32(a, b), a, b); }
  // p[0], p[2], p[4], p[6].
  static T load_even(const float *p) { return vld2q_f32(p).val[0]; }
};

}  // namespace

ORU_CONV_ROW_FORMS(neon, Neon)
