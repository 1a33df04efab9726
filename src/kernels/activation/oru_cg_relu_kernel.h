// The rectifier over a float array, in every form: dst[i] = x > 0 ? x : +0, so a
// negative value, a negative zero and a NaN all give +0. dst may equal src.
#ifndef ORU_CG_RELU_KERNEL_H
#define ORU_CG_RELU_KERNEL_H

#include <cstdint>

namespace oru {

void relu_f32_plain(float *dst, const float *src, int64_t n);
void relu_f32_avx2(float *dst, const float *src, int64_t n);
void relu_f32_avx512(float *dst, const float *src, int64_t n);
void relu_f32_neon(float *dst, const float *src, int64_t n);

}  // namespace oru

#endif
