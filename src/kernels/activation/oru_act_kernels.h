// Flat float kernels behind the element-wise graph operators: the rectifier and the other
// activations, the two-class and general softmax, and addition. Each has a plain form (the
// reference) and vector forms.
#ifndef ORU_KERNELS_ACT_KERNELS_H
#define ORU_KERNELS_ACT_KERNELS_H

#include <cstdint>

#include "core/oru_dispatch.h"

namespace oru {

// y = x > 0 ? x : +0, so a negative value, a negative zero and a NaN all give +0; in place
// when y == x.
ORU_DECLARE_FORMS(relu_f32, float *y, const float *x, int64_t n)

// y[i] = e / (e + 1), e = exp(x[i]); in place when y == x. An overflowing exponential gives
// a NaN, as the plain quotient does. The vector forms use the vector exponential, within 2 ulp.
ORU_DECLARE_FORMS(sigmoid_f32, float *y, const float *x, int64_t n)

// Softmax of `rows` rows of `len` elements each, through the log of the sum; in place allowed.
ORU_DECLARE_FORMS(softmax_rows_f32, float *y, const float *x, int64_t rows, int64_t len)

// y = (x * clamp(x + 3, 0, 6)) * (1/6 as float); the forms agree bit for bit.
ORU_DECLARE_FORMS(hswish_f32, float *y, const float *x, int64_t n)

// out[i] = a[i] + b[i].
ORU_DECLARE_FORMS(add_f32, float *out, const float *a, const float *b, int64_t n)

// out[i] = a[i] + s, one channel of a per-channel addition.
ORU_DECLARE_FORMS(add_scalar_f32, float *out, const float *a, float s, int64_t n)

// y = min(max(x, 0), 6); a NaN and a negative zero give +0.
void relu6_f32(float *y, const float *x, int64_t n);

// The chosen forms, picked once.
void sigmoid_f32(float *y, const float *x, int64_t n);
void softmax_rows_f32(float *y, const float *x, int64_t rows, int64_t len);
void hswish_f32(float *y, const float *x, int64_t n);
void add_f32(float *out, const float *a, const float *b, int64_t n);
void add_scalar_f32(float *out, const float *a, float s, int64_t n);

// 1/6 rounded to float, the hard-swish scale (bits 0x3E2AAAAB).
constexpr float kHswishScale = 0.16666667f;

}  // namespace oru

#endif
