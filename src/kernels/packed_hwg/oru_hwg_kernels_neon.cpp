// NEON forms of the packed HWG kernels: 8 lanes as a pair of 4-lane registers.
#include <arm_neon.h>

#include "kernels/packed_hwg/oru_hwg_kernels_simd.h"

namespace {

struct NeonV4 {
  using T = float32x4_t;
  static constexpr int regs = 1, lanes = 4;
  static void store_out(float *p, int64_t, T v) { store(p, v); }
  static T load(const float *p) { return vld1q_f32(p); }
  static void store(float *p, T v) { vst1q_f32(p, v); }
  static T zero() { return vdupq_n_f32(0.0f); }
  static T bcast(const float *p) { return vld1q_dup_f32(p); }
  static T fma(T a, T b, T c) { return vfmaq_f32(c, a, b); }
  static T add(T a, T b) { return vaddq_f32(a, b); }
  static T mul(T a, T b) { return vmulq_f32(a, b); }
  static T set1(float v) { return vdupq_n_f32(v); }
  // a > b ? a : b and a < b ? a : b, as the plain form writes them (vmax would pass NaN on).
  static T max(T a, T b) { return vbslq_f32(vcgtq_f32(a, b), a, b); }
  static T min(T a, T b) { return vbslq_f32(vcltq_f32(a, b), a, b); }
  // (p0 + p1) + (p2 + p3).
  static float hsum(T v) { return vpadds_f32(vget_low_f32(vpaddq_f32(v, v))); }
  // One-tap lanes: q_k = fma(w[2k+1], x[2k+1], w[2k] * x[2k]) in the even lanes.
  static T pairs(T w, T x) { return vfmaq_f32(vmulq_f32(w, x), vtrn2q_f32(w, w), vtrn2q_f32(x, x)); }
  // q0 + q1.
  static float pair_dot(T w, T x) {
    const T q = pairs(w, x);
    return vgetq_lane_f32(q, 0) + vgetq_lane_f32(q, 2);
  }
};

struct NeonV8 {
  struct T {
    float32x4_t lo, hi;
  };
  static constexpr int regs = 2, lanes = 8;
  static void store_out(float *p, int64_t, T v) { store(p, v); }
  static T load(const float *p) { return {vld1q_f32(p), vld1q_f32(p + 4)}; }
  static void store(float *p, T v) {
    vst1q_f32(p, v.lo);
    vst1q_f32(p + 4, v.hi);
  }
  static T zero() { return {vdupq_n_f32(0.0f), vdupq_n_f32(0.0f)}; }
  static T bcast(const float *p) {
    float32x4_t v = vld1q_dup_f32(p);
    return {v, v};
  }
  static T fma(T a, T b, T c) { return {vfmaq_f32(c.lo, a.lo, b.lo), vfmaq_f32(c.hi, a.hi, b.hi)}; }
  static T add(T a, T b) { return {vaddq_f32(a.lo, b.lo), vaddq_f32(a.hi, b.hi)}; }
  static T mul(T a, T b) { return {vmulq_f32(a.lo, b.lo), vmulq_f32(a.hi, b.hi)}; }
  // ((p0 + p1) + (p2 + p3)) + ((p4 + p5) + (p6 + p7)).
  static float hsum(T v) {
    float32x4_t q = vpaddq_f32(v.lo, v.hi);
    return vpadds_f32(vget_low_f32(vpaddq_f32(q, q)));
  }
  // One-tap lanes: ((q0 + q1) + (q2 + q3)) with q_k = fma(w[2k+1], x[2k+1], w[2k] * x[2k]).
  static float pair_dot(T w, T x) {
    const float32x4_t lo = NeonV4::pairs(w.lo, x.lo), hi = NeonV4::pairs(w.hi, x.hi);
    return (vgetq_lane_f32(lo, 0) + vgetq_lane_f32(lo, 2)) + (vgetq_lane_f32(hi, 0) + vgetq_lane_f32(hi, 2));
  }
};

// 4 x 4 blocks of floats for the group interleaving.
struct NeonQuad {
  using T = float32x4_t;
  static T load4(const float *p) { return vld1q_f32(p); }
  static void store4(float *p, T v) { vst1q_f32(p, v); }
  static void transpose4(T *v) {
    const float32x4_t a = vtrn1q_f32(v[0], v[1]), b = vtrn2q_f32(v[0], v[1]);
    const float32x4_t c = vtrn1q_f32(v[2], v[3]), d = vtrn2q_f32(v[2], v[3]);
    v[0] = vreinterpretq_f32_f64(vtrn1q_f64(vreinterpretq_f64_f32(a), vreinterpretq_f64_f32(c)));
    v[1] = vreinterpretq_f32_f64(vtrn1q_f64(vreinterpretq_f64_f32(b), vreinterpretq_f64_f32(d)));
    v[2] = vreinterpretq_f32_f64(vtrn2q_f64(vreinterpretq_f64_f32(a), vreinterpretq_f64_f32(c)));
    v[3] = vreinterpretq_f32_f64(vtrn2q_f64(vreinterpretq_f64_f32(b), vreinterpretq_f64_f32(d)));
  }
};

struct Neon {
  using Quad = NeonQuad;
  using V8 = NeonV8;
  using V4 = NeonV4;
  using VBias = NeonV4;
  static constexpr int regs = 32;
};

}  // namespace

ORU_HWG_FORMS(neon, Neon, ORU_HWG_NO_PAIR)
