// The AVX-512 forms of the activation family: the bodies of oru_act_kernels_simd.h.
#include "kernels/simd/oru_simd_avx512.h"

#include "kernels/activation/oru_act_kernels_simd.h"

ORU_ACT_FORMS(avx512, ::oru::simd::Avx512)
