#include "kernels/activation/oru_cg_relu_kernel.h"

namespace oru {

void relu_f32_plain(float *dst, const float *src, int64_t n) {
  for (int64_t i = 0; i < n; ++i) {
    const float x = src[i];
    dst[i] = x > 0.0f ? x : 0.0f;  // false for NaN and for -0
  }
}

}  // namespace oru
