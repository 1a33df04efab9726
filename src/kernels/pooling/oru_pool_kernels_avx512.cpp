// The AVX-512 forms of the pool kernels.
#include "kernels/simd/oru_simd_avx512.h"

#include "kernels/pooling/oru_pool_kernels.h"
#include "kernels/pooling/oru_pool_kernels_simd.h"
#include "kernels/pooling/oru_pool_kernels_x86.h"

namespace oru {

void max_pool2d_f32_avx512(const PoolPlanes &p) { pool_simd::pool_form<simd::Avx512, true>(p, pool_x86::whole_planes<true>); }
void avg_pool2d_f32_avx512(const PoolPlanes &p) { pool_simd::pool_form<simd::Avx512, false>(p, pool_x86::whole_planes<false>); }

}  // namespace oru
