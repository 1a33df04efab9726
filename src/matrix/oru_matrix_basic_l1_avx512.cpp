// AVX-512 forms of the binary element-wise kernels.
#include "kernels/simd/oru_simd_avx512.h"

#include "matrix/oru_matrix_basic_l1_simd.h"

ORU_L1_BINARY_FORMS(avx512, ::oru::simd::Avx512, ::oru::simd::Avx512D)

namespace oru {

void div_real32_avx512(float *d, int64_t n, const float *a, const float *b) {
  l1_simd::binary<simd::Avx512, l1_simd::Div>(d, n, a, b, div_real32_plain);
}

}  // namespace oru
