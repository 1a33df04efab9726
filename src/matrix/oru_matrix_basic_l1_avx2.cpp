// AVX2 forms of the binary element-wise kernels.
#include "kernels/simd/oru_simd_avx2.h"

#include "matrix/oru_matrix_basic_l1_simd.h"

ORU_L1_BINARY_FORMS(avx2, ::oru::simd::Avx2, ::oru::simd::Avx2D)

namespace oru {
ORU_L1_BINARY_FORM(div_real32, avx2, float, simd::Avx2, Div)
}  // namespace oru
