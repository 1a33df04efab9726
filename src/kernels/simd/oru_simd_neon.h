// The NEON traits of the vector recipe (core/oru_dispatch.h): four floats or two doubles.
// Internal to each including file.
#ifndef ORU_KERNELS_SIMD_NEON_H
#define ORU_KERNELS_SIMD_NEON_H

#include <arm_neon.h>

#include <cstdint>

namespace oru {
namespace simd {
namespace {

struct Neon {
  using V = float32x4_t;
  using I = int32x4_t;
  static constexpr int64_t kLanes = 4;
  static constexpr bool kMasked = false;

  static V load(const float *p) { return vld1q_f32(p); }
  static void store(float *p, V v) { vst1q_f32(p, v); }
  static V set1(float s) { return vdupq_n_f32(s); }
  static V zero() { return vdupq_n_f32(0.0f); }
  static V add(V a, V b) { return vaddq_f32(a, b); }
  static V sub(V a, V b) { return vsubq_f32(a, b); }
  static V mul(V a, V b) { return vmulq_f32(a, b); }
  static V div(V a, V b) { return vdivq_f32(a, b); }
  static V fma(V a, V b, V c) { return vfmaq_f32(c, a, b); }
  static V fnma(V a, V b, V c) { return vfmsq_f32(c, a, b); }
  // The instruction's own rule: a NaN in either operand gives NaN.
  static V max(V a, V b) { return vmaxq_f32(a, b); }
  static V min(V a, V b) { return vminq_f32(a, b); }
  // a > b ? a : b and a < b ? a : b, the plain forms' comparisons (vmaxq would pass a NaN on).
  static V pick_gt(V a, V b) { return vbslq_f32(vcgtq_f32(a, b), a, b); }
  static V pick_lt(V a, V b) { return vbslq_f32(vcltq_f32(a, b), a, b); }
  static V select_ge(V a, V b, V t, V f) { return vbslq_f32(vcgeq_f32(a, b), t, f); }
  static V select_gt(V a, V b, V t, V f) { return vbslq_f32(vcgtq_f32(a, b), t, f); }
  static V keep_nan(V y, V x) { return vbslq_f32(vmvnq_u32(vceqq_f32(x, x)), x, y); }

  static V round(V a) { return vrndnq_f32(a); }
  static I to_int(V a) { return vcvtq_s32_f32(a); }
  static I half(I a) { return vshrq_n_s32(a, 1); }
  static I isub(I a, I b) { return vsubq_s32(a, b); }
  static V pow2(I e) { return vreinterpretq_f32_s32(vshlq_n_s32(vaddq_s32(e, vdupq_n_s32(127)), 23)); }

  static float hmax(V v) { return vmaxvq_f32(v); }
  static float hsum(V v) { return vaddvq_f32(v); }

  static V load_even(const float *p) { return vld2q_f32(p).val[0]; }
  static void load_pairs(const float *p, V &even, V &odd) {
    const float32x4x2_t ab = vld2q_f32(p);
    even = ab.val[0];
    odd = ab.val[1];
  }
  static void store_pairs(float *p, V even, V odd) {
    float32x4x2_t out;
    out.val[0] = even;
    out.val[1] = odd;
    vst2q_f32(p, out);
  }
};

struct NeonD {
  using V = float64x2_t;
  static constexpr int64_t kLanes = 2;
  static constexpr bool kMasked = false;
  static V load(const double *p) { return vld1q_f64(p); }
  static void store(double *p, V v) { vst1q_f64(p, v); }
  static V set1(double s) { return vdupq_n_f64(s); }
  static V zero() { return vdupq_n_f64(0.0); }
  static V add(V a, V b) { return vaddq_f64(a, b); }
  static V sub(V a, V b) { return vsubq_f64(a, b); }
  static V mul(V a, V b) { return vmulq_f64(a, b); }
  static V div(V a, V b) { return vdivq_f64(a, b); }
};

}  // namespace
}  // namespace simd
}  // namespace oru

#endif
