// AVX-512 form of the assignment's relaxation step: eight columns per step, the tail
// under a mask.
#include "kernels/simd/oru_simd_avx512.h"

#include <limits>

#include "tracking/oru_tracking_internal.h"

namespace oru {

int32_t lsa_relax_avx512(const double *crow, const double *v, const int32_t *rank, const int32_t *row4col,
                         double *shortest, int32_t *path, int32_t nc, int32_t row, double min_val, double u_row,
                         double *lowest) {
  const __m512d vmin = _mm512_set1_pd(min_val);
  const __m512d vu = _mm512_set1_pd(u_row);
  const __m256i vrow = _mm256_set1_epi32(row);
  const __m512d inf = _mm512_set1_pd(std::numeric_limits<double>::infinity());
  __m512d low = inf;
  for (int32_t j = 0; j < nc; j += 8) {
    const __mmask8 live = nc - j >= 8 ? __mmask8(0xff) : __mmask8((1u << (nc - j)) - 1u);
    const __m512d c = _mm512_maskz_loadu_pd(live, crow + j);
    // Same order as the plain form: ((min_val + c) - u) - v.
    const __m512d r = _mm512_sub_pd(_mm512_sub_pd(_mm512_add_pd(vmin, c), vu), _mm512_maskz_loadu_pd(live, v + j));
    const __m512d s = _mm512_mask_loadu_pd(inf, live, shortest + j);
    const __mmask8 better = _mm512_mask_cmp_pd_mask(live, r, s, _CMP_LT_OQ);
    const __m512d s2 = _mm512_mask_blend_pd(better, s, r);
    _mm512_mask_storeu_pd(shortest + j, better, s2);
    _mm256_mask_storeu_epi32(path + j, better, vrow);
    low = _mm512_min_pd(low, s2);
  }
  // Folded through memory: the reduction intrinsics trip the same header warning.
  double lanes[8];
  _mm512_storeu_pd(lanes, low);
  double best = lanes[0];
  for (int k = 1; k < 8; ++k) best = lanes[k] < best ? lanes[k] : best;
  *lowest = best;

  const __m512d vbest = _mm512_set1_pd(best);
  LsaPick pick;
  for (int32_t j = 0; j < nc; j += 8) {
    const __mmask8 live = nc - j >= 8 ? __mmask8(0xff) : __mmask8((1u << (nc - j)) - 1u);
    unsigned eq = _mm512_mask_cmp_pd_mask(live, _mm512_maskz_loadu_pd(live, shortest + j), vbest, _CMP_EQ_OQ);
    while (eq) {
      pick.offer(j + __builtin_ctz(eq), rank, row4col);
      eq &= eq - 1;
    }
  }
  return pick.column();
}

}  // namespace oru
