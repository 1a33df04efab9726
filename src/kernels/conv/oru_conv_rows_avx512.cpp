// AVX-512 forms of the convolution row kernels.
#include "kernels/simd/oru_simd_avx512.h"

#include "kernels/conv/oru_conv_rows_simd.h"

ORU_CONV_ROW_FORMS(avx512, ::oru::simd::Avx512)
