#include <immintrin.h>

#include "kernels/activation/oru_cg_relu_kernel.h"

namespace oru {

// maxps returns its second operand unless the first is greater, so NaN and -0 give +0.
void relu_f32_avx2(float *dst, const float *src, int64_t n) {
  const __m256 zero = _mm256_setzero_ps();
  int64_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m256 a = _mm256_loadu_ps(src + i);
    const __m256 b = _mm256_loadu_ps(src + i + 8);
    _mm256_storeu_ps(dst + i, _mm256_max_ps(a, zero));
    _mm256_storeu_ps(dst + i + 8, _mm256_max_ps(b, zero));
  }
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(dst + i, _mm256_max_ps(_mm256_loadu_ps(src + i), zero));
  relu_f32_plain(dst + i, src + i, n - i);
}

}  // namespace oru
