// The AVX2 forms of the activation family: the bodies of oru_act_kernels_simd.h.
#include "kernels/simd/oru_simd_avx2.h"

#include "kernels/activation/oru_act_kernels_simd.h"

ORU_ACT_FORMS(avx2, ::oru::simd::Avx2)
