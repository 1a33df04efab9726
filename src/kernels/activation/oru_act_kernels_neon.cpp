#include <arm_neon.h>

#include <cmath>

#include "kernels/activation/oru_act_kernels.h"

namespace oru {
namespace {

// e^x to a couple of ulp: x = n ln2 + r, a degree-6 polynomial in r, 2^n applied as two
// halves. NEON max and min carry a NaN through, so no separate NaN lane fix is needed.
inline float32x4_t exp4(float32x4_t x) {
  const float32x4_t xc = vminq_f32(vmaxq_f32(x, vdupq_n_f32(-104.0f)), vdupq_n_f32(89.0f));
  const float32x4_t n = vrndnq_f32(vmulq_f32(xc, vdupq_n_f32(1.44269504088896341f)));
  float32x4_t r = vfmsq_f32(xc, n, vdupq_n_f32(0.693359375f));
  r = vfmsq_f32(r, n, vdupq_n_f32(-2.12194440e-4f));
  float32x4_t p = vdupq_n_f32(1.9875691500e-4f);
  p = vfmaq_f32(vdupq_n_f32(1.3981999507e-3f), p, r);
  p = vfmaq_f32(vdupq_n_f32(8.3334519073e-3f), p, r);
  p = vfmaq_f32(vdupq_n_f32(4.1665795894e-2f), p, r);
  p = vfmaq_f32(vdupq_n_f32(1.6666665459e-1f), p, r);
  p = vfmaq_f32(vdupq_n_f32(5.0000001201e-1f), p, r);
  float32x4_t y = vfmaq_f32(vaddq_f32(r, vdupq_n_f32(1.0f)), p, vmulq_f32(r, r));
  const int32x4_t ni = vcvtq_s32_f32(n);
  const int32x4_t n1 = vshrq_n_s32(ni, 1);
  const int32x4_t n2 = vsubq_s32(ni, n1);
  const int32x4_t bias = vdupq_n_s32(127);
  const float32x4_t s1 = vreinterpretq_f32_s32(vshlq_n_s32(vaddq_s32(n1, bias), 23));
  const float32x4_t s2 = vreinterpretq_f32_s32(vshlq_n_s32(vaddq_s32(n2, bias), 23));
  y = vmulq_f32(vmulq_f32(y, s1), s2);
  // A NaN lane went through the clamp as NaN; keep the input's NaN as the plain form does.
  const uint32x4_t nan = vmvnq_u32(vceqq_f32(x, x));
  return vbslq_f32(nan, x, y);
}

}  // namespace

void sigmoid_f32_neon(float *y, const float *x, int64_t n) {
  const float32x4_t one = vdupq_n_f32(1.0f);
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const float32x4_t e = exp4(vld1q_f32(x + i));
    vst1q_f32(y + i, vdivq_f32(e, vaddq_f32(e, one)));
  }
  if (i < n) sigmoid_f32_plain(y + i, x + i, n - i);
}

void softmax_rows_f32_neon(float *y, const float *x, int64_t rows, int64_t len) {
  int64_t r = 0;
  if (len == 2) {
    // Two-class rows, four at a time: one exponential of (smaller - larger) per row.
    const float32x4_t one = vdupq_n_f32(1.0f);
    for (; r + 4 <= rows; r += 4) {
      const float32x4x2_t ab = vld2q_f32(x + 2 * r);
      const float32x4_t a = ab.val[0], b = ab.val[1];
      const float32x4_t e = exp4(vsubq_f32(vminq_f32(a, b), vmaxq_f32(a, b)));
      const float32x4_t s = vaddq_f32(one, e);
      float32x4x2_t out;
      out.val[0] = vdivq_f32(vbslq_f32(vcgeq_f32(a, b), one, e), s);
      out.val[1] = vdivq_f32(vbslq_f32(vcgtq_f32(b, a), one, e), s);
      vst2q_f32(y + 2 * r, out);
    }
  }
  for (; r < rows; ++r) {
    const float *xr = x + r * len;
    float *yr = y + r * len;
    float32x4_t vm = vdupq_n_f32(-3.4028235e38f);
    int64_t i = 0;
    for (; i + 4 <= len; i += 4) vm = vmaxq_f32(vld1q_f32(xr + i), vm);
    float m = vmaxvq_f32(vm);
    for (; i < len; ++i) m = xr[i] > m ? xr[i] : m;
    const float32x4_t mv = vdupq_n_f32(m);
    float32x4_t vs = vdupq_n_f32(0.0f);
    for (i = 0; i + 4 <= len; i += 4) vs = vaddq_f32(vs, exp4(vsubq_f32(vld1q_f32(xr + i), mv)));
    float s = vaddvq_f32(vs);
    for (; i < len; ++i) s += std::exp(xr[i] - m);
    const float t = m + (s == 0.0f ? -100.0f : std::log(s));
    const float32x4_t tv = vdupq_n_f32(t);
    for (i = 0; i + 4 <= len; i += 4) vst1q_f32(yr + i, exp4(vsubq_f32(vld1q_f32(xr + i), tv)));
    for (; i < len; ++i) yr[i] = std::exp(xr[i] - t);
  }
}

void hswish_f32_neon(float *y, const float *x, int64_t n) {
  const float32x4_t three = vdupq_n_f32(3.0f), six = vdupq_n_f32(6.0f), zero = vdupq_n_f32(0.0f);
  const float32x4_t c = vdupq_n_f32(kHswishScale);
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const float32x4_t v = vld1q_f32(x + i);
    const float32x4_t t = vminq_f32(six, vmaxq_f32(zero, vaddq_f32(v, three)));
    vst1q_f32(y + i, vmulq_f32(vmulq_f32(v, t), c));
  }
  if (i < n) hswish_f32_plain(y + i, x + i, n - i);
}

void add_f32_neon(float *out, const float *a, const float *b, int64_t n) {
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) vst1q_f32(out + i, vaddq_f32(vld1q_f32(a + i), vld1q_f32(b + i)));
  for (; i < n; ++i) out[i] = a[i] + b[i];
}

void add_scalar_f32_neon(float *out, const float *a, float s, int64_t n) {
  const float32x4_t sv = vdupq_n_f32(s);
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) vst1q_f32(out + i, vaddq_f32(vld1q_f32(a + i), sv));
  for (; i < n; ++i) out[i] = a[i] + s;
}

}  // namespace oru
