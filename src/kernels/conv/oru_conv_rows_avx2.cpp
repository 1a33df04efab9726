// AVX2 forms of the convolution row kernels.
#include "kernels/simd/oru_simd_avx2.h"

#include "kernels/conv/oru_conv_rows_simd.h"

ORU_CONV_ROW_FORMS(avx2, ::oru::simd::Avx2)
