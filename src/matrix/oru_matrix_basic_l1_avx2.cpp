// AVX2 forms of the binary element-wise kernels.
#include "kernels/simd/oru_simd_avx2.h"

#include "matrix/oru_matrix_basic_l1_simd.h"

ORU_L1_BINARY_FORMS(avx2, ::oru::simd::Avx2, ::oru::simd::Avx2D)

namespace oru {

void div_real32_avx2(float *d, int64_t n, const float *a, const float *b) {
  l1_simd::binary<simd::Avx2, l1_simd::Div>(d, n, a, b, div_real32_plain);
}

}  // namespace oru
