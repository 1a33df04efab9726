// The x86-64 traits of the packed HWG kernels, for the AVX2 and AVX-512 files; internal to
// each file that includes it. R is the number of vector registers the file may use.
#ifndef ORU_KERNELS_HWG_KERNELS_X86_H
#define ORU_KERNELS_HWG_KERNELS_X86_H

#include <immintrin.h>

#include <cstdint>

namespace {

struct X86V8 {
  using T = __m256;
  static constexpr int regs = 1, lanes = 8;
  static void store_out(float *p, int64_t, T v) { store(p, v); }
  static T load(const float *p) { return _mm256_loadu_ps(p); }
  static void store(float *p, T v) { _mm256_storeu_ps(p, v); }
  static T zero() { return _mm256_setzero_ps(); }
  static T bcast(const float *p) { return _mm256_broadcast_ss(p); }
  static T fma(T a, T b, T c) { return _mm256_fmadd_ps(a, b, c); }
  static T add(T a, T b) { return _mm256_add_ps(a, b); }
  static T mul(T a, T b) { return _mm256_mul_ps(a, b); }
  static T set1(float v) { return _mm256_set1_ps(v); }
  // a > b ? a : b and a < b ? a : b, as the plain form writes them.
  static T max(T a, T b) { return _mm256_max_ps(a, b); }
  static T min(T a, T b) { return _mm256_min_ps(a, b); }
  // ((p0 + p1) + (p2 + p3)) + ((p4 + p5) + (p6 + p7)).
  static float hsum(T v) {
    __m128 q = _mm_hadd_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
    q = _mm_hadd_ps(q, q);
    return _mm_cvtss_f32(_mm_add_ss(q, _mm_movehdup_ps(q)));
  }
  // One-tap lanes: q_k = fma(w[2k+1], x[2k+1], w[2k] * x[2k]) in the even lanes, then
  // ((q0 + q1) + (q2 + q3)).
  static float pair_dot(T w, T x) {
    const T q = fma(_mm256_movehdup_ps(w), _mm256_movehdup_ps(x), mul(w, x));
    const __m128 e = _mm_shuffle_ps(_mm256_castps256_ps128(q), _mm256_extractf128_ps(q, 1), 0x88);
    const __m128 h = _mm_hadd_ps(e, e);
    return _mm_cvtss_f32(_mm_add_ss(h, _mm_movehdup_ps(h)));
  }
};

struct X86V4 {
  using T = __m128;
  static constexpr int regs = 1, lanes = 4;
  static void store_out(float *p, int64_t, T v) { store(p, v); }
  static T load(const float *p) { return _mm_loadu_ps(p); }
  static void store(float *p, T v) { _mm_storeu_ps(p, v); }
  static T zero() { return _mm_setzero_ps(); }
  static T bcast(const float *p) { return _mm_broadcast_ss(p); }
  static T fma(T a, T b, T c) { return _mm_fmadd_ps(a, b, c); }
  static T add(T a, T b) { return _mm_add_ps(a, b); }
  static T mul(T a, T b) { return _mm_mul_ps(a, b); }
  // (p0 + p1) + (p2 + p3).
  static float hsum(T v) {
    __m128 q = _mm_hadd_ps(v, v);
    return _mm_cvtss_f32(_mm_add_ss(q, _mm_movehdup_ps(q)));
  }
  // One-tap lanes: q0 + q1 with q_k = fma(w[2k+1], x[2k+1], w[2k] * x[2k]).
  static float pair_dot(T w, T x) {
    const T q = fma(_mm_movehdup_ps(w), _mm_movehdup_ps(x), mul(w, x));
    return _mm_cvtss_f32(_mm_add_ss(q, _mm_movehl_ps(q, q)));
  }
};

// 4 x 4 blocks of floats for the group interleaving.
struct X86Quad {
  using T = __m128;
  static T load4(const float *p) { return _mm_loadu_ps(p); }
  static void store4(float *p, T v) { _mm_storeu_ps(p, v); }
  static void transpose4(T *v) { _MM_TRANSPOSE4_PS(v[0], v[1], v[2], v[3]); }
};

template <int R, class VB = X86V8>
struct X86 {
  using Quad = X86Quad;
  using V8 = X86V8;
  using V4 = X86V4;
  using VBias = VB;
  static constexpr int regs = R;
};

}  // namespace

#endif
