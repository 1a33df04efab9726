// AVX-512 forms of the packed HWG kernels: the same 8-lane body with thirty-two registers,
// so more output pixels share each weight load.
#include "kernels/packed_hwg/oru_hwg_kernels_x86.h"
#include "kernels/packed_hwg/oru_hwg_kernels_simd.h"

ORU_HWG_FORMS(avx512, X86<32>)
