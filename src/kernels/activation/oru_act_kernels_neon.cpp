// The NEON forms of the activation family: the bodies of oru_act_kernels_simd.h.
#include "kernels/simd/oru_simd_neon.h"

#include "kernels/activation/oru_act_kernels_simd.h"

ORU_ACT_FORMS(neon, ::oru::simd::Neon)
