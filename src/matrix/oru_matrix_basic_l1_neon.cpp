// NEON forms of the binary element-wise kernels. Float division takes the processor's
// reciprocal estimate with three refinement steps over whole groups of 16, then of 8.
#include <arm_neon.h>

#include "matrix/oru_l1_kernels.h"

namespace oru {
namespace {

struct Add {
  static float32x4_t v(float32x4_t a, float32x4_t b) { return vaddq_f32(a, b); }
  static float64x2_t v(float64x2_t a, float64x2_t b) { return vaddq_f64(a, b); }
  template <typename T> static T s(T a, T b) { return a + b; }
};
struct Sub {
  static float32x4_t v(float32x4_t a, float32x4_t b) { return vsubq_f32(a, b); }
  static float64x2_t v(float64x2_t a, float64x2_t b) { return vsubq_f64(a, b); }
  template <typename T> static T s(T a, T b) { return a - b; }
};
struct Mul {
  static float32x4_t v(float32x4_t a, float32x4_t b) { return vmulq_f32(a, b); }
  static float64x2_t v(float64x2_t a, float64x2_t b) { return vmulq_f64(a, b); }
  template <typename T> static T s(T a, T b) { return a * b; }
};
struct Div {
  static float64x2_t v(float64x2_t a, float64x2_t b) { return vdivq_f64(a, b); }
  template <typename T> static T s(T a, T b) { return a / b; }
};

inline float32x4_t load(const float *p) { return vld1q_f32(p); }
inline float64x2_t load(const double *p) { return vld1q_f64(p); }
inline void store(float *p, float32x4_t v) { vst1q_f32(p, v); }
inline void store(double *p, float64x2_t v) { vst1q_f64(p, v); }

template <typename Op, typename T>
void binary(T *d, int64_t n, const T *a, const T *b) {
  constexpr int64_t w = 16 / sizeof(T);
  int64_t i = 0;
  for (; i + 4 * w <= n; i += 4 * w) {
    const auto x0 = Op::v(load(a + i), load(b + i));
    const auto x1 = Op::v(load(a + i + w), load(b + i + w));
    const auto x2 = Op::v(load(a + i + 2 * w), load(b + i + 2 * w));
    const auto x3 = Op::v(load(a + i + 3 * w), load(b + i + 3 * w));
    store(d + i, x0);
    store(d + i + w, x1);
    store(d + i + 2 * w, x2);
    store(d + i + 3 * w, x3);
  }
  for (; i + w <= n; i += w) store(d + i, Op::v(load(a + i), load(b + i)));
  for (; i < n; ++i) d[i] = Op::s(a[i], b[i]);
}

inline float32x4_t reciprocal_divide(float32x4_t a, float32x4_t b) {
  float32x4_t r = vrecpeq_f32(b);
  r = vmulq_f32(vrecpsq_f32(b, r), r);
  r = vmulq_f32(vrecpsq_f32(b, r), r);
  r = vmulq_f32(vrecpsq_f32(b, r), r);
  return vmulq_f32(a, r);
}

}  // namespace

void add_real32_neon(float *d, int64_t n, const float *a, const float *b) { binary<Add>(d, n, a, b); }
void sub_real32_neon(float *d, int64_t n, const float *a, const float *b) { binary<Sub>(d, n, a, b); }
void mul_real32_neon(float *d, int64_t n, const float *a, const float *b) { binary<Mul>(d, n, a, b); }
void add_real64_neon(double *d, int64_t n, const double *a, const double *b) { binary<Add>(d, n, a, b); }
void sub_real64_neon(double *d, int64_t n, const double *a, const double *b) { binary<Sub>(d, n, a, b); }
void mul_real64_neon(double *d, int64_t n, const double *a, const double *b) { binary<Mul>(d, n, a, b); }
void div_real64_neon(double *d, int64_t n, const double *a, const double *b) { binary<Div>(d, n, a, b); }

void div_real32_neon(float *d, int64_t n, const float *a, const float *b) {
  int64_t i = 0;
  for (; i + 16 <= n; i += 16)
    for (int64_t k = 0; k < 16; k += 4) vst1q_f32(d + i + k, reciprocal_divide(vld1q_f32(a + i + k), vld1q_f32(b + i + k)));
  if (i + 8 <= n) {
    vst1q_f32(d + i, reciprocal_divide(vld1q_f32(a + i), vld1q_f32(b + i)));
    vst1q_f32(d + i + 4, reciprocal_divide(vld1q_f32(a + i + 4), vld1q_f32(b + i + 4)));
    i += 8;
  }
  for (; i < n; ++i) d[i] = a[i] / b[i];
}

void sqrt_real32_neon(float *x, int64_t n) {
  // x * (1 / sqrt(max(x, smallest normal))): zero stays zero without a division.
  const float32x4_t smallest = vdupq_n_f32(1.17549435e-38f);
  auto root = [smallest](float *p) {
    const float32x4_t v = vld1q_f32(p);
    const float32x4_t m = vmaxq_f32(v, smallest);
    float32x4_t r = vrsqrteq_f32(m);
    r = vmulq_f32(r, vrsqrtsq_f32(vmulq_f32(m, r), r));
    r = vmulq_f32(r, vrsqrtsq_f32(vmulq_f32(m, r), r));
    vst1q_f32(p, vmulq_f32(v, r));
  };
  int64_t i = 0;
  for (; i + 32 <= n; i += 32)
    for (int64_t k = 0; k < 32; k += 4) root(x + i + k);
  if (i + 16 <= n) {
    for (int64_t k = 0; k < 16; k += 4) root(x + i + k);
    i += 16;
  }
  for (; i < n; ++i) x[i] = __builtin_sqrtf(x[i]);
}

}  // namespace oru
