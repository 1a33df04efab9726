// AVX2 forms of the packed HWG kernels: sixteen vector registers.
#include "kernels/packed_hwg/oru_hwg_kernels_x86.h"
#include "kernels/packed_hwg/oru_hwg_kernels_simd.h"

ORU_HWG_FORMS(avx2, X86<16>, ORU_HWG_NO_PAIR)
