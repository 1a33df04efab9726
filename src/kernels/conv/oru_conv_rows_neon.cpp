// NEON forms of the convolution row kernels.
#include <arm_neon.h>

#include "kernels/conv/oru_conv_rows_simd.h"

namespace {

struct Neon {
  using T = float32x4_t;
  static constexpr int W = 4;
  static T load(const float *p) { return vld1q_f32(p); }
  static void store(float *p, T v) { vst1q_f32(p, v); }
  // Pointwise tile: 8 output channels x 2 vectors of pixels, 16 accumulators of the 32 registers.
  static constexpr int kPointwiseOut = 8, kPointwiseVecs = 2;
  // Stride-2 multi-channel tile: 4 output channels x 3 vectors, 12 sums and 12 accumulators.
  static constexpr int kStride2Out = 4, kStride2Vecs = 3;
  static T set1(float v) { return vdupq_n_f32(v); }
  static T add(T a, T b) { return vaddq_f32(a, b); }
  static T mul(T a, T b) { return vmulq_f32(a, b); }
  // a * b + c with one rounding.
  static T fma(T a, T b, T c) { return vfmaq_f32(c, a, b); }
  // a > b ? a : b and a < b ? a : b, as the plain form writes them (vmax would pass NaN on).
  static T max(T a, T b) { return vbslq_f32(vcgtq_f32(a, b), a, b); }
  static T min(T a, T b) { return vbslq_f32(vcltq_f32(a, b), a, b); }
  // p[0], p[2], p[4], p[6] and p[1], p[3], p[5], p[7].
  static void deinterleave(const float *p, T &even, T &odd) {
    const float32x4x2_t v = vld2q_f32(p);
    even = v.val[0];
    odd = v.val[1];
  }
  // No masked loads: ragged tails go through the scalar bodies.
  static constexpr bool kMasks = false;
};

}  // namespace

ORU_CONV_ROW_FORMS(neon, Neon)
