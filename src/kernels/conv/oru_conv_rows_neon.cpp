// NEON forms of the convolution row kernels.
#include "kernels/simd/oru_simd_neon.h"

#include "kernels/conv/oru_conv_rows_simd.h"

ORU_CONV_ROW_FORMS(neon, ::oru::simd::Neon)
