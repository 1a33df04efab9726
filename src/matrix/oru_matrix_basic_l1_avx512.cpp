// AVX-512 forms of the binary element-wise kernels.
#include "kernels/simd/oru_simd_avx512.h"

#include "matrix/oru_matrix_basic_l1_simd.h"

ORU_L1_BINARY_FORMS(avx512, ::oru::simd::Avx512, ::oru::simd::Avx512D)

namespace oru {
ORU_L1_BINARY_FORM(div_real32, avx512, float, simd::Avx512, Div)
}  // namespace oru
