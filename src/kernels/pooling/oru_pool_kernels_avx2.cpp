// The AVX2 forms of the pool kernels.
#include "kernels/simd/oru_simd_avx2.h"

#include "kernels/pooling/oru_pool_kernels.h"
#include "kernels/pooling/oru_pool_kernels_simd.h"
#include "kernels/pooling/oru_pool_kernels_x86.h"

namespace oru {

void max_pool2d_f32_avx2(const PoolPlanes &p) { pool_simd::pool_form<simd::Avx2, true>(p, pool_x86::whole_planes<true>); }
void avg_pool2d_f32_avx2(const PoolPlanes &p) { pool_simd::pool_form<simd::Avx2, false>(p, pool_x86::whole_planes<false>); }

}  // namespace oru
