#include <immintrin.h>

#include "kernels/activation/oru_cg_relu_kernel.h"

namespace oru {

namespace {

// max(x, 0) as in the AVX2 form; the zero-masking spelling keeps some GCCs from warning
// about the undefined pass-through operand of the unmasked intrinsic.
inline __m512 max0(__m512 x) { return _mm512_maskz_max_ps(__mmask16(0xFFFF), x, _mm512_setzero_ps()); }

}  // namespace

// As the AVX2 form, with the tail under a mask instead of a scalar loop.
void relu_f32_avx512(float *dst, const float *src, int64_t n) {
  int64_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m512 a = _mm512_loadu_ps(src + i);
    const __m512 b = _mm512_loadu_ps(src + i + 16);
    _mm512_storeu_ps(dst + i, max0(a));
    _mm512_storeu_ps(dst + i + 16, max0(b));
  }
  for (; i + 16 <= n; i += 16) _mm512_storeu_ps(dst + i, max0(_mm512_loadu_ps(src + i)));
  if (i < n) {
    const __mmask16 m = __mmask16((1u << (n - i)) - 1u);
    _mm512_mask_storeu_ps(dst + i, m, max0(_mm512_maskz_loadu_ps(m, src + i)));
  }
}

}  // namespace oru
