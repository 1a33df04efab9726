#include "kernels/activation/oru_act_kernels.h"

#include <cmath>

namespace oru {

void relu_f32_plain(float *y, const float *x, int64_t n) {
  for (int64_t i = 0; i < n; ++i) y[i] = x[i] > 0.0f ? x[i] : 0.0f;  // false for NaN and for -0
}

void sigmoid_f32_plain(float *y, const float *x, int64_t n) {
  for (int64_t i = 0; i < n; ++i) {
    const float e = std::exp(x[i]);
    y[i] = e / (e + 1.0f);
  }
}

void softmax_rows_f32_plain(float *y, const float *x, int64_t rows, int64_t len) {
  for (int64_t r = 0; r < rows; ++r) {
    const float *xr = x + r * len;
    float *yr = y + r * len;
    float m = -3.4028235e38f;
    for (int64_t i = 0; i < len; ++i) m = xr[i] > m ? xr[i] : m;
    float s = 0.0f;
    for (int64_t i = 0; i < len; ++i) s += std::exp(xr[i] - m);
    // The log of the sum keeps a row whose largest value is huge from overflowing.
    const float t = m + (s == 0.0f ? -100.0f : std::log(s));
    for (int64_t i = 0; i < len; ++i) yr[i] = std::exp(xr[i] - t);
  }
}

void hswish_f32_plain(float *y, const float *x, int64_t n) {
  for (int64_t i = 0; i < n; ++i) {
    const float v = x[i];
    float t = v + 3.0f;
    t = t < 0.0f ? 0.0f : t;
    t = 6.0f < t ? 6.0f : t;
    y[i] = (v * t) * kHswishScale;
  }
}

void add_f32_plain(float *out, const float *a, const float *b, int64_t n) {
  for (int64_t i = 0; i < n; ++i) out[i] = a[i] + b[i];
}

void add_scalar_f32_plain(float *out, const float *a, float s, int64_t n) {
  for (int64_t i = 0; i < n; ++i) out[i] = a[i] + s;
}

void relu6_f32(float *y, const float *x, int64_t n) {
  for (int64_t i = 0; i < n; ++i) {
    // Written as comparisons so that a NaN and -0 both land on +0.
    float v = x[i] > 0.0f ? x[i] : 0.0f;
    y[i] = v < 6.0f ? v : 6.0f;
  }
}

void sigmoid_f32(float *y, const float *x, int64_t n) {
  static const auto f = pick(ORU_KERNEL_FORMS(sigmoid_f32));
  f(y, x, n);
}

void softmax_rows_f32(float *y, const float *x, int64_t rows, int64_t len) {
  static const auto f = pick(ORU_KERNEL_FORMS(softmax_rows_f32));
  f(y, x, rows, len);
}

void hswish_f32(float *y, const float *x, int64_t n) {
  static const auto f = pick(ORU_KERNEL_FORMS(hswish_f32));
  f(y, x, n);
}

void add_f32(float *out, const float *a, const float *b, int64_t n) {
  static const auto f = pick(ORU_KERNEL_FORMS(add_f32));
  f(out, a, b, n);
}

void add_scalar_f32(float *out, const float *a, float s, int64_t n) {
  static const auto f = pick(ORU_KERNEL_FORMS(add_scalar_f32));
  f(out, a, s, n);
}

}  // namespace oru
