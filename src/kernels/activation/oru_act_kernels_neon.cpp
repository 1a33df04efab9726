// The Neon forms of the activation family: the bodies of oru_act_kernels_simd.h.
#include "kernels/simd/oru_simd_neon.h"

#include "kernels/activation/oru_act_kernels_simd.h"

namespace oru {

using S = simd::Neon;

void relu_f32_neon(float *y, const float *x, int64_t n) { act_simd::relu<S>(y, x, n); }
void sigmoid_f32_neon(float *y, const float *x, int64_t n) { act_simd::sigmoid<S>(y, x, n); }
void hswish_f32_neon(float *y, const float *x, int64_t n) { act_simd::hswish<S>(y, x, n); }
void add_f32_neon(float *out, const float *a, const float *b, int64_t n) { act_simd::add<S>(out, a, b, n); }
void add_scalar_f32_neon(float *out, const float *a, float s, int64_t n) { act_simd::add_scalar<S>(out, a, s, n); }
void softmax_rows_f32_neon(float *y, const float *x, int64_t rows, int64_t len) {
  act_simd::softmax_rows<S>(y, x, rows, len);
}

}  // namespace oru
